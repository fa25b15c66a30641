// Image input and output of pximg: our file format through the library, PNG, TIFF and PGM through OpenCV,
// written under a partial name that is renamed when complete (and removed on failure, SIGINT or SIGTERM);
// the bridge from the library's log to the terminal; paths and pixel type names.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <random>

#include <fcntl.h>
#include <unistd.h>

#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "pxEnv.h"
#include "pxEnvPath.h"
#include "pximgTool.h"

namespace pximg {

namespace {

// Text of the last error or message the library logged, for libraryFailure.
std::string lastLibraryMessage;

// Whether the sink prints the library's warnings.
bool printWarnings = true;

// Log sink: keeps every record that carries text, prints warnings, drops traces.
void librarySink(void *, int kind, int level, int, const char *, const char *, uint32_t, const char *text) {
    if (text == nullptr || text[0] == '\0') {
        return;
    }
    lastLibraryMessage = text;
    if (kind == PXENV_LOG_F && level == 4 && printWarnings) {
        std::fprintf(stderr, "pximg: warning: %s\n", text);
    }
}

// Owns a FILE* opened by the tool.
struct FileCloser {
    void operator()(FILE *file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// Opens a file for reading or fails with "<path>: <system error text>" (a directory opens on this system,
// and would only fail at the first read, so it is refused by name).
FilePtr openForReading(const std::string &path) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
        throw Error(path + ": " + std::strerror(EISDIR));
    }
    errno = 0;
    FilePtr file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        throw Error(path + ": " + std::strerror(errno));
    }
    return file;
}

// The first 12 bytes of our format: four 16-bit fields, then the version tag.
struct LeadingFields {
    uint32_t width, height, type, planes;
    char tag[5];
};

// Reads the leading fields of a file (little-endian, as the format stores them); false if it is shorter.
bool readLeadingFields(const std::string &path, LeadingFields &fields) {
    FilePtr file = openForReading(path);
    unsigned char bytes[12];
    if (std::fread(bytes, 1, sizeof bytes, file.get()) != sizeof bytes) {
        return false;
    }
    auto u16 = [&](int at) { return static_cast<uint32_t>(bytes[at] | (bytes[at + 1] << 8)); };
    fields = {u16(0), u16(2), u16(4), u16(6), {}};
    std::memcpy(fields.tag, bytes + 8, 4);
    fields.tag[4] = '\0';
    return true;
}

// True when the leading fields describe an image the library can hold.
bool plausibleHeader(const LeadingFields &f) {
    return f.width >= 1 && f.width <= 9999 && f.height >= 1 && f.height <= 9999 && f.type >= 1 &&
           f.type <= 8 && f.planes >= 1 && f.planes <= 9;
}

// Lower-case extension of a path including the dot ("" when there is none).
std::string lowerExtension(const std::string &path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
        return "";
    }
    std::string ext = path.substr(dot);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    return ext;
}

// True for the names that are written through OpenCV.
bool isOpenCvName(const std::string &path) {
    const std::string ext = lowerExtension(path);
    return ext == ".png" || ext == ".tif" || ext == ".tiff" || ext == ".pgm";
}

// OpenCV depth of a pixel type held in memory, or -1.
int cvDepthOf(int32_t type) {
    switch (type) {
    case UBYTE:
        return CV_8U;
    case SHORT:
        return CV_16U;
    case INT:
        return CV_32S;
    case FLOAT:
        return CV_32F;
    case DOUBLE:
        return CV_64F;
    default:
        return -1;
    }
}

// Pixel type of an OpenCV depth, or 0 when the library has none for it.
int32_t typeOfCvDepth(int depth) {
    switch (depth) {
    case CV_8U:
        return UBYTE;
    case CV_16U:
        return SHORT;
    case CV_32S:
        return INT;
    case CV_32F:
        return FLOAT;
    case CV_64F:
        return DOUBLE;
    default:
        return 0;
    }
}

// A matrix header over plane 0 of an image (no copy).
cv::Mat planeAsMat(const tag_pxImage *image) {
    uint32_t size = 0;
    pxImagePixelSize(image->type, &size);
    auto rows = reinterpret_cast<uint8_t **>(image->pixMap[0]);
    const size_t stride = size_t(size) * size_t(image->width + 2 * image->border);
    return cv::Mat(image->height, image->width, CV_MAKETYPE(cvDepthOf(image->type), 1), rows[0], stride);
}

