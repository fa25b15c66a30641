// Image input and output of pximg: our file format through the library, PNG, TIFF and PGM through OpenCV;
// the bridge from the library's log to the terminal; paths, pixel type names and the synthetic frame.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>

#include <fcntl.h>
#include <unistd.h>

#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>

#include "pxEnv.h"
#include "pxEnvPath.h"
#include "pximgCommands.h"

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

// Loads a PNG, TIFF or PGM file through OpenCV into a one-plane image with border 0.
ImagePtr loadWithOpenCv(const std::string &path) {
    const cv::Mat mat = quietImread(path);
    if (mat.empty()) {
        throw Error(path + ": cannot decode the image (damaged or cut short)");
    }
    if (mat.channels() != 1) {
        throw Error(path + ": has " + std::to_string(mat.channels()) +
                    " channels; only grey images are supported");
    }
    const int32_t type = typeOfCvDepth(mat.depth());
    if (type == 0) {
        throw Error(path + ": signed 8- or 16-bit pixels are not supported");
    }
    tag_pxImage *raw = nullptr;
    if (!pxImageConstruct(type, mat.cols, mat.rows, 0, 1, &raw)) {
        throw libraryFailure(path + ": cannot hold a " + std::to_string(mat.cols) + " x " +
                             std::to_string(mat.rows) + " image");
    }
    ImagePtr image(raw);
    auto rows = reinterpret_cast<uint8_t **>(image->pixMap[0]);
    for (int y = 0; y < mat.rows; ++y) {
        std::memcpy(rows[y], mat.ptr(y), mat.elemSize() * size_t(mat.cols));
    }
    return image;
}

