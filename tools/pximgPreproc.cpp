// Preprocessing subcommands of pximg: "preproc" normalises both images of a stereo pair with one mode of the
// library, measures how often a plain window matcher finds the true disparity before and after, and writes
// PNG previews of the normalised images; "stereo-pair" writes a synthetic pair to try it on.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <string>
#include <system_error>

#include "pximgCommands.h"
#include "pximgStereo.h"

namespace pximg {

namespace {

namespace fs = std::filesystem;

struct PreprocOptions {
    std::string mode;
    std::string left;
    std::string right;
    std::string outDir;
    int32_t window = 15;
    float offset = 0.0f;
    float gain = 32.0f;
    float meanGain = 0.0f;
    float minSigma = 1.0f;
    float bound = 3.0f;
    float saturation = 255.0f;
    bool ignoreSaturation = false;
    int32_t disparity = 6;
    int32_t maxDisparity = 16;
    int32_t matchWindow = 7;
};

const std::map<std::string, const char *> kModes = {
    {"preproc", "zero mean, unit variance: gain * (p - mean) / deviation + offset"},
    {"adaptive-log", "ln(p / local mean)"},
    {"bounded", "(p - mean) / deviation clamped to +-bound, scaled to +-127.5"},
    {"log", "tone mapping of the whole image to 0..255"},
    {"standard", "(mean - lowest mean) * mean-gain + (p - mean) * gain / deviation"},
};

std::string percent(double share) {
    char text[16];
    std::snprintf(text, sizeof text, "%.1f%%", 100.0 * share);
    return text;
}

std::string shortNumber(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

// Plane 0 of a record as row-major floats.
Plane planeOf(const tag_pxImage *image) {
    ImagePtr floats = convertImage(image, FLOAT, false);
    Plane plane{floats->width, floats->height, {}};
    for (int32_t y = 0; y < floats->height; ++y) {
        const float *row = static_cast<const float *>(floats->pixMap[0][y]);
        plane.pixels.insert(plane.pixels.end(), row, row + floats->width);
    }
    return plane;
}

// An img_4_px image with the margin that library expects, owned by the command.
struct OwnedFimage {
    FIMAGE *image;
    explicit OwnedFimage(const Plane &plane)
        : image(alloc_image(plane.width, plane.height, 4, Image_border)) {
        if (!image)
            throw Error("cannot allocate a float image of " + std::to_string(plane.width) + " x " +
                        std::to_string(plane.height));
        for (int32_t y = 0; y < plane.height; ++y)
            std::copy_n(plane.pixels.begin() + static_cast<ptrdiff_t>(y) * plane.width, plane.width,
                        image->image[y]);
    }
    OwnedFimage(const OwnedFimage &) = delete;
    OwnedFimage &operator=(const OwnedFimage &) = delete;
    ~OwnedFimage() { free_image(image); }
    Plane plane() const {
        Plane out{image->width, image->height, {}};
        for (int32_t y = 0; y < image->height; ++y)
            out.pixels.insert(out.pixels.end(), image->image[y], image->image[y] + image->width);
        return out;
    }
};

void require(bool done, const std::string &mode) {
    if (!done)
        throw libraryFailure("preprocessing mode " + mode + " failed");
}

// One image through an in-place mode.
Plane normaliseInPlace(const PreprocOptions &o, const Plane &input) {
    OwnedFimage image(input);
    OwnedFimage scratch(input);
    const int32_t ignore = o.ignoreSaturation ? 1 : 0;
    if (o.mode == "preproc")
        require(pxImagePreproc(image.image, o.window, o.offset, o.gain, o.minSigma) == 1, o.mode);
    else if (o.mode == "adaptive-log")
        require(pxImagePreprocAdaptiveLog(image.image, scratch.image, o.window, ignore, o.saturation) == 1,
                o.mode);
    else
        require(pxImagePreprocBounded(image.image, scratch.image, o.window, o.bound, o.minSigma, ignore,
                                      o.saturation) == 1,
                o.mode);
    return image.plane();
}

// One image through a record mode.
Plane normaliseRecord(const PreprocOptions &o, const tag_pxImage *input) {
    tag_pxImage *raw = o.mode == "log" ? pxImagePreprocLog(input, o.offset > 0.0f ? o.offset : 1.0f)
                                       : pxImagePreprocStandard(input, o.window, 0.0f, o.gain, o.meanGain,
                                                                o.ignoreSaturation);
    require(raw != nullptr, o.mode);
    ImagePtr result(raw);
    return planeOf(result.get());
}

Plane normalise(const PreprocOptions &o, const tag_pxImage *record) {
    if (o.mode == "log" || o.mode == "standard")
        return normaliseRecord(o, record);
    return normaliseInPlace(o, planeOf(record));
}

// An 8-bit preview: the finite values stretched from their minimum to their maximum.
void writePreview(const Plane &plane, const std::string &path) {
    float lo = INFINITY;
    float hi = -INFINITY;
    for (float v : plane.pixels)
        if (std::isfinite(v)) {
            lo = std::min(lo, v);
            hi = std::max(hi, v);
        }
    const float scale = hi > lo ? 255.0f / (hi - lo) : 0.0f;
    tag_pxImage *raw = nullptr;
    if (!pxImageConstruct(UBYTE, plane.width, plane.height, 0, 1, &raw))
        throw libraryFailure("cannot allocate the preview");
    ImagePtr preview(raw);
    for (int32_t y = 0; y < plane.height; ++y) {
        uint8_t *row = static_cast<uint8_t *>(preview->pixMap[0][y]);
        for (int32_t x = 0; x < plane.width; ++x) {
            const float v = plane.at(x, y);
            row[x] = std::isfinite(v) ? static_cast<uint8_t>(std::lround((v - lo) * scale)) : 0;
        }
    }
    saveImage(preview.get(), path);
}

void makeDirectory(const std::string &dir) {
    std::error_code error;
    fs::create_directories(dir, error);
    if (error || !fs::is_directory(dir))
        throw Error(dir + ": cannot create the folder (" + error.message() + ")");
}

void runPreproc(const PreprocOptions &o) {
    if (kModes.find(o.mode) == kModes.end())
        throw Error("unknown mode '" + o.mode + "' (preproc, adaptive-log, bounded, log, standard)");
    if (o.window < 1 || o.matchWindow < 1 || o.disparity < 0 || o.maxDisparity < o.disparity)
        throw Error("--window and --match-window must be 1 or more, --disparity within 0..--max-disparity");
    if (o.mode == "bounded" && !(o.bound >= 1.0f))
        throw Error("--bound must be 1 or more, not " + shortNumber(o.bound));
    ImagePtr left = loadImage(o.left);
    ImagePtr right = loadImage(o.right);
    if (left->width != right->width || left->height != right->height)
        throw Error("the images differ in size (" + std::to_string(left->width) + " x " +
                    std::to_string(left->height) + " and " + std::to_string(right->width) + " x " +
                    std::to_string(right->height) + ")");
    makeDirectory(o.outDir);
    const std::string leftPreview = (fs::path(o.outDir) / ("left-" + o.mode + ".png")).string();
    const std::string rightPreview = (fs::path(o.outDir) / ("right-" + o.mode + ".png")).string();
    checkWritable(leftPreview);
    checkWritable(rightPreview);
    const Plane rawLeft = planeOf(left.get());
    const Plane rawRight = planeOf(right.get());
    const Plane outLeft = normalise(o, left.get());
    const Plane outRight = normalise(o, right.get());
    const double before = matchFraction(rawLeft, rawRight, o.disparity, o.maxDisparity, o.matchWindow);
    const double after = matchFraction(outLeft, outRight, o.disparity, o.maxDisparity, o.matchWindow);
    writePreview(outLeft, leftPreview);
    writePreview(outRight, rightPreview);
    std::cout << "mode             " << o.mode << ": " << kModes.at(o.mode) << "\n"
              << "matcher          sum of absolute differences, " << o.matchWindow << " x " << o.matchWindow
              << " window, disparities 0.." << o.maxDisparity << "\n"
              << "true disparity " << o.disparity << " found at\n"
              << "  raw pair       " << percent(before) << " of the pixels\n"
              << "  normalised     " << percent(after) << " of the pixels\n"
              << (after > before ? "matching improved" : "matching not improved") << "\n"
              << "previews         " << leftPreview << ", " << rightPreview << "\n";
}

void addPreproc(CLI::App &app) {
    auto o = std::make_shared<PreprocOptions>();
    CLI::App *command = app.add_subcommand(
        "preproc",
        "Normalise a stereo pair with a preprocessing mode and compare window matching before and after");
    command->add_option("MODE", o->mode, "preproc, adaptive-log, bounded, log or standard")->required();
    command->add_option("LEFT", o->left, "left image")->required();
    command->add_option("RIGHT", o->right, "right image, same size")->required();
    command->add_option("OUTDIR", o->outDir, "folder for the previews (created if needed)")->required();
    command->add_option("--window", o->window, "side of the local window in pixels (default 15)");
    command->add_option("--offset", o->offset, "offset of preproc; log: offset of the logarithm (default 1)");
    command->add_option("--gain", o->gain, "gain of preproc and standard (default 32)");
    command->add_option("--mean-gain", o->meanGain, "weight of the local mean in standard (default 0)");
    command->add_option("--min-sigma", o->minSigma, "smallest deviation of preproc and bounded (default 1)");
    command->add_option("--bound", o->bound, "clamp of bounded, 1 or more (default 3)");
    command->add_option("--saturation", o->saturation,
                        "saturation level of adaptive-log and bounded (default 255)");
    command->add_flag("--ignore-saturation", o->ignoreSaturation, "leave saturated pixels out of the means");
    command->add_option("--disparity", o->disparity, "the pair's true disparity (default 6)");
    command->add_option("--max-disparity", o->maxDisparity,
                        "largest disparity the matcher tries (default 16)");
    command->add_option("--match-window", o->matchWindow, "side of the matcher's window (default 7)");
    command->callback([o] { runPreproc(*o); });
}

struct PairOptions {
    std::string outDir;
    int32_t width = 320;
    int32_t height = 240;
    int32_t disparity = 6;
    uint32_t seed = 1;
};

void runStereoPair(const PairOptions &o) {
    if (o.width < 32 || o.height < 32 || o.width > 9999 || o.height > 9999 || o.disparity < 0 ||
        o.disparity > 64)
        throw Error("--width and --height must be 32..9999, --disparity 0..64");
    makeDirectory(o.outDir);
    const StereoPair pair = synthesizeStereoPair(o.width, o.height, o.disparity, o.seed);
    const Plane *planes[2] = {&pair.left, &pair.right};
    const char *names[2] = {"left.png", "right.png"};
    for (int i = 0; i < 2; ++i) {
        tag_pxImage *raw = nullptr;
        if (!pxImageConstruct(UBYTE, o.width, o.height, 0, 1, &raw))
            throw libraryFailure("cannot allocate the image");
        ImagePtr image(raw);
        for (int32_t y = 0; y < o.height; ++y)
            for (int32_t x = 0; x < o.width; ++x)
                static_cast<uint8_t *>(image->pixMap[0][y])[x] =
                    static_cast<uint8_t>(std::lround(planes[i]->at(x, y)));
        saveImage(image.get(), (fs::path(o.outDir) / names[i]).string());
    }
    std::cout << "stereo pair      " << (fs::path(o.outDir) / "left.png").string() << ", "
              << (fs::path(o.outDir) / "right.png").string() << "\n"
              << "size             " << o.width << " x " << o.height << "\n"
              << "true disparity   " << o.disparity << " (left x shows what right x - " << o.disparity
              << " shows)\n"
              << "right image      0.6 x contrast, +130 brightness, illumination 1.0 -> 0.75 across and -> "
                 "0.9 down\n";
}

void addStereoPair(CLI::App &app) {
    auto o = std::make_shared<PairOptions>();
    CLI::App *command = app.add_subcommand(
        "stereo-pair",
        "Write a synthetic 8-bit stereo pair (textured surface at a known disparity, the right "
        "image brighter, flatter and unevenly lit) as left.png and right.png");
    command->add_option("OUTDIR", o->outDir, "folder for the pair (created if needed)")->required();
    command->add_option("--width", o->width, "width (default 320)");
    command->add_option("--height", o->height, "height (default 240)");
    command->add_option("--disparity", o->disparity, "true disparity (default 6)");
    command->add_option("--seed", o->seed, "seed of the texture (default 1)");
    command->callback([o] { runStereoPair(*o); });
}

} // namespace

void addPreprocCommands(CLI::App &app) {
    addPreproc(app);
    addStereoPair(app);
}

} // namespace pximg
