// The fast kernels of the CSHORT compressor against its plain reference, at every instruction level this
// processor runs: the same 1 % level, the same protected pixels and the same words, bit for bit, on
// camera-like frames, noise, values at the brightness mark and at the edge ratio, long runs, odd sizes and
// every setting pushed to its odd values.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "pxEnv.h"

#include "file/pxImageCompressInternal.h"
#include "file/pxImageFileInternal.h"

using namespace pxcompress;

namespace {

const Settings kDefaults{128, 4, 800, 1.05f, 4.0f, 2.0f, 1, 80, 3};

struct Frame {
    std::string name;
    int width;
    int height;
    std::vector<uint16_t> pixels;
};

typedef std::function<uint16_t(int x, int y)> PixelRule;

Frame frameOf(const std::string &name, int width, int height, const PixelRule &rule) {
    Frame f{name, width, height, std::vector<uint16_t>((size_t)width * height)};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            f.pixels[(size_t)y * width + x] = rule(x, y);
    return f;
}

uint16_t clamp16(double v) {
    return (uint16_t)(v < 0 ? 0 : v > 65535 ? 65535 : v);
}

// Dark background near 100 with bright discs and bars (some above the brightness mark, some below), a
// texture, noise and values rounded to a 12-bit converter's steps when `steps` is set.
Frame cameraFrame(int width, int height, uint32_t seed, bool steps) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> noise(0.0, 1.0);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    struct Blob {
        double cx, cy, r, level;
        bool disc;
    };
    std::vector<Blob> blobs;
    for (int i = 0; i < 6; ++i)
        blobs.push_back({unit(rng) * width, unit(rng) * height, 3 + unit(rng) * 20,
                         1500 * std::pow(20.0, unit(rng)), i % 2 == 0});
    return frameOf("camera" + std::to_string(seed), width, height, [&](int x, int y) {
        double s = 0;
        for (const Blob &b : blobs) {
            const double dx = x - b.cx, dy = y - b.cy;
            if (b.disc ? dx * dx + dy * dy < b.r * b.r : std::fabs(dx) < b.r && std::fabs(dy) < b.r / 2)
                s = b.level;
        }
        s *= 1.0 + 0.15 * std::sin(x * 1.3 + y * 0.6);
        const double v = 100 + s + noise(rng) * std::sqrt(1.5 * s + 16);
        return clamp16(steps ? 16 * std::round(v / 16) : std::round(v));
    });
}

// Every pixel drawn from `values`.
Frame drawnFrom(const std::string &name, int width, int height, std::vector<uint16_t> values, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<size_t> pick(0, values.size() - 1);
    return frameOf(name, width, height, [&](int, int) { return values[pick(rng)]; });
}

// Stretches of one value, each a random length, from `values`.
Frame stretches(const std::string &name, int width, int height, std::vector<uint16_t> values, int longest,
                uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<size_t> pick(0, values.size() - 1);
    std::uniform_int_distribution<int> length(1, longest);
    uint16_t value = values[0];
    int left = 0;
    return frameOf(name, width, height, [&](int, int) {
        if (left-- == 0) {
            value = values[pick(rng)];
            left = length(rng) - 1;
        }
        return value;
    });
}

// Bright pixels whose neighbours are about twice or half as bright, so that the edge tests come out one way
// on the pixels as stored and the other way once bit 0 is set (5408 x 2 < 10817, 5409 x 2 > 10817): two rows
// at 100 set the brightness mark at 5406, and `gaps` in 100 dark stretches break the bright ones.
Frame brightRatios(int width, int height, int gaps, uint32_t seed) {
    std::mt19937 rng(seed);
    const std::vector<uint16_t> bright{5408, 5409, 10816, 10817, 10818, 10819, 21634, 21635, 21637};
    std::uniform_int_distribution<size_t> pick(0, bright.size() - 1);
    std::uniform_int_distribution<int> length(1, 4), gap(0, 99);
    uint16_t value = 100;
    int left = 0;
    return frameOf("brightRatios" + std::to_string(gaps), width, height, [&](int, int y) {
        if (y < 2)
            return (uint16_t)100;
        if (left-- == 0) {
            value = gap(rng) < gaps ? 100 : bright[pick(rng)];
            left = length(rng) - 1;
        }
        return value;
    });
}

