// The lossy run-length compressor of 16-bit images (CSHORT data). Dark background is merged into runs with a
// wide tolerance, bright content with a narrow one; protected pixels (steep edges and bright spots) are never
// merged. The settings come from the environment's named parameters, once per process.
#include "pxImageFileInternal.h"

namespace {

const char *const MODULE = "pxImageCompress";

struct Settings {
    int diffLow;
    int diffHigh;
    int blAddOn;
    float blFactor;
    float protectWidth;
    float ratioTh;
    int ratioWidth;
    int maxProtectWidth;
    int protectionMethod;
};

bool settingsRead = false;
Settings settings;

// Reads the nine settings on the first call and keeps them; absent keys take their defaults. A key that is
// present but does not parse fails the read (and the call that needed it); it is read again next time.
const Settings *currentSettings() {
    if (settingsRead)
        return &settings;
    Settings s;
    const bool ok = pxEnvGetParam2int("pxImageCFLSDiffLow", 128, &s.diffLow) &&
                    pxEnvGetParam2int("pxImageCFLSDiffHigh", 4, &s.diffHigh) &&
                    pxEnvGetParam2int("pxImageCFLSBLAddOn", 800, &s.blAddOn) &&
                    pxEnvGetParam2float("pxImageCFLSBLfactor", 1.05f, &s.blFactor) &&
                    pxEnvGetParam2float("pxImageCFLSprotectWidth", 4.0f, &s.protectWidth) &&
                    pxEnvGetParam2float("pxImageCFLSratioTh", 2.0f, &s.ratioTh) &&
                    pxEnvGetParam2int("pxImageCFLSratioWidth", 1, &s.ratioWidth) &&
                    pxEnvGetParam2int("pxImageCFLSmaxProtectWidth", 80, &s.maxProtectWidth) &&
                    pxEnvGetParam2int("pxImageCFLSprotectionMethod", 3, &s.protectionMethod);
    if (!ok)
        return nullptr;
    settings = s;
    settingsRead = true;
    return &settings;
}

// Truncates a setting-derived value toward zero; values beyond +-2^62 saturate and NaN gives 0, so that
// extreme settings cannot make the conversion undefined (the regions they widen are clipped to the image).
int64_t truncateSaturated(double value) {
    constexpr double LIMIT = 4611686018427387904.0; // 2^62
    if (!(value == value))
        return 0;
    if (value > LIMIT)
        return (int64_t)LIMIT;
    if (value < -LIMIT)
        return -(int64_t)LIMIT;
    return (int64_t)value;
}

// The image as rows over the caller's contiguous buffer.
struct Plane {
    uint16_t *pixels;
    int64_t width;
    int64_t height;
    uint16_t *row(int64_t y) const { return pixels + y * width; }
};

// The 1 % level: one more than the first value at which the cumulative histogram reaches n / 100.
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

void protectPixels(const Plane &plane, const Settings &s, int64_t mark) {
    switch (s.protectionMethod) {
    case 1:
        protectBright(plane, mark);
        break;
    case 2:
    case 3:
        for (int64_t y = 5; y <= plane.height - 6; ++y)
            protectEdgesOfRow(plane, y, s, mark, s.protectionMethod == 3);
        break;
    default:
        break;
    }
}

// The output pairs; once the limit of words is reached, further pairs are only counted.
struct RunWriter {
    uint16_t *words;
    uint64_t capacity;
    uint64_t used;
    void emit(uint32_t length, uint16_t value) {
        if (used + 2 <= capacity) {
            words[used] = (uint16_t)length;
            words[used + 1] = value;
        }
        used += 2;
    }
};

struct Range {
    int64_t low;
    int64_t high;
};

Range rangeOf(int64_t p, int64_t baseline, const Settings &s) {
    if (p > baseline)
        return {p - s.diffHigh, p + s.diffHigh};
    return {p - s.diffLow, p + s.diffLow > baseline ? p + s.diffHigh : p + s.diffLow};
}

void formRuns(uint16_t *pixels, uint64_t n, int64_t baseline, const Settings &s, RunWriter &out) {
    Range range{(int64_t)pixels[0] - s.diffLow, (int64_t)pixels[0] + s.diffLow};
    uint32_t length = 1;
    for (uint64_t i = 1; i < n; ++i) {
        const int64_t p = pixels[i];
        if ((p & 1) == 0 && p >= range.low && p <= range.high && length < 65534) {
            ++length;
            continue;
        }
        pixels[i] = (uint16_t)(p & ~3);
        out.emit(length, pixels[i - 1]);
        length = 1;
        range = rangeOf(pixels[i], baseline, s);
    }
    out.emit(length, pixels[n - 1]);
}

} // namespace

void pxImageCompressResetSettings() {
    settingsRead = false;
}

uint32_t pxImageCompressShort(uint16_t *pixels, int32_t width, int32_t height, uint16_t **words,
                              uint32_t *count) {
    const Settings *settingsInUse = currentSettings();
    if (!settingsInUse) {
        PX_TRACE(MODULE);
        return 0;
    }
    const Settings &s = *settingsInUse;
    const uint64_t n = (uint64_t)width * (uint64_t)height;
    const uint64_t limit = (3 * n) / 4;
    if (!pxMallocNoInit(reinterpret_cast<void **>(words), (limit + 2) * sizeof(uint16_t))) {
        PX_TRACE(MODULE);
        return 0;
    }
    int64_t q;
    if (!onePercentLevel(pixels, n, &q)) {
        pxMallocFree(reinterpret_cast<void **>(words));
        return 0;
    }
    const int64_t baseline = truncateSaturated((float)q * s.blFactor) + s.blAddOn;
    protectPixels(Plane{pixels, width, height}, s, baseline + 4500);
    RunWriter out{*words, limit, 0};
    formRuns(pixels, n, baseline, s, out);
    if (out.used > limit) {
        PX_WARN(3, MODULE, "Images size is too large %d", (int)(out.used * 2));
        pxMallocFree(reinterpret_cast<void **>(words));
        return 0;
    }
    *count = (uint32_t)out.used;
    return 1;
}