// Sends the process's standard error to /dev/null while it lives: the codec libraries under OpenCV print
// their own messages there ("libpng error: Read Error") before OpenCV reports the failure, which the tool
// then states in its own words.
class QuietStderr {
  public:
    QuietStderr() {
        std::fflush(stderr);
        saved_ = dup(STDERR_FILENO);
        const int null = open("/dev/null", O_WRONLY);
        if (saved_ >= 0 && null >= 0) {
            dup2(null, STDERR_FILENO);
        }
        if (null >= 0) {
            close(null);
        }
    }
    ~QuietStderr() {
        std::fflush(stderr);
        if (saved_ >= 0) {
            dup2(saved_, STDERR_FILENO);
            close(saved_);
        }
    }
    QuietStderr(const QuietStderr &) = delete;
    QuietStderr &operator=(const QuietStderr &) = delete;

  private:
    int saved_;
};

// Decodes a file through OpenCV without the codecs' own messages; empty when it cannot.
cv::Mat quietImread(const std::string &path) {
    const QuietStderr quiet;
    try {
        return cv::imread(path, cv::IMREAD_UNCHANGED);
    } catch (const cv::Exception &) {
        return cv::Mat();
    }
}

// Refuses an image larger than the library holds, naming the limit.
void checkSideLimit(const std::string &path, int64_t width, int64_t height) {
    if (width > 9999 || height > 9999) {
        throw Error(path + ": " + std::to_string(width) + " x " + std::to_string(height) +
                    " pixels is larger than images can be (at most 9999 x 9999)");
    }
}

// Loads a PNG, TIFF or PGM file through OpenCV into a one-plane image with border 0.
ImagePtr loadWithOpenCv(const std::string &path) {
    const cv::Mat decoded = quietImread(path);
    if (decoded.empty()) {
        throw Error(path + ": cannot decode the image (damaged or cut short)");
    }
    checkSideLimit(path, decoded.cols, decoded.rows);
    const cv::Mat mat = greyOf(decoded, path);
    const int32_t type = typeOfCvDepth(mat.depth());
    if (type == 0) {
        throw Error(path + ": signed 8- or 16-bit pixels are not supported");
    }
    tag_pxImage *raw = nullptr;
    if (!pxImageConstruct(type, mat.cols, mat.rows, 0, 1, &raw)) {
        throw libraryFailure(path + ": no memory for a " + std::to_string(mat.cols) + " x " +
                             std::to_string(mat.rows) + " image");
    }
    ImagePtr image(raw);
    auto rows = reinterpret_cast<uint8_t **>(image->pixMap[0]);
    for (int y = 0; y < mat.rows; ++y) {
        std::memcpy(rows[y], mat.ptr(y), mat.elemSize() * size_t(mat.cols));
    }
    return image;
}

// Refuses a file of our format that is shorter than its header block, with its size.
void checkHeaderBlockSize(const std::string &path) {
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(path, error);
    if (!error && size < 512) {
        throw Error(path + ": not a pxImage file (" + std::to_string(size) +
                    " bytes, shorter than the 512-byte header block)");
    }
}

// Loads a file of our format with the library. The reader decodes CBIT, CSHORT and SHORT12 data only into
// their own in-memory type, so encoded files are read as stored and converted afterwards.
ImagePtr loadOurs(const std::string &path, int32_t type) {
    LeadingFields fields{};
    if (!readLeadingFields(path, fields) || !plausibleHeader(fields)) {
        throw Error(path + ": not an image file (neither PNG, TIFF, PGM nor a pxImage file)");
    }
    checkSideLimit(path, fields.width, fields.height);
    checkHeaderBlockSize(path);
    const bool encoded = fields.type == CBIT || fields.type == CSHORT || fields.type == SHORT12;
    tag_pxImage *raw = nullptr;
    if (!pxImageRead(utf16Path(path).data(), encoded ? 0 : type, 0, &raw)) {
        throw libraryFailure(path + ": cannot read");
    }
    ImagePtr image(raw);
    if (type == 0 || type == image->type) {
        return image;
    }
    return convertImage(image.get(), type, false);
}

// Name of the temporary file that an image is written to before it replaces `path`: same folder and
// extension, so that OpenCV picks the same format.
std::string partialName(const std::string &path) {
    const std::string ext = lowerExtension(path);
    return path.substr(0, path.size() - ext.size()) + ".pximg-partial" +
           path.substr(path.size() - ext.size());
}