// Rows of a 151-column pattern: 5409 (columns 0..5), `riser` (6), 10818 (7..40), 5409 (41..60), then 2706,
// which is neither bright nor dark enough for an edge; two rows at 100 put the mark at 5406. At column 41 the
// pixels as stored show no fall (10818 / 2 is not above 5409) but once bit 0 is set they do (10819 / 2 is);
// with `riser` 10818 the rise at column 5 is likewise seen only once bit 0 is set (10819 > 2 x 5409). In a
// bright stretch bit 0 is set before the edge tests read the pixels, so the stretch opens at 5 and closes at
// 41, which a wide protection makes visible on the 2706 pixels.
Frame brightDoubles(int width, int height, uint16_t riser) {
    return frameOf("brightDoubles" + std::to_string(riser), width, height, [riser](int x, int y) {
        const int at = (x + 7 * y) % 151;
        if (y < 2)
            return (uint16_t)100;
        return (uint16_t)(at < 6 ? 5409 : at == 6 ? riser : at <= 40 ? 10818 : at <= 60 ? 5409 : 2706);
    });
}

// Rows of a 151-column pattern: 2704 (columns 0..3), 2706 (4), 5409 (5..40), 10820 (41..50), 5409 (51..60),
// then 2706; two rows at 100 put the mark at 5406. With the compared pixels 5 columns apart, bright column 5
// compares with column 0, which no square has marked yet: 5409 is above twice 2704, a rise, but not above
// twice 2705; the stretch closes at the fall after 10820.
Frame reachFive(int width, int height) {
    return frameOf("reachFive", width, height, [](int x, int y) {
        const int at = (x + 7 * y) % 151;
        if (y < 2)
            return (uint16_t)100;
        return (uint16_t)(at < 4     ? 2704
                          : at == 4  ? 2706
                          : at <= 40 ? 5409
                          : at <= 50 ? 10820
                          : at <= 60 ? 5409
                                     : 2706);
    });
}

// The frames every setting is tried on. The default settings put the brightness mark at 5401 or 5402 on
// most of these (1 % level 97 or 98 and below); the edge ratio is 2.
std::vector<Frame> frames() {
    std::vector<Frame> out;
    const int sizes[][2] = {{1, 1},   {7, 3},   {11, 11},  {12, 11},  {13, 17},
                            {37, 29}, {64, 12}, {100, 13}, {129, 40}, {257, 31}};
    uint32_t seed = 1;
    for (const auto &size : sizes) {
        const int w = size[0], h = size[1];
        out.push_back(cameraFrame(w, h, seed++, true));
        out.push_back(cameraFrame(w, h, seed++, false));
        out.push_back(
            drawnFrom("noise", w, h, {0, 1, 2, 3, 97, 98, 100, 5400, 5401, 5402, 5403, 9000, 65535}, seed++));
        out.push_back(stretches("mark", w, h, {96, 100, 5400, 5401, 5402, 5403, 5404}, 40, seed++));
        out.push_back(
            stretches("ratio", w, h, {50, 99, 100, 101, 199, 200, 201, 202, 400, 6000}, 12, seed++));
        out.push_back(stretches("runs", w, h, {96, 100, 101, 224, 228, 1200, 1203, 1204, 1208}, 90, seed++));
        out.push_back(brightRatios(w, h, 0, seed++));
        out.push_back(brightRatios(w, h, 5, seed++));
        out.push_back(brightDoubles(w, h, 10820));
        out.push_back(brightDoubles(w, h, 10818));
        out.push_back(reachFive(w, h));
    }
    out.push_back(cameraFrame(640, 480, seed++, true));
    out.push_back(cameraFrame(333, 211, seed++, false));
    // Rows wider than the longest run, with bright pixels among them.
    out.push_back(
        frameOf("long", 7000, 12, [](int x, int y) { return (uint16_t)(x == 3500 && y == 6 ? 9000 : 102); }));
    out.push_back(stretches("longBright", 5000, 14, {100, 104, 9000, 9001}, 3000, seed++));
    return out;
}

