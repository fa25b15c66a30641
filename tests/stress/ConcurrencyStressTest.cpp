// Concurrency: threads reading, writing and filtering records and files of their own, a container writing
// and reading its grab, a thread whose calls fail and log, and threads adding and releasing references on
// one shared record, all at once for a bounded time. The library holds no locks: it is safe for concurrent
// calls on distinct records once the settings have been read, which the test does before the threads start.
// Every job's result is compared bit for bit with the result of the same job run alone before the start.
// In the thread-sanitizer build any data race fails the run.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "PxImageContainer.h"
#include "pxEnv.h"
#include "pxImage.h"
#include "support/LogCapture.h"

namespace {

using Clock = std::chrono::steady_clock;

// How long the threads run together, and the rounds every thread makes however slow the build.
constexpr std::chrono::milliseconds RUN_TIME(1500);
constexpr long MIN_ROUNDS = 3;

// A job's result as bytes; empty when a call of the job failed.
using Bytes = std::vector<uint8_t>;

template <typename T> void append(Bytes &out, const T &value) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&value);
    out.insert(out.end(), bytes, bytes + sizeof value);
}

// Type, size, planes and every byte of every plane, border included.
void appendRecord(Bytes &out, const tag_pxImage *image) {
    append(out, image->type);
    append(out, image->width);
    append(out, image->height);
    append(out, image->planes);
    uint32_t size = 0;
    pxImagePixelSize(image->type, &size);
    const size_t border = static_cast<size_t>(image->border);
    const size_t stride = (static_cast<size_t>(image->width) + 2 * border) * size;
    for (int32_t p = 0; p < image->planes; ++p) {
        const auto *first = static_cast<const uint8_t *>(image->pixMap[p][-image->border]) - border * size;
        out.insert(out.end(), first, first + stride * (static_cast<size_t>(image->height) + 2 * border));
    }
}

// The records of one round of a job, destroyed when the round ends.
class Records {
  public:
    Records() = default;
    Records(const Records &) = delete;
    Records &operator=(const Records &) = delete;
    ~Records() {
        for (tag_pxImage *&image : list_)
            pxImageDestruct(&image);
    }
    // A new zero-filled record (null when it cannot be built).
    tag_pxImage *make(int32_t type, int32_t width, int32_t height, int32_t border) {
        tag_pxImage *image = nullptr;
        pxImageConstruct(type, width, height, border, 1, &image);
        list_.push_back(image);
        return image;
    }
    // A new record whose pixels are a hash of position and seed, masked; SHORT records get a dark background
    // of even values (an odd one is a protected pixel to the lossy compressor) in steps of four pixels
    // instead, which that compressor shortens and SHORT12 files hold exactly.
    tag_pxImage *patterned(int32_t type, int32_t width, int32_t height, int32_t border, uint32_t seed,
                           uint32_t mask) {
        tag_pxImage *image = make(type, width, height, border);
        for (int32_t y = 0; image != nullptr && y < height; ++y)
            for (int32_t x = 0; x < width; ++x) {
                const uint32_t ux = static_cast<uint32_t>(x), uy = static_cast<uint32_t>(y);
                const uint32_t v = ((ux * 31u + uy * 17u + seed * 7u) * 2654435761u >> 9) & mask;
                void *row = image->pixMap[0][y];
                if (type == UBYTE)
                    static_cast<uint8_t *>(row)[x] = static_cast<uint8_t>(v);
                else if (type == SHORT)
                    static_cast<uint16_t *>(row)[x] =
                        static_cast<uint16_t>(400u + ((ux / 4) * 13u + uy * 7u + seed) % 20u * 2u);
                else
                    static_cast<float *>(row)[x] = static_cast<float>(v) * 0.25f;
            }
        return image;
    }
    // A slot for a record that a call fills.
    tag_pxImage **slot() {
        list_.push_back(nullptr);
        return &list_.back();
    }