// Checks that a file can be created at `path` (leaves it empty), or fails with the system's reason.
void createEmpty(const std::string &path, const std::string &shownName) {
    errno = 0;
    FILE *file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        throw Error(shownName + ": " + std::strerror(errno));
    }
    std::fclose(file);
}

// Writes plane 0 of a UBYTE, SHORT, INT, FLOAT or DOUBLE image through OpenCV.
void saveWithOpenCv(const tag_pxImage *image, const std::string &tempPath, const std::string &path) {
    const std::string ext = lowerExtension(path);
    if (image->planes != 1) {
        throw Error(path + ": " + ext + " files hold one plane; the image has " +
                    std::to_string(image->planes));
    }
    const bool tiff = ext == ".tif" || ext == ".tiff";
    if (!tiff && image->type != UBYTE && image->type != SHORT) {
        throw Error(path + ": " + ext + " files hold 8- or 16-bit pixels, not " + pixelTypeName(image->type) +
                    " (add --type short or --type ubyte)");
    }
    if (!cv::imwrite(tempPath, planeAsMat(image))) {
        throw Error(path + ": OpenCV could not write the image");
    }
}

// Writes an image in our format: plain of its own type, or encoded (CBIT, CSHORT, SHORT12) from a copy, since
// the encoders change the pixels they are given.
void saveOurs(const tag_pxImage *image, int32_t fileType, const std::string &tempPath,
              const std::string &path) {
    const bool encoded = fileType == CBIT || fileType == CSHORT || fileType == SHORT12;
    ImagePtr copy;
    if (encoded) {
        tag_pxImage *raw = nullptr;
        if (!pxImageConvertCopy(image, 0, 0, &raw)) {
            throw libraryFailure(path + ": cannot copy the image for encoding");
        }
        copy.reset(raw);
    }
    // A plain write only reads the pixels.
    tag_pxImage *source = encoded ? copy.get() : const_cast<tag_pxImage *>(image);
    if (!pxImageWriteChecked(utf16Path(tempPath).data(), encoded ? fileType : 0, source)) {
        const Error failure = libraryFailure(path + ": cannot write");
        if (fileType == CSHORT && std::string(failure.what()).find("too large") != std::string::npos) {
            double lo = 0.0, hi = 0.0;
            valueRange(image, lo, hi);
            throw Error(std::string(failure.what()) +
                        ": CSHORT merges only runs of similar pixels whose lowest bit is clear, so noisy or "
                        "low-valued data does not compress; use --encoding short12 or plain" +
                        (hi < 256.0 ? ", or --shift 8 to move 8-bit data into the high bits" : ""));
        }
        throw failure;
    }
}

// The partial file being written, removed by the handler of SIGINT and SIGTERM (empty: none).
char partialInProgress[4096] = "";