// One named setting change from the defaults.
struct Variant {
    std::string name;
    std::function<void(Settings &)> change;
};

std::vector<Variant> variants() {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    std::vector<Variant> v{{"defaults", [](Settings &) {}}};
    const auto add = [&](const std::string &name, std::function<void(Settings &)> change) {
        v.push_back({name, change});
    };
    for (int method : {0, 1, 2, 4, -1})
        add("method " + std::to_string(method), [method](Settings &s) { s.protectionMethod = method; });
    for (int d : {0, 1, 3, -5, 70000, -70000, 2147483647})
        add("diffLow " + std::to_string(d), [d](Settings &s) { s.diffLow = d; });
    for (int d : {0, 2, 200, -1, 70000, -2147483647})
        add("diffHigh " + std::to_string(d), [d](Settings &s) { s.diffHigh = d; });
    for (int a : {0, -2000, 4600, 60000, 2147483647, -2147483647})
        add("blAddOn " + std::to_string(a), [a](Settings &s) { s.blAddOn = a; });
    for (float f : {0.0f, 1.0f, -1.0f, 1e30f, nan})
        add("blFactor " + std::to_string(f), [f](Settings &s) { s.blFactor = f; });
    for (float w : {0.0f, 0.9f, -3.0f, 40.0f, 1e30f, -1e30f, nan})
        add("protectWidth " + std::to_string(w), [w](Settings &s) { s.protectWidth = w; });
    for (float t : {1.0f, 1.01f, 0.5f, 0.0f, -1.0f, 100.0f, nan, inf})
        add("ratioTh " + std::to_string(t), [t](Settings &s) { s.ratioTh = t; });
    for (int r : {0, 2, 3, 4, 5, 6, 9, 50, -3, 2147483647})
        add("ratioWidth " + std::to_string(r), [r](Settings &s) { s.ratioWidth = r; });
    for (int m : {0, 1, 5, 17, -1, -100, 2147483647})
        add("maxProtectWidth " + std::to_string(m), [m](Settings &s) { s.maxProtectWidth = m; });
    add("ratioWidth 5, protectWidth 40", [](Settings &s) {
        s.ratioWidth = 5;
        s.protectWidth = 40;
    });
    for (int method : {1, 2})
        for (int r : {0, 4, 5})
            add("method " + std::to_string(method) + " ratioWidth " + std::to_string(r),
                [method, r](Settings &s) {
                    s.protectionMethod = method;
                    s.ratioWidth = r;
                });
    return v;
}

// What one implementation makes of a frame: the 1 % level, the pixels after protection, the pixels and words
// after the runs (at most `capacity` words kept, all counted).
struct Result {
    bool levelOk = false;
    int64_t q = -1;
    std::vector<uint16_t> protectedPixels;
    std::vector<uint16_t> finalPixels;
    std::vector<uint16_t> words;
    uint64_t used = 0;
};

Result run(const Kernels &k, const Frame &f, const Settings &s, uint64_t capacity) {
    Result r;
    std::vector<uint16_t> pixels = f.pixels;
    const uint64_t n = pixels.size();
    r.levelOk = k.onePercentLevel(pixels.data(), n, &r.q);
    const int64_t baseline = truncateSaturated((float)r.q * s.blFactor) + s.blAddOn;
    std::vector<uint16_t> scratch((size_t)(kProtectScratchRows * f.width), 0);
    k.protect(pixels.data(), f.width, f.height, s, baseline + 4500, scratch.data());
    EXPECT_EQ(std::vector<uint16_t>(scratch.size(), 0), scratch) << "the scratch rows are left all zero";
    r.protectedPixels = pixels;
    r.words.assign(capacity + 2, 0xABCD);
    RunWriter out{r.words.data(), capacity, 0};
    k.formRuns(pixels.data(), n, baseline, s, out);
    r.used = out.used;
    r.finalPixels = pixels;
    return r;
}

