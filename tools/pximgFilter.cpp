// Filter subcommands of pximg: "filter" runs one neighbourhood filter of the library on image files (box,
// min, max, dilate, erode, threshold, negate, reflect) and writes each result, in the input's 8- or 16-bit
// type when it fits; "stats" registers from its own module.
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

#include "pximgTool.h"

namespace pximg {

namespace {

// ---- Shared helpers ------------------------------------------------------------------------------------

// Input and output of every filter subcommand.
struct FilterIo {
    BatchOptions batch;
    TypeChange change;
    std::string input;
    std::string output;
    std::string type;      // pixel type to write; empty: see resultType
    int32_t inputType = 0; // the input file's own pixel type
};

void addIo(CLI::App *command, FilterIo &io) {
    addBatchOptions(command, io.batch, "result");
    command->add_option("--type", io.type,
                        "pixel type to write (ubyte, short, int, float, double; values kept, clipped with a "
                        "warning); default: the input's type when the result fits it, else the result's");
    io.change.addOptions(command);
    addColourOptions(command);
}

// Loads the input of a filter as `type` (0: as stored) and notes its own type.
ImagePtr loadInput(FilterIo &io, int32_t type) {
    ImagePtr image = loadImage(io.input);
    io.inputType = image->type;
    return type == 0 || type == image->type ? std::move(image) : convertImage(image.get(), type, false);
}

// The type a result is written as: --type, else the input's 8- or 16-bit type when every value fits it
// (rounded), else the result's own; a result that does not fit refuses with the options that scale it.
int32_t resultType(const tag_pxImage *image, const FilterIo &io) {
    if (!io.type.empty()) {
        return parsePixelType(io.type);
    }
    if ((io.inputType != UBYTE && io.inputType != SHORT) || io.inputType == image->type) {
        return io.change.mapsValues() ? io.inputType : 0;
    }
    double lo = 0.0, hi = 0.0, tlo = 0.0, thi = 0.0;
    typeLimits(io.inputType, tlo, thi);
    valueRange(image, lo, hi);
    if (!io.change.mapsValues() && (lo < tlo - 0.5 || hi > thi + 0.5)) {
        throw Error("the result holds " + number(lo) + ".." + number(hi) + ", outside " + number(tlo) + ".." +
                    number(thi) + " of the input's type " + pixelTypeName(io.inputType) +
                    ": add --stretch auto to scale it, or --type float (a .pxi output) to keep it");
    }
    return io.inputType;
}

void saveResult(const tag_pxImage *image, const FilterIo &io) {
    const int32_t type = resultType(image, io);
    ImagePtr converted = type != 0 || io.change.mapsValues() ? changeType(image, io.change, type) : nullptr;
    saveImage(converted ? converted.get() : image, io.output, 0, false, io.batch.format);
}

// Runs a filter on every input of the command.
template <typename Options, typename Run> void runAll(const std::shared_ptr<Options> &options, Run run) {
    runBatch(options->io.batch, [options, run](const std::string &in, const std::string &out) {
        Options one = *options;
        one.io.input = in;
        one.io.output = out;
        run(one);
        return std::string();
    });
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

void runBox(BoxOptions &options) {
    ImagePtr image = loadInput(options.io, options.sums ? 0 : FLOAT);
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

void runMinAndRange(ExtremeOptions &options) {
    checkWritable(options.io.output);
    checkWritable(options.rangeOutput);
    ImagePtr image = loadInput(options.io, 0);
    if (image->type != SHORT) {
        image = convertImage(image.get(), FLOAT, false);
    }
    ImagePtr minimum = newImageLike(image.get());
    ImagePtr range = newImageLike(image.get());
    require(pxImageBoxMinAndRange(image.get(), options.window, minimum.get(), range.get()),
            "windowed minimum and range failed");
    saveResult(minimum.get(), options.io);
    FilterIo rangeIo = options.io;
    rangeIo.output = options.rangeOutput;
    saveResult(range.get(), rangeIo);
}

void runExtreme(ExtremeOptions &options, bool maximum) {
    if (!maximum && !options.rangeOutput.empty()) {
        runMinAndRange(options);
        return;
    }
    ImagePtr image = loadInput(options.io, FLOAT);
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

void runMorph(MorphOptions &options, bool dilate) {
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

// Refuses a level that pixels of the type cannot hold (the library would wrap it around), with the range.
void checkLevel(double level, int32_t type) {
    double lo = 0.0, hi = 0.0;
    if (!std::isfinite(level)) {
        throw Error("--level must be a finite number, not " + number(level));
    }
    if (typeLimits(type, lo, hi) && (level < lo || level > hi || level != std::floor(level))) {
        throw Error("--level " + number(level) + " is not a value of " + pixelTypeName(type) +
                    " pixels: use a whole number in " + number(lo) + ".." + number(hi));
    }
}

void runThreshold(ThresholdOptions &options) {
    ImagePtr image = loadInput(options.io, 0);
    requireType(image.get(), {UBYTE, SHORT, FLOAT, DOUBLE},
                "threshold works on ubyte, short, float and double");
    checkLevel(options.level, image->type);
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

void runNegate(NegateOptions &options) {
    ImagePtr image = loadInput(options.io, options.asFloat ? FLOAT : 0);
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

// Refuses a border that makes the image larger than images can be.
void checkFillFits(const tag_pxImage *source, int32_t fill) {
    const int64_t width = source->width + 2 * int64_t(fill), height = source->height + 2 * int64_t(fill);
    if (width > 9999 || height > 9999) {
        throw Error("--fill " + std::to_string(fill) + " makes the image " + std::to_string(width) + " x " +
                    std::to_string(height) + " pixels, larger than images can be (at most 9999 x 9999)");
    }
}

void runReflect(ReflectOptions &options) {
    const int32_t mode = parseReflectMode(options.mode);
    ImagePtr source = loadInput(options.io, 0);
    checkFillFits(source.get(), options.fill);
    tag_pxImage *raw = nullptr;
    require(pxImageConvertWithTransformCopy(source.get(), FLOAT, options.fill, 0, &raw),
            "cannot make a float copy with a border of " + std::to_string(options.fill));
    ImagePtr image(raw);
    require(pxImageReflect(image.get(), options.fill, mode), "reflection failed");
    saveResult(withBorder(image.get(), options.fill).get(), options.io);
}

// ---- Registration --------------------------------------------------------------------------------------

void addBox(CLI::App *filter) {
    auto options = std::make_shared<BoxOptions>();
    CLI::App *box = filter->add_subcommand(
        "box", "Box average over an odd square window clipped to the image (computed in float), or box sums");
    addIo(box, options->io);
    box->add_option("--window", options->window, "odd window width (default 3)")->check(wholeNumber(1, 9999));
    box->add_flag("--sums", options->sums,
                  "plain window sums in the image's own type (ubyte and short wrap around)");
    box->callback([options] { runAll(options, [](BoxOptions &o) { runBox(o); }); });
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
            ->check(wholeNumber(1, 9999));
        if (!maximum) {
            command->add_option("--range", options->rangeOutput,
                                "also write the windowed range (max - min) to this image");
        }
        command->callback([options, maximum] {
            runAll(options, [maximum](ExtremeOptions &o) { runExtreme(o, maximum); });
        });
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
            ->check(wholeNumber(0, 7));
        command
            ->add_option("--set-value", options->setValue,
                         "value written for set pixels, 1..255 (default 1; 255 to view as PNG)")
            ->check(wholeNumber(1, 255));
        command->callback(
            [options, dilate] { runAll(options, [dilate](MorphOptions &o) { runMorph(o, dilate); }); });
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
    thresh->callback([threshold] { runAll(threshold, [](ThresholdOptions &o) { runThreshold(o); }); });

    auto negate = std::make_shared<NegateOptions>();
    CLI::App *neg = filter->add_subcommand("negate", "255 - value, for ubyte and float images");
    addIo(neg, negate->io);
    neg->add_flag("--float", negate->asFloat, "convert the input to float first");
    neg->callback([negate] { runAll(negate, [](NegateOptions &o) { runNegate(o); }); });
}

void addReflect(CLI::App *filter) {
    auto options = std::make_shared<ReflectOptions>();
    CLI::App *reflect = filter->add_subcommand(
        "reflect", "Fill a border of --fill pixels around the image (as float) and write the image with it");
    addIo(reflect, options->io);
    reflect->add_option("--fill", options->fill, "border width on every side, 1..999 (default 8)")
        ->check(wholeNumber(1, 999));
    reflect->add_option("--mode", options->mode,
                        "mirror (1), wrap-shared (2), replicate (3), point-mirror (4), zero (5) or wrap (6); "
                        "default mirror");
    reflect->callback([options] { runAll(options, [](ReflectOptions &o) { runReflect(o); }); });
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
    addStatsCommand(app);
}

} // namespace pximg
