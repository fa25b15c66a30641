// Mark subcommand of pximg: draws point crosses and ellipses into an 8-bit picture of an image, or into a
// magnified cut-out around them, so that a person can look at detected features. Points come from text
// files of "x y" lines or CSV files with x and y columns; ellipses from the command line.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "pxMath.h"
#include "pximgCommands.h"

namespace pximg {

namespace {

constexpr double kPi = 3.141592653589793;

struct MarkOptions {
    std::string input;
    std::string output;
    std::vector<std::string> pointFiles;
    std::vector<double> ellipses; // five numbers per --ellipse
    int32_t magnify = 0;
    int32_t size = 5;
    int32_t colour = 255;
};

// ---- Point files ---------------------------------------------------------------------------------------

std::string trim(const std::string &text) {
    const size_t first = text.find_first_not_of(" \t\r");
    const size_t last = text.find_last_not_of(" \t\r");
    return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// Fields of a line: comma-separated when the file is CSV, else separated by white space.
std::vector<std::string> fieldsOf(const std::string &line, bool csv) {
    std::vector<std::string> fields;
    if (csv) {
        std::stringstream in(line);
        std::string field;
        while (std::getline(in, field, ','))
            fields.push_back(trim(field));
        if (!line.empty() && line.back() == ',')
            fields.emplace_back();
    } else {
        std::istringstream in(line);
        std::string field;
        while (in >> field)
            fields.push_back(field);
    }
    return fields;
}

// The whole text as a finite number, or false.
bool parseNumber(const std::string &text, double &value) {
    if (text.empty())
        return false;
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    in >> value;
    return in && in.peek() == std::char_traits<char>::eof() && std::isfinite(value);
}

// Columns of x and y: named by a header line, else the first two fields.
struct Columns {
    size_t x = 0;
    size_t y = 1;
};

bool isHeader(const std::vector<std::string> &fields) {
    double ignored = 0.0;
    return std::any_of(fields.begin(), fields.end(),
                       [&](const std::string &f) { return !parseNumber(f, ignored); });
}

Columns columnsOfHeader(const std::vector<std::string> &fields, const std::string &where) {
    Columns c{fields.size(), fields.size()};
    for (size_t i = 0; i < fields.size(); ++i) {
        const std::string name = lower(fields[i]);
        if (name == "x" && c.x == fields.size())
            c.x = i;
        if (name == "y" && c.y == fields.size())
            c.y = i;
    }
    if (c.x == fields.size() || c.y == fields.size())
        throw Error(where + ": the header names no x and y columns");
    return c;
}

// Appends the points of one file as (x, y) pairs. Blank lines and lines starting with '#' are skipped.
void readPoints(const std::string &path, std::vector<double> &points) {
    std::ifstream in(path);
    if (!in)
        throw Error(path + ": " + std::strerror(errno));
    std::string line;
    bool first = true;
    bool csv = false;
    Columns columns;
    for (int number = 1; std::getline(in, line); ++number) {
        const std::string text = trim(line);
        if (text.empty() || text[0] == '#')
            continue;
        const std::string where = path + ":" + std::to_string(number);
        if (first) {
            csv = text.find(',') != std::string::npos;
        }
        const std::vector<std::string> fields = fieldsOf(text, csv);
        if (first && isHeader(fields)) {
            columns = columnsOfHeader(fields, where);
            first = false;
            continue;
        }
        first = false;
        double x = 0.0;
        double y = 0.0;
        if (std::max(columns.x, columns.y) >= fields.size() || !parseNumber(fields[columns.x], x) ||
            !parseNumber(fields[columns.y], y))
            throw Error(where + ": expected x and y as numbers, found '" + text + "'");
        points.push_back(x);
        points.push_back(y);
    }
    if (in.bad())
        throw Error(path + ": " + std::strerror(errno));
}

// ---- Drawing -------------------------------------------------------------------------------------------

void require(uint32_t result, const std::string &what) {
    if (result == 0)
        throw libraryFailure(what);
}

// An 8-bit picture of plane 0 with a margin of `border` pixels: bytes as they are, other types by a
// square-root stretch from their smallest (0) to their largest value (255), which keeps dark detail visible.
ImagePtr bytePicture(const tag_pxImage *image, int32_t border) {
    tag_pxImage *raw = nullptr;
    if (image->type == UBYTE) {
        require(pxImageConvertCopy(image, UBYTE, border, &raw), "cannot copy the image");
        return ImagePtr(raw);
    }
    ImagePtr values = convertImage(image, DOUBLE, false);
    double low = INFINITY;
    double high = -INFINITY;
    for (int32_t y = 0; y < values->height; ++y) {
        const double *row = static_cast<const double *>(values->pixMap[0][y]);
        for (int32_t x = 0; x < values->width; ++x) {
            if (std::isfinite(row[x])) {
                low = std::min(low, row[x]);
                high = std::max(high, row[x]);
            }
        }
    }
    const double scale = high > low ? 1.0 / (high - low) : 0.0;
    require(pxImageConstruct(UBYTE, image->width, image->height, border, 1, &raw),
            "cannot allocate the picture");
    ImagePtr picture(raw);
    for (int32_t y = 0; y < values->height; ++y) {
        const double *from = static_cast<const double *>(values->pixMap[0][y]);
        uint8_t *to = static_cast<uint8_t *>(picture->pixMap[0][y]);
        for (int32_t x = 0; x < values->width; ++x)
            to[x] = std::isfinite(from[x])
                        ? static_cast<uint8_t>(std::lround(255.0 * std::sqrt((from[x] - low) * scale)))
                        : 0;
    }
    return picture;
}

pxMath2DEllipse ellipseAt(const std::vector<double> &numbers, size_t i) {
    const double *e = &numbers[5 * i];
    return {e[0], e[1], e[2], e[3], e[4] * kPi / 180.0};
}

// Ellipses (one pixel wide) and crosses drawn into the picture itself.
void markInPlace(tag_pxImage *picture, const MarkOptions &options, const std::vector<double> &points) {
    pxImageMarkPtsSetParams(1, options.colour);
    for (size_t i = 0; i < options.ellipses.size() / 5; ++i) {
        const pxMath2DEllipse e = ellipseAt(options.ellipses, i);
        tag_pxImage *handle = picture;
        require(pxImageMarkEllipseAndPts(&e, picture, nullptr, 0, &handle),
                "cannot draw ellipse " + std::to_string(i + 1));
    }
    pxImageMarkPtsSetParams(options.size, options.colour);
    require(pxImageMarkPts(points.data(), static_cast<int32_t>(points.size() / 2), picture),
            "cannot mark the points");
}

// The magnified cut-out around the points (made from a float copy) or around the one ellipse.
ImagePtr markMagnified(const tag_pxImage *picture, const MarkOptions &options,
                       const std::vector<double> &points) {
    tag_pxImage *raw = nullptr;
    if (!options.ellipses.empty()) {
        const pxMath2DEllipse e = ellipseAt(options.ellipses, 0);
        pxImageMarkPtsSetParams(1, options.colour);
        const uint32_t done = pxImageMarkEllipse(&e, options.magnify, picture, &raw);
        ImagePtr cutOut(raw);
        require(done, "cannot make the magnified cut-out of the ellipse");
        return cutOut;
    }
    pxImageMarkPtsSetParams(options.size, options.colour);
    tag_pxImage *floats = nullptr;
    require(pxImageConvertCopy(picture, FLOAT, picture->border, &floats), "cannot copy the picture");
    ImagePtr floatPicture(floats);
    const uint32_t done = pxImageMarkPtsMagnify(points.data(), static_cast<int32_t>(points.size() / 2),
                                                options.magnify, floats, &raw);
    ImagePtr cutOut(raw);
    require(done, "cannot make the magnified cut-out of the points");
    return convertImage(cutOut.get(), UBYTE, false);
}

void checkOptions(const MarkOptions &options) {
    if (options.ellipses.size() % 5 != 0)
        throw Error("--ellipse takes five numbers: CX CY A B ANGLE");
    if (options.pointFiles.empty() && options.ellipses.empty())
        throw Error("nothing to mark: give --points FILE or --ellipse CX CY A B ANGLE");
    if (options.magnify != 0) {
        if (options.magnify < 1)
            throw Error("--magnify must be 1 or more, not " + std::to_string(options.magnify));
        if (!options.ellipses.empty() && (options.ellipses.size() > 5 || !options.pointFiles.empty()))
            throw Error("--magnify makes one cut-out: around the --points, or around a single --ellipse");
    }
}

void runMark(const MarkOptions &options) {
    checkOptions(options);
    std::vector<double> points;
    for (const std::string &file : options.pointFiles)
        readPoints(file, points);
    if (points.size() / 2 > 0x7FFFFFFF)
        throw Error("too many points");
    checkWritable(options.output);
    ImagePtr image = loadImage(options.input);
    // A margin as wide as the arms lets crosses at the image's edge be drawn (their outer part is not saved).
    ImagePtr picture = bytePicture(image.get(), std::max(options.size / 2, 0));
    ImagePtr result = options.magnify != 0 ? markMagnified(picture.get(), options, points) : nullptr;
    if (options.magnify == 0)
        markInPlace(picture.get(), options, points);
    const tag_pxImage *marked = result ? result.get() : picture.get();
    ImagePtr saved = convertImage(marked, 0, false); // without the margin
    saveImage(saved.get(), options.output);
    std::cout << "marked " << points.size() / 2 << " points and " << options.ellipses.size() / 5
              << " ellipses: " << options.output << " (" << saved->width << " x " << saved->height << ")\n";
}

} // namespace

void addMarkCommands(CLI::App &app) {
    auto options = std::make_shared<MarkOptions>();
    CLI::App *mark = app.add_subcommand(
        "mark", "draw point crosses and ellipses into an 8-bit picture of an image (or a magnified cut-out)");
    mark->add_option("IN", options->input, "input image: pxImage file, PNG, TIFF or PGM")->required();
    mark->add_option("OUT", options->output,
                     "output picture: .png, .tif, .pgm, anything else is pxImage (UBYTE)")
        ->required();
    mark->add_option("--points", options->pointFiles,
                     "file of points: \"x y\" lines, or CSV with x and y columns (x the column, y the row; "
                     "repeatable)");
    mark->add_option(
            "--ellipse", options->ellipses,
            "ellipse: centre column and row, semi-axes a and b, angle of a in degrees from the x axis "
            "toward y (repeatable)")
        ->expected(5)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
    mark->add_option("--magnify", options->magnify,
                     "write a cut-out magnified M times: around the points, or around one ellipse");
    mark->add_option("--size", options->size,
                     "cross size of the points: arms of SIZE / 2 pixels (default 5); ellipses are drawn one "
                     "pixel wide")
        ->check(CLI::Range(0, 199));
    mark->add_option("--color", options->colour, "grey value of the marks, 0..255 (default 255)")
        ->check(CLI::Range(0, 255));
    mark->callback([options] { runMark(*options); });
}

} // namespace pximg