// The levels this processor runs, with their names.
std::vector<std::pair<int, const Kernels *>> levels() {
    std::vector<std::pair<int, const Kernels *>> out;
    for (int level = kPortable; level <= kAvx512; ++level)
        if (const Kernels *k = kernelsAt(level))
            out.emplace_back(level, k);
    return out;
}

void expectSame(const Result &want, const Result &got) {
    EXPECT_EQ(want.levelOk, got.levelOk);
    EXPECT_EQ(want.q, got.q);
    EXPECT_TRUE(want.protectedPixels == got.protectedPixels) << "protected pixels differ";
    EXPECT_TRUE(want.finalPixels == got.finalPixels) << "pixels after the runs differ";
    EXPECT_EQ(want.used, got.used);
    EXPECT_TRUE(want.words == got.words) << "words differ";
}

} // namespace

TEST(CompressKernels, LevelsBuiltForThisProcessor) {
    ASSERT_NE(nullptr, kernelsAt(kPortable));
    ASSERT_NE(nullptr, kernelsAt(kSse2));
    EXPECT_EQ(nullptr, kernelsAt(-1));
    EXPECT_EQ(nullptr, kernelsAt(kAvx512 + 1));
    EXPECT_EQ(&kernelsBest(), levels().back().second);
}

TEST(CompressKernels, EveryLevelMatchesTheReferenceOnEveryFrameAndSetting) {
    const std::vector<Frame> all = frames();
    const std::vector<Variant> settings = variants();
    for (const Variant &variant : settings) {
        Settings s = kDefaults;
        variant.change(s);
        for (const Frame &f : all) {
            SCOPED_TRACE(variant.name + ", " + f.name + " " + std::to_string(f.width) + "x" +
                         std::to_string(f.height));
            const uint64_t capacity = 3 * f.pixels.size() / 4;
            const Result want = run(kReference, f, s, capacity);
            for (const auto &level : levels()) {
                SCOPED_TRACE("level " + std::to_string(level.first));
                expectSame(want, run(*level.second, f, s, capacity));
                if (::testing::Test::HasFailure())
                    return;
            }
        }
    }
}

// The writer keeps the words that fit and counts the rest, at every level alike.
TEST(CompressKernels, WordsBeyondTheLimitAreCountedAlike) {
    const Frame f = cameraFrame(129, 40, 99, false);
    const Result want = run(kReference, f, kDefaults, 3 * f.pixels.size() / 4);
    ASSERT_GT(want.used, 64u);
    for (uint64_t capacity :
         {(uint64_t)0, (uint64_t)1, (uint64_t)2, (uint64_t)63, want.used / 2, want.used - 1}) {
        SCOPED_TRACE(capacity);
        const Result limited = run(kReference, f, kDefaults, capacity);
        for (const auto &level : levels())
            expectSame(limited, run(*level.second, f, kDefaults, capacity));
    }
}

// Random frames and random settings from the odd values, a few hundred of them.
TEST(CompressKernels, RandomFramesAndSettingsMatchTheReference) {
    std::mt19937 rng(20261124);
    const std::vector<Variant> settings = variants();
    std::uniform_int_distribution<size_t> pickSetting(0, settings.size() - 1);
    std::uniform_int_distribution<int> side(1, 90);
    for (int round = 0; round < 300; ++round) {
        Settings s = kDefaults;
        std::string name;
        for (int k = 0; k < 3; ++k) {
            const Variant &v = settings[pickSetting(rng)];
            v.change(s);
            name += v.name + "; ";
        }
        const int w = side(rng), h = side(rng);
        const Frame f = round % 2
                            ? cameraFrame(w, h, rng(), round % 4 == 1)
                            : stretches("mixed", w, h, {0, 96, 100, 101, 199, 200, 5401, 5402, 5403, 9000},
                                        1 + round % 30, rng());
        SCOPED_TRACE(name + f.name + " " + std::to_string(w) + "x" + std::to_string(h));
        const Result want = run(kReference, f, s, 3 * f.pixels.size() / 4);
        for (const auto &level : levels())
            expectSame(want, run(*level.second, f, s, 3 * f.pixels.size() / 4));
        if (::testing::Test::HasFailure())
            return;
    }
}

