// The one rule by which pximg changes the pixel type of an image (values kept, or mapped by --stretch or
// --shift, clipped with a warning), and the batch runner of convert and filter.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>

#include "pximgTool.h"

namespace pximg {

namespace {

// Pixels of all planes.
size_t pixelCount(const tag_pxImage *image) {
    return size_t(image->width) * size_t(image->height) * size_t(image->planes);
}

// Parses "LO:HI" of --stretch.
void parseStretch(const std::string &text, double &lo, double &hi) {
    const size_t colon = text.find(':');
    char *end1 = nullptr, *end2 = nullptr;
    if (colon != std::string::npos) {
        const std::string a = text.substr(0, colon), b = text.substr(colon + 1);
        lo = std::strtod(a.c_str(), &end1);
        hi = std::strtod(b.c_str(), &end2);
        if (!a.empty() && !b.empty() && *end1 == '\0' && *end2 == '\0' && std::isfinite(lo) &&
            std::isfinite(hi) && lo < hi) {
            return;
        }
    }
    throw Error("--stretch takes auto or LO:HI with LO < HI (e.g. 0:4095), not '" + text + "'");
}

// The linear map value * scale + offset that a TypeChange asks for, onto the range of `type`.
void valueMap(const tag_pxImage *image, const TypeChange &change, int32_t type, double &scale,
              double &offset) {
    scale = 1.0;
    offset = 0.0;
    if (change.hasShift) {
        scale = std::ldexp(1.0, change.shift);
        return;
    }
    if (change.stretch.empty()) {
        return;
    }
    double lo = 0.0, hi = 0.0, tlo = 0.0, thi = 1.0;
    if (change.stretch == "auto") {
        valueRange(image, lo, hi);
    } else {
        parseStretch(change.stretch, lo, hi);
    }
    typeLimits(type, tlo, thi);
    scale = hi > lo ? (thi - tlo) / (hi - lo) : 0.0;
    offset = tlo - lo * scale;
}

} // namespace

void TypeChange::addOptions(CLI::App *command) {
    command->add_option("--stretch", stretch,
                        "map a value range linearly onto the output type's range: auto (the image's minimum "
                        "and maximum) or LO:HI; float outputs get 0..1");
    command
        ->add_option_function<int32_t>(
            "--shift",
            [this](const int32_t &n) {
                shift = n;
                hasShift = true;
            },
            "multiply the values by 2^N before the type change (-8: 16-bit to 8-bit, 4: 12-bit to 16-bit)")
        ->check(wholeNumber(-32, 32))
        ->excludes("--stretch");
}

bool typeLimits(int32_t type, double &lo, double &hi) {
    switch (type) {
    case UBYTE:
        lo = 0.0, hi = 255.0;
        return true;
    case SHORT:
        lo = 0.0, hi = 65535.0;
        return true;
    case INT:
        lo = -2147483648.0, hi = 2147483647.0;
        return true;
    default:
        lo = 0.0, hi = 1.0; // the range --stretch maps onto for float types
        return false;
    }
}

double pixelAt(const tag_pxImage *image, int32_t x, int32_t y, int32_t plane) {
    void *row = image->pixMap[plane][y];
    switch (image->type) {
    case UBYTE:
        return static_cast<uint8_t *>(row)[x];
    case SHORT:
        return static_cast<uint16_t *>(row)[x];
    case INT:
        return static_cast<int32_t *>(row)[x];
    case FLOAT:
        return static_cast<float *>(row)[x];
    case DOUBLE:
        return static_cast<double *>(row)[x];
    default:
        throw Error("cannot read pixels of a " + pixelTypeName(image->type) + " image");
    }
}

void valueRange(const tag_pxImage *image, double &lo, double &hi) {
    bool found = false;
    lo = hi = 0.0;
    for (int32_t p = 0; p < image->planes; ++p) {
        for (int32_t y = 0; y < image->height; ++y) {
            for (int32_t x = 0; x < image->width; ++x) {
                const double v = pixelAt(image, x, y, p);
                if (!std::isnan(v)) {
                    lo = found ? std::min(lo, v) : v;
                    hi = found ? std::max(hi, v) : v;
                    found = true;
                }
            }
        }
    }
}

ImagePtr changeType(const tag_pxImage *image, const TypeChange &change, int32_t type) {
    type = type != 0 ? type : image->type;
    if (!change.mapsValues() && type == image->type) {
        return convertImage(image, 0, false);
    }
    ImagePtr values = convertImage(image, DOUBLE, false); // exact for every plain type
    double scale = 1.0, offset = 0.0, lo = 0.0, hi = 0.0;
    valueMap(values.get(), change, type, scale, offset);
    const bool limited = typeLimits(type, lo, hi);
    size_t clipped = 0;
    for (int32_t p = 0; p < values->planes; ++p) {
        for (int32_t y = 0; y < values->height; ++y) {
            double *row = static_cast<double *>(values->pixMap[p][y]);
            for (int32_t x = 0; x < values->width; ++x) {
                double v = row[x] * scale + offset;
                if (limited) {
                    v = change.hasShift && change.shift < 0 ? std::floor(v) : std::round(v);
                    const double kept = std::isnan(v) ? lo : std::clamp(v, lo, hi);
                    clipped += kept != v ? 1 : 0;
                    v = kept;
                }
                row[x] = v;
            }
        }
    }
    if (clipped > 0) {
        std::cerr << "pximg: warning: " << clipped << " pixels ("
                  << fixed(100.0 * clipped / pixelCount(image), 1) << " %) lie outside " << shortest(lo)
                  << ".." << shortest(hi) << " of " << pixelTypeName(type) << " and were clipped"
                  << (change.mapsValues() ? "" : " (--stretch auto or --shift N scales them)") << '\n';
    }
    return convertImage(values.get(), type, false);
}

void addColourOptions(CLI::App *command) {
    CLI::Option *grey = command->add_flag_callback(
        "--grey", [] { setColourReading(-2); },
        "read colour images as their luminance (0.299 R + 0.587 G + 0.114 B)");
    command
        ->add_option_function<int32_t>(
            "--channel", [](const int32_t &channel) { setColourReading(channel); },
            "read one channel of colour images: 0 red, 1 green, 2 blue")
        ->check(wholeNumber(0, 2))
        ->excludes(grey);
}

void addBatchOptions(CLI::App *command, BatchOptions &options, const std::string &what) {
    command->add_option("FILES", options.inputs, "IN OUT, or several inputs with --out-dir")->required();
    command->add_option("--out-dir", options.outDir,
                        "write every " + what +
                            " into this folder (created if needed), named after its input");
    command->add_option(
        "--format", options.format,
        "output format: pxi, png, tif or pgm (with OUT: pxi writes a pxImage file under any name)");
    command->add_flag("-q,--quiet", options.quiet, "print only failures");
    command->add_flag("-v,--verbose", options.verbose, "also print the size and type of every output");
}

std::string batchOutput(const BatchOptions &options, const std::string &input) {
    if (options.outDir.empty()) {
        return options.output;
    }
    const std::filesystem::path in(input);
    const std::string ext = options.format.empty() ? in.extension().string() : "." + options.format;
    return (std::filesystem::path(options.outDir) / in.stem()).string() + ext;
}

void runBatch(const BatchOptions &given,
              const std::function<std::string(const std::string &, const std::string &)> &work) {
    BatchOptions options = given;
    if (options.outDir.empty()) {
        if (options.inputs.size() != 2) {
            throw Error("give IN OUT, or several inputs with --out-dir DIR (" +
                        std::to_string(options.inputs.size()) + " file names given)");
        }
        options.output = options.inputs[1];
        options.inputs.pop_back();
    } else {
        std::error_code error;
        std::filesystem::create_directories(options.outDir, error);
        if (error) {
            throw Error(options.outDir + ": cannot create the folder (" + error.message() + ")");
        }
    }
    size_t failed = 0;
    for (const std::string &input : options.inputs) {
        const std::string output = batchOutput(options, input);
        try {
            const std::string detail = work(input, output);
            std::error_code error;
            const uintmax_t bytes = std::filesystem::file_size(output, error);
            if (!options.quiet) {
                std::cout << "wrote " << output << " ("
                          << (error ? "size unknown" : std::to_string(bytes) + " bytes")
                          << (options.verbose && !detail.empty() ? ", " + detail : "") << ")\n";
            }
        } catch (const Error &e) {
            if (options.inputs.size() == 1) {
                throw;
            }
            ++failed;
            std::cerr << "pximg: " << e.what() << '\n';
        }
    }
    if (options.inputs.size() > 1 && !options.quiet) {
        std::cout << options.inputs.size() - failed << " of " << options.inputs.size() << " files written"
                  << (failed ? ", " + std::to_string(failed) + " failed" : "") << '\n';
    }
    if (failed > 0) {
        throw Failed();
    }
}

} // namespace pximg
