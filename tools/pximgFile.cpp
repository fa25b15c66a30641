// File subcommands of pximg: info (the header of our files, as text or JSON) and convert (between our format,
// its encodings, PNG, TIFF and PGM).
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <sstream>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "pximgCommands.h"

namespace pximg {

namespace {

// Shortest decimal text that reads back as the same value of type T (at most maxPrecision digits always
// do), without an exponent for integers of up to 17 digits ("4.545", "1240", "-273"); "nan", "inf".
template <typename T> std::string shortestText(T value, int maxPrecision) {
    char text[40];
    int precision = 1;
    for (; precision < maxPrecision; ++precision) {
        std::snprintf(text, sizeof text, "%.*g", precision, double(value));
        if (static_cast<T>(std::strtod(text, nullptr)) == value) {
            break;
        }
    }
    const double magnitude = std::fabs(double(value));
    const int integerDigits = magnitude >= 1.0 && magnitude < 1e17 ? int(std::log10(magnitude)) + 1 : 0;
    std::snprintf(text, sizeof text, "%.*g", std::max(precision, integerDigits), double(value));
    return text;
}

} // namespace

std::string shortest(double value) {
    return shortestText(value, 17);
}
std::string shortest(float value) {
    return shortestText(value, 9);
}
std::string shortest(int32_t value) {
    return std::to_string(value);
}

std::string fixed(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

namespace {

namespace fs = std::filesystem;

// Elements joined with ", ".
template <typename T> std::string joined(const T *values, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += (i ? ", " : "") + shortest(values[i]);
    }
    return text;
}

// A JSON number: non-finite values have no JSON form and become null.
std::string jsonNumber(double value) {
    return std::isfinite(value) ? shortest(value) : "null";
}

// A JSON string with quotes, backslashes and control characters escaped.
std::string jsonString(const std::string &text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
        } else if (c < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else {
            out += char(c);
        }
    }
    return out + "\"";
}

// ---- info ------------------------------------------------------------------------------------------------

// What info reports about one file.
struct FileInfo {
    std::string path;
    std::string version;
    int32_t storedType = 0;
    ImagePtr header;
    uintmax_t fileSize = 0;
};

// Short name of the way pixel data of a stored type is laid out.
std::string encodingName(int32_t storedType) {
    switch (storedType) {
    case CBIT:
        return "cbit";
    case CSHORT:
        return "cshort";
    case SHORT12:
        return "short12";
    default:
        return "plain";
    }
}

// What the encoding does, for the text form.
std::string encodingDescription(int32_t storedType) {
    switch (storedType) {
    case CBIT:
        return "cbit (bi-level run lengths)";
    case CSHORT:
        return "cshort (lossy run-length pairs of 16-bit values)";
    case SHORT12:
        return "short12 (12 high bits per pixel, four rows packed into three)";
    default:
        return "plain";
    }
}

// Reads the header block and the size of one file.
FileInfo readInfo(const std::string &path) {
    FileInfo info;
    info.path = path;
    info.header = readHeaderBlock(path, info.version, info.storedType);
    std::error_code error;
    info.fileSize = fs::file_size(path, error);
    return info;
}

// Pixels of all planes.
double pixelCount(const tag_pxImage &h) {
    return double(h.width) * double(h.height) * double(h.planes);
}

// Bytes of pixel data after the header block.
double dataBytes(const FileInfo &info) {
    return double(info.fileSize) - 512.0;
}

// "<bytes> bytes, <n> bytes per pixel", with a note when plain data does not fill the file exactly.
std::string sizeText(const FileInfo &info) {
    const tag_pxImage &h = *info.header;
    std::string text = std::to_string(info.fileSize) + " bytes, " +
                       fixed(dataBytes(info) / pixelCount(h), 3) + " bytes per pixel";
    uint32_t pixelSize = 0;
    pxImagePixelSize(info.storedType, &pixelSize);
    const double expected = 512.0 + pixelCount(h) * pixelSize;
    if (encodingName(info.storedType) == "plain" && double(info.fileSize) != expected) {
        text += " (plain data needs " + fixed(expected, 0) + " bytes: the file will not read)";
    }
    return text;
}

// "0x" and sixteen hex digits.
std::string hex64(int64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%016llx", static_cast<unsigned long long>(value));
    return text;
}

// The aligned text form of one file.
void printInfoText(const FileInfo &info, std::ostream &out) {
    const tag_pxImage &h = *info.header;
    auto line = [&](const char *label, const std::string &value) {
        out << label << std::string(15 - std::string(label).size(), ' ') << value << '\n';
    };
    line("file", info.path);
    line("version", info.version);
    line("stored type", pixelTypeName(info.storedType) + " (" + std::to_string(info.storedType) + ")");
    line("encoding", encodingDescription(info.storedType));
    line("size", std::to_string(h.width) + " x " + std::to_string(h.height));
    line("planes", std::to_string(h.planes));
    line("ROI", "columns " + std::to_string(h.roiminX) + ".." + std::to_string(h.roimaxX) + ", rows " +
                    std::to_string(h.roiminY) + ".." + std::to_string(h.roimaxY) + " (end exclusive)");
    line("origin", "(" + std::to_string(h.origX) + ", " + std::to_string(h.origY) + ") in a " +
                       std::to_string(h.origWidth) + " x " + std::to_string(h.origHeight) + " frame");
    line("temperatures", joined(h.temperature, 3) + " degrees C (-273 = not measured)");
    line("opticsParam", joined(h.opticsParam, 5));
    line("aberration", "K1 " + shortest(h.aberK1) + ", K2 " + shortest(h.aberK2) + ", K3 " +
                           shortest(h.aberK3) + ", P1 " + shortest(h.aberP1) + ", P2 " + shortest(h.aberP2) +
                           ", centre (" + shortest(h.aberCx) + ", " + shortest(h.aberCy) + ")");
    line("auxInt", std::to_string(h.auxInt));
    line("auxShort", joined(h.auxShort, 4));
    line("auxLong", joined(h.auxLong, 8));
    line("auxWide", hex64(h.auxWide));
    line("auxInt2", joined(h.auxInt2, 3));
    line("file size", sizeText(info));
}

// A JSON array of numbers.
template <typename T> std::string jsonArray(const T *values, int count) {
    std::string text = "[";
    for (int i = 0; i < count; ++i) {
        text += (i ? ", " : "") + jsonNumber(values[i]);
    }
    return text + "]";
}

// The JSON object of one file, indented by `indent` spaces.
void printInfoJson(const FileInfo &info, std::ostream &out, int indent) {
    const tag_pxImage &h = *info.header;
    const std::string pad(indent + 2, ' ');
    std::vector<std::pair<std::string, std::string>> fields = {
        {"file", jsonString(info.path)},
        {"version", jsonString(info.version)},
        {"type", std::to_string(info.storedType)},
        {"typeName", jsonString(pixelTypeName(info.storedType))},
        {"encoding", jsonString(encodingName(info.storedType))},
        {"width", std::to_string(h.width)},
        {"height", std::to_string(h.height)},
        {"planes", std::to_string(h.planes)},
        {"roi", "{\"minX\": " + std::to_string(h.roiminX) + ", \"maxX\": " + std::to_string(h.roimaxX) +
                    ", \"minY\": " + std::to_string(h.roiminY) + ", \"maxY\": " + std::to_string(h.roimaxY) +
                    "}"},
        {"origin", "{\"x\": " + std::to_string(h.origX) + ", \"y\": " + std::to_string(h.origY) +
                       ", \"width\": " + std::to_string(h.origWidth) +
                       ", \"height\": " + std::to_string(h.origHeight) + "}"},
        {"auxInt", std::to_string(h.auxInt)},
        {"temperature", jsonArray(h.temperature, 3)},
        {"opticsParam", jsonArray(h.opticsParam, 5)},
        {"aberration", "{\"K1\": " + jsonNumber(h.aberK1) + ", \"K2\": " + jsonNumber(h.aberK2) +
                           ", \"K3\": " + jsonNumber(h.aberK3) + ", \"P1\": " + jsonNumber(h.aberP1) +
                           ", \"P2\": " + jsonNumber(h.aberP2) + ", \"Cx\": " + jsonNumber(h.aberCx) +
                           ", \"Cy\": " + jsonNumber(h.aberCy) + "}"},
        {"auxShort", jsonArray(h.auxShort, 4)},
        {"auxLong", jsonArray(h.auxLong, 8)},
        {"auxWide", jsonString(hex64(h.auxWide))},
        {"auxInt2", jsonArray(h.auxInt2, 3)},
        {"fileSize", std::to_string(info.fileSize)},
        {"bytesPerPixel", jsonNumber(dataBytes(info) / pixelCount(h))},
    };
    out << std::string(indent, ' ') << "{\n";
    for (size_t i = 0; i < fields.size(); ++i) {
        out << pad << jsonString(fields[i].first) << ": " << fields[i].second
            << (i + 1 < fields.size() ? "," : "") << '\n';
    }
    out << std::string(indent, ' ') << '}';
}

// info: every file is read before anything is printed, so a failure prints nothing but its error.
void runInfo(const std::vector<std::string> &paths, bool json) {
    std::vector<FileInfo> infos;
    for (const std::string &path : paths) {
        infos.push_back(readInfo(path));
    }
    std::ostringstream out;
    const bool array = json && infos.size() > 1;
    out << (array ? "[\n" : "");
    for (size_t i = 0; i < infos.size(); ++i) {
        if (json) {
            printInfoJson(infos[i], out, array ? 2 : 0);
            out << (array && i + 1 < infos.size() ? ",\n" : "\n");
        } else {
            out << (i ? "\n" : "");
            printInfoText(infos[i], out);
        }
    }
    out << (array ? "]\n" : "");
    std::cout << out.str();
}

// ---- convert ---------------------------------------------------------------------------------------------

// Options of convert.
struct ConvertOptions {
    std::string input, output, type, encoding;
    bool transform = false;
};

// File type of an --encoding value (0 for plain).
int32_t parseEncoding(const std::string &text) {
    if (text.empty() || text == "plain") {
        return 0;
    }
    if (text == "cbit" || text == "cshort" || text == "short12") {
        return parsePixelType(text);
    }
    throw Error("unknown encoding '" + text + "' (use plain, cbit, cshort or short12)");
}

// convert: load, change the type in memory when asked, save as the output's name and --encoding say.
void runConvert(const ConvertOptions &options) {
    int32_t type = options.type.empty() ? 0 : parsePixelType(options.type);
    int32_t encoding = parseEncoding(options.encoding);
    if (type == CBIT || type == CSHORT || type == SHORT12) {
        if (encoding != 0 && encoding != type) {
            throw Error("--type " + options.type + " and --encoding " + options.encoding + " disagree");
        }
        encoding = type;
        type = type == CBIT ? UBYTE : SHORT;
    }
    if (options.transform && type != SHORT && type != FLOAT) {
        throw Error("--transform scales between SHORT and FLOAT: add --type float or --type short");
    }
    ImagePtr image = loadImage(options.input);
    if (type != 0 && (type != image->type || options.transform)) {
        image = convertImage(image.get(), type, options.transform);
    }
    saveImage(image.get(), options.output, encoding);
    std::error_code error;
    std::cout << "wrote " << options.output << " (" << fs::file_size(options.output, error) << " bytes)\n";
}

} // namespace