// Loads a file of our format with the library. The reader decodes CBIT, CSHORT and SHORT12 data only into
// their own in-memory type, so encoded files are read as stored and converted afterwards.
ImagePtr loadOurs(const std::string &path, int32_t type) {
    LeadingFields fields{};
    if (!readLeadingFields(path, fields) || !plausibleHeader(fields)) {
        throw Error(path + ": not an image file (neither PNG, TIFF, PGM nor a pxImage file)");
    }
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
        throw libraryFailure(path + ": cannot write");
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

// Standard normal numbers from a seeded engine (Box-Muller, so the frame is the same with every standard
// library).
class FrameRandom {
  public:
    explicit FrameRandom(uint32_t seed) : engine_(seed) {}
    // Uniform in (0, 1].
    double uniform() { return (double(engine_()) + 1.0) / 4294967296.0; }
    double uniform(double low, double high) { return low + (high - low) * uniform(); }
    double normal() {
        return std::sqrt(-2.0 * std::log(uniform())) * std::cos(6.283185307179586 * uniform());
    }

  private:
    std::mt19937 engine_;
};

// One bright object of the scene: a disc or a rectangle with a brightness gradient and a fine texture.
struct SceneObject {
    bool disc;
    double cx, cy, rx, ry; // centre and half sizes
    double level;          // mean signal in DN
    double gx, gy;         // relative gradient per pixel
    double period, phase;  // texture grating
};

// Random objects covering roughly an eighth of the frame.
std::vector<SceneObject> makeObjects(int32_t width, int32_t height, FrameRandom &random) {
    const double size = std::min(width, height);
    const int count = std::max(1, int(std::lround(10.0 * double(width) * height / (1024.0 * 768.0))));
    std::vector<SceneObject> objects;
    for (int i = 0; i < count; ++i) {
        SceneObject o{};
        o.disc = i % 2 == 0;
        o.rx = size * random.uniform(0.035, 0.1);
        o.ry = o.disc ? o.rx : o.rx * random.uniform(0.5, 1.2);
        o.cx = random.uniform(o.rx, width - o.rx);
        o.cy = random.uniform(o.ry, height - o.ry);
        o.level = 2000.0 * std::pow(20.0, random.uniform()); // 2000 .. 40000 DN
        const double angle = random.uniform(0.0, 6.283185307179586);
        const double slope = random.uniform(0.2, 0.4) / std::max(o.rx, o.ry);
        o.gx = slope * std::cos(angle);
        o.gy = slope * std::sin(angle);
        o.period = random.uniform(3.0, 9.0);
        o.phase = random.uniform(0.0, 6.283185307179586);
        objects.push_back(o);
    }
    return objects;
}

// Coverage of a pixel by an object (1 inside, 0 outside, a one-pixel soft edge) and its signal there.
double objectSignal(const SceneObject &o, double x, double y, double &coverage) {
    const double dx = x - o.cx, dy = y - o.cy;
    double inside; // distance inside the edge, in pixels
    if (o.disc) {
        inside = o.rx - std::sqrt(dx * dx + dy * dy);
    } else {
        inside = std::min(o.rx - std::fabs(dx), o.ry - std::fabs(dy));
    }
    coverage = std::clamp(inside + 0.5, 0.0, 1.0);
    const double texture = 0.15 * std::sin(6.283185307179586 * (x + 0.5 * y) / o.period + o.phase);
    return o.level * (1.0 + o.gx * dx + o.gy * dy) * (1.0 + texture);
}

// Paints the objects (later ones in front) into a signal plane of width x height.
std::vector<double> paintObjects(int32_t width, int32_t height, const std::vector<SceneObject> &objects) {
    std::vector<double> signal(size_t(width) * size_t(height), 0.0);
    for (const SceneObject &o : objects) {
        const int x0 = std::max(0, int(o.cx - o.rx) - 1), x1 = std::min(width - 1, int(o.cx + o.rx) + 1);
        const int y0 = std::max(0, int(o.cy - o.ry) - 1), y1 = std::min(height - 1, int(o.cy + o.ry) + 1);
        for (int y = y0; y <= y1; ++y) {
            for (int x = x0; x <= x1; ++x) {
                double coverage = 0.0;
                const double value = objectSignal(o, x, y, coverage);
                double &s = signal[size_t(y) * width + x];
                s = s * (1.0 - coverage) + value * coverage;
            }
        }
    }
    return signal;
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

void saveImage(const tag_pxImage *image, const std::string &path, int32_t fileType, bool transform) {
    const bool encoded = fileType == CBIT || fileType == CSHORT || fileType == SHORT12;
    ImagePtr converted;
    if (!encoded && fileType != 0 && (fileType != image->type || transform)) {
        converted = convertImage(image, fileType, transform);
        image = converted.get();
    }
    checkEncodable(image, fileType, path);
    const std::string temp = partialName(path);
    createEmpty(temp, path);
    try {
        if (isOpenCvName(path)) {
            saveWithOpenCv(image, temp, path);
        } else {
            saveOurs(image, encoded ? fileType : 0, temp, path);
        }
    } catch (const cv::Exception &e) {
        std::remove(temp.c_str());
        throw Error(path + ": OpenCV could not write the image (" + e.err + ")");
    } catch (...) {
        std::remove(temp.c_str());
        throw;
    }
    if (std::rename(temp.c_str(), path.c_str()) != 0) {
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
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(path, error);
    if (!error && size < 512) {
        throw Error(path + ": not a pxImage file (" + std::to_string(size) +
                    " bytes, shorter than the 512-byte header block)");
    }
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

ImagePtr synthesizeFrame(int32_t width, int32_t height, uint32_t seed, int32_t significantBits) {
    if (significantBits < 1 || significantBits > 16) {
        throw Error("a frame needs 1..16 significant bits, not " + std::to_string(significantBits));
    }
    const double step = double(1 << (16 - significantBits)); // one step of the converter in 16-bit units
    FrameRandom random(seed);
    const std::vector<SceneObject> objects = makeObjects(width, height, random);
    const std::vector<double> signal = paintObjects(width, height, objects);
    tag_pxImage *raw = nullptr;
    if (!pxImageConstruct(SHORT, width, height, 0, 1, &raw)) {
        throw libraryFailure("cannot build a " + std::to_string(width) + " x " + std::to_string(height) +
                             " frame");
    }
    ImagePtr frame(raw);
    // Sensor model: 100 DN offset, dark current rising across the frame with amplifier glow in one corner,
    // column fixed pattern, shot noise at 1.5 DN per electron, 4 DN read noise; then the converter's steps.
    const double offset = 100.0, gain = 1.5, readNoise = 4.0;
    std::vector<double> columnPattern(static_cast<size_t>(width));
    for (double &c : columnPattern) {
        c = 1.5 * random.normal();
    }
    auto rows = reinterpret_cast<uint16_t **>(frame->pixMap[0]);
    for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < width; ++x) {
            const double glow = 40.0 * std::exp(-std::hypot(x, y) / 150.0);
            const double dark = 8.0 * (double(x) / width + double(y) / height) / 2.0 + glow;
            const double electrons = (signal[size_t(y) * width + x] + dark) / gain;
            const double sigma = std::sqrt(gain * gain * electrons + readNoise * readNoise);
            const double value = offset + columnPattern[x] + gain * electrons + sigma * random.normal();
            const double quantised = std::min(step * std::round(value / step), 65536.0 - step);
            rows[y][x] = static_cast<uint16_t>(std::max(quantised, 0.0));
        }
    }
    return frame;
}

} // namespace pximg
