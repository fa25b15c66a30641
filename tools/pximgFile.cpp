// File subcommands of pximg: info (the header of our files, size and channels of PNG, TIFF and PGM files,
// optionally their statistics, as text or JSON); convert and demo register from their own modules.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <cstring>
#include <fstream>
#include <sstream>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "pximgTool.h"

namespace pximg {

namespace {

namespace fs = std::filesystem;

// ---- info ------------------------------------------------------------------------------------------------

// Elements joined with ", ".
template <typename T> std::string joined(const T *values, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += (i ? ", " : "") + shortest(values[i]);
    }
    return text;
}

// What info reports about one file.
struct FileInfo {
    std::string path;
    std::string version;
    int32_t storedType = 0;
    ImagePtr header;
    uintmax_t fileSize = 0;
    std::string format; // "PNG", "TIFF" or "PGM" for files read through OpenCV; empty for ours
    ImageLayout layout;
    int32_t width = 0, height = 0;
    bool hasStats = false, checked = false;
    double lowest = 0.0, highest = 0.0, mean = 0.0, stdDev = 0.0;
    std::string error; // why the file could not be read
};

// The format of a file read through OpenCV, from its first bytes; empty for any other file.
std::string foreignFormat(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    char b[4] = {};
    in.read(b, 4);
    if (std::memcmp(b, "\x89PNG", 4) == 0) {
        return "PNG";
    }
    if (std::memcmp(b, "II*\0", 4) == 0 || std::memcmp(b, "MM\0*", 4) == 0) {
        return "TIFF";
    }
    return b[0] == 'P' && (b[1] == '5' || b[1] == '2') ? "PGM" : "";
}

// Width, height and layout of a PNG, TIFF or PGM file (decoding it).
void readForeign(FileInfo &info) {
    const cv::Mat mat = cv::imread(info.path, cv::IMREAD_UNCHANGED);
    if (mat.empty()) {
        throw Error(info.path + ": cannot decode the image (damaged or cut short)");
    }
    info.width = mat.cols;
    info.height = mat.rows;
    info.layout = fileLayout(info.path, mat);
}

// Minimum, maximum, mean and standard deviation of every pixel as loadImage reads it (NaNs skipped).
void measureFile(FileInfo &info) {
    ImagePtr image = loadImage(info.path);
    valueRange(image.get(), info.lowest, info.highest);
    double sum = 0.0, squares = 0.0, n = 0.0;
    for (int32_t p = 0; p < image->planes; ++p) {
        for (int32_t y = 0; y < image->height; ++y) {
            for (int32_t x = 0; x < image->width; ++x) {
                const double v = pixelAt(image.get(), x, y, p);
                if (!std::isnan(v)) {
                    sum += v, squares += v * v, n += 1.0;
                }
            }
        }
    }
    info.mean = n > 0.0 ? sum / n : 0.0;
    info.stdDev = n > 0.0 ? std::sqrt(std::max(0.0, squares / n - info.mean * info.mean)) : 0.0;
    info.hasStats = true;
}

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
// Reads what info reports about one file; --stats and --check decode every pixel.
void readInfo(FileInfo &info, bool stats, bool check) {
    info.format = foreignFormat(info.path);
    if (info.format.empty()) {
        try {
            info.header = readHeaderBlock(info.path, info.version, info.storedType);
        } catch (const Error &e) {
            if (std::string(e.what()) == info.path + ": not a pxImage file") {
                throw Error(info.path + ": not an image file (neither PNG, TIFF, PGM nor a pxImage file)");
            }
            throw;
        }
    } else {
        readForeign(info);
    }
    std::error_code error;
    info.fileSize = fs::file_size(info.path, error);
    if (stats) {
        measureFile(info);
    } else if (check) {
        loadImage(info.path);
    }
    info.checked = check;
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

// One aligned line of the text form.
void infoLine(std::ostream &out, const char *label, const std::string &value) {
    out << label << std::string(15 - std::string(label).size(), ' ') << value << '\n';
}

// The text form of a PNG, TIFF or PGM file.
void printForeignText(const FileInfo &info, std::ostream &out) {
    infoLine(out, "file", info.path);
    infoLine(out, "format", info.format);
    infoLine(out, "size", std::to_string(info.width) + " x " + std::to_string(info.height));
    infoLine(out, "channels", info.layout.text());
    infoLine(out, "bits", std::to_string(info.layout.bits) + " per sample");
    infoLine(out, "file size", std::to_string(info.fileSize) + " bytes");
}

// The lines of --stats and --check.
void printMeasuredText(const FileInfo &info, std::ostream &out) {
    if (info.hasStats) {
        infoLine(out, "min", shortest(info.lowest));
        infoLine(out, "max", shortest(info.highest));
        infoLine(out, "mean", fixed(info.mean, 3));
        infoLine(out, "std dev", fixed(info.stdDev, 3));
    }
    if (info.checked) {
        infoLine(out, "check", "ok (every pixel decodes)");
    }
}

// The aligned text form of one file of our format.
void printInfoText(const FileInfo &info, std::ostream &out) {
    const tag_pxImage &h = *info.header;
    auto line = [&](const char *label, const std::string &value) { infoLine(out, label, value); };
    line("file", info.path);
    line("version", info.version);
    line("stored type", pixelTypeName(info.storedType) + " (" + std::to_string(info.storedType) + ")");
    line("encoding", encodingDescription(info.storedType));
    line("size", std::to_string(h.width) + " x " + std::to_string(h.height));
    line("planes", std::to_string(h.planes));
    line("ROI", "columns [" + std::to_string(h.roiminX) + ", " + std::to_string(h.roimaxX) + "), rows [" +
                    std::to_string(h.roiminY) + ", " + std::to_string(h.roimaxY) + ")");
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
using JsonFields = std::vector<std::pair<std::string, std::string>>;

// The JSON fields of a PNG, TIFF or PGM file.
JsonFields foreignJson(const FileInfo &info) {
    return {{"file", jsonString(info.path)},
            {"format", jsonString(info.format)},
            {"width", std::to_string(info.width)},
            {"height", std::to_string(info.height)},
            {"channels", std::to_string(info.layout.channels)},
            {"layout", jsonString(info.layout.name)},
            {"bitsPerSample", std::to_string(info.layout.bits)},
            {"fileSize", std::to_string(info.fileSize)}};
}

// The JSON fields of a file of our format.
JsonFields oursJson(const FileInfo &info) {
    const tag_pxImage &h = *info.header;
    return {
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
}

// The JSON object of one file, indented by `indent` spaces: its fields, or its error.
void printInfoJson(const FileInfo &info, std::ostream &out, int indent) {
    const std::string pad(indent + 2, ' ');
    JsonFields fields;
    if (!info.error.empty()) {
        fields = {{"file", jsonString(info.path)}, {"error", jsonString(info.error)}};
    } else {
        fields = info.format.empty() ? oursJson(info) : foreignJson(info);
    }
    if (info.hasStats) {
        fields.push_back({"stats", "{\"min\": " + jsonNumber(info.lowest) + ", \"max\": " +
                                       jsonNumber(info.highest) + ", \"mean\": " + jsonNumber(info.mean) +
                                       ", \"stdDev\": " + jsonNumber(info.stdDev) + "}"});
    }
    if (info.checked && info.error.empty()) {
        fields.push_back({"check", "\"ok\""});
    }
    out << std::string(indent, ' ') << "{\n";
    for (size_t i = 0; i < fields.size(); ++i) {
        out << pad << jsonString(fields[i].first) << ": " << fields[i].second
            << (i + 1 < fields.size() ? "," : "") << '\n';
    }
    out << std::string(indent, ' ') << '}';
}

// Options of info.
struct InfoOptions {
    std::vector<std::string> paths;
    bool json = false, stats = false, check = false;
};

// info: every file is reported (a failure as an error line, or an "error" field in JSON) and the status is 1
// when any failed.
void runInfo(const InfoOptions &options) {
    const bool array = options.json && options.paths.size() > 1;
    std::cout << (array ? "[\n" : "");
    bool failed = false;
    for (size_t i = 0; i < options.paths.size(); ++i) {
        FileInfo info;
        info.path = options.paths[i];
        try {
            readInfo(info, options.stats, options.check);
        } catch (const Error &e) {
            info = FileInfo{};
            info.path = options.paths[i];
            info.error = e.what();
            failed = true;
        }
        std::ostringstream out;
        if (options.json) {
            printInfoJson(info, out, array ? 2 : 0);
            out << (array && i + 1 < options.paths.size() ? ",\n" : "\n");
        } else if (info.error.empty()) {
            out << (i ? "\n" : "");
            info.format.empty() ? printInfoText(info, out) : printForeignText(info, out);
            printMeasuredText(info, out);
        } else {
            std::cout.flush();
            std::cerr << "pximg: " << info.error << '\n';
        }
        std::cout << out.str();
    }
    std::cout << (array ? "]\n" : "");
    if (failed) {
        throw Failed();
    }
}

} // namespace

void addFileCommands(CLI::App &app) {
    auto options = std::make_shared<InfoOptions>();
    CLI::App *info = app.add_subcommand(
        "info", "Describe image files: of pxImage files the header (version, type, encoding, size, ROI, "
                "origin, every metadata field), of PNG, TIFF and PGM files the size, channels and bits");
    info->add_option("FILE", options->paths, "image files")->required();
    info->add_flag("--json", options->json, "one JSON object per file (an array for several)");
    info->add_flag("--stats", options->stats, "also min, max, mean and standard deviation of the pixels");
    info->add_flag("--check", options->check,
                   "decode every pixel: the exit status says whether every file reads");
    addColourOptions(info);
    info->callback([options] { runInfo(*options); });

    addConvertCommand(app);
    addDemoCommand(app);
    addCompareCommands(app);
}

} // namespace pximg
