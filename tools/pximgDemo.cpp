// demo subcommand of pximg: a synthetic camera frame in every encoding, timed, read back and checked, beside
// a 16-bit PNG, with PNG previews and error maps of the lossy encodings.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "pximgTool.h"

namespace pximg {

namespace {

namespace fs = std::filesystem;

// ---- demo ------------------------------------------------------------------------------------------------

// Size and seed of the demo frame.
constexpr int32_t kDemoWidth = 1024, kDemoHeight = 768;
constexpr uint32_t kDemoSeed = 1;
// Timed repetitions of every write and read; the median is shown.
constexpr int kRepetitions = 5;
// Upper end of the previews' stretch: the brightest objects' level.
constexpr double kPreviewHigh = 40000.0;

// One row of the demo's table.
struct DemoEncoding {
    const char *label;
    const char *file;
    int32_t memoryType; // type of the image handed to the writer
    int32_t fileType;   // type written (0: the image's)
};

// How far a read-back image is from the frame.
struct Difference {
    double minError = 0.0, maxError = 0.0; // signed, read back - frame
    double maxAbs = 0.0, maxAbsDark = 0.0, maxAbsBright = 0.0, rms = 0.0, changedShare = 0.0;
};

// Milliseconds of a call, as the median of kRepetitions runs; `prepare` runs untimed before each.
template <typename Prepare, typename Call> double medianMilliseconds(Prepare prepare, Call call) {
    std::vector<double> times;
    for (int i = 0; i < kRepetitions; ++i) {
        prepare();
        const auto start = std::chrono::steady_clock::now();
        call();
        times.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

// Pixel value of plane 0 of a SHORT or FLOAT image as a double.
double pixelValue(const tag_pxImage *image, int32_t x, int32_t y) {
    if (image->type == FLOAT) {
        return reinterpret_cast<float **>(image->pixMap[0])[y][x];
    }
    return reinterpret_cast<uint16_t **>(image->pixMap[0])[y][x];
}

// Pixels below this level count as dark background in the comparisons: about where the CSHORT compressor's
// baseline lies for the demo frame (its 1 % level, scaled, plus 800 DN).
constexpr double kDarkLimit = 1000.0;

// Compares a read-back image with the frame; pixels below darkLimit count as dark background.
Difference compare(const tag_pxImage *frame, const tag_pxImage *back, double darkLimit) {
    Difference d;
    d.minError = d.maxError = pixelValue(back, 0, 0) - pixelValue(frame, 0, 0);
    double sumSquares = 0.0, changed = 0.0;
    for (int32_t y = 0; y < frame->height; ++y) {
        for (int32_t x = 0; x < frame->width; ++x) {
            const double original = pixelValue(frame, x, y);
            const double error = pixelValue(back, x, y) - original;
            d.minError = std::min(d.minError, error);
            d.maxError = std::max(d.maxError, error);
            double &part = original < darkLimit ? d.maxAbsDark : d.maxAbsBright;
            part = std::max(part, std::fabs(error));
            sumSquares += error * error;
            changed += error != 0.0;
        }
    }
    const double n = double(frame->width) * frame->height;
    d.maxAbs = std::max(-d.minError, d.maxError);
    d.rms = std::sqrt(sumSquares / n);
    d.changedShare = changed / n;
    return d;
}

// The demo's output folder: the one given (created if needed) or a fresh one under the system's temp folder.
fs::path demoDirectory(const std::string &given) {
    if (!given.empty()) {
        std::error_code error;
        fs::create_directories(given, error);
        if (error || !fs::is_directory(given)) {
            throw Error(given + ": cannot create the folder (" + error.message() + ")");
        }
        checkWritable((fs::path(given) / "frame-short.pxi").string()); // the system's reason, before any row
        return given;
    }
    std::string pattern = (fs::temp_directory_path() / "pximg-demo-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw Error(pattern + ": cannot create a temporary folder");
    }
    return pattern;
}

// Writes an 8-bit PNG through OpenCV or fails with the file's name.
void writePng(const cv::Mat &image, const fs::path &path) {
    if (!cv::imwrite(path.string(), image)) {
        throw Error(path.string() + ": cannot write the preview");
    }
}

// Writes an 8-bit preview of a SHORT image: square-root stretch of 0..kPreviewHigh to 0..255.
void writePreview(const tag_pxImage *image, const fs::path &path) {
    cv::Mat preview(image->height, image->width, CV_8U);
    for (int32_t y = 0; y < image->height; ++y) {
        for (int32_t x = 0; x < image->width; ++x) {
            const double t = std::clamp(pixelValue(image, x, y) / kPreviewHigh, 0.0, 1.0);
            preview.at<uint8_t>(y, x) = static_cast<uint8_t>(std::lround(255.0 * std::sqrt(t)));
        }
    }
    writePng(preview, path);
}

// Writes an 8-bit map of |read back - frame|, 0..maxError scaled to 0..255.
void writeErrorMap(const tag_pxImage *frame, const tag_pxImage *back, double maxError, const fs::path &path) {
    cv::Mat map(frame->height, frame->width, CV_8U);
    for (int32_t y = 0; y < frame->height; ++y) {
        for (int32_t x = 0; x < frame->width; ++x) {
            const double error = std::fabs(pixelValue(back, x, y) - pixelValue(frame, x, y));
            map.at<uint8_t>(y, x) =
                static_cast<uint8_t>(std::lround(255.0 * error / std::max(maxError, 1.0)));
        }
    }
    writePng(map, path);
}

// Result of one encoding in the demo.
struct DemoResult {
    std::string refusal; // why the writer refused the frame; empty when it wrote it
    uintmax_t bytes = 0;
    double writeMs = 0.0, readMs = 0.0;
    Difference difference;
    ImagePtr back;
};

// Writes one encoding of the frame (timed, from a fresh copy each time, since the encoders change the pixels
// they are given); a refusal is noted in the result and leaves no file.
void timeWrite(const tag_pxImage *frame, const DemoEncoding &encoding, const fs::path &path,
               DemoResult &result) {
    const std::vector<uint16_t> name = utf16Path(path.string());
    ImagePtr source;
    bool written = true;
    result.writeMs = medianMilliseconds(
        [&] { source = convertImage(frame, encoding.memoryType, false); },
        [&] { written = written && pxImageWriteChecked(name.data(), encoding.fileType, source.get()); });
    if (!written) {
        result.refusal = libraryFailure("the writer refused the frame").what();
        fs::remove(path);
    }
}

// Reads the file back (timed) and compares it with the frame.
void timeRead(const tag_pxImage *frame, const fs::path &path, double darkLimit, DemoResult &result) {
    const std::vector<uint16_t> name = utf16Path(path.string());
    bool read = true;
    result.readMs = medianMilliseconds([&] { result.back.reset(); },
                                       [&] {
                                           tag_pxImage *raw = nullptr;
                                           read = read && pxImageRead(name.data(), 0, 0, &raw);
                                           result.back.reset(raw);
                                       });
    if (!read) {
        throw libraryFailure(path.string() + ": cannot read back");
    }
    std::error_code error;
    result.bytes = fs::file_size(path, error);
    result.difference = compare(frame, result.back.get(), darkLimit);
}

// Writes, reads and checks one encoding of the frame.
DemoResult runEncoding(const tag_pxImage *frame, const DemoEncoding &encoding, const fs::path &path,
                       double darkLimit) {
    DemoResult result;
    timeWrite(frame, encoding, path, result);
    if (result.refusal.empty()) {
        timeRead(frame, path, darkLimit, result);
    }
    return result;
}

// Signed number with its sign ("+12", "-3", "0").
std::string signedText(double value) {
    return (value > 0 ? "+" : "") + shortest(value);
}

// The "read back" column of the table.
std::string exactness(const Difference &d) {
    if (d.maxAbs == 0.0) {
        return "exact";
    }
    return "lossy: max abs error " + shortest(d.maxAbs) + " DN (" + signedText(d.minError) + ".." +
           signedText(d.maxError) + "), rms " + fixed(d.rms, 1) + ", " + fixed(100.0 * d.changedShare, 1) +
           "% of pixels changed";
}

// Left-aligned text in a column of the given width.
std::string column(const std::string &text, size_t width) {
    return text + std::string(text.size() < width ? width - text.size() : 1, ' ');
}

// Right-aligned text in a column of the given width.
std::string rightColumn(const std::string &text, size_t width) {
    return std::string(text.size() < width ? width - text.size() : 1, ' ') + text;
}

// The table's heading.
std::string tableHeading() {
    return column("encoding", 21) + column("file", 20) + rightColumn("bytes", 9) + rightColumn("ratio", 8) +
           rightColumn("write ms", 10) + rightColumn("read ms", 9) + "   read back\n";
}

// One row of the table.
std::string tableRow(const std::string &label, const std::string &file, uintmax_t bytes, double ratio,
                     double writeMs, double readMs, const std::string &readBack) {
    return column(label, 21) + column(file, 20) + rightColumn(std::to_string(bytes), 9) +
           rightColumn(fixed(ratio, 2) + "x", 8) + rightColumn(fixed(writeMs, 2), 10) +
           rightColumn(fixed(readMs, 2), 9) + "   " + readBack + "\n";
}

// The row of one encoding's result; plainBytes is the size of the plain SHORT file.
std::string resultRow(const DemoEncoding &e, const DemoResult &r, uintmax_t plainBytes) {
    if (!r.refusal.empty()) {
        return column(e.label, 21) + column("(none)", 20) + "refused: " + r.refusal + "\n";
    }
    return tableRow(e.label, e.file, r.bytes, double(plainBytes) / double(r.bytes), r.writeMs, r.readMs,
                    exactness(r.difference));
}

// The 16-bit PNG of the frame through OpenCV, as a lossless point of comparison.
std::string pngReferenceRow(const tag_pxImage *frame, const fs::path &dir, uintmax_t plainBytes) {
    const fs::path path = dir / "frame-16bit.png";
    cv::Mat mat(frame->height, frame->width, CV_16U);
    for (int32_t y = 0; y < frame->height; ++y) {
        std::copy_n(reinterpret_cast<uint16_t **>(frame->pixMap[0])[y], frame->width, mat.ptr<uint16_t>(y));
    }
    cv::Mat back;
    bool written = true;
    const double writeMs =
        medianMilliseconds([] {}, [&] { written = written && cv::imwrite(path.string(), mat); });
    if (!written) {
        throw Error(path.string() + ": OpenCV could not write the image");
    }
    const double readMs =
        medianMilliseconds([] {}, [&] { back = cv::imread(path.string(), cv::IMREAD_UNCHANGED); });
    const bool exact = !back.empty() && cv::norm(back, mat, cv::NORM_INF) == 0.0;
    std::error_code error;
    const uintmax_t bytes = fs::file_size(path, error);
    return tableRow("PNG 16-bit (OpenCV)", path.filename().string(), bytes,
                    double(plainBytes) / double(bytes), writeMs, readMs, exact ? "exact" : "differs");
}

// What the numbers of the CSHORT and SHORT12 rows mean.
void printNotes(const DemoResult &cshort, const DemoResult &short12, double darkLimit) {
    std::cout << "\nratio: plain SHORT bytes / bytes; times: median of " << kRepetitions
              << " runs, files in the page cache.\n";
    if (cshort.refusal.empty()) {
        std::cout
            << "CSHORT is lossy by design: dark pixels (up to its baseline) are merged into runs within "
               "+-128 "
               "DN,\n  brighter ones within +-4 DN; steep edges and bright spots are kept pixel by pixel. "
               "Largest error\n  here: "
            << shortest(cshort.difference.maxAbsDark) << " DN in the dark background (below " << darkLimit
            << " DN), " << shortest(cshort.difference.maxAbsBright) << " DN on the objects.\n";
    }
    const Difference &d = short12.difference;
    std::cout << "SHORT12 keeps the 12 high bits of every pixel and reads the low 4 bits back as 12: ";
    if (d.minError == d.maxError) {
        std::cout << "this frame's values\n  use only the 12 high bits, so every pixel reads back exactly "
                  << shortest(d.maxError) << " DN higher:\n  a constant offset, nothing else is lost.\n";
    } else {
        std::cout << "pixels read back\n  " << signedText(d.minError) << ".." << signedText(d.maxError)
                  << " DN off; the low 4 bits of the data are lost.\n";
    }
}

// Writes the frame's preview and the read-back previews and error maps of the lossy encodings.
void writePreviews(const tag_pxImage *frame, const DemoResult &cshort, const DemoResult &short12,
                   const fs::path &dir) {
    writePreview(frame, dir / "preview-frame.png");
    std::cout << "previews (8-bit, square-root stretch of 0.." << kPreviewHigh << " DN) and error maps\n"
              << "  (|read back - frame| from 0 to the largest error): preview-frame.png";
    const std::pair<const char *, const DemoResult *> lossy[] = {{"cshort", &cshort}, {"short12", &short12}};
    for (const auto &[name, result] : lossy) {
        if (result->back) {
            writePreview(result->back.get(), dir / ("preview-" + std::string(name) + ".png"));
            writeErrorMap(frame, result->back.get(), result->difference.maxAbs,
                          dir / ("error-" + std::string(name) + ".png"));
            std::cout << ",\n  preview-" << name << ".png, error-" << name << ".png";
        }
    }
    std::cout << "\n";
}

// The encodings of one frame, in table order.
const DemoEncoding kEncodings[] = {{"plain SHORT", "frame-short.pxi", SHORT, 0},
                                   {"CSHORT", "frame-cshort.pxi", SHORT, CSHORT},
                                   {"SHORT12", "frame-short12.pxi", SHORT, SHORT12},
                                   {"plain FLOAT", "frame-float.pxi", FLOAT, 0}};

// Writes every encoding of a frame into dir (file names with the given prefix) and prints their rows.
std::vector<DemoResult> encodeAll(const tag_pxImage *frame, const fs::path &dir, const std::string &prefix,
                                  double darkLimit) {
    std::vector<DemoResult> results;
    uintmax_t plainBytes = 0;
    for (DemoEncoding e : kEncodings) {
        const std::string file =
            prefix + std::string(e.file).substr(6); // "frame-short.pxi" -> prefix + "short.pxi"
        e.file = file.c_str();
        results.push_back(runEncoding(frame, e, dir / file, darkLimit));
        plainBytes = plainBytes ? plainBytes : results.back().bytes;
        std::cout << resultRow(e, results.back(), plainBytes);
    }
    return results;
}

// demo: synthesise, write and read every encoding, print the tables and the notes, write the previews.
void runDemo(const std::string &given) {
    const fs::path dir = demoDirectory(given);
    ImagePtr frame = synthesizeFrame(kDemoWidth, kDemoHeight, kDemoSeed, 12);
    std::cout
        << "pximg demo: synthetic 16-bit camera frame, " << kDemoWidth << " x " << kDemoHeight << ", seed "
        << kDemoSeed << ": dark background (100 DN offset plus dark current),\n"
        << "  bright textured discs and rectangles (2000..40000 DN), shot noise (1.5 DN per electron), 4 DN "
           "read noise,\n  digitised by a 12-bit converter into the high bits (values are multiples of 16)\n"
        << "  files and previews in " << dir.string() << "\n\n"
        << tableHeading();
    std::vector<DemoResult> results = encodeAll(frame.get(), dir, "frame-", kDarkLimit);
    std::cout << pngReferenceRow(frame.get(), dir, results[0].bytes);
    printNotes(results[1], results[2], kDarkLimit);
    writePreviews(frame.get(), results[1], results[2], dir);

    ImagePtr full = synthesizeFrame(kDemoWidth, kDemoHeight, kDemoSeed, 16);
    std::cout << "\nThe same scene digitised with all 16 bits significant (noise reaches the lowest bit):\n\n"
              << tableHeading();
    std::vector<DemoResult> fullResults = encodeAll(full.get(), dir, "full16-", kDarkLimit);
    printNotes(fullResults[1], fullResults[2], kDarkLimit);
    if (!fullResults[1].refusal.empty()) {
        std::cout
            << "CSHORT never merges a pixel whose lowest bit is set (that bit marks protected pixels), so "
               "data with\n  noise in the lowest bit does not compress and the writer refuses it.\n";
    }
}

} // namespace

void addDemoCommand(CLI::App &app) {
    auto directory = std::make_shared<std::string>();
    CLI::App *demo =
        app.add_subcommand("demo", "Synthesise a 16-bit camera frame, write it in every encoding, "
                                   "compare sizes, speeds and exactness, write PNG previews");
    demo->add_option("DIR", *directory,
                     "output folder (default: a new folder under the system's temp folder)");
    demo->callback([directory] { runDemo(*directory); });
}

} // namespace pximg
