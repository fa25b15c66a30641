// Geometry subcommands of pximg: "cut" copies a rectangle of an image (optionally into another pixel
// type), "pyramid" writes every level of an image pyramid as PNG and as a pxImage file, and "roi" finds
// the rectangle of an image that holds textured content, prints it and can write it out.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "pximgCommands.h"

namespace pximg {

namespace {

namespace fs = std::filesystem;

constexpr int64_t kMaxSide = 9999;
const float kBinomialKernel[3] = {0.375f, 0.25f, 0.0625f}; // 1-4-6-4-1 / 16

void require(uint32_t result, const std::string &what) {
    if (result == 0) {
        throw libraryFailure(what);
    }
}

// A zero-filled image of one plane and no border.
ImagePtr newImage(int32_t type, int32_t width, int32_t height) {
    tag_pxImage *raw = nullptr;
    require(pxImageConstruct(type, width, height, 0, 1, &raw), "cannot allocate the result image");
    return ImagePtr(raw);
}

// Pixel type for a PNG of an image: its own when 8 or 16 bits, else 8 bits when every pixel of plane 0
// lies in 0..255 and 16 bits otherwise.
int32_t pngTypeFor(const tag_pxImage *image) {
    if (image->type == UBYTE || image->type == SHORT) {
        return image->type;
    }
    ImagePtr values = convertImage(image, DOUBLE, false);
    double *const *rows = reinterpret_cast<double *const *>(values->pixMap[0]);
    for (int32_t y = 0; y < values->height; ++y) {
        if (std::any_of(rows[y], rows[y] + values->width, [](double v) { return v > 255.5; })) {
            return SHORT;
        }
    }
    return UBYTE;
}

// ---- cut ---------------------------------------------------------------------------------------------

struct CutOptions {
    std::string input;
    std::string output;
    int64_t x = 0, y = 0, width = 0, height = 0;
    std::string type;
    bool transform = false;
};

void runCut(const CutOptions &o) {
    if (o.x < 0 || o.y < 0 || o.x > kMaxSide || o.y > kMaxSide) {
        throw Error("X and Y must lie in 0..9999");
    }
    if (o.width < 1 || o.height < 1 || o.width > kMaxSide || o.height > kMaxSide) {
        throw Error("W and H must lie in 1..9999");
    }
    checkWritable(o.output);
    ImagePtr image = loadImage(o.input);
    const int32_t type = o.type.empty() ? image->type : parsePixelType(o.type);
    if (type == CBIT || type == CSHORT || type == SHORT12) {
        throw Error("--type must be ubyte, short, int, float or double, not " + pixelTypeName(type));
    }
    ImagePtr target = newImage(type, int32_t(o.width), int32_t(o.height));
    require(
        pxImageCutWithTransform(image.get(), uint32_t(o.x), uint32_t(o.y), o.transform ? 1 : 0, target.get()),
        "cut failed");
    saveImage(target.get(), o.output);
}

// ---- pyramid -----------------------------------------------------------------------------------------

struct PyramidOptions {
    std::string input;
    std::string directory;
    int32_t levels = 0; // 0: as many as the image gives
};

// Owns the levels of a pyramid.
struct PyramidLevels {
    pxImagePyramid levels{};
    ~PyramidLevels() { pxImagePyrDestruct(levels); }
};

// Levels a width x height image gives: each reduction needs a level of at least 3 x 3 pixels below it.
int32_t availableLevels(int32_t width, int32_t height) {
    int32_t count = 1;
    while (width >= 3 && height >= 3 && count < pxImage_PYR_LEVELS) {
        width = (width + 1) / 2;
        height = (height + 1) / 2;
        ++count;
    }
    return count;
}

// The output directory, created when missing.
void makeDirectory(const std::string &path) {
    std::error_code error;
    if (fs::exists(path, error) && !fs::is_directory(path, error)) {
        throw Error(path + ": not a directory");
    }
    fs::create_directories(path, error);
    if (error) {
        throw Error(path + ": " + error.message());
    }
}

void runPyramid(const PyramidOptions &o) {
    ImagePtr image = loadImage(o.input);
    const int32_t available = availableLevels(image->width, image->height);
    const int32_t count = o.levels == 0 ? available : o.levels;
    if (count < 1 || count > available) {
        throw Error("--levels must lie in 1.." + std::to_string(available) + " for a " +
                    std::to_string(image->width) + " x " + std::to_string(image->height) + " image");
    }
    makeDirectory(o.directory);
    std::vector<std::string> names;
    for (int32_t level = 0; level < count; ++level) {
        const std::string stem = (fs::path(o.directory) / ("level-" + std::to_string(level))).string();
        names.push_back(stem);
        checkWritable(stem + ".png");
        checkWritable(stem + ".pxi");
    }
    const int32_t pngType = pngTypeFor(image.get());
    ImagePtr floats = image->type == FLOAT ? std::move(image) : convertImage(image.get(), FLOAT, false);
    PyramidLevels p;
    require(pxImagePyrHeaderConstruct(p.levels, 0, floats->width, floats->height, FLOAT, 2, 1),
            "cannot build the pyramid");
    require(pxImagePyrPixMapConstruct(FLOAT, 2, 1, 0, count - 1, p.levels), "cannot allocate the pyramid");
    require(pxImageCut(floats.get(), 0, 0, p.levels[0]), "cannot copy the image into the pyramid");
    require(pxImagePyrReduce(p.levels, 0, count - 1, kBinomialKernel), "reduction failed");
    for (int32_t level = 0; level < count; ++level) {
        const tag_pxImage *l = p.levels[level];
        saveImage(l, names[size_t(level)] + ".pxi");
        saveImage(l, names[size_t(level)] + ".png", pngType);
        std::cout << "level " << level << "  " << l->width << " x " << l->height << "  "
                  << names[size_t(level)] << ".png, .pxi\n";
    }
}

// ---- roi ---------------------------------------------------------------------------------------------

struct RoiOptions {
    std::string input;
    std::string output;
};

// The image as floats of about 0..255, the range the region search is made for: 16-bit images are
// scaled down, the others converted as they are.
ImagePtr searchImage(const tag_pxImage *image) {
    if (image->type == FLOAT) {
        return convertImage(image, FLOAT, false);
    }
    return convertImage(image, FLOAT, image->type == SHORT);
}

void runRoi(const RoiOptions &o) {
    if (!o.output.empty()) {
        checkWritable(o.output);
    }
    ImagePtr image = loadImage(o.input);
    ImagePtr floats = searchImage(image.get());
    int32_t rect[4] = {0, 0, 0, 0};
    int32_t found = 1;
    require(pxImageRoi(floats.get(), rect, &found), "region search failed");
    const int32_t width = rect[2] - rect[0], height = rect[3] - rect[1];
    if (width < 1 || height < 1) {
        if (!o.output.empty()) {
            throw Error("no textured region found; " + o.output + " not written");
        }
        std::cout << "no textured region found\n";
        return;
    }
    std::cout << "region  columns " << rect[0] << ".." << rect[2] - 1 << ", rows " << rect[1] << ".."
              << rect[3] - 1 << " (" << width << " x " << height << ")\n";
    if (o.output.empty()) {
        return;
    }
    ImagePtr region = newImage(image->type, width, height);
    require(pxImageCut(image.get(), uint32_t(rect[0]), uint32_t(rect[1]), region.get()), "cut failed");
    saveImage(region.get(), o.output, pngTypeFor(region.get()));
}

} // namespace

void addGeometryCommands(CLI::App &app) {
    auto cut = std::make_shared<CutOptions>();
    CLI::App *cutCommand =
        app.add_subcommand("cut", "Copy the W x H rectangle at column X, row Y of an image into a new image");
    cutCommand->add_option("IN", cut->input, "input image: pxImage file, PNG, TIFF or PGM")->required();
    cutCommand
        ->add_option("OUT", cut->output, "output image: .png, .tif, .tiff, .pgm, anything else is pxImage")
        ->required();
    cutCommand->add_option("X", cut->x, "first column")->required();
    cutCommand->add_option("Y", cut->y, "first row")->required();
    cutCommand->add_option("W", cut->width, "width")->required();
    cutCommand->add_option("H", cut->height, "height")->required();
    cutCommand->add_option("--type", cut->type,
                           "pixel type of the cut (ubyte, short, int, float, double); "
                           "default: the input's");
    cutCommand->add_flag(
        "--transform", cut->transform,
        "scale SHORT 0..65535 to FLOAT about 0..255 (or back) when --type changes between them");
    cutCommand->callback([cut] { runCut(*cut); });

    auto pyramid = std::make_shared<PyramidOptions>();
    CLI::App *pyramidCommand = app.add_subcommand(
        "pyramid", "Reduce an image by two, again and again (1-4-6-4-1 filter), and write every level to "
                   "OUTDIR as level-N.png and level-N.pxi (float)");
    pyramidCommand->add_option("IN", pyramid->input, "input image")->required();
    pyramidCommand->add_option("OUTDIR", pyramid->directory, "output folder (created if needed)")->required();
    pyramidCommand->add_option("--levels", pyramid->levels,
                               "number of levels including the image itself (default: down to the last level "
                               "that can still be reduced from at least 3 x 3 pixels)");
    pyramidCommand->callback([pyramid] { runPyramid(*pyramid); });

    auto roi = std::make_shared<RoiOptions>();
    CLI::App *roiCommand = app.add_subcommand(
        "roi", "Find the rectangle of an image with textured content of medium brightness and print it");
    roiCommand->add_option("IN", roi->input, "input image (16-bit images are searched scaled to 0..255)")
        ->required();
    roiCommand->add_option("--out", roi->output,
                           "also write the region, in the input's pixels, to this file");
    roiCommand->callback([roi] { runRoi(*roi); });
}

} // namespace pximg