extern "C" void removePartialAndStop(int signal) {
    if (partialInProgress[0] != '\0') {
        unlink(partialInProgress);
    }
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// Notes the partial file that a signal must remove (installing the handler the first time), or none.
void notePartial(const std::string &path) {
    static bool installed = false;
    if (!installed) { // a signal ignored by the caller (a background job of a script) stays ignored
        for (int signal : {SIGINT, SIGTERM}) {
            if (std::signal(signal, removePartialAndStop) == SIG_IGN) {
                std::signal(signal, SIG_IGN);
            }
        }
        installed = true;
    }
    partialInProgress[0] = '\0';
    if (!path.empty() && path.size() < sizeof partialInProgress) {
        std::memcpy(partialInProgress + 1, path.c_str() + 1, path.size()); // the first byte last
        partialInProgress[0] = path[0];
    }
}

// What a lossy encoding keeps, for its warning.
std::string encodingKeeps(int32_t fileType) {
    switch (fileType) {
    case CBIT:
        return "CBIT keeps 1 bit per pixel";
    case SHORT12:
        return "SHORT12 keeps the 12 high bits";
    default:
        return "CSHORT merges runs of similar pixels";
    }
}

// Reads an encoded file back and warns when pixels changed: how many, by how much, and the size against a
// plain file when the encoding made it larger.
void warnEncodingLoss(const tag_pxImage *image, int32_t fileType, const std::string &tempPath,
                      const std::string &path) {
    ImagePtr back = loadOurs(tempPath, image->type);
    double changed = 0.0, maxError = 0.0, hi = 0.0, lo = 0.0;
    for (int32_t y = 0; y < image->height; ++y) {
        for (int32_t x = 0; x < image->width; ++x) {
            const double error = std::fabs(pixelAt(back.get(), x, y) - pixelAt(image, x, y));
            changed += error != 0.0 ? 1.0 : 0.0;
            maxError = std::max(maxError, error);
        }
    }
    if (changed == 0.0) {
        return;
    }
    valueRange(image, lo, hi);
    uint32_t pixelSize = 0;
    pxImagePixelSize(image->type, &pixelSize);
    std::error_code error;
    const double plain = 512.0 + double(image->width) * image->height * pixelSize;
    const double ratio = double(std::filesystem::file_size(tempPath, error)) / plain;
    std::fprintf(
        stderr, "pximg: warning: %s: %s: %s %% of pixels changed, by up to %s%s%s\n", path.c_str(),
        encodingKeeps(fileType).c_str(),
        fixed(100.0 * changed / (double(image->width) * image->height), 1).c_str(),
        shortest(maxError).c_str(),
        fileType == SHORT12 && hi < 4096.0 ? " (the data lies below 4096: --shift 4 moves 12-bit data up)"
                                           : "",
        ratio > 1.0 ? ("; the file is " + fixed(ratio, 1) + "x the size of a plain one").c_str() : "");
}

// The format a file name asks for: "png", "tif", "pgm", "pxi", or "" for an unknown extension.
std::string formatOfName(const std::string &path) {
    const std::string ext = lowerExtension(path);
    if (ext == ".png" || ext == ".pgm" || ext == ".tif") {
        return ext.substr(1);
    }
    return ext == ".tiff" ? "tif" : ext == ".pxi" || ext == ".pim" ? "pxi" : "";
}

// Refuses an output name whose format is unknown or disagrees with --format.
void checkOutputName(const std::string &path, const std::string &format) {
    if (path == "-") {
        throw Error("'-' is not a file name: pximg writes images to files only");
    }
    if (!format.empty() && format != "pxi" && format != "png" && format != "tif" && format != "pgm") {
        throw Error("unknown --format '" + format + "' (use pxi, png, tif or pgm)");
    }
    const std::string named = formatOfName(path), ext = lowerExtension(path);
    if (format.empty() && named.empty()) {
        throw Error(
            path + ": " + (ext.empty() ? "no extension" : "unknown image format '" + ext + "'") +
            " (use .pxi, .png, .tif, .tiff or .pgm, or --format pxi for a pxImage file under this name)");
    }
    if (!format.empty() && !named.empty() && named != format) {
        throw Error(path + ": --format " + format + " disagrees with the name's extension " + ext);
    }
    if (!format.empty() && named.empty() && format != "pxi") {
        throw Error(path + ": --format " + format + " needs a name ending in ." + format);
    }
}

// In-memory type that an encoding is made from.
int32_t sourceTypeOfEncoding(int32_t fileType) {
    return fileType == CBIT ? UBYTE : SHORT;
}

// Refuses a file type that the image cannot be written as, with a hint what to add.
void checkEncodable(const tag_pxImage *image, int32_t fileType, const std::string &path) {
    const bool encoded = fileType == CBIT || fileType == CSHORT || fileType == SHORT12;
    if (!encoded) {
        return;
    }
    std::string name = pixelTypeName(fileType);
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    if (isOpenCvName(path)) {
        throw Error(path + ": the " + name + " encoding exists only in pxImage files");
    }
    const int32_t needed = sourceTypeOfEncoding(fileType);
    if (image->type != needed) {
        throw Error(path + ": the " + name + " encoding needs a " + pixelTypeName(needed) + " image, not " +
                    pixelTypeName(image->type) + " (add --type " + (needed == UBYTE ? "ubyte" : "short") +
                    ")");
    }
}

} // namespace

void installLibraryLog() {
    pxEnvSetLogSink(librarySink, nullptr);
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
}

void showLibraryWarnings(bool show) {
    printWarnings = show;
}

Error libraryFailure(const std::string &what) {
    const std::string text = lastLibraryMessage.empty() ? "the library gave no reason" : lastLibraryMessage;
    lastLibraryMessage.clear();
    return Error(what + " (" + text + ")");
}

std::vector<uint16_t> utf16Path(const std::string &path) {
    std::u16string text;
    if (!PxTextToUtf16(path, text)) {
        throw Error(path + ": the path is not valid UTF-8");
    }
    std::vector<uint16_t> out(text.begin(), text.end());
    out.push_back(0);
    return out;
}

