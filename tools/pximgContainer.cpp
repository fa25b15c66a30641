// Container subcommands of pximg: `container write` stores a synthetic grab (one frame per image of the
// grab type) with the container's naming and encodings; `container read` reads a grab back, lists its files
// and prints the container's XML form.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>

#include "PxImageContainer.h"
#include "pxEnvPath.h"
#include "pximgTool.h"

namespace pximg {

namespace {

// Options shared by both subcommands.
struct GrabOptions {
    std::string directory;
    int32_t grabType = 1;
    uint32_t tile = 0;
    std::vector<uint32_t> sets;
    int32_t width = 320;
    int32_t height = 240;
    uint32_t seed = 1;
    std::string sheet; // read: also draw a contact sheet here
};

// A container that tells the tool the names and kind words it uses.
class ListedContainer : public PxImageContainer {
  public:
    explicit ListedContainer(const GrabOptions &options) {
        const uint32_t set0 = options.sets.size() > 0 ? options.sets[0] : 0;
        const uint32_t set1 = options.sets.size() > 1 ? options.sets[1] : 0;
        const uint32_t set2 = options.sets.size() > 2 ? options.sets[2] : 0;
        SetPrefix(options.tile, static_cast<PxGrabType>(options.grabType), set0, set1, set2);
        SetDir(wide(options.directory));
    }
    size_t imageCount() const { return static_cast<size_t>(numImages()); }
    // The current name of the file of slot i, or with `older` its older name.
    std::u16string nameOf(size_t i, bool older) const {
        char16_t name[NameCapacity];
        const bool made = older ? MakeFullOldImageName(GetDir().c_str(), i, name)
                                : MakeFullImageName(GetDir().c_str(), i, name);
        if (!made)
            throw Error(std::string("the ") + (older ? "older " : "") + "file name of image " +
                        std::to_string(i) + " is too long");
        return name;
    }
    // The file of slot i that Read takes: the current name, or the older one when that file is missing.
    std::u16string fileOf(size_t i, bool &older) const {
        older = !PxFileExist(nameOf(i, false).c_str());
        return nameOf(i, older);
    }
    std::string kindOf(size_t i, bool older) const {
        const int e = static_cast<int>(i / 3);
        return PxTextToUtf8(older ? oldKindWord(GetType(), e) : kindWord(GetType(), e));
    }