// The whole compressor through the public entry: each level's words and pixels are the reference's.
TEST(CompressKernels, WholeCompressorAtEveryLevel) {
    pxEnvClearParams();
    pxImageCompressResetSettings();
    const Frame f = cameraFrame(640, 480, 7, true);
    std::vector<uint16_t> wantPixels = f.pixels;
    uint16_t *wantWords = nullptr;
    uint32_t wantCount = 0;
    ASSERT_EQ(1u, compressWith(kReference, wantPixels.data(), f.width, f.height, &wantWords, &wantCount));
    for (const auto &level : levels()) {
        SCOPED_TRACE(level.first);
        std::vector<uint16_t> pixels = f.pixels;
        uint16_t *words = nullptr;
        uint32_t count = 0;
        ASSERT_EQ(1u, compressWith(*level.second, pixels.data(), f.width, f.height, &words, &count));
        EXPECT_EQ(wantCount, count);
        EXPECT_TRUE(std::equal(wantWords, wantWords + wantCount, words));
        EXPECT_TRUE(wantPixels == pixels);
        pxMallocFree(reinterpret_cast<void **>(&words));
    }
    pxMallocFree(reinterpret_cast<void **>(&wantWords));
}

// The 1 % level of frames large enough for the vector levels to guess it from a sample and check the guess
// in one pass: guesses that hold, guesses that miss (the full count decides), and guesses at both ends of
// the value range.
TEST(CompressKernels, OnePercentLevelOfLargeFramesAtEveryLevel) {
    std::vector<Frame> large{cameraFrame(640, 480, 11, true), cameraFrame(331, 199, 12, false),
                             cameraFrame(256, 256, 13, false)};
    large.push_back(frameOf("zeros", 300, 250, [](int, int) { return (uint16_t)0; }));
    large.push_back(frameOf("top", 300, 250, [](int, int) { return (uint16_t)65535; }));
    std::mt19937 rng(5);
    large.push_back(frameOf("uniform", 301, 251, [&](int, int) { return (uint16_t)(rng() & 0xFFFF); }));
    // Just under and just over 1 % of the pixels at 0, the rest at 50000 or spread above it.
    for (int zeros : {752, 753, 754, 760}) {
        int at = 0;
        large.push_back(frameOf("bimodal" + std::to_string(zeros), 301, 250, [&at, zeros](int, int) {
            return (uint16_t)(at++ < zeros ? 0 : 50000 + at % 7);
        }));
    }
    // A sparse tail below a dense level: the sample's guess lands in the dense level, the level is lower.
    large.push_back(frameOf("tail", 320, 240, [&](int x, int y) {
        return (uint16_t)((x * 31 + y * 17) % 97 == 0 ? 1000 + (x * 7 + y) % 300 : 2000 + (rng() & 3));
    }));
    // 1.26 % of the pixels at 0, none where the sample looks (every 18th pixel of 75000), the rest near 2000:
    // the guess is near 2000 and the count there already passes 1 %; the level is 1.
    int index = 0;
    large.push_back(frameOf("unsampled", 300, 250, [&](int, int) {
        const int i = index++;
        return (uint16_t)(i < 1000 && i % 18 != 0 ? 0 : 2000 + (rng() & 3));
    }));
    for (const Frame &f : large) {
        SCOPED_TRACE(f.name);
        int64_t want = -1;
        ASSERT_TRUE(kReference.onePercentLevel(f.pixels.data(), f.pixels.size(), &want));
        for (const auto &level : levels()) {
            SCOPED_TRACE(level.first);
            int64_t got = -2;
            EXPECT_TRUE(level.second->onePercentLevel(f.pixels.data(), f.pixels.size(), &got));
            EXPECT_EQ(want, got);
        }
    }
}
