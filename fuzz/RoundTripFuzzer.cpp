// libFuzzer target: write-then-read round trips. The input chooses the encoding (plain, CBIT, CSHORT, SHORT12
// or the SHORT <-> FLOAT transform), pixel type, size, planes, border, region of interest, every header
// field, the nine compressor settings and the pixels. The image is written with the checked write and read
// back: lossless encodings must return every pixel and header field exactly, lossy ones within their error; a
// refused write must leave no file; everything allocated is freed.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#include "FuzzInput.h"
#include "file/pxImageFileInternal.h"
#include "pxEnv.h"
#include "pxImage.h"

namespace {

using pxfuzz::Input;

enum Encoding { PLAIN, ENC_CBIT, ENC_CSHORT, ENC_SHORT12, TRANSFORM, ENCODINGS };

// What the input asks for.
struct Case {
    Encoding encoding;
    int32_t type; // in-memory type of the image written
    int32_t width, height, planes, border;
    bool wrongSource; // an encoded write from a type the encoding does not take
    bool badSetting;  // one compressor setting is text that does not parse
};

const int32_t PLAIN_TYPES[] = {UBYTE, SHORT, INT, FLOAT, DOUBLE};

int32_t sourceTypeOf(Encoding e) {
    return e == ENC_CBIT ? UBYTE : e == TRANSFORM ? FLOAT : SHORT;
}

int32_t writeTypeOf(const Case &c) {
    switch (c.encoding) {
    case ENC_CBIT:
        return CBIT;
    case ENC_CSHORT:
        return CSHORT;
    case ENC_SHORT12:
        return SHORT12;
    case TRANSFORM:
        return SHORT;
    default:
        return 0;
    }
}

bool encoded(Encoding e) {
    return e == ENC_CBIT || e == ENC_CSHORT || e == ENC_SHORT12;
}

Case readCase(Input &in) {
    Case c{};
    c.encoding = (Encoding)(in.byte() % ENCODINGS);
    const uint8_t shape = in.byte();
    const bool large = c.encoding == ENC_CSHORT && (shape & 0x80) != 0; // long runs: up to 300 x 240
    c.width = 1 + in.raw<uint16_t>() % (large ? 300 : 40);
    c.height = 1 + in.raw<uint16_t>() % (large ? 240 : 40);
    c.planes = 1 + (shape & 3) % 3;
    c.border = (shape >> 2) & 3;
    const bool misuse = (shape & 0x30) == 0x30; // a quarter of the encoded cases keep what they cannot hold
    if (encoded(c.encoding) && !misuse) {
        c.planes = 1;
        c.border = 0;
    }
    c.wrongSource = encoded(c.encoding) && misuse && (shape & 0x40) != 0;
    c.type = c.encoding == PLAIN ? PLAIN_TYPES[in.byte() % 5] : sourceTypeOf(c.encoding);
    if (c.wrongSource)
        c.type = c.type == UBYTE ? SHORT : UBYTE;
    return c;
}

// ---- Compressor settings -------------------------------------------------------------------------------

struct Settings {
    int diffLow, diffHigh, blAddOn, ratioWidth, maxProtectWidth, method;
    float blFactor, protectWidth, ratioTh;
};

// Mostly the defaults nudged, sometimes any value; the compressor reads them afresh for this input.
Settings chooseSettings(Input &in, bool badSetting) {
    const uint8_t mode = in.byte();
    Settings s{128, 4, 800, 1, 80, 3, 1.05f, 4.0f, 2.0f};
    if (mode & 1) {
        s.diffLow = in.small();
        s.diffHigh = in.small();
        s.blAddOn = in.small() * 4;
        s.ratioWidth = in.byte() % 8;
        s.maxProtectWidth = in.small();
        s.method = in.byte() % 5;
        s.blFactor = in.byte() / 64.0f;
        s.protectWidth = in.byte() / 8.0f;
        s.ratioTh = in.byte() / 32.0f;
    }
    if (mode & 2) { // extreme values
        s.diffLow = in.raw<int32_t>();
        s.blAddOn = in.raw<int32_t>();
        s.ratioWidth = in.raw<int32_t>();
        s.blFactor = in.raw<float>();
        s.protectWidth = in.raw<float>();
    }
    pxEnvClearParams();
    char text[64];
    const std::pair<const char *, int> ints[] = {{"pxImageCFLSDiffLow", s.diffLow},
                                                 {"pxImageCFLSDiffHigh", s.diffHigh},
                                                 {"pxImageCFLSBLAddOn", s.blAddOn},
                                                 {"pxImageCFLSratioWidth", s.ratioWidth},
                                                 {"pxImageCFLSmaxProtectWidth", s.maxProtectWidth},
                                                 {"pxImageCFLSprotectionMethod", s.method}};
    for (const auto &key : ints) {
        snprintf(text, sizeof text, "%d", key.second);
        pxEnvSetParam(key.first, text);
    }
    const std::pair<const char *, float> floats[] = {{"pxImageCFLSBLfactor", s.blFactor},
                                                     {"pxImageCFLSprotectWidth", s.protectWidth},
                                                     {"pxImageCFLSratioTh", s.ratioTh}};
    for (const auto &key : floats) {
        snprintf(text, sizeof text, "%.9g", (double)key.second);
        pxEnvSetParam(key.first, text);
    }
    if (badSetting)
        pxEnvSetParam("pxImageCFLSDiffHigh", "4x");
    // The compressor keeps its settings for the life of the process; make it read these.
    pxImageCompressResetSettings();
    return s;
}

// Whether the compressor can read every setting (a float written as "nan" or "inf" may not parse).
bool settingsReadable() {
    int i;
    float f;
    const char *ints[] = {"pxImageCFLSDiffLow",         "pxImageCFLSDiffHigh",
                          "pxImageCFLSBLAddOn",         "pxImageCFLSratioWidth",
                          "pxImageCFLSmaxProtectWidth", "pxImageCFLSprotectionMethod"};
    const char *floats[] = {"pxImageCFLSBLfactor", "pxImageCFLSprotectWidth", "pxImageCFLSratioTh"};
    for (const char *key : ints)
        if (!pxEnvGetParam2int(key, 0, &i))
            return false;
    for (const char *key : floats)
        if (!pxEnvGetParam2float(key, 0.0f, &f))
            return false;
    return true;
}

// Largest difference between a CSHORT pixel read back and the pixel the compressor left in memory: every
// pixel of a run lies in the range opened by its first pixel (tolerance DiffLow or DiffHigh on either side),
// and the run reads back as its last pixel.
int64_t cshortTolerance(const Settings &s) {
    int64_t widest = 0;
    for (int64_t d : {(int64_t)s.diffLow, (int64_t)s.diffHigh})
        widest = d > widest ? d : widest;
    return 2 * widest;
}

// ---- The image -----------------------------------------------------------------------------------------

// Byte `index` of a pixel of block number `block`: multi-byte pixels get a top byte of 0x40..0x47, so that
// neighbouring blocks differ by less than a factor of two (the compressor's default edge protection stays
// off) and, with bit 0 clear (a set bit 0 marks a pixel the compressor must not merge), compress to one run
// each; bytes get zero on every other block, for CBIT.
uint8_t blockByte(int32_t block, int32_t index, int32_t size) {
    if (size == 1)
        return (block & 1) != 0 ? (uint8_t)(block * 37) : 0;
    return index == size - 1 ? (uint8_t)(0x40 + (block & 7)) : (uint8_t)(block * 36);
}

// Fills every pixel of every plane: from the remaining input bytes (cyclically), as flat blocks, or as
// seeded noise, so that small inputs still make large images.
void fillPixels(Input &in, tag_pxImage *image) {
    const uint8_t mode = in.byte() % 3;
    uint32_t state = in.raw<uint32_t>() | 1;
    size_t count = 0;
    const uint8_t *bytes = in.rest(&count);
    uint32_t pixelSize = 0;
    pxImagePixelSize(image->type, &pixelSize);
    const int32_t size = (int32_t)pixelSize;
    size_t at = 0;
    for (int32_t p = 0; p < image->planes; ++p)
        for (int32_t y = -image->border; y < image->height + image->border; ++y) {
            uint8_t *row = static_cast<uint8_t *>(image->pixMap[p][y]) - (size_t)image->border * size;
            for (int32_t x = 0; x < (image->width + 2 * image->border) * size; ++x) {
                uint8_t value;
                if (mode == 0 && count > 0) {
                    value = bytes[at++ % count];
                } else if (mode == 1) {
                    value = blockByte((x / size) / 7 + y / 5 + p, x % size, size);
                } else {
                    state ^= state << 13;
                    state ^= state >> 17;
                    state ^= state << 5;
                    value = (uint8_t)state;
                }
                row[x] = value;
            }
        }
}

// FLOAT pixels for the transform: mostly values of about 0..300, so that the scaling is exercised rather
// than the clamp; raw bits (NaN, infinities, huge values) stay where the input mode asked for them.
void tameFloats(tag_pxImage *image, bool keepRaw) {
    if (keepRaw)
        return;
    for (int32_t p = 0; p < image->planes; ++p)
        for (int32_t y = 0; y < image->height; ++y) {
            float *row = static_cast<float *>(image->pixMap[p][y]);
            for (int32_t x = 0; x < image->width; ++x) {
                uint32_t bits;
                memcpy(&bits, &row[x], 4);
                row[x] = (float)(bits % 65536) / 200.0f - 20.0f;
            }
        }
}

// Header fields: everything from the input when asked, else a region of interest inside the image.
void fillHeader(Input &in, tag_pxImage *image) {
    const uint8_t mode = in.byte();
    image->roiminX = (mode & 2) ? in.small() : in.byte() % image->width;
    image->roiminY = (mode & 2) ? in.small() : in.byte() % image->height;
    image->roimaxX =
        (mode & 2) ? in.small() : image->roiminX + 1 + in.byte() % (image->width - image->roiminX);
    image->roimaxY =
        (mode & 2) ? in.small() : image->roiminY + 1 + in.byte() % (image->height - image->roiminY);
    if (!(mode & 1))
        return;
    image->origX = in.small();
    image->origY = in.small();
    image->origWidth = in.small() * ((mode & 4) ? 1 : 3);
    image->origHeight = in.small() * ((mode & 4) ? 1 : 3);
    image->auxInt = in.raw<int32_t>();
    for (int32_t &v : image->auxShort)
        v = in.raw<int32_t>();
    for (float &v : image->temperature)
        v = in.raw<float>();
    for (double &v : image->opticsParam)
        v = in.raw<double>();
    for (double *v : {&image->aberK1, &image->aberK2, &image->aberK3, &image->aberP1, &image->aberP2,
                      &image->aberCx, &image->aberCy})
        *v = in.raw<double>();
    image->auxWide = in.raw<int64_t>();
    for (int32_t &v : image->auxInt2)
        v = in.raw<int32_t>();
    for (int32_t &v : image->auxLong)
        v = in.raw<int32_t>();
}

// The pixels of every plane in a record of their own (the library's same-type copy leaves out the last
// `border` columns of each row, so it cannot serve as the reference).
tag_pxImage *copyOf(const tag_pxImage *image) {
    tag_pxImage *copy = nullptr;
    if (!pxImageConstruct(image->type, image->width, image->height, 0, image->planes, &copy))
        abort();
    uint32_t size = 0;
    pxImagePixelSize(image->type, &size);
    for (int32_t p = 0; p < image->planes; ++p)
        for (int32_t y = 0; y < image->height; ++y)
            memcpy(copy->pixMap[p][y], image->pixMap[p][y], (size_t)image->width * size);
    return copy;
}

// ---- Checks ------------------------------------------------------------------------------------------

// Stops the run at a failed expectation, naming the line of this file that expected it.
void check(bool condition, int line = __builtin_LINE()) {
    if (!condition) {
        fprintf(stderr, "round trip: expectation of line %d failed\n", line);
        abort();
    }
}

// Set by the log sink when the compressor refuses an image that does not compress.
bool compressorRefused = false;

void sink(void *, int, int, int, const char *, const char *, uint32_t, const char *text) {
    if (text != nullptr && strncmp(text, "Images size is too large", 24) == 0)
        compressorRefused = true;
}

// One temporary file per process, rewritten for every input.
const std::string &scratchPath() {
    static const std::string path = [] {
        const char *dir = getenv("TMPDIR");
        return std::string(dir != nullptr ? dir : "/tmp") + "/pxImageRoundTrip_" + std::to_string(getpid());
    }();
    return path;
}

const uint16_t *scratchName() {
    static const std::u16string wide(scratchPath().begin(), scratchPath().end());
    return reinterpret_cast<const uint16_t *>(wide.c_str());
}

bool scratchExists() {
    return access(scratchPath().c_str(), F_OK) == 0;
}

// The header fields as the file holds them: the writer's corrections of region and origin (the image
// keeps its own values), then 16 bits for those eight fields (unsigned) and the aux shorts (signed).
tag_pxImage expectedHeader(const tag_pxImage &image) {
    tag_pxImage e = image;
    e.roiminY = image.roiminY < 0 ? 0 : image.roiminY;
    e.roimaxY = image.roimaxY > image.height ? image.height : image.roimaxY;
    e.roiminX = image.roiminX < 0 ? 0 : image.roiminX;
    e.roimaxX = image.roimaxX > image.width ? image.width : image.roimaxX;
    e.origWidth = image.origWidth < 0 ? 0 : image.origWidth > 10000 ? 10000 : image.origWidth;
    e.origHeight = image.origHeight < 0 ? 0 : image.origHeight > 10000 ? 10000 : image.origHeight;
    e.origX = image.origX < 0 ? 0 : image.origX;
    e.origY = image.origY < 0 ? 0 : image.origY;
    for (int32_t *v :
         {&e.roiminX, &e.roimaxX, &e.roiminY, &e.roimaxY, &e.origX, &e.origY, &e.origWidth, &e.origHeight})
        *v = (uint16_t)*v;
    for (int32_t &v : e.auxShort)
        v = (int16_t)(uint16_t)v;
    return e;
}

// Every header field but the pixel maps, bit for bit (floats and doubles as stored, NaNs included).
void checkHeader(const tag_pxImage &expected, const tag_pxImage &back) {
    check(back.width == expected.width && back.height == expected.height && back.planes == expected.planes);
    check(back.roiminX == expected.roiminX && back.roimaxX == expected.roimaxX);
    check(back.roiminY == expected.roiminY && back.roimaxY == expected.roimaxY);
    check(back.origX == expected.origX && back.origY == expected.origY);
    check(back.origWidth == expected.origWidth && back.origHeight == expected.origHeight);
    check(back.auxInt == expected.auxInt && back.auxWide == expected.auxWide);
    check(memcmp(back.auxShort, expected.auxShort, sizeof back.auxShort) == 0);
    check(memcmp(back.auxInt2, expected.auxInt2, sizeof back.auxInt2) == 0);
    check(memcmp(back.auxLong, expected.auxLong, sizeof back.auxLong) == 0);
    check(memcmp(back.temperature, expected.temperature, sizeof back.temperature) == 0);
    check(memcmp(back.opticsParam, expected.opticsParam, sizeof back.opticsParam) == 0);
    const double *a[] = {&back.aberK1, &back.aberK2, &back.aberK3, &back.aberP1,
                         &back.aberP2, &back.aberCx, &back.aberCy};
    const double *b[] = {&expected.aberK1, &expected.aberK2, &expected.aberK3, &expected.aberP1,
                         &expected.aberP2, &expected.aberCx, &expected.aberCy};
    for (int i = 0; i < 7; ++i)
        check(memcmp(a[i], b[i], sizeof(double)) == 0);
}

template <typename T> T at(const tag_pxImage *image, int32_t p, int32_t x, int32_t y) {
    return static_cast<const T *>(image->pixMap[p][y])[x];
}

// The SHORT value that the scaled conversion makes of a FLOAT, back as the FLOAT it reads as.
float transformed(float v) {
    const float product = v * 256.98822f;
    const double rounded = product > 0 ? (double)product + 0.5 : (double)product - 0.5;
    int64_t s = rounded >= -2147483648.0 && rounded < 2147483648.0 ? (int64_t)rounded : INT32_MIN;
    s = s < 0 ? 0 : s > 65535 ? 65535 : s;
    return (float)s * 0.0038912287f;
}

// The pixels read back against the image before the write (`original`) and after it (`written`, which the
// CSHORT compressor changed in place).
void checkPixels(const Case &c, const Settings &s, const tag_pxImage *original, const tag_pxImage *written,
                 const tag_pxImage *back) {
    uint32_t size = 0;
    pxImagePixelSize(c.type, &size);
    const int64_t tolerance = cshortTolerance(s);
    for (int32_t p = 0; p < c.planes; ++p)
        for (int32_t y = 0; y < c.height; ++y) {
            if (c.encoding == PLAIN) {
                check(memcmp(original->pixMap[p][y], back->pixMap[p][y], (size_t)c.width * size) == 0);
                continue;
            }
            for (int32_t x = 0; x < c.width; ++x) {
                switch (c.encoding) {
                case ENC_CBIT:
                    check(at<uint8_t>(back, p, x, y) == (at<uint8_t>(original, p, x, y) != 0 ? 255 : 0));
                    break;
                case ENC_SHORT12:
                    check(at<uint16_t>(back, p, x, y) == ((at<uint16_t>(original, p, x, y) & 0xFFF0) | 12));
                    break;
                case ENC_CSHORT: {
                    const int64_t value = at<uint16_t>(back, p, x, y);
                    check(std::llabs(value - at<uint16_t>(written, p, x, y)) <= tolerance);
                    check(std::llabs(value - at<uint16_t>(original, p, x, y)) <= tolerance + 3);
                    break;
                }
                default: // TRANSFORM: within one step of the scale (the rounding may fall either way)
                    check(std::fabs(at<float>(back, p, x, y) - transformed(at<float>(original, p, x, y))) <=
                          0.0039f);
                    break;
                }
            }
        }
}

// Reads the region of interest alone (mode 2). A plain file gives the region's pixels exactly when the
// region it holds lies inside the image; encoded data read that way must fail or succeed cleanly.
void checkRegionRead(const Case &c, const tag_pxImage &expected, const tag_pxImage *original) {
    tag_pxImage *region = nullptr;
    const bool inside = expected.roiminX < expected.roimaxX && expected.roimaxX <= c.width &&
                        expected.roiminY < expected.roimaxY && expected.roimaxY <= c.height;
    const uint32_t ok = pxImageReadWithROI(scratchName(), 0, 0, 2, &region);
    check(ok == 1 || region == nullptr);
    if (c.encoding == PLAIN) {
        check(ok == (inside ? 1u : 0u));
        if (ok) {
            check(region->width == expected.roimaxX - expected.roiminX);
            check(region->height == expected.roimaxY - expected.roiminY);
            uint32_t size = 0;
            pxImagePixelSize(c.type, &size);
            for (int32_t p = 0; p < c.planes; ++p)
                for (int32_t y = 0; y < region->height; ++y)
                    check(memcmp(region->pixMap[p][y],
                                 static_cast<const uint8_t *>(original->pixMap[p][y + expected.roiminY]) +
                                     (size_t)expected.roiminX * size,
                                 (size_t)region->width * size) == 0);
        }
    }
    pxImageDestruct(&region);
}

void checkReadBack(Input &in, const Case &c, const Settings &s, const tag_pxImage *original,
                   const tag_pxImage *written) {
    const int32_t border = c.encoding == PLAIN ? in.byte() % 3 : 0;
    tag_pxImage *back = nullptr;
    const uint32_t ok = c.encoding == TRANSFORM
                            ? pxImageReadWithROIandTransform(scratchName(), FLOAT, border, 0, 1, &back)
                            : pxImageRead(scratchName(), 0, border, &back);
    check(ok == 1 && back != nullptr);
    const int32_t readType = c.encoding == ENC_CBIT    ? UBYTE
                             : c.encoding == PLAIN     ? c.type
                             : c.encoding == TRANSFORM ? FLOAT
                                                       : SHORT;
    const int32_t writeType = writeTypeOf(c);
    check(back->type == readType && back->border == border);
    check(back->origType == (writeType != 0 ? writeType : c.type));
    const tag_pxImage expected = expectedHeader(*written);
    checkHeader(expected, *back);
    checkPixels(c, s, original, written, back);
    pxImageDestruct(&back);
    if (c.encoding != TRANSFORM)
        checkRegionRead(c, expected, original);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    pxEnvSetLogSink(&sink, nullptr);
    Input in(data, size);
    const Case c = readCase(in);
    const bool badSetting = c.encoding == ENC_CSHORT && (in.byte() & 0x0F) == 0x0F;
    const Settings s = chooseSettings(in, badSetting);
    const long live = pxEnvLiveAllocations();

    tag_pxImage *image = nullptr;
    check(pxImageConstruct(c.type, c.width, c.height, c.border, c.planes, &image) == 1);
    fillHeader(in, image);
    const uint8_t pixelMode = in.byte();
    fillPixels(in, image);
    if (c.encoding == TRANSFORM)
        tameFloats(image, (pixelMode & 7) == 7);
    tag_pxImage *original = copyOf(image);

    unlink(scratchPath().c_str());
    compressorRefused = false;
    const uint32_t written = pxImageWriteWithTransformChecked(scratchName(), writeTypeOf(c),
                                                              c.encoding == TRANSFORM ? 1 : 0, image);
    const bool misuse = encoded(c.encoding) && (c.planes > 1 || c.border > 0 || c.wrongSource);
    const bool unreadableSettings = c.encoding == ENC_CSHORT && !settingsReadable();
    if (misuse || unreadableSettings) {
        check(written == 0 && !scratchExists());
    } else if (written == 0) {
        // Only the compressor may refuse a sound request, for an image that does not compress.
        check(c.encoding == ENC_CSHORT && compressorRefused && !scratchExists());
    } else {
        checkReadBack(in, c, s, original, image);
    }
    pxImageDestruct(&original);
    pxImageDestruct(&image);
    check(pxEnvLiveAllocations() == live);
    pxEnvClearParams();
    return 0;
}
