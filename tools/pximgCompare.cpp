// compare and preview subcommands of pximg, and the contact sheet of a grab: how far two images are apart
// (with an optional difference picture), and 8-bit PNG pictures of any image with an automatic stretch.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <sstream>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "pximgTool.h"

namespace pximg {

namespace {

namespace fs = std::filesystem;

// Plane 0 of an image as a matrix of doubles.
cv::Mat valuesOf(const tag_pxImage *image) {
    cv::Mat values(image->height, image->width, CV_64F);
    for (int32_t y = 0; y < image->height; ++y) {
        for (int32_t x = 0; x < image->width; ++x) {
            values.at<double>(y, x) = pixelAt(image, x, y);
        }
    }
    return values;
}

// An 8-bit picture of values: lo..hi mapped onto 0..255, clipped; NaN black.
cv::Mat picture(const cv::Mat &values, double lo, double hi) {
    cv::Mat out(values.rows, values.cols, CV_8U);
    const double scale = hi > lo ? 255.0 / (hi - lo) : 0.0;
    for (int y = 0; y < values.rows; ++y) {
        for (int x = 0; x < values.cols; ++x) {
            const double v = values.at<double>(y, x);
            out.at<uint8_t>(y, x) = std::isnan(v) ? 0 : cv::saturate_cast<uint8_t>((v - lo) * scale);
        }
    }
    return out;
}

// The values at the 0.1 % and 99.9 % points (NaNs skipped): the automatic stretch, robust to hot pixels.
void stretchRange(const cv::Mat &values, double &lo, double &hi) {
    std::vector<double> sorted;
    sorted.reserve(values.total());
    for (auto it = values.begin<double>(); it != values.end<double>(); ++it) {
        if (!std::isnan(*it)) {
            sorted.push_back(*it);
        }
    }
    lo = hi = 0.0;
    if (sorted.empty()) {
        return;
    }
    const size_t a = sorted.size() / 1000, b = sorted.size() - 1 - sorted.size() / 1000;
    std::nth_element(sorted.begin(), sorted.begin() + a, sorted.end());
    lo = sorted[a];
    std::nth_element(sorted.begin(), sorted.begin() + b, sorted.end());
    hi = sorted[b];
}

// Writes an 8-bit matrix as a PNG through saveImage (partial file, renamed on success).
void savePicture(const cv::Mat &picture, const std::string &path) {
    tag_pxImage *raw = nullptr;
    if (!pxImageConstruct(UBYTE, picture.cols, picture.rows, 0, 1, &raw)) {
        throw libraryFailure(path + ": no memory for the picture");
    }
    ImagePtr image(raw);
    for (int y = 0; y < picture.rows; ++y) {
        std::memcpy(image->pixMap[0][y], picture.ptr(y), size_t(picture.cols));
    }
    saveImage(image.get(), path);
}

// ---- compare ---------------------------------------------------------------------------------------------

struct CompareOptions {
    std::string first, second, diff;
    double maxAbs = 0.0;
    bool json = false;
};

// How far two images of one size are apart.
struct Distance {
    double maxAbs = 0.0, rms = 0.0, changed = 0.0, peak = 0.0, psnr = 0.0;
};

Distance distanceOf(const cv::Mat &a, const cv::Mat &b, int32_t type, double lo, double hi) {
    Distance d;
    double squares = 0.0;
    for (int y = 0; y < a.rows; ++y) {
        for (int x = 0; x < a.cols; ++x) {
            const double e = std::fabs(a.at<double>(y, x) - b.at<double>(y, x));
            d.maxAbs = std::max(d.maxAbs, e);
            squares += e * e;
            d.changed += e != 0.0 ? 1.0 : 0.0;
        }
    }
    const double n = double(a.total());
    d.rms = std::sqrt(squares / n);
    d.changed /= n;
    double tlo = 0.0, thi = 0.0;
    d.peak = typeLimits(type, tlo, thi) && type != INT ? thi : std::max(hi - lo, 1.0);
    d.psnr = d.rms > 0.0 ? 20.0 * std::log10(d.peak / d.rms) : INFINITY;
    return d;
}

void printDistance(const CompareOptions &o, const tag_pxImage *a, const tag_pxImage *b, const Distance &d) {
    const std::string psnr = std::isfinite(d.psnr) ? fixed(d.psnr, 2) : "inf";
    std::ostringstream out;
    if (o.json) {
        out << "{\n  \"first\": " << jsonString(o.first) << ",\n  \"second\": " << jsonString(o.second)
            << ",\n  \"width\": " << a->width << ",\n  \"height\": " << a->height << ",\n  \"types\": ["
            << jsonString(pixelTypeName(a->type)) << ", " << jsonString(pixelTypeName(b->type))
            << "],\n  \"maxAbs\": " << jsonNumber(d.maxAbs) << ",\n  \"rms\": " << jsonNumber(d.rms)
            << ",\n  \"psnr\": " << (std::isfinite(d.psnr) ? jsonNumber(d.psnr) : "null")
            << ",\n  \"peak\": " << jsonNumber(d.peak) << ",\n  \"changedShare\": " << jsonNumber(d.changed)
            << ",\n  \"within\": " << (d.maxAbs <= o.maxAbs ? "true" : "false") << "\n}\n";
    } else {
        out << "size        " << a->width << " x " << a->height << '\n'
            << "types       " << pixelTypeName(a->type) << ", " << pixelTypeName(b->type) << '\n'
            << "max abs     " << shortest(d.maxAbs) << '\n'
            << "rms         " << fixed(d.rms, 3) << '\n'
            << "psnr        " << psnr << " dB (peak " << shortest(d.peak) << ")\n"
            << "changed     " << fixed(100.0 * d.changed, 2) << " % of pixels\n"
            << "result      " << (d.maxAbs <= o.maxAbs ? "same" : "different") << " (--max-abs "
            << shortest(o.maxAbs) << ")\n";
    }
    std::cout << out.str();
}

void runCompare(const CompareOptions &o) {
    ImagePtr a = loadImage(o.first), b = loadImage(o.second);
    if (a->width != b->width || a->height != b->height) {
        throw Error("the images differ in size: " + o.first + " is " + std::to_string(a->width) + " x " +
                    std::to_string(a->height) + ", " + o.second + " is " + std::to_string(b->width) + " x " +
                    std::to_string(b->height));
    }
    const cv::Mat va = valuesOf(a.get()), vb = valuesOf(b.get());
    double lo = 0.0, hi = 0.0;
    valueRange(a.get(), lo, hi);
    const Distance d = distanceOf(va, vb, a->type, lo, hi);
    if (!o.diff.empty()) {
        cv::Mat difference;
        cv::absdiff(va, vb, difference);
        savePicture(picture(difference, 0.0, std::max(d.maxAbs, 1e-300)), o.diff);
    }
    printDistance(o, a.get(), b.get(), d);
    if (d.maxAbs > o.maxAbs) {
        throw Failed();
    }
}

// ---- preview ---------------------------------------------------------------------------------------------

// The image files of a folder (our format, PNG, TIFF, PGM), sorted; a file name as itself.
std::vector<std::string> expandInputs(const std::vector<std::string> &given) {
    std::vector<std::string> files;
    for (const std::string &path : given) {
        std::error_code error;
        if (!fs::is_directory(path, error)) {
            files.push_back(path);
            continue;
        }
        std::vector<std::string> found;
        for (const auto &entry : fs::directory_iterator(path, error)) {
            std::string ext = entry.path().extension().string();
            std::transform(ext.begin(), ext.end(), ext.begin(),
                           [](unsigned char c) { return std::tolower(c); });
            if (entry.is_regular_file() && (ext == ".pxi" || ext == ".pim" || ext == ".png" ||
                                            ext == ".tif" || ext == ".tiff" || ext == ".pgm")) {
                found.push_back(entry.path().string());
            }
        }
        std::sort(found.begin(), found.end());
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

// An 8-bit picture of an image file with the automatic stretch; returns the stretch for --verbose.
std::string previewOne(const std::string &input, const std::string &output) {
    ImagePtr image = loadImage(input);
    const cv::Mat values = valuesOf(image.get());
    double lo = 0.0, hi = 0.0;
    stretchRange(values, lo, hi);
    savePicture(picture(values, lo, hi), output);
    return "stretch " + shortest(lo) + ".." + shortest(hi);
}

} // namespace

cv::Mat contactTile(const tag_pxImage *image, const std::string &label, int width, int height) {
    const cv::Mat values = valuesOf(image);
    double lo = 0.0, hi = 0.0;
    stretchRange(values, lo, hi);
    cv::Mat grey = picture(values, lo, hi), scaled;
    const double scale = std::min(double(width) / grey.cols, double(height - 22) / grey.rows);
    cv::resize(grey, scaled,
               cv::Size(std::max(1, int(grey.cols * scale)), std::max(1, int(grey.rows * scale))), 0, 0,
               scale < 1.0 ? cv::INTER_AREA : cv::INTER_NEAREST);
    cv::Mat tile(height, width, CV_8U, cv::Scalar(40));
    scaled.copyTo(tile(cv::Rect((width - scaled.cols) / 2, 0, scaled.cols, scaled.rows)));
    cv::putText(tile, label, {4, height - 6}, cv::FONT_HERSHEY_SIMPLEX, 0.45, cv::Scalar(255), 1,
                cv::LINE_AA);
    return tile;
}

void writeSheet(const std::vector<cv::Mat> &tiles, const std::string &path) {
    if (tiles.empty()) {
        throw Error(path + ": the grab holds no image to draw");
    }
    const int columns = 3, rows = int((tiles.size() + columns - 1) / columns), gap = 4;
    const int w = tiles[0].cols, h = tiles[0].rows;
    cv::Mat sheet(rows * (h + gap) + gap, columns * (w + gap) + gap, CV_8U, cv::Scalar(0));
    for (size_t i = 0; i < tiles.size(); ++i) {
        const int x = gap + int(i % columns) * (w + gap), y = gap + int(i / columns) * (h + gap);
        tiles[i].copyTo(sheet(cv::Rect(x, y, w, h)));
    }
    savePicture(sheet, path);
}

void addCompareCommands(CLI::App &app) {
    auto options = std::make_shared<CompareOptions>();
    CLI::App *compare = app.add_subcommand(
        "compare", "How far two images are apart: size and types, max and rms difference, PSNR, share of "
                   "pixels changed; exit status 0 when the max difference is within --max-abs, else 1");
    compare->add_option("A", options->first, "first image")->required();
    compare->add_option("B", options->second, "second image")->required();
    compare->add_option("--max-abs", options->maxAbs, "largest difference still counted as same (default 0)")
        ->check(CLI::NonNegativeNumber);
    compare->add_option("--diff", options->diff,
                        "write |A - B| as an 8-bit PNG, 0..max difference as black..white");
    compare->add_flag("--json", options->json, "print the result as one JSON object");
    addColourOptions(compare);
    compare->callback([options] { runCompare(*options); });

    auto batch = std::make_shared<BatchOptions>();
    CLI::App *preview = app.add_subcommand(
        "preview", "8-bit PNG pictures of images (a folder: every image in it) with an automatic stretch of "
                   "the 0.1 %..99.9 % values");
    addBatchOptions(preview, *batch, "picture");
    addColourOptions(preview);
    preview->callback([batch] {
        BatchOptions options = *batch;
        options.inputs = expandInputs(options.inputs);
        if (options.outDir.empty() && options.inputs.size() > 2) {
            throw Error("a folder or several images need --out-dir DIR");
        }
        options.format = "png";
        runBatch(options, previewOne);
    });
}

} // namespace pximg
