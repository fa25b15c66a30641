// stats subcommand of pximg: count, mean, standard deviation, range and histogram of a rectangle of an image
// (or of the vector length of a two-image vector field), as text, JSON or a PNG bar chart. Integer data gets
// whole-value bins; regions are half-open, [x0, x1) x [y0, y1).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "pximgTool.h"

namespace pximg {

namespace {

struct StatsOptions {
    std::string input;
    std::string flowY;
    std::vector<double> region;
    int32_t bins = 16;
    std::string plot;
    bool raw = false;
    bool json = false;
};

// What one statistics call measured.
struct Measurement {
    int32_t count = -1; // stays -1 when the call is refused before it stores the count
    double mean = 0.0;
    double stdDev = 0.0;
    double minimum = 0.0; // the histogram's lower and upper edge
    double maximum = 0.0;
    double lowest = 0.0, highest = 0.0; // the values' own range (no number: both 0)
    bool found = false;                 // whether the region holds a number
    double step = 1.0;                  // integer data: the values' common step (12-bit data in 16 bits: 16)
    std::vector<uint32_t> histogram;    // one counter per bin
};

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
// the image's first pixel. False (lo and hi left) when the corners are refused or the region holds no
// number.
bool regionRange(const tag_pxImage *image, const tag_pxImage *flowY, const double corner1[2],
                 const double corner2[2], double &lo, double &hi) {
    if (!inside(corner1, corner2, image) || !inside(corner1, corner2, flowY)) {
        return false;
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
    return found;
}

// The greatest common divisor of the distances of the region's values from `lowest` (integer data held as
// doubles): a camera's 12-bit values in the high bits of 16 are all multiples of 16 apart.
double valueStep(const tag_pxImage *image, const double corner1[2], const double corner2[2], double lowest) {
    const Rect r = rectOf(corner1, corner2);
    double *const *xs = reinterpret_cast<double *const *>(image->pixMap[0]);
    uint64_t step = 0;
    for (int32_t y = r.y0; y < r.y1 && step != 1; ++y) {
        for (int32_t x = r.x0; x < r.x1; ++x) {
            step = std::gcd(step, static_cast<uint64_t>(xs[y][x] - lowest));
        }
    }
    return step == 0 ? 1.0 : double(step);
}

// The histogram's edges and bin count for values lowest..highest: for integer data bins of whole values
// (whole steps of the data, as many as needed, at most `bins`), `bins` equal bins otherwise; one bin for a
// constant.
void histogramLayout(Measurement &m, int32_t &bins, bool integer) {
    if (!m.found || bins < 1) {
        bins = 0;
        return;
    }
    if (integer) {
        const double levels = (m.highest - m.lowest) / m.step + 1.0;
        const double perBin = std::ceil(levels / bins);
        const double width = perBin * m.step;
        bins = static_cast<int32_t>(std::ceil(levels / perBin));
        m.minimum = m.lowest;
        m.maximum = m.lowest + width * bins;
    } else if (m.highest == m.lowest) {
        bins = 1;
        m.minimum = m.lowest;
        m.maximum = m.lowest + 1.0; // one bin holding every pixel; shown as the value itself
    } else {
        m.minimum = m.lowest;
        m.maximum = m.highest;
    }
}

Measurement measure(const tag_pxImage *image, const tag_pxImage *flowY, const double corner1[2],
                    const double corner2[2], int32_t bins, bool ownRange, bool integer) {
    Measurement m;
    if (ownRange) {
        m.found = regionRange(image, flowY, corner1, corner2, m.lowest, m.highest);
        m.step = integer && m.found ? valueStep(image, corner1, corner2, m.lowest) : 1.0;
        histogramLayout(m, bins, integer);
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
    if (ok == 0) {
        throw libraryFailure("statistics failed");
    }
    if (!ownRange) {
        m.lowest = m.minimum, m.highest = m.maximum, m.found = bins >= 1;
    }
    // A pixel equal to the upper edge lands one past the last bin; show it in the last bin, closed above.
    if (bins >= 1) {
        m.histogram[static_cast<size_t>(bins) - 1] += m.histogram[static_cast<size_t>(bins)];
    }
    m.histogram.pop_back();
    return m;
}

double binEdge(const Measurement &m, size_t i) {
    return m.minimum +
           (m.maximum - m.minimum) * static_cast<double>(i) / static_cast<double>(m.histogram.size());
}

// The text of bin i: "[a, b)", the last one closed for real data; a whole value alone for bins of one.
std::string binText(const Measurement &m, size_t i, bool integer) {
    const double a = binEdge(m, i), b = binEdge(m, i + 1);
    if ((integer && b - a == m.step) || m.lowest == m.highest) {
        return number(a);
    }
    const bool last = i + 1 == m.histogram.size();
    return "[" + number(a) + ", " + number(b) + (last && !integer ? "]" : ")");
}

void printHistogram(const Measurement &m, bool integer, std::ostream &out) {
    if (m.histogram.empty()) {
        return;
    }
    const uint32_t highest = std::max(1u, *std::max_element(m.histogram.begin(), m.histogram.end()));
    out << "histogram   " << m.histogram.size() << " bins of width " << number(binEdge(m, 1) - binEdge(m, 0))
        << (integer ? " (whole values" + (m.step > 1.0 ? ", data in steps of " + number(m.step) : "") + ")"
                    : "")
        << '\n';
    for (size_t i = 0; i < m.histogram.size(); ++i) {
        const int bar = static_cast<int>(std::lround(40.0 * m.histogram[i] / highest));
        char line[160];
        std::snprintf(line, sizeof line, "  %-27s %-40s %u\n", binText(m, i, integer).c_str(),
                      std::string(static_cast<size_t>(bar), '#').c_str(), m.histogram[i]);
        out << line;
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

// Refuses a region outside the image or a vector field of two sizes, naming the sizes.
void checkShapes(const tag_pxImage *image, const tag_pxImage *flowY, const StatsOptions &options,
                 const double corner1[2], const double corner2[2]) {
    const std::string size = std::to_string(image->width) + " x " + std::to_string(image->height);
    if (flowY != nullptr && (flowY->width != image->width || flowY->height != image->height)) {
        throw Error("the images differ in size: " + options.input + " is " + size + ", " + options.flowY +
                    " is " + std::to_string(flowY->width) + " x " + std::to_string(flowY->height));
    }
    if (!inside(corner1, corner2, image)) {
        std::string corners;
        for (double v : options.region) {
            corners += (corners.empty() ? "" : " ") + number(v);
        }
        throw Error("the region " + corners + " lies outside the " + size + " image (columns [0, " +
                    std::to_string(image->width) + "), rows [0, " + std::to_string(image->height) + "))");
    }
}

void printText(const Measurement &m, const Rect &r, bool vector, bool integer) {
    std::ostringstream out;
    out << "measured    " << (vector ? "vector length sqrt(x^2 + y^2)" : "pixel value") << '\n'
        << "region      columns [" << r.x0 << ", " << r.x1 << "), rows [" << r.y0 << ", " << r.y1 << ") ("
        << r.x1 - r.x0 << " x " << r.y1 - r.y0 << ")\n"
        << "count       " << m.count << '\n'
        << "mean        " << number(m.mean) << '\n'
        << "std dev     " << number(m.stdDev) << '\n';
    if (m.found) {
        out << "range       " << number(m.lowest) << " .. " << number(m.highest) << '\n';
    }
    printHistogram(m, integer, out);
    std::cout << out.str();
}

void printJson(const Measurement &m, const Rect &r, const StatsOptions &options, bool integer) {
    std::ostringstream out;
    out << "{\n  \"file\": " << jsonString(options.input)
        << ",\n  \"measured\": " << (options.flowY.empty() ? "\"pixel value\"" : "\"vector length\"")
        << ",\n  \"region\": {\"x0\": " << r.x0 << ", \"y0\": " << r.y0 << ", \"x1\": " << r.x1
        << ", \"y1\": " << r.y1 << "},\n  \"count\": " << m.count << ",\n  \"mean\": " << jsonNumber(m.mean)
        << ",\n  \"stdDev\": " << jsonNumber(m.stdDev)
        << ",\n  \"min\": " << (m.found ? jsonNumber(m.lowest) : "null")
        << ",\n  \"max\": " << (m.found ? jsonNumber(m.highest) : "null") << ",\n  \"histogram\": [";
    for (size_t i = 0; i < m.histogram.size(); ++i) {
        const bool last = i + 1 == m.histogram.size();
        out << (i ? ", " : "") << "{\"from\": " << jsonNumber(binEdge(m, i))
            << ", \"to\": " << jsonNumber(m.lowest == m.highest ? m.lowest : binEdge(m, i + 1))
            << ", \"closed\": " << (last && (!integer || m.lowest == m.highest) ? "true" : "false")
            << ", \"count\": " << m.histogram[i] << "}";
    }
    out << "]\n}\n";
    std::cout << out.str();
}

void runStats(const StatsOptions &options) {
    ImagePtr image = loadImage(options.input);
    const bool integer =
        options.flowY.empty() && (image->type == UBYTE || image->type == SHORT || image->type == INT);
    if (!options.raw) {
        image = convertImage(image.get(), DOUBLE, false);
    }
    ImagePtr flowY = options.flowY.empty() ? nullptr : loadImage(options.flowY, options.raw ? 0 : DOUBLE);
    double corner1[2] = {0.0, 0.0};
    double corner2[2] = {static_cast<double>(image->width), static_cast<double>(image->height)};
    if (!options.region.empty()) {
        corner1[0] = options.region[0];
        corner1[1] = options.region[1];
        corner2[0] = options.region[2];
        corner2[1] = options.region[3];
    }
    checkShapes(image.get(), flowY.get(), options, corner1, corner2);
    const Measurement m = measure(image.get(), flowY.get(), corner1, corner2, options.bins, !options.raw,
                                  integer && !options.raw);
    if (!options.plot.empty()) { // first, so that a chart that cannot be written leaves no output at all
        const std::string title = options.input + ": n " + std::to_string(m.count) + ", mean " +
                                  number(m.mean) + ", sd " + number(m.stdDev);
        writeChart(m, title, options.plot);
    }
    const Rect r = rectOf(corner1, corner2);
    if (options.json) {
        printJson(m, r, options, integer && !options.raw);
    } else {
        printText(m, r, flowY != nullptr, integer && !options.raw);
    }
}

} // namespace

void addStatsCommand(CLI::App &app) {
    auto options = std::make_shared<StatsOptions>();
    CLI::App *stats = app.add_subcommand(
        "stats", "Count, mean, standard deviation, range and histogram of a rectangle of an image (values as "
                 "double unless --raw; whole-value bins for integer data), or of the vector length of a "
                 "vector field with --flow-y");
    stats->add_option("IN", options->input, "image (the x component with --flow-y)")->required();
    stats
        ->add_option("--region", options->region,
                     "corners x0 y0 x1 y1: columns [x0, x1), rows [y0, y1) (default: all)")
        ->expected(4);
    stats
        ->add_option("--bins", options->bins,
                     "histogram bins, 0 for none (default 16; integer data gets "
                     "whole-value bins, as many as needed up to this number)")
        ->check(wholeNumber(0, 100000));
    stats->add_option("--plot", options->plot, "also draw the histogram as a PNG bar chart");
    stats->add_option("--flow-y", options->flowY, "y component image: measure sqrt(x^2 + y^2)");
    stats->add_flag("--raw", options->raw,
                    "measure in the stored type: bytes and shorts read as signed, sums in wrapping 32-bit "
                    "integers");
    stats->add_flag("--json", options->json, "print the measurement as one JSON object");
    addColourOptions(stats);
    stats->callback([options] { runStats(*options); });
}

} // namespace pximg