  private:
    static std::u16string wide(const std::string &path) {
        const std::vector<uint16_t> text = utf16Path(path);
        return std::u16string(text.begin(), text.end() - 1);
    }
};

// A failure of the container: the library joins the folder and a file name with '\\', which is shown with
// this system's separator.
Error grabFailure(const std::string &what, const std::string &directory) {
    std::string text = libraryFailure(what).what();
#ifndef _WIN32
    const std::string joined = directory + "\\";
    for (size_t at = text.find(joined); at != std::string::npos; at = text.find(joined, at + 1)) {
        text[at + directory.size()] = '/';
    }
#endif
    return Error(text);
}

// The last part of a name built with '\' or '/' separators.
std::string baseName(const std::string &name) {
    const size_t slash = name.find_last_of("\\/");
    return slash == std::string::npos ? name : name.substr(slash + 1);
}

// One line per image, in aligned columns: file name, kind word, encoding in the file, size and file size.
void listImages(const ListedContainer &container, const std::string &directory, std::ostream &out) {
    std::vector<std::vector<std::string>> rows;
    for (size_t i = 0; i < container.GetCount(); ++i) {
        bool older = false;
        const std::string name = baseName(PxTextToUtf8(container.fileOf(i, older).c_str()));
        std::string version;
        int32_t stored = 0;
        const std::string path = directory + "/" + name;
        ImagePtr header = readHeaderBlock(path, version, stored);
        const bool encoded = stored == CBIT || stored == CSHORT || stored == SHORT12;
        rows.push_back({name, container.kindOf(i, older), (encoded ? "" : "plain ") + pixelTypeName(stored),
                        std::to_string(header->width) + " x " + std::to_string(header->height),
                        std::to_string(std::filesystem::file_size(path)) + " bytes",
                        older ? "(older name)" : ""});
    }
    std::vector<size_t> widths(6, 0);
    for (const auto &row : rows)
        for (size_t c = 0; c < row.size(); ++c)
            widths[c] = std::max(widths[c], row[c].size());
    for (const auto &row : rows) {
        std::string line;
        for (size_t c = 0; c < row.size(); ++c) {
            const std::string pad(widths[c] - row[c].size(), ' ');
            const bool right = c == 3 || c == 4; // numbers line up on their last digit
            line += (c ? "  " : "") + (right ? pad + row[c] : row[c] + pad);
        }
        out << line.erase(line.find_last_not_of(' ') + 1) << '\n';
    }
}

void runWrite(const GrabOptions &options) {
    std::error_code error;
    std::filesystem::create_directories(options.directory, error);
    if (error) {
        throw Error(options.directory + ": cannot create the folder (" + error.message() + ")");
    }
    ListedContainer container(options);
    for (size_t i = 0; i < container.imageCount(); ++i)
        container.Add(synthesizeFrame(options.width, options.height, options.seed + uint32_t(i)).release());
    if (!container.Write())
        throw grabFailure(options.directory + ": cannot write the grab", options.directory);
    std::cout << "wrote " << container.GetCount() << " images of grab type " << options.grabType << ", tile "
              << options.tile << '\n';
    listImages(container, options.directory, std::cout);
}

// Before a read: names a file missing under both names, and says which files are read by their older name
// (in place of the library's own warning, which does not name the file).
void checkFiles(const ListedContainer &container, const std::string &directory) {
    std::error_code error;
    if (!std::filesystem::is_directory(directory, error))
        return; // the container reports a missing directory itself
    for (size_t i = 0; i < container.imageCount(); ++i) {
        bool older = false;
        const std::string file = baseName(PxTextToUtf8(container.fileOf(i, older).c_str()));
        if (!older)
            continue;
        const std::string current = baseName(PxTextToUtf8(container.nameOf(i, false).c_str()));
        if (!std::filesystem::exists(directory + "/" + file))
            throw Error(directory + ": image " + std::to_string(i) + " of the grab is missing: " +
                        (current == file ? current + " does not exist"
                                         : "neither " + current + " nor its older name " + file + " exists"));
        std::cerr << "pximg: warning: " << current << " not found; reading the older name " << file << '\n';
    }
}

// The contact sheet of a read grab: one tile per image, labelled with its kind, set and position.
void drawSheet(ListedContainer &container, const GrabOptions &options) {
    std::vector<cv::Mat> tiles;
    for (size_t i = 0; i < container.GetCount(); ++i) {
        const tag_pxImage *image = container.Get(i);
        if (image == nullptr) {
            continue;
        }
        bool older = false;
        container.fileOf(i, older);
        const size_t exposure = i / 3;
        const uint32_t set = exposure < options.sets.size() ? options.sets[exposure] : 0;
        tiles.push_back(contactTile(image,
                                    container.kindOf(i, older) + "  set " + std::to_string(set) + "  pos " +
                                        std::to_string(i % 3),
                                    240, 202));
    }
    writeSheet(tiles, options.sheet);
}

void runRead(const GrabOptions &options) {
    if (!options.sheet.empty()) {
        checkWritable(options.sheet); // before anything is printed
    }
    ListedContainer container(options);
    checkFiles(container, options.directory);
    showLibraryWarnings(false);
    const bool read = container.Read();
    showLibraryWarnings(true);
    if (!read)
        throw grabFailure(options.directory + ": cannot read the grab", options.directory);
    std::cout << "read " << container.GetCount() << " images of grab type " << options.grabType << ", tile "
              << options.tile << '\n';
    listImages(container, options.directory, std::cout);
    const std::u16string xml = container.toXMLString();
    std::cout << PxTextToUtf8(xml.c_str()) << '\n';
    if (!options.sheet.empty()) {
        drawSheet(container, options);
        std::cout << "contact sheet " << options.sheet << '\n';
    }
}

// Adds the options both subcommands take.
void addGrabOptions(CLI::App *command, GrabOptions &options) {
    command->add_option("DIR", options.directory, "directory of the grab's image files")->required();
    command->add_option("--grab-type", options.grabType, "grab type 1..55 (default 1)")
        ->check(CLI::Range(1, 55));
    command->add_option("--tile", options.tile, "tile number (default 0)");
    command
        ->add_option("--set", options.sets,
                     "set numbers of exposures 0, 1 and 2: one to three numbers (default 0)")
        ->expected(1, 3)
        ->type_name("S0 [S1 [S2]]");
}

} // namespace

void addContainerCommands(CLI::App &app) {
    CLI::App *container = app.add_subcommand("container", "write or read the images of one grab");
    container->require_subcommand(1);

    auto writeOptions = std::make_shared<GrabOptions>();
    CLI::App *write =
        container->add_subcommand("write", "write a synthetic grab with the container's naming");
    addGrabOptions(write, *writeOptions);
    write->add_option("--width", writeOptions->width, "frame width (default 320)")
        ->check(CLI::Range(1, 9999));
    write->add_option("--height", writeOptions->height, "frame height (default 240)")
        ->check(CLI::Range(1, 9999));
    write->add_option("--seed", writeOptions->seed, "seed of the first frame (default 1)");
    write->callback([writeOptions] { runWrite(*writeOptions); });

    auto readOptions = std::make_shared<GrabOptions>();
    CLI::App *read = container->add_subcommand("read", "read a grab, list its files and print its XML form");
    addGrabOptions(read, *readOptions);
    read->add_option(
        "--sheet", readOptions->sheet,
        "also draw a contact sheet of the grab as a PNG (one tile per image: kind, set, position)");
    read->callback([readOptions] { runRead(*readOptions); });
}

} // namespace pximg