int32_t parsePixelType(const std::string &text) {
    static const char *const names[] = {"",    "cbit",  "ubyte",  "short",  "cshort",
                                        "int", "float", "double", "short12"};
    std::string lower = text;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    for (int32_t type = 1; type <= 8; ++type) {
        if (lower == names[type] || lower == std::to_string(type)) {
            return type;
        }
    }
    throw Error("unknown pixel type '" + text +
                "' (use ubyte, short, int, float, double, cbit, cshort, short12 or a number 1..8)");
}

std::string pixelTypeName(int32_t type) {
    static const char *const names[] = {"",    "CBIT",  "UBYTE",  "SHORT",  "CSHORT",
                                        "INT", "FLOAT", "DOUBLE", "SHORT12"};
    return type >= 1 && type <= 8 ? names[type] : "type " + std::to_string(type);
}

ImagePtr convertImage(const tag_pxImage *image, int32_t type, bool transform) {
    tag_pxImage *raw = nullptr;
    if (!pxImageConvertWithTransformCopy(image, type, 0, transform ? 1 : 0, &raw)) {
        throw libraryFailure("cannot convert " + pixelTypeName(image->type) + " to " + pixelTypeName(type));
    }
    return ImagePtr(raw);
}

ImagePtr loadImage(const std::string &path, int32_t type) {
    if (path == "-") {
        throw Error("'-' is not a file name: pximg reads images from files only");
    }
    LeadingFields fields{};
    const bool hasFields = readLeadingFields(path, fields); // also fails cleanly on an unreadable file
    const bool ours = hasFields && plausibleHeader(fields);
    if (ours || !cv::haveImageReader(path)) {
        return loadOurs(path, type);
    }
    ImagePtr image = loadWithOpenCv(path);
    if (type == 0 || type == image->type) {
        return image;
    }
    return convertImage(image.get(), type, false);
}

void saveImage(const tag_pxImage *image, const std::string &path, int32_t fileType, bool transform,
               const std::string &format) {
    checkOutputName(path, format);
    const bool encoded = fileType == CBIT || fileType == CSHORT || fileType == SHORT12;
    ImagePtr converted;
    if (!encoded && fileType != 0 && (fileType != image->type || transform)) {
        converted =
            transform ? convertImage(image, fileType, true) : changeType(image, TypeChange{}, fileType);
        image = converted.get();
    }
    checkEncodable(image, fileType, path);
    const std::string temp = partialName(path);
    notePartial(temp);
    try {
        createEmpty(temp, path);
        if (isOpenCvName(path)) {
            saveWithOpenCv(image, temp, path);
        } else {
            saveOurs(image, encoded ? fileType : 0, temp, path);
        }
        if (encoded) {
            warnEncodingLoss(image, fileType, temp, path);
        }
    } catch (const cv::Exception &e) {
        std::remove(temp.c_str());
        notePartial("");
        throw Error(path + ": OpenCV could not write the image (" + e.err + ")");
    } catch (...) {
        std::remove(temp.c_str());
        notePartial("");
        throw;
    }
    const int renamed = std::rename(temp.c_str(), path.c_str());
    notePartial("");
    if (renamed != 0) {
        const std::string reason = std::strerror(errno);
        std::remove(temp.c_str());
        throw Error(path + ": " + reason);
    }
}

void checkWritable(const std::string &path) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
        throw Error(path + ": " + std::strerror(EISDIR));
    }
    const std::string temp = partialName(path);
    createEmpty(temp, path);
    std::remove(temp.c_str());
}

ImagePtr readHeaderBlock(const std::string &path, std::string &version, int32_t &storedType) {
    LeadingFields fields{};
    if (!readLeadingFields(path, fields) || !plausibleHeader(fields)) {
        throw Error(path + ": not a pxImage file");
    }
    checkHeaderBlockSize(path);
    FilePtr file = openForReading(path);
    tag_pxImage *raw = nullptr;
    if (!pxImageHeaderRead(file.get(), 0, 0, &raw, &storedType)) {
        throw libraryFailure(path + ": cannot read the header block");
    }
    version.assign(fields.tag, 4);
    for (char &c : version) {
        c = std::isprint(static_cast<unsigned char>(c)) ? c : '?'; // a foreign tag is read all the same
    }
    return ImagePtr(raw);
}

} // namespace pximg
