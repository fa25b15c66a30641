// convert subcommand of pximg: between our format (and its encodings), PNG, TIFF and PGM, one file or many
// into a folder, with the tool's one rule for type changes (--type, --stretch, --shift).
#include <iostream>

#include "pximgTool.h"

namespace pximg {

namespace {

// Options of convert.
struct ConvertOptions {
    BatchOptions batch;
    TypeChange change;
    std::string type, encoding;
    bool transform = false;
};

// File type of an --encoding value (0 for plain or none).
int32_t parseEncoding(const std::string &text) {
    if (text.empty() || text == "plain") {
        return 0;
    }
    if (text == "cbit" || text == "cshort" || text == "short12") {
        return parsePixelType(text);
    }
    throw Error("unknown encoding '" + text + "' (use plain, cbit, cshort or short12)");
}

// The in-memory type and the encoding that --type and --encoding ask for; refuses options that disagree.
void resolveType(const ConvertOptions &options, int32_t &type, int32_t &encoding) {
    type = options.type.empty() ? 0 : parsePixelType(options.type);
    encoding = parseEncoding(options.encoding);
    if (type == CBIT || type == CSHORT || type == SHORT12) {
        if (!options.encoding.empty() && encoding != type) {
            throw Error("--type " + options.type + " is an encoding and --encoding " + options.encoding +
                        " asks for another: give one of them");
        }
        encoding = type;
        type = type == CBIT ? UBYTE : SHORT;
    }
    if (options.transform && type != SHORT && type != FLOAT) {
        throw Error("--transform scales between SHORT and FLOAT: add --type float or --type short");
    }
    if (options.transform && options.change.mapsValues()) {
        throw Error("--transform and --" + std::string(options.change.hasShift ? "shift" : "stretch") +
                    " both scale the values: give one of them");
    }
}

// Converts one file; returns the output's type and size for --verbose.
std::string convertOne(const ConvertOptions &options, const std::string &input, const std::string &output) {
    int32_t type = 0, encoding = 0;
    resolveType(options, type, encoding);
    ImagePtr image = loadImage(input);
    if (options.transform) {
        image = convertImage(image.get(), type, true);
    } else if (type != 0 || options.change.mapsValues()) {
        image = changeType(image.get(), options.change, type);
    }
    saveImage(image.get(), output, encoding, false, options.batch.format);
    return (encoding ? pixelTypeName(encoding) : pixelTypeName(image->type)) + ", " +
           std::to_string(image->width) + " x " + std::to_string(image->height);
}

} // namespace

void addConvertCommand(CLI::App &app) {
    auto options = std::make_shared<ConvertOptions>();
    CLI::App *convert = app.add_subcommand(
        "convert", "Convert between pxImage files (and their encodings), PNG, TIFF and PGM; values are kept "
                   "(16-bit stays 16-bit) unless --stretch or --shift scales them");
    addBatchOptions(convert, options->batch, "converted image");
    convert->add_option("--type", options->type,
                        "pixel type: ubyte, short, int, float, double (values kept, clipped with a warning)");
    convert->add_option("--encoding", options->encoding, "pxImage encoding: plain, cbit, cshort or short12");
    convert->add_flag(
        "--transform", options->transform,
        "scale SHORT 0..65535 to FLOAT about 0..255 (or back) when --type changes between them");
    options->change.addOptions(convert);
    addColourOptions(convert);
    convert->callback([options] {
        runBatch(options->batch, [options](const std::string &in, const std::string &out) {
            return convertOne(*options, in, out);
        });
    });
}

} // namespace pximg
