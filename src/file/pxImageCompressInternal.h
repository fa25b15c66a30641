// The stages of the lossy CSHORT compressor, shared by its plain reference and its fast kernels: the 1 %
// level of the histogram, the protection of steep edges and bright spots (bit 0 of a pixel) and the forming
// of (count, value) runs. Every level of the kernels gives the same pixels and the same words as the plain
// reference.
#pragma once

#include <cstdint>

namespace pxcompress {

// The nine settings of the compressor, as read from the environment's named parameters.
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

// The helpers below are static: the kernels of each instruction level are compiled with that level's
// options, and a shared out-of-line copy could carry one level's instructions into another's code.

// Truncates a setting-derived value toward zero; values beyond +-2^62 saturate and NaN gives 0, so that
// extreme settings cannot make the conversion undefined (the regions they widen are clipped to the image).
static inline int64_t truncateSaturated(double value) {
    constexpr double LIMIT = 4611686018427387904.0; // 2^62
    if (!(value == value))
        return 0;
    if (value > LIMIT)
        return (int64_t)LIMIT;
    if (value < -LIMIT)
        return -(int64_t)LIMIT;
    return (int64_t)value;
}

// The output pairs; once the limit of words is reached, further pairs are only counted.
struct RunWriter {
    uint16_t *words;
    uint64_t capacity;
    uint64_t used;
};

static inline void emit(RunWriter &out, uint32_t length, uint16_t value) {
    if (out.used + 2 <= out.capacity) {
        out.words[out.used] = (uint16_t)length;
        out.words[out.used + 1] = value;
    }
    out.used += 2;
}

// The values a run opened by pixel p may take: a wide tolerance at or below the baseline, a narrow one above
// it, and the narrow one upwards where the wide one would reach above the baseline.
struct Range {
    int64_t low;
    int64_t high;
};

static inline Range rangeOf(int64_t p, int64_t baseline, const Settings &s) {
    if (p > baseline)
        return {p - s.diffHigh, p + s.diffHigh};
    return {p - s.diffLow, p + s.diffLow > baseline ? p + s.diffHigh : p + s.diffLow};
}

// Rows of scratch (of width words each) that protection may use.
constexpr int64_t kProtectScratchRows = 5;

// A run never grows past this many pixels.
constexpr uint32_t kLongestRun = 65534;

// The three stages of one implementation.
struct Kernels {
    // The 1 % level of n pixels: one more than the first value at which the cumulative histogram reaches
    // n / 100 (0 below 100 pixels). O(n). False (traced) when the scratch memory cannot be allocated.
    bool (*onePercentLevel)(const uint16_t *pixels, uint64_t n, int64_t *q);
    // Sets bit 0 of the protected pixels of the width x height image, in place (rows 5..height-6 and columns
    // 5..width-6 are examined, in row order, each reading the pixels as the earlier ones left them).
    // `scratch` holds kProtectScratchRows x width words, all zero, and is left all zero; it is not touched
    // when no row is examined (height under 11). O(pixels) for the fast kernels.
    void (*protect)(uint16_t *pixels, int64_t width, int64_t height, const Settings &s, int64_t mark,
                    uint16_t *scratch);
    // Forms the runs of n >= 1 pixels in order, clearing the two low bits of each pixel that opens a run
    // after the first. O(n).
    void (*formRuns)(uint16_t *pixels, uint64_t n, int64_t baseline, const Settings &s, RunWriter &out);
};

// The plain reference: each stage written as directly as it reads.
extern const Kernels kReference;

// Instruction-set levels of the fast kernels: plain C++, then vectors of 16, 32 and 64 bytes.
enum Level { kPortable = 0, kSse2 = 1, kAvx2 = 2, kAvx512 = 3 };

// The fast kernels of one level, or null when the level is not built for this target or this processor lacks
// its instructions; O(1) after the first call.
const Kernels *kernelsAt(int level);
// The fast kernels of the highest level this processor runs, chosen once.
const Kernels &kernelsBest();

// The levels as built (each in a file of its own; null when not built for this target).
const Kernels *kernelsPortable();
const Kernels *kernelsSse2();
const Kernels *kernelsAvx2();
const Kernels *kernelsAvx512();

// The whole compressor with the given kernels (pxImageCompressShort uses kernelsBest()); for the tests that
// compare the levels with the reference.
uint32_t compressWith(const Kernels &kernels, uint16_t *pixels, int32_t width, int32_t height,
                      uint16_t **words, uint32_t *count);

} // namespace pxcompress
