// Filter subcommands of pximg: "filter" runs one neighbourhood filter of the library on an image file
// (box, min, max, dilate, erode, threshold, negate, reflect) and writes the result; "stats" measures a
// rectangle of an image (or the vector length of a two-image vector field) and prints count, mean, standard
// deviation and a histogram, optionally drawn as a PNG bar chart.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "pximgCommands.h"

namespace pximg {

namespace {

// ---- Shared helpers ------------------------------------------------------------------------------------

// Input and output of every filter subcommand.
struct FilterIo {
    std::string input;
    std::string output;
    std::string type; // pixel type to write; empty: the result's own
};

void addIo(CLI::App *command, FilterIo &io) {
    command->add_option("IN", io.input, "input image: pxImage file, PNG, TIFF or PGM")->required();
    command->add_option("OUT", io.output, "output image: .png, .tif, .tiff, .pgm, anything else is pxImage")
        ->required();
    command->add_option("--type", io.type,
                        "pixel type to write (ubyte, short, int, float, double; PNG and PGM need ubyte or "
                        "short); default: the result's type");
}

void saveResult(const tag_pxImage *image, const FilterIo &io) {
    saveImage(image, io.output, io.type.empty() ? 0 : parsePixelType(io.type));
}

// A number in six significant digits.
std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

// An Error for a library call that returned 0, kept on one line.
Error callFailed(const std::string &what) {
    std::string text = libraryFailure(what).what();
    text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
    return Error(text);
}

void require(uint32_t result, const std::string &what) {
    if (result == 0) {
        throw callFailed(what);
    }
}

// A zero-filled image of the given type and size with no border, for a filter to write into.
ImagePtr newImage(int32_t type, int32_t width, int32_t height) {
    tag_pxImage *raw = nullptr;
    require(pxImageConstruct(type, width, height, 0, 1, &raw), "cannot allocate the result image");
    return ImagePtr(raw);
}

ImagePtr newImageLike(const tag_pxImage *image) {
    return newImage(image->type, image->width, image->height);
}

void requireType(const tag_pxImage *image, std::initializer_list<int32_t> types, const std::string &what) {
    if (std::find(types.begin(), types.end(), image->type) == types.end()) {
        throw Error(what + ", not " + pixelTypeName(image->type));
    }
}

// ---- filter box / min / max ----------------------------------------------------------------------------

struct BoxOptions {
    FilterIo io;
    int32_t window = 3;
    bool sums = false;
};

void requireWindowFits(int32_t window, const tag_pxImage *image) {
    if (window % 2 == 0) {
        throw Error("--window must be odd, not " + std::to_string(window));
    }
    if (window > image->width || window > image->height) {
        throw Error("--window " + std::to_string(window) + " is larger than the image (" +
                    std::to_string(image->width) + " x " + std::to_string(image->height) + ")");
    }
}

void runBox(const BoxOptions &options) {
    ImagePtr image = loadImage(options.io.input, options.sums ? 0 : FLOAT);
    if (options.sums) {
        requireType(image.get(), {UBYTE, SHORT, FLOAT, DOUBLE},
                    "box sums work on ubyte, short, float and double");
    }
    requireWindowFits(options.window, image.get());
    ImagePtr result = newImageLike(image.get());
    if (options.sums) {
        require(pxImageBoxSums(image.get(), options.window, result.get()), "box sums failed");
    } else {
        require(pxImageBoxAverage(image.get(), options.window, result.get()), "box average failed");
    }
    saveResult(result.get(), options.io);
}

struct ExtremeOptions {
    FilterIo io;
    int32_t window = 3;
    std::string rangeOutput; // min only: also write max - min here
};

void runMinAndRange(const ExtremeOptions &options) {
    checkWritable(options.io.output);
    checkWritable(options.rangeOutput);
    ImagePtr image = loadImage(options.io.input);
    if (image->type != SHORT) {
        image = convertImage(image.get(), FLOAT, false);
    }
    ImagePtr minimum = newImageLike(image.get());
    ImagePtr range = newImageLike(image.get());
    require(pxImageBoxMinAndRange(image.get(), options.window, minimum.get(), range.get()),
            "windowed minimum and range failed");
    saveResult(minimum.get(), options.io);
    saveImage(range.get(), options.rangeOutput,
              options.io.type.empty() ? 0 : parsePixelType(options.io.type));
}

void runExtreme(const ExtremeOptions &options, bool maximum) {
    if (!maximum && !options.rangeOutput.empty()) {
        runMinAndRange(options);
        return;
    }
    ImagePtr image = loadImage(options.io.input, FLOAT);
    ImagePtr result = newImageLike(image.get());
    if (maximum) {
        require(pxImageBoxMax(image.get(), options.window, result.get()), "windowed maximum failed");
    } else {
        require(pxImageBoxMin(image.get(), options.window, result.get()), "windowed minimum failed");
    }
    saveResult(result.get(), options.io);
}

// ---- filter dilate / erode -----------------------------------------------------------------------------

struct MorphOptions {
    FilterIo io;
    int32_t radius = 1;
    int32_t setValue = 1;
};

// Replaces the 1s of a 0/1 image of the threshold and morphology types by `value`.
template <typename Pixel> void replaceOnes(tag_pxImage *image, double value) {
    Pixel **rows = reinterpret_cast<Pixel **>(image->pixMap[0]);
    for (int32_t y = 0; y < image->height; ++y) {
        std::replace(rows[y], rows[y] + image->width, Pixel(1), static_cast<Pixel>(value));
    }
}

void setOnesTo(tag_pxImage *image, double value) {
    const double limit = image->type == UBYTE ? 255.0 : 65535.0;
    if ((image->type == UBYTE || image->type == SHORT) && !(value >= 0.0 && value <= limit)) {
        throw Error("--set-value must lie in 0.." + number(limit) + " for " + pixelTypeName(image->type) +
                    " images");
    }
    switch (image->type) {
    case UBYTE:
        return replaceOnes<uint8_t>(image, value);
    case SHORT:
        return replaceOnes<uint16_t>(image, value);
    case FLOAT:
        return replaceOnes<float>(image, value);
    default:
        return replaceOnes<double>(image, value);
    }
}

// A 0/1 byte mask of an image of any type: every non-zero pixel is set.
ImagePtr maskOf(const std::string &path) {
    ImagePtr values = loadImage(path, DOUBLE);
    ImagePtr mask = newImage(UBYTE, values->width, values->height);
    double *const *from = reinterpret_cast<double *const *>(values->pixMap[0]);
    uint8_t **to = reinterpret_cast<uint8_t **>(mask->pixMap[0]);
    for (int32_t y = 0; y < mask->height; ++y) {
        for (int32_t x = 0; x < mask->width; ++x) {
            to[y][x] = from[y][x] != 0.0 ? 1 : 0;
        }
    }
    return mask;
}

void runMorph(const MorphOptions &options, bool dilate) {
    ImagePtr image = maskOf(options.io.input);
    ImagePtr result = newImageLike(image.get());
    if (dilate) {
        require(pxImageDilate(image.get(), options.radius, result.get()), "dilation failed");
    } else {
        require(pxImageErode(image.get(), options.radius, result.get()), "erosion failed");
    }
    setOnesTo(result.get(), options.setValue);
    saveResult(result.get(), options.io);
}

// ---- filter threshold / negate -------------------------------------------------------------------------

struct ThresholdOptions {
    FilterIo io;
    double level = 0.0;
    bool upper = false;
    double setValue = 1.0;
};

void runThreshold(const ThresholdOptions &options) {
    ImagePtr image = loadImage(options.io.input);
    requireType(image.get(), {UBYTE, SHORT, FLOAT, DOUBLE},
                "threshold works on ubyte, short, float and double");
    if (options.upper) {
        require(pxImageThreshUpper(image.get(), options.level), "threshold failed");
    } else {
        require(pxImageThresh2Binary(image.get(), options.level), "threshold failed");
        setOnesTo(image.get(), options.setValue);
    }
    saveResult(image.get(), options.io);
}

struct NegateOptions {
    FilterIo io;
    bool asFloat = false;
};

void runNegate(const NegateOptions &options) {
    ImagePtr image = loadImage(options.io.input, options.asFloat ? FLOAT : 0);
    requireType(image.get(), {UBYTE, FLOAT}, "negate works on ubyte and float images (add --float)");
    if (image->type == UBYTE) {
        pxImageOperationsNegate(image.get());
    } else {
        pxImageOperationsNegateFloat(image.get());
    }
    saveResult(image.get(), options.io);
}

// ---- filter reflect ------------------------------------------------------------------------------------

struct ReflectOptions {
    FilterIo io;
    int32_t fill = 8;
    std::string mode = "mirror";
};

int32_t parseReflectMode(const std::string &text) {
    const char *const names[] = {"mirror", "wrap-shared", "replicate", "point-mirror", "zero", "wrap"};
    for (int32_t i = 0; i < 6; ++i) {
        if (text == names[i] || text == std::to_string(i + 1)) {
            return i + 1;
        }
    }
    throw Error("unknown --mode '" + text +
                "' (use mirror, wrap-shared, replicate, point-mirror, zero, wrap or 1..6)");
}

// The image with its filled border, as an image of its own (width + 2 fill by height + 2 fill).
ImagePtr withBorder(const tag_pxImage *image, int32_t fill) {
    ImagePtr result = newImage(FLOAT, image->width + 2 * fill, image->height + 2 * fill);
    float *const *from = reinterpret_cast<float *const *>(image->pixMap[0]);
    float **to = reinterpret_cast<float **>(result->pixMap[0]);
    for (int32_t y = 0; y < result->height; ++y) {
        std::copy(from[y - fill] - fill, from[y - fill] - fill + result->width, to[y]);
    }
    return result;
}

void runReflect(const ReflectOptions &options) {
    const int32_t mode = parseReflectMode(options.mode);
    ImagePtr source = loadImage(options.io.input);
    tag_pxImage *raw = nullptr;
    require(pxImageConvertWithTransformCopy(source.get(), FLOAT, options.fill, 0, &raw),
            "cannot make a float copy with a border of " + std::to_string(options.fill));
    ImagePtr image(raw);
    require(pxImageReflect(image.get(), options.fill, mode), "reflection failed");
    saveResult(withBorder(image.get(), options.fill).get(), options.io);
}

// ---- stats ---------------------------------------------------------------------------------------------

struct StatsOptions {
    std::string input;
    std::string flowY;
    std::vector<double> region;
    int32_t bins = 16;
    std::string plot;
    bool raw = false;
};

// What one statistics call measured.
struct Measurement {
    int32_t count = -1; // stays -1 when the call is refused before it stores the count
    double mean = 0.0;
    double stdDev = 0.0;
    double minimum = 0.0;
    double maximum = 0.0;
    std::vector<uint32_t> histogram; // bins + 1 counters; the last holds the pixels equal to the maximum
};

// The rectangle between two corners: columns x0..x1-1, rows y0..y1-1.
struct Rect {
    int32_t x0, y0, x1, y1;
};

Rect rectOf(const double corner1[2], const double corner2[2]) {
    return {static_cast<int32_t>(std::min(corner1[0], corner2[0])),
            static_cast<int32_t>(std::min(corner1[1], corner2[1])),
            static_cast<int32_t>(std::max(corner1[0], corner2[0])),
            static_cast<int32_t>(std::max(corner1[1], corner2[1]))};
}

bool inside(const double corner1[2], const double corner2[2], const tag_pxImage *image) {
    auto within = [](double v, int32_t limit) { return v >= 0.0 && v <= limit; };
    return image == nullptr || (within(corner1[0], image->width) && within(corner2[0], image->width) &&
                                within(corner1[1], image->height) && within(corner2[1], image->height));
}

// Range of the measured values (the pixel, or the vector length) of the region of DOUBLE images, NaNs
// skipped, so that the histogram spans the region itself; the library's automatic range would start from
// the image's first pixel. Leaves lo and hi at 0 (automatic range) when the corners are refused or the
// region holds no number.
void regionRange(const tag_pxImage *image, const tag_pxImage *flowY, const double corner1[2],
                 const double corner2[2], double &lo, double &hi) {
    if (!inside(corner1, corner2, image) || !inside(corner1, corner2, flowY)) {
        return;
    }
    const Rect r = rectOf(corner1, corner2);
    double *const *xs = reinterpret_cast<double *const *>(image->pixMap[0]);
    double *const *ys = flowY != nullptr ? reinterpret_cast<double *const *>(flowY->pixMap[0]) : nullptr;
    bool found = false;
    for (int32_t y = r.y0; y < r.y1; ++y) {
        for (int32_t x = r.x0; x < r.x1; ++x) {
            const double v = ys != nullptr ? std::sqrt(xs[y][x] * xs[y][x] + ys[y][x] * ys[y][x]) : xs[y][x];
            if (!std::isnan(v)) {
                lo = found ? std::min(lo, v) : v;
                hi = found ? std::max(hi, v) : v;
                found = true;
            }
        }
    }
}

Measurement measure(const tag_pxImage *image, const tag_pxImage *flowY, const double corner1[2],
                    const double corner2[2], int32_t bins, bool ownRange) {
    Measurement m;
    if (ownRange && bins >= 1) {
        regionRange(image, flowY, corner1, corner2, m.minimum, m.maximum);
    }
    m.histogram.assign(static_cast<size_t>(bins) + 1, 0);
    const uint32_t ok =
        flowY != nullptr ? pxImageGetAvarageFlowNorm(image, flowY, corner1, corner2, bins, m.histogram.data(),
                                                     &m.minimum, &m.maximum, &m.count, &m.mean, &m.stdDev)
                         : pxImageGetAvaragePixValue(image, corner1, corner2, bins, m.histogram.data(),
                                                     &m.minimum, &m.maximum, &m.count, &m.mean, &m.stdDev);
    if (ok == 0 && m.count == 0) {
        throw Error("the region is empty");
    }
    require(ok, "statistics failed");
    // A pixel equal to the maximum lands one past the last bin; show it in the last bin, closed above.
    if (bins >= 1) {
        m.histogram[static_cast<size_t>(bins) - 1] += m.histogram[static_cast<size_t>(bins)];
        m.histogram.pop_back();
    } else {
        m.histogram.clear();
    }
    return m;
}

double binEdge(const Measurement &m, size_t i) {
    return m.minimum +
           (m.maximum - m.minimum) * static_cast<double>(i) / static_cast<double>(m.histogram.size());
}

void printHistogram(const Measurement &m) {
    if (m.histogram.empty()) {
        return;
    }
    const uint32_t highest = std::max(1u, *std::max_element(m.histogram.begin(), m.histogram.end()));
    std::printf("histogram   %zu bins of width %s\n", m.histogram.size(),
                number((m.maximum - m.minimum) / static_cast<double>(m.histogram.size())).c_str());
    for (size_t i = 0; i < m.histogram.size(); ++i) {
        const bool last = i + 1 == m.histogram.size();
        const int bar = static_cast<int>(std::lround(40.0 * m.histogram[i] / highest));
        std::printf("  [%12s, %12s%c %-40s %u\n", number(binEdge(m, i)).c_str(),
                    number(binEdge(m, i + 1)).c_str(), last ? ']' : ')',
                    std::string(static_cast<size_t>(bar), '#').c_str(), m.histogram[i]);
    }
}

// Draws the histogram as a bar chart: axes, bars, bin-edge labels below, pixel counts on the left.
cv::Mat drawChart(const Measurement &m, const std::string &title) {
    const int width = 900, height = 540, left = 90, right = 30, top = 60, bottom = 80;
    const cv::Scalar ink(40, 40, 40), bar(180, 110, 40), grid(225, 225, 225);
    const int font = cv::FONT_HERSHEY_SIMPLEX;
    cv::Mat chart(height, width, CV_8UC3, cv::Scalar(255, 255, 255));
    const int plotWidth = width - left - right, plotHeight = height - top - bottom;
    const uint32_t highest = std::max(1u, *std::max_element(m.histogram.begin(), m.histogram.end()));
    for (int tick = 0; tick <= 4; ++tick) {
        const int y = top + plotHeight - plotHeight * tick / 4;
        cv::line(chart, {left, y}, {left + plotWidth, y}, grid, 1);
        const std::string label = number(std::round(highest * tick / 4.0));
        const cv::Size size = cv::getTextSize(label, font, 0.45, 1, nullptr);
        cv::putText(chart, label, {left - 8 - size.width, y + size.height / 2}, font, 0.45, ink, 1,
                    cv::LINE_AA);
    }
    const size_t bins = m.histogram.size();
    for (size_t i = 0; i < bins; ++i) {
        const int x0 = left + static_cast<int>(plotWidth * i / bins);
        const int x1 = left + static_cast<int>(plotWidth * (i + 1) / bins);
        const int h =
            static_cast<int>(std::lround(static_cast<double>(plotHeight) * m.histogram[i] / highest));
        if (h > 0) {
            cv::rectangle(chart, {x0 + 1, top + plotHeight - h}, {x1 - 1, top + plotHeight}, bar, cv::FILLED);
        }
    }
    const size_t labelEvery = std::max<size_t>(1, (bins + 7) / 8);
    for (size_t i = 0; i <= bins; i += labelEvery) {
        const int x = left + static_cast<int>(plotWidth * i / bins);
        cv::line(chart, {x, top + plotHeight}, {x, top + plotHeight + 6}, ink, 1);
        const std::string label = number(binEdge(m, i));
        const cv::Size size = cv::getTextSize(label, font, 0.45, 1, nullptr);
        cv::putText(chart, label, {x - size.width / 2, top + plotHeight + 24}, font, 0.45, ink, 1,
                    cv::LINE_AA);
    }
    cv::line(chart, {left, top}, {left, top + plotHeight}, ink, 2);
    cv::line(chart, {left, top + plotHeight}, {left + plotWidth, top + plotHeight}, ink, 2);
    cv::putText(chart, title, {left, 30}, font, 0.6, ink, 1, cv::LINE_AA);
    cv::putText(chart, "value", {left + plotWidth / 2 - 20, height - 25}, font, 0.55, ink, 1, cv::LINE_AA);
    cv::putText(chart, "pixels", {10, top - 15}, font, 0.55, ink, 1, cv::LINE_AA);
    return chart;
}

void writeChart(const Measurement &m, const std::string &title, const std::string &path) {
    if (m.histogram.empty()) {
        throw Error("--plot needs --bins of 1 or more");
    }
    checkWritable(path);
    bool written = false;
    try {
        written = cv::imwrite(path, drawChart(m, title));
    } catch (const cv::Exception &e) {
        throw Error(path + ": OpenCV could not write the chart (" + e.err + ")");
    }
    if (!written) {
        throw Error(path + ": OpenCV could not write the chart");
    }
}

// Both images of a vector field, or one image, in the type the statistics run on.
ImagePtr loadMeasured(const std::string &path, bool raw) {
    return loadImage(path, raw ? 0 : DOUBLE);
}

void runStats(const StatsOptions &options) {
    ImagePtr image = loadMeasured(options.input, options.raw);
    ImagePtr flowY = options.flowY.empty() ? nullptr : loadMeasured(options.flowY, options.raw);
    double corner1[2] = {0.0, 0.0};
    double corner2[2] = {static_cast<double>(image->width), static_cast<double>(image->height)};
    if (!options.region.empty()) {
        corner1[0] = options.region[0];
        corner1[1] = options.region[1];
        corner2[0] = options.region[2];
        corner2[1] = options.region[3];
    }
    const Measurement m = measure(image.get(), flowY.get(), corner1, corner2, options.bins, !options.raw);
    if (!options.plot.empty()) { // first, so that a chart that cannot be written leaves no output at all
        const std::string title = options.input + ": n " + std::to_string(m.count) + ", mean " +
                                  number(m.mean) + ", sd " + number(m.stdDev);
        writeChart(m, title, options.plot);
    }
    const Rect r = rectOf(corner1, corner2);
    std::printf("measured    %s\n", flowY ? "vector length sqrt(x^2 + y^2)" : "pixel value");
    std::printf("region      columns %d..%d, rows %d..%d (%d x %d)\n", r.x0, r.x1 - 1, r.y0, r.y1 - 1,
                r.x1 - r.x0, r.y1 - r.y0);
    std::printf("count       %d\n", m.count);
    std::printf("mean        %s\n", number(m.mean).c_str());
    std::printf("std dev     %s\n", number(m.stdDev).c_str());
    if (!m.histogram.empty()) {
        std::printf("range       %s .. %s\n", number(m.minimum).c_str(), number(m.maximum).c_str());
    }
    printHistogram(m);
}

// ---- Registration --------------------------------------------------------------------------------------

void addBox(CLI::App *filter) {
    auto options = std::make_shared<BoxOptions>();
    CLI::App *box = filter->add_subcommand(
        "box", "Box average over an odd square window clipped to the image (computed in float), or box sums");
    addIo(box, options->io);
    box->add_option("--window", options->window, "odd window width (default 3)")->check(CLI::Range(1, 9999));
    box->add_flag("--sums", options->sums,
                  "plain window sums in the image's own type (ubyte and short wrap around)");
    box->callback([options] { runBox(*options); });
}

void addExtremes(CLI::App *filter) {
    for (bool maximum : {false, true}) {
        auto options = std::make_shared<ExtremeOptions>();
        CLI::App *command = filter->add_subcommand(
            maximum ? "max" : "min",
            maximum
                ? "Windowed maximum over a square window clipped to the image (float)"
                : "Windowed minimum over a square window clipped to the image (float; short with --range)");
        addIo(command, options->io);
        command->add_option("--window", options->window, "window width, half on each side (default 3)")
            ->check(CLI::Range(1, 9999));
        if (!maximum) {
            command->add_option("--range", options->rangeOutput,
                                "also write the windowed range (max - min) to this image");
        }
        command->callback([options, maximum] { runExtreme(*options, maximum); });
    }
}

void addMorphology(CLI::App *filter) {
    for (bool dilate : {true, false}) {
        auto options = std::make_shared<MorphOptions>();
        CLI::App *command = filter->add_subcommand(
            dilate ? "dilate" : "erode",
            dilate ? "Binary dilation with a (2r+1)^2 square: any non-zero input pixel is set"
                   : "Binary erosion with a (2r+1)^2 square: any non-zero input pixel is set; a band of r "
                     "pixels along the edges is cleared");
        addIo(command, options->io);
        command->add_option("--radius", options->radius, "square radius 0..7 (default 1)")
            ->check(CLI::Range(0, 7));
        command
            ->add_option("--set-value", options->setValue,
                         "value written for set pixels, 1..255 (default 1; 255 to view as PNG)")
            ->check(CLI::Range(1, 255));
        command->callback([options, dilate] { runMorph(*options, dilate); });
    }
}

void addPointOperations(CLI::App *filter) {
    auto threshold = std::make_shared<ThresholdOptions>();
    CLI::App *thresh = filter->add_subcommand(
        "threshold", "Pixels at or above --level become 1, the others 0 (--upper: below --level become 0, "
                     "the others keep their value); 16-bit pixels of 32768 and more count as negative");
    addIo(thresh, threshold->io);
    thresh->add_option("--level", threshold->level, "threshold")->required();
    thresh->add_flag("--upper", threshold->upper, "clear only the pixels below the level");
    thresh
        ->add_option(
            "--set-value", threshold->setValue,
            "value written for pixels at or above the level (default 1; to view the result as a PNG: "
            "255 for ubyte images, 65535 for short ones)")
        ->excludes("--upper");
    thresh->callback([threshold] { runThreshold(*threshold); });

    auto negate = std::make_shared<NegateOptions>();
    CLI::App *neg = filter->add_subcommand("negate", "255 - value, for ubyte and float images");
    addIo(neg, negate->io);
    neg->add_flag("--float", negate->asFloat, "convert the input to float first");
    neg->callback([negate] { runNegate(*negate); });
}

void addReflect(CLI::App *filter) {
    auto options = std::make_shared<ReflectOptions>();
    CLI::App *reflect = filter->add_subcommand(
        "reflect", "Fill a border of --fill pixels around the image (as float) and write the image with it");
    addIo(reflect, options->io);
    reflect->add_option("--fill", options->fill, "border width on every side, 1..999 (default 8)")
        ->check(CLI::Range(1, 999));
    reflect->add_option("--mode", options->mode,
                        "mirror (1), wrap-shared (2), replicate (3), point-mirror (4), zero (5) or wrap (6); "
                        "default mirror");
    reflect->callback([options] { runReflect(*options); });
}

void addStats(CLI::App &app) {
    auto options = std::make_shared<StatsOptions>();
    CLI::App *stats = app.add_subcommand(
        "stats", "Count, mean, standard deviation and histogram of a rectangle of an image (values as double "
                 "unless --raw), or of the vector length of a vector field with --flow-y");
    stats->add_option("IN", options->input, "image (the x component with --flow-y)")->required();
    stats
        ->add_option("--region", options->region,
                     "corners x0 y0 x1 y1, upper bounds exclusive (default: all)")
        ->expected(4);
    stats->add_option("--bins", options->bins, "histogram bins, 0 for none (default 16)")
        ->check(CLI::Range(0, 100000));
    stats->add_option("--plot", options->plot, "also draw the histogram as a PNG bar chart");
    stats->add_option("--flow-y", options->flowY, "y component image: measure sqrt(x^2 + y^2)");
    stats->add_flag("--raw", options->raw,
                    "measure in the stored type: bytes and shorts read as signed, sums in wrapping 32-bit "
                    "integers");
    stats->callback([options] { runStats(*options); });
}

} // namespace

void addFilterCommands(CLI::App &app) {
    CLI::App *filter = app.add_subcommand("filter", "Run a neighbourhood filter of the library on an image");
    filter->require_subcommand(1);
    addBox(filter);
    addExtremes(filter);
    addMorphology(filter);
    addPointOperations(filter);
    addReflect(filter);
    addStats(app);
}

} // namespace pximg