  private:
    std::deque<tag_pxImage *> list_; // a deque keeps the slots in place as it grows
};

std::u16string wide(const std::filesystem::path &path) {
    const std::string text = path.string();
    return std::u16string(text.begin(), text.end());
}

const uint16_t *fileName(const std::u16string &path) {
    return reinterpret_cast<const uint16_t *>(path.c_str());
}

// Writes a patterned record to its own file in `writeType`, reads it back (with a border when the file is
// not encoded); the written record (encoded writes change it) and the read one.
Bytes fileRoundTrip(const std::u16string &path, int32_t type, int32_t writeType, uint32_t seed) {
    Records r;
    tag_pxImage *image = r.patterned(type, 37, 23, 0, seed, 0xFF);
    tag_pxImage **back = r.slot();
    if (image == nullptr || !pxImageWrite(fileName(path), writeType, image) ||
        !pxImageRead(fileName(path), 0, writeType == 0 ? 2 : 0, back))
        return Bytes();
    Bytes out;
    appendRecord(out, image);
    appendRecord(out, *back);
    return out;
}

// Box average, windowed minimum and range, reflection and statistics with a histogram of a FLOAT record.
Bytes floatFilters(uint32_t seed) {
    Records r;
    tag_pxImage *source = r.patterned(FLOAT, 41, 29, 4, seed, 0x3FF);
    tag_pxImage *average = r.make(FLOAT, 41, 29, 0);
    tag_pxImage *minimum = r.make(FLOAT, 41, 29, 0);
    tag_pxImage *range = r.make(FLOAT, 41, 29, 0);
    const double corner1[2] = {2.5, 1.0};
    const double corner2[2] = {39.0, 27.0};
    uint32_t histogram[9] = {};
    double low = 0.0, high = 0.0, mean = 0.0, deviation = 0.0;
    int32_t count = 0;
    if (source == nullptr || average == nullptr || minimum == nullptr || range == nullptr ||
        !pxImageBoxAverage(source, 5, average) || !pxImageBoxMinAndRange(source, 3, minimum, range) ||
        !pxImageReflect(source, 4, 1) ||
        !pxImageGetAvaragePixValue(source, corner1, corner2, 8, histogram, &low, &high, &count, &mean,
                                   &deviation))
        return Bytes();
    Bytes out;
    for (const tag_pxImage *image : {source, average, minimum, range})
        appendRecord(out, image);
    for (uint32_t counter : histogram)
        append(out, counter);
    for (double value : {low, high, mean, deviation})
        append(out, value);
    append(out, count);
    return out;
}

// Dilation, erosion, negation, a weighted combination and conversions of byte records.
Bytes byteFilters(uint32_t seed) {
    Records r;
    tag_pxImage *binary = r.patterned(UBYTE, 33, 27, 0, seed, 1);
    tag_pxImage *other = r.patterned(UBYTE, 33, 27, 0, seed + 1, 0xFF);
    tag_pxImage *dilated = r.make(UBYTE, 33, 27, 0);
    tag_pxImage *eroded = r.make(UBYTE, 33, 27, 0);
    tag_pxImage *combined = r.make(UBYTE, 33, 27, 0);
    tag_pxImage **converted = r.slot();
    if (binary == nullptr || other == nullptr || dilated == nullptr || eroded == nullptr ||
        combined == nullptr || !pxImageDilate(binary, 2, dilated) || !pxImageErode(binary, 1, eroded) ||
        !pxImageCombine(dilated, other, 0.75, 1.5, 33, 27, combined) || !pxImageOperationsNegate(other) ||
        !pxImageThresh2Binary(other, 100.0) || !pxImageConvertCopy(combined, FLOAT, 1, converted))
        return Bytes();
    Bytes out;
    for (const tag_pxImage *image : {dilated, eroded, combined, other, *converted})
        appendRecord(out, image);
    return out;
}

