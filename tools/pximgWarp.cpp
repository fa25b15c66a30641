// Geometry subcommands of pximg: "warp" shifts an image by whole or fractional pixels or maps it through an
// affine transformation, "undistort" undoes a one-coefficient radial lens distortion, "distort" applies the
// full lens model, and "deinterlace" splits an interlaced frame into its two fields.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "pximgCommands.h"

namespace pximg {

namespace {

// Input and output of the resampling subcommands.
struct WarpIo {
    std::string input;
    std::string output;
    std::string type; // pixel type to write; empty: see outputType
};

void addIo(CLI::App *command, WarpIo &io) {
    command->add_option("IN", io.input, "input image: pxImage file, PNG, TIFF or PGM")->required();
    command->add_option("OUT", io.output, "output image: .png, .tif, .tiff, .pgm, anything else is pxImage")
        ->required();
    command->add_option("--type", io.type,
                        "pixel type to write (ubyte, short, int, float, double); default: the result's type, "
                        "or the input's 8- or 16-bit type for PNG, TIFF and PGM outputs");
}

bool isImageFileName(const std::string &path) {
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || path.find_first_of("/\\", dot) != std::string::npos) {
        return false;
    }
    std::string ext = path.substr(dot);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    return ext == ".png" || ext == ".tif" || ext == ".tiff" || ext == ".pgm";
}

// The type to write: --type, else for an image file the input's 8- or 16-bit type (a float result is
// rounded back to it), else the result's own.
int32_t outputType(const WarpIo &io, int32_t inputType) {
    if (!io.type.empty()) {
        return parsePixelType(io.type);
    }
    if (isImageFileName(io.output) && (inputType == UBYTE || inputType == SHORT)) {
        return inputType;
    }
    return 0;
}

// An Error for a library call that returned 0, on one line without the library's padding.
void require(uint32_t result, const std::string &what) {
    if (result != 0) {
        return;
    }
    std::string text = libraryFailure(what).what();
    std::replace(text.begin(), text.end(), '\n', ' ');
    text.erase(std::unique(text.begin(), text.end(), [](char a, char b) { return a == ' ' && b == ' '; }),
               text.end());
    for (const char *padded : {"( ", " )"}) {
        for (size_t at = text.find(padded); at != std::string::npos; at = text.find(padded)) {
            text.erase(at + (padded[0] == ' ' ? 0 : 1), 1);
        }
    }
    throw Error(text);
}

ImagePtr newImage(int32_t type, int32_t width, int32_t height) {
    tag_pxImage *raw = nullptr;
    require(pxImageConstruct(type, width, height, 0, 1, &raw), "cannot allocate the result image");
    return ImagePtr(raw);
}

// ---- warp ------------------------------------------------------------------------------------------------

struct WarpOptions {
    WarpIo io;
    std::vector<double> shift;
    std::vector<float> affine;
    float scale = 1.0f;
};

bool isWhole(double value) {
    return std::floor(value) == value && std::fabs(value) < 2147483648.0;
}

// Counts the pixels marked as outside the source; in an image file they become 0 (the marker means
// nothing to an image viewer), in a pxImage file they keep the marker.
int64_t settleInvalidPixels(tag_pxImage *image, bool clear) {
    int64_t count = 0;
    float **rows = reinterpret_cast<float **>(image->pixMap[0]);
    for (int32_t y = 0; y < image->height; ++y) {
        for (int32_t x = 0; x < image->width; ++x) {
            if (rows[y][x] == pxImage_INVALID_PIXEL) {
                ++count;
                if (clear) {
                    rows[y][x] = 0.0f;
                }
            }
        }
    }
    return count;
}

void runWarp(const WarpOptions &options) {
    if (options.shift.empty() == options.affine.empty()) {
        throw Error("give either --shift DX DY or --affine a0 a1 a2 b0 b1 b2");
    }
    ImagePtr input = loadImage(options.io.input);
    const int32_t type = outputType(options.io, input->type);
    if (!options.shift.empty() && isWhole(options.shift[0]) && isWhole(options.shift[1]) &&
        options.scale == 1.0f) {
        tag_pxImage *raw = nullptr;
        require(pxImageTranslationWarpInt(input.get(), static_cast<int32_t>(options.shift[0]),
                                          static_cast<int32_t>(options.shift[1]), &raw),
                "integer shift failed");
        ImagePtr result(raw);
        saveImage(result.get(), options.io.output, type);
        std::printf("shifted by (%d, %d) pixels; uncovered pixels are 0\n",
                    static_cast<int32_t>(options.shift[0]), static_cast<int32_t>(options.shift[1]));
        return;
    }
    ImagePtr source = convertImage(input.get(), FLOAT, false);
    ImagePtr result = newImage(FLOAT, source->width, source->height);
    tag_pxImage *target = result.get();
    const std::string limits = "warp failed, offsets must stay below " + std::to_string(source->width - 1) +
                               " and " + std::to_string(source->height - 1) + " pixels";
    if (!options.shift.empty()) {
        require(pxImageTranslationWarp(source.get(), static_cast<float>(options.shift[0]),
                                       static_cast<float>(options.shift[1]), options.scale, &target),
                limits);
    } else {
        float a[3] = {options.affine[0], options.affine[1], options.affine[2]};
        float b[3] = {options.affine[3], options.affine[4], options.affine[5]};
        require(pxImageAffineWarp(source.get(), a, b, options.scale, &target), limits);
    }
    const bool imageFile = isImageFileName(options.io.output);
    const int64_t outside = settleInvalidPixels(result.get(), imageFile);
    saveImage(result.get(), options.io.output, type);
    std::printf("%lld of %lld pixels map outside the source (%s)\n", static_cast<long long>(outside),
                static_cast<long long>(result->width) * result->height,
                imageFile ? "written as 0" : "marked 3.4028235e38");
}

// ---- undistort / distort ---------------------------------------------------------------------------------

struct UndistortOptions {
    WarpIo io;
    double k = 0.0;
    std::vector<double> centre;
};

void runUndistort(const UndistortOptions &options) {
    ImagePtr image = loadImage(options.io.input);
    const int32_t type = outputType(options.io, image->type);
    const double cx = options.centre.empty() ? -1.0 : options.centre[0];
    const double cy = options.centre.empty() ? -1.0 : options.centre[1];
    if (image->type != UBYTE && image->type != SHORT && image->type != FLOAT) {
        image = convertImage(image.get(), FLOAT, false);
    }
    require(pxImageFixAber(image.get(), options.k, cx, cy), "undistortion failed");
    saveImage(image.get(), options.io.output, type);
    std::printf("valid region: columns %d..%d, rows %d..%d\n", image->roiminX, image->roimaxX - 1,
                image->roiminY, image->roimaxY - 1);
}

struct DistortOptions {
    WarpIo io;
    double k1 = 0.0, k2 = 0.0, k3 = 0.0, p1 = 0.0, p2 = 0.0;
    std::vector<double> centre;
    int32_t supersample = 1;
};

void runDistort(const DistortOptions &options) {
    ImagePtr input = loadImage(options.io.input);
    const int32_t type = outputType(options.io, input->type);
    ImagePtr image = convertImage(input.get(), FLOAT, false);
    const double cx = options.centre.empty() ? -1.0 : options.centre[0];
    const double cy = options.centre.empty() ? -1.0 : options.centre[1];
    require(pxImageAber(image.get(), options.k1, options.k2, options.k3, options.p1, options.p2, cx, cy,
                        options.supersample),
            "distortion failed");
    saveImage(image.get(), options.io.output, type);
    std::printf("distortion centre (%g, %g), %d x %d samples per pixel\n", image->aberCx, image->aberCy,
                options.supersample, options.supersample);
}

// ---- deinterlace ----------------------------------------------------------------------------------------

struct DeinterlaceOptions {
    std::string input;
    std::string even;
    std::string odd;
};

void runDeinterlace(const DeinterlaceOptions &options) {
    const bool wantEven = options.even != "-";
    const bool wantOdd = options.odd != "-";
    if (!wantEven && !wantOdd) {
        throw Error("EVEN and ODD are both '-': nothing to write");
    }
    if (wantEven) {
        checkWritable(options.even);
    }
    if (wantOdd) {
        checkWritable(options.odd);
    }
    ImagePtr source = loadImage(options.input);
    const int32_t h = source->height;
    if (wantOdd && h / 2 == 0) {
        throw Error(options.input + " has one row and so no odd field (give - for ODD)");
    }
    ImagePtr even = wantEven ? newImage(source->type, source->width, h / 2 + h % 2) : ImagePtr();
    ImagePtr odd = wantOdd ? newImage(source->type, source->width, h / 2) : ImagePtr();
    require(pxImageDeInterlace(source.get(), even.get(), odd.get()), "de-interlacing failed");
    if (even) {
        saveImage(even.get(), options.even);
    }
    if (odd) {
        saveImage(odd.get(), options.odd);
    }
    std::printf("even field %d x %d, odd field %d x %d\n", source->width, h / 2 + h % 2, source->width,
                h / 2);
}

// ---- Registration --------------------------------------------------------------------------------------

void addWarp(CLI::App &app) {
    auto options = std::make_shared<WarpOptions>();
    CLI::App *command = app.add_subcommand(
        "warp", "Shift an image (whole pixels keep the type; fractions and --affine resample as float, "
                "bilinear) or map it through u = a0 + x + a1 x + a2 y, v = b0 + y + b1 x + b2 y");
    addIo(command, options->io);
    command->add_option("--shift", options->shift, "DX DY: target (x, y) reads source (x + DX, y + DY)")
        ->expected(2);
    command->add_option("--affine", options->affine, "a0 a1 a2 b0 b1 b2: offsets from the identity")
        ->expected(6);
    command->add_option("--scale", options->scale,
                        "multiplies the shift or all six coefficients (default 1)");
    command->callback([options] { runWarp(*options); });
}

void addLens(CLI::App &app) {
    auto undistort = std::make_shared<UndistortOptions>();
    CLI::App *fix = app.add_subcommand(
        "undistort",
        "Undo the radial distortion r = u (1 + k u^2) about the centre (bilinear); prints the part "
        "of the image that stays valid");
    addIo(fix, undistort->io);
    fix->add_option("--k", undistort->k, "distortion coefficient k (pixels^-2)")->required();
    fix->add_option("--center", undistort->centre, "CX CY: distortion centre in pixels (default: the middle)")
        ->expected(2);
    fix->callback([undistort] { runUndistort(*undistort); });

    auto distort = std::make_shared<DistortOptions>();
    CLI::App *aber = app.add_subcommand(
        "distort",
        "Apply the lens model (radial k1..k3, tangential p1, p2) about the centre, averaging N x N "
        "nearest-pixel samples per pixel; computed in float");
    addIo(aber, distort->io);
    aber->add_option("--k1", distort->k1, "radial coefficient of r^2");
    aber->add_option("--k2", distort->k2, "radial coefficient of r^4");
    aber->add_option("--k3", distort->k3, "radial coefficient of r^6");
    aber->add_option("--p1", distort->p1, "tangential coefficient p1");
    aber->add_option("--p2", distort->p2, "tangential coefficient p2");
    aber->add_option("--center", distort->centre, "CX CY: distortion centre in pixels (default: the middle)")
        ->expected(2);
    aber->add_option("--supersample", distort->supersample, "samples per axis and pixel, 1..64 (default 1)")
        ->check(CLI::Range(1, 64));
    aber->callback([distort] { runDistort(*distort); });
}

void addDeinterlace(CLI::App &app) {
    auto options = std::make_shared<DeinterlaceOptions>();
    CLI::App *command = app.add_subcommand(
        "deinterlace", "Split an interlaced frame into its even rows (0, 2, ...) and odd rows (1, 3, ...)");
    command->add_option("IN", options->input, "interlaced frame")->required();
    command->add_option("EVEN", options->even, "output for rows 0, 2, 4, ...; - for none")->required();
    command->add_option("ODD", options->odd, "output for rows 1, 3, 5, ...; - for none")->required();
    command->callback([options] { runDeinterlace(*options); });
}

} // namespace

void addWarpCommands(CLI::App &app) {
    addWarp(app);
    addLens(app);
    addDeinterlace(app);
}

} // namespace pximg
