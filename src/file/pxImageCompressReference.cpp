// The plain reference of the CSHORT compressor's stages, written as directly as the rules read: a full
// histogram, a 9 x 9 square marked around every bright pixel as it is met, and the runs grown one pixel at a
// time. The fast kernels are tested against it bit for bit.
#include "pxImageCompressInternal.h"
#include "pxImageFileInternal.h"

namespace pxcompress {
namespace {

const char *const MODULE = "pxImageCompress";

// The image as rows over the caller's contiguous buffer.
struct Plane {
    uint16_t *pixels;
    int64_t width;
    int64_t height;
    uint16_t *row(int64_t y) const { return pixels + y * width; }
};

bool onePercentLevel(const uint16_t *pixels, uint64_t n, int64_t *q) {
    *q = 0;
    const uint64_t target = n / 100;
    if (target == 0)
        return true;
    uint32_t *histogram = nullptr;
    if (!pxMallocInitZero(reinterpret_cast<void **>(&histogram), 65536 * sizeof(uint32_t))) {
        PX_TRACE(MODULE);
        return false;
    }
    for (uint64_t i = 0; i < n; ++i)
        ++histogram[pixels[i]];
    uint64_t sum = 0;
    for (int64_t value = 0; value < 65536; ++value) {
        sum += histogram[value];
        if (sum >= target) {
            *q = value + 1;
            break;
        }
    }
    pxMallocFree(reinterpret_cast<void **>(&histogram));
    return true;
}

// Sets bit 0 of the pixels of rows y0..y1, columns x0..x1, clipped to the image.
void protectRect(const Plane &plane, int64_t x0, int64_t x1, int64_t y0, int64_t y1) {
    x0 = x0 < 0 ? 0 : x0;
    y0 = y0 < 0 ? 0 : y0;
    x1 = x1 >= plane.width ? plane.width - 1 : x1;
    y1 = y1 >= plane.height ? plane.height - 1 : y1;
    for (int64_t y = y0; y <= y1; ++y) {
        uint16_t *row = plane.row(y);
        for (int64_t x = x0; x <= x1; ++x)
            row[x] |= 1;
    }
}

void protectSquare(const Plane &plane, int64_t x, int64_t y) {
    protectRect(plane, x - 4, x + 4, y - 4, y + 4);
}

// Method 1: the 9 x 9 neighbourhood of every pixel brighter than the brightness mark.
void protectBright(const Plane &plane, int64_t mark) {
    for (int64_t y = 5; y <= plane.height - 6; ++y) {
        for (int64_t x = 5; x <= plane.width - 6; ++x) {
            if (plane.row(y)[x] > mark)
                protectSquare(plane, x, y);
        }
    }
}

// Methods 2 and 3 on one row: at column x the pixels x - ratioWidth (left) and x + ratioWidth (right) are
// compared. A steep rise opens a stretch, a steep fall closes it and protects its columns widened by
// protectWidth over the nine rows centred on y; a stretch longer than maxProtectWidth, or one still open at
// the end of the row, is dropped. With `bright` set, bright pixels met in the scan protect their 9 x 9
// neighbourhood as in method 1.
void protectEdgesOfRow(const Plane &plane, int64_t y, const Settings &s, int64_t mark, bool bright) {
    const int64_t reach = s.ratioWidth < 0 ? 0 : s.ratioWidth;
    const int64_t widen = truncateSaturated(s.protectWidth);
    bool open = false;
    int64_t rise = 0;
    for (int64_t x = 5; x <= plane.width - 6; ++x) {
        if (bright && plane.row(y)[x] > mark)
            protectSquare(plane, x, y);
        if (x - reach < 0 || x + reach >= plane.width)
            continue;
        const float left = plane.row(y)[x - reach];
        const float right = plane.row(y)[x + reach];
        if (!open) {
            if (right > s.ratioTh * left) {
                open = true;
                rise = x;
            }
            continue;
        }
        if (x - rise > s.maxProtectWidth) {
            open = false;
        } else if (left / s.ratioTh > right) {
            protectRect(plane, rise - widen, x + widen, y - 4, y + 4);
            open = false;
        }
    }
}

void protect(uint16_t *pixels, int64_t width, int64_t height, const Settings &s, int64_t mark, uint16_t *) {
    const Plane plane{pixels, width, height};
    switch (s.protectionMethod) {
    case 1:
        protectBright(plane, mark);
        break;
    case 2:
    case 3:
        for (int64_t y = 5; y <= height - 6; ++y)
            protectEdgesOfRow(plane, y, s, mark, s.protectionMethod == 3);
        break;
    default:
        break;
    }
}

void formRuns(uint16_t *pixels, uint64_t n, int64_t baseline, const Settings &s, RunWriter &out) {
    Range range{(int64_t)pixels[0] - s.diffLow, (int64_t)pixels[0] + s.diffLow};
    uint32_t length = 1;
    for (uint64_t i = 1; i < n; ++i) {
        const int64_t p = pixels[i];
        if ((p & 1) == 0 && p >= range.low && p <= range.high && length < kLongestRun) {
            ++length;
            continue;
        }
        pixels[i] = (uint16_t)(p & ~3);
        emit(out, length, pixels[i - 1]);
        length = 1;
        range = rangeOf(pixels[i], baseline, s);
    }
    emit(out, length, pixels[n - 1]);
}

} // namespace

const Kernels kReference = {onePercentLevel, protect, formRuns};

} // namespace pxcompress