// A grab of two exposures (FLS images written CSHORT, PRJ images SHORT12) written to its own directory and
// read back by a second container; the XML form read back by a third.
Bytes containerRoundTrip(const std::u16string &directory, uint32_t seed) {
    PxImageContainer grab;
    grab.SetPrefix(seed, static_cast<PxGrabType>(5), 10 + seed, 20 + seed, 0);
    Records r;
    for (uint32_t i = 0; i < 6; ++i) {
        tag_pxImage *image = nullptr;
        if (!pxImageConvertCopy(r.patterned(SHORT, 19, 13, 0, seed + i, 0), 0, 0, &image))
            return Bytes();
        grab.Add(image);
    }
    PxImageContainer back;
    back.SetPrefix(seed, static_cast<PxGrabType>(5), 10 + seed, 20 + seed, 0);
    PxImageContainer fromXml;
    if (!grab.Write(directory.c_str()) || !back.Read(directory.c_str()) || back.GetCount() != 6)
        return Bytes();
    fromXml.fromXMLString(grab.toXMLString());
    Bytes out;
    for (size_t i = 0; i < back.GetCount(); ++i)
        appendRecord(out, back[i]);
    const std::u16string xml = fromXml.toXMLString();
    out.insert(out.end(), reinterpret_cast<const uint8_t *>(xml.data()),
               reinterpret_cast<const uint8_t *>(xml.data() + xml.size()));
    return out;
}

// Calls that fail and log: a missing file and an invalid pixel type.
Bytes failingCalls(const std::u16string &missing) {
    Records r;
    const bool readFailed = !pxImageRead(fileName(missing), 0, 0, r.slot());
    tag_pxImage **invalid = r.slot();
    const bool constructFailed = !pxImageConstruct(42, 4, 4, 0, 1, invalid) && *invalid == nullptr;
    return readFailed && constructFailed ? Bytes{1} : Bytes();
}