void addFileCommands(CLI::App &app) {
    auto paths = std::make_shared<std::vector<std::string>>();
    auto json = std::make_shared<bool>(false);
    CLI::App *info =
        app.add_subcommand("info", "Show the header of pxImage files: version, type, encoding, size, "
                                   "ROI, origin, every metadata field, file size");
    info->add_option("FILE", *paths, "pxImage files")->required();
    info->add_flag("--json", *json, "one JSON object per file (an array for several)");
    info->callback([paths, json] { runInfo(*paths, *json); });

    auto options = std::make_shared<ConvertOptions>();
    CLI::App *convert = app.add_subcommand(
        "convert",
        "Convert between pxImage files (and their encodings), PNG, TIFF and PGM; 16-bit stays 16-bit");
    convert->add_option("IN", options->input, "input image")->required();
    convert
        ->add_option("OUT", options->output,
                     "output image: .png, .tif, .tiff, .pgm, anything else is pxImage")
        ->required();
    convert->add_option("--type", options->type, "pixel type: ubyte, short, int, float, double or 1..8");
    convert->add_option("--encoding", options->encoding, "pxImage encoding: plain, cbit, cshort or short12");
    convert->add_flag(
        "--transform", options->transform,
        "scale SHORT 0..65535 to FLOAT about 0..255 (or back) when --type changes between them");
    convert->callback([options] { runConvert(*options); });
}

} // namespace pximg
