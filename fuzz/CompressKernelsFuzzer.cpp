// libFuzzer target: the CSHORT compressor's fast kernels against its plain reference. The input chooses the
// nine settings (odd values from a menu, or raw), the image size, a palette of sixteen pixel values and the
// pixels as repeated palette entries, and how many words the writer may keep. Every instruction level this
// processor runs must give the reference's 1 % level, protected pixels, pixels after the runs and words, bit
// for bit; a difference aborts.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "FuzzInput.h"
#include "file/pxImageCompressInternal.h"

using namespace pxcompress;
using pxfuzz::Input;

namespace {

Settings settingsOf(Input &in) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    Settings s;
    s.protectionMethod = in.choose<int>({3, 1, 2, 0, 4, -1});
    s.diffLow = in.choose<int>({128, 0, 1, 3, -5, 70000, -70000, 2147483647});
    s.diffHigh = in.choose<int>({4, 0, 2, 200, -1, 70000, -2147483647});
    s.blAddOn = in.choose<int>({800, 0, -2000, 4600, 60000, 2147483647, -2147483647});
    s.blFactor = in.choose<float>({1.05f, 0.0f, 1.0f, -1.0f, 1e30f, nan});
    s.protectWidth = in.choose<float>({4.0f, 0.0f, 0.9f, -3.0f, 40.0f, 1e30f, -1e30f, nan});
    s.ratioTh = in.choose<float>({2.0f, 1.0f, 1.01f, 0.5f, 0.0f, -1.0f, 100.0f, nan, inf});
    s.ratioWidth = in.choose<int>({1, 0, 2, 4, 5, 6, 9, 50, -3, 2147483647});
    s.maxProtectWidth = in.choose<int>({80, 0, 1, 5, 17, -1, -100, 2147483647});
    return s;
}

struct Result {
    bool levelOk = false;
    int64_t q = -1;
    std::vector<uint16_t> protectedPixels, finalPixels, words;
    uint64_t used = 0;
};

Result run(const Kernels &k, const std::vector<uint16_t> &image, int width, int height, const Settings &s,
           uint64_t capacity) {
    Result r;
    std::vector<uint16_t> pixels = image;
    r.levelOk = k.onePercentLevel(pixels.data(), pixels.size(), &r.q);
    const int64_t baseline = truncateSaturated((float)r.q * s.blFactor) + s.blAddOn;
    std::vector<uint16_t> scratch((size_t)(kProtectScratchRows * width), 0);
    k.protect(pixels.data(), width, height, s, baseline + 4500, scratch.data());
    for (uint16_t w : scratch)
        if (w != 0)
            std::abort();
    r.protectedPixels = pixels;
    r.words.assign(capacity + 2, 0xABCD);
    RunWriter out{r.words.data(), capacity, 0};
    k.formRuns(pixels.data(), pixels.size(), baseline, s, out);
    r.used = out.used;
    r.finalPixels = pixels;
    return r;
}

bool same(const Result &a, const Result &b) {
    return a.levelOk == b.levelOk && a.q == b.q && a.protectedPixels == b.protectedPixels &&
           a.finalPixels == b.finalPixels && a.used == b.used && a.words == b.words;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input in(data, size);
    const Settings s = settingsOf(in);
    const int width = 1 + in.raw<uint16_t>() % 300;
    const int height = 1 + in.raw<uint16_t>() % 120;
    uint16_t palette[16];
    for (uint16_t &value : palette)
        value = in.raw<uint16_t>();
    const uint8_t capacityChoice = in.byte();
    // Pixels: each byte is a palette entry (low four bits) repeated 1..16 times (high four bits).
    std::vector<uint16_t> image((size_t)width * height);
    for (size_t i = 0; i < image.size();) {
        const uint8_t b = in.byte();
        for (int k = 0; k <= (b >> 4) && i < image.size(); ++k)
            image[i++] = palette[b & 15];
    }
    const uint64_t limit = 3 * image.size() / 4;
    const uint64_t capacity = capacityChoice < 128 ? limit : capacityChoice % (limit + 1);
    const Result want = run(kReference, image, width, height, s, capacity);
    for (int level = kPortable; level <= kAvx512; ++level)
        if (const Kernels *k = kernelsAt(level))
            if (!same(want, run(*k, image, width, height, s, capacity)))
                std::abort();
    return 0;
}