// Holds the threads until all exist, so that they run at once, and gives them the common deadline.
class StartLine {
  public:
    void open(Clock::time_point deadline) {
        std::lock_guard<std::mutex> lock(mutex_);
        deadline_ = deadline;
        open_ = true;
        opened_.notify_all();
    }
    Clock::time_point wait() {
        std::unique_lock<std::mutex> lock(mutex_);
        opened_.wait(lock, [this] { return open_; });
        return deadline_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable opened_;
    bool open_ = false;
    Clock::time_point deadline_;
};

// What one thread did; written by that thread only and read after it joined.
struct Tally {
    long rounds = 0;
    long failures = 0;
};

// Repeats `round` until the deadline (at least MIN_ROUNDS times), counting rounds that return false.
void runRounds(StartLine &start, Tally &tally, const std::function<bool()> &round) {
    const Clock::time_point deadline = start.wait();
    while (tally.rounds < MIN_ROUNDS || Clock::now() < deadline) {
        tally.failures += round() ? 0 : 1;
        ++tally.rounds;
    }
}

// Adds and releases references on a record that the main thread also holds, and reads its header meanwhile.
bool referenceBurst(tag_pxImage *shared) {
    bool ok = true;
    for (int i = 0; i < 200; ++i) {
        pxImageAddRef(shared);
        ok = ok && shared->width == 16 && shared->type == FLOAT;
        ok = ok && pxImageReleaseRef(shared) >= 1;
    }
    return ok;
}

class TempDir {
  public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "pxStressXXXXXX").string();
        path_ = mkdtemp(&pattern[0]);
    }
    ~TempDir() {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    std::filesystem::path operator/(const std::string &name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

struct NamedJob {
    std::string name;
    std::function<Bytes()> run;
};

std::vector<NamedJob> jobs(const TempDir &dir) {
    std::vector<NamedJob> list;
    // The first two read the settings of the compressor and of the container while the test is still
    // single-threaded, as the library requires.
    list.push_back(
        {"CSHORT file", [path = wide(dir / "cshort.pxi")] { return fileRoundTrip(path, SHORT, CSHORT, 1); }});
    for (uint32_t seed : {2u, 3u}) {
        const std::u16string grabDir = wide(dir / ("grab" + std::to_string(seed)));
        std::filesystem::create_directory(dir / ("grab" + std::to_string(seed)));
        list.push_back({"container " + std::to_string(seed),
                        [grabDir, seed] { return containerRoundTrip(grabDir, seed); }});
    }
    list.push_back({"SHORT12 file",
                    [path = wide(dir / "short12.pxi")] { return fileRoundTrip(path, SHORT, SHORT12, 4); }});
    list.push_back(
        {"FLOAT file", [path = wide(dir / "float.pxi")] { return fileRoundTrip(path, FLOAT, 0, 5); }});
    list.push_back(
        {"CBIT file", [path = wide(dir / "cbit.pxi")] { return fileRoundTrip(path, UBYTE, CBIT, 6); }});
    for (uint32_t seed : {7u, 8u})
        list.push_back({"FLOAT filters " + std::to_string(seed), [seed] { return floatFilters(seed); }});
    list.push_back({"byte filters", [] { return byteFilters(9); }});
    return list;
}

TEST(ConcurrencyStress, DistinctRecordsFilesAndOneSharedRecord) {
    TempDir dir;
    pxtest::LogCapture log;
    const std::vector<NamedJob> list = jobs(dir);
    std::vector<Bytes> expected;
    for (const NamedJob &job : list) {
        expected.push_back(job.run());
        ASSERT_FALSE(expected.back().empty()) << job.name;
    }
    EXPECT_TRUE(log.messages().empty());
    const std::u16string missing = wide(dir / "missing.pxi");
    ASSERT_EQ(Bytes{1}, failingCalls(missing));
    const size_t recordsPerFailingRound = log.records().size();
    ASSERT_GT(recordsPerFailingRound, 0u);
    log.clear();

    const long live = pxEnvLiveAllocations();
    tag_pxImage *shared = nullptr;
    ASSERT_EQ(1u, pxImageConstruct(FLOAT, 16, 8, 1, 1, &shared));
    pxImageAddRef(shared);

    StartLine start;
    std::vector<Tally> tallies(list.size() + 3);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < list.size(); ++i)
        threads.emplace_back(
            [&, i] { runRounds(start, tallies[i], [&] { return list[i].run() == expected[i]; }); });
    threads.emplace_back(
        [&] { runRounds(start, tallies[list.size()], [&] { return failingCalls(missing) == Bytes{1}; }); });
    for (size_t k = 1; k <= 2; ++k)
        threads.emplace_back(
            [&, k] { runRounds(start, tallies[list.size() + k], [&] { return referenceBurst(shared); }); });
    start.open(Clock::now() + RUN_TIME);
    for (std::thread &thread : threads)
        thread.join();

    std::string summary;
    for (size_t i = 0; i < tallies.size(); ++i) {
        const std::string who = i < list.size()    ? list[i].name
                                : i == list.size() ? "failing calls"
                                                   : "references";
        EXPECT_EQ(0, tallies[i].failures) << who << " of " << tallies[i].rounds << " rounds";
        EXPECT_GE(tallies[i].rounds, MIN_ROUNDS) << who;
        summary += (i == 0 ? "" : ", ") + who + " " + std::to_string(tallies[i].rounds);
    }
    std::printf("rounds: %s\n", summary.c_str());
    EXPECT_EQ(static_cast<size_t>(tallies[list.size()].rounds) * recordsPerFailingRound,
              log.records().size());
    EXPECT_EQ(0, pxImageReleaseRef(shared));
    pxImageDestruct(&shared);
    EXPECT_EQ(nullptr, shared);
    EXPECT_EQ(live, pxEnvLiveAllocations());
}

} // namespace
