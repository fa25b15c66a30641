// Replays files (or every file of directories) through the fuzz target, so that the corpus and the crashers
// found by fuzzing run as an ordinary test in every build.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

int replayFile(const std::filesystem::path &path) {
    std::ifstream in(path, std::ios::binary);
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    int files = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path arg(argv[i]);
        if (std::filesystem::is_directory(arg)) {
            for (const auto &entry : std::filesystem::directory_iterator(arg))
                if (entry.is_regular_file())
                    files += replayFile(entry.path());
        } else {
            files += replayFile(arg);
        }
    }
    printf("replayed %d files\n", files);
    return files > 0 ? 0 : 1;
}
