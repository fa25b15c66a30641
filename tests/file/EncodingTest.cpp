// Pixel data encodings: CBIT run lengths, CSHORT runs from the lossy compressor with its settings and
// protection methods, SHORT12 packed rows, and the refusals of each.
#include <gtest/gtest.h>

#include <climits>

#include "FileTestSupport.h"
#include "support/AllocFailure.h"
#include "support/LogCapture.h"

#include "file/pxImageFileInternal.h"

using namespace pxtest;

namespace {

const char *const MISMATCH = "Compressed data length do not match uncompressed";

// A header block ("im13") of a one-plane image of the stored type, then the data.
std::vector<uint8_t> fileOf(int w, int h, int type, const std::vector<uint8_t> &data, int planes = 1) {
    Bytes b;
    b.u16(w).u16(h).u16(type).u16(planes).text("im13");
    b.u16(0).u16(w).u16(0).u16(h).u16(0).u16(0).u16(w).u16(h);
    b.zeros(512 - b.data.size());
    return b.append(data).data;
}

std::vector<uint8_t> lengths(std::initializer_list<int32_t> runs) {
    Bytes b;
    for (int32_t r : runs)
        b.i32(r);
    return b.data;
}

std::vector<uint8_t> words(std::initializer_list<uint16_t> values) {
    Bytes b;
    for (uint16_t v : values)
        b.u16(v);
    return b.data;
}

// Reads a crafted file and expects the failure message of `module`.
void expectReadFailure(const std::vector<uint8_t> &bytes, int type, const std::string &module,
                       const std::string &text, int border = 0) {
    TempFile file("crafted");
    writeBytes(file.path(), bytes);
    tag_pxImage *image = nullptr;
    LogCapture log;
    const long live = pxEnvLiveAllocations();
    EXPECT_EQ(0u, pxImageReadWithROI(file.name(), type, border, 0, &image));
    EXPECT_EQ(nullptr, image);
    EXPECT_EQ(live, pxEnvLiveAllocations());
    EXPECT_TRUE(log.has(5, 0xC43D0003u, module, text)) << text;
}

// Settings of the compressor for one test; the defaults come back afterwards.
class CompressorSettings : public ::testing::Test {
  protected:
    void SetUp() override {
        pxEnvClearParams();
        pxImageCompressResetSettings();
    }
    void TearDown() override {
        pxEnvClearParams();
        pxImageCompressResetSettings();
    }
    static void clear() {
        pxEnvClearParams();
        pxImageCompressResetSettings();
    }
    static void set(const char *key, const char *value) {
        ASSERT_EQ(1, pxEnvSetParam(key, value));
        pxImageCompressResetSettings();
    }
};

// Writes an image as CSHORT and returns the pairs of the file.
std::vector<std::pair<uint16_t, uint16_t>> cshortPairs(tag_pxImage *image) {
    TempFile file("pairs");
    EXPECT_EQ(1u, pxImageWrite(file.name(), CSHORT, image));
    const std::vector<uint8_t> bytes = readBytes(file.path());
    std::vector<std::pair<uint16_t, uint16_t>> pairs;
    for (size_t at = 512; at + 4 <= bytes.size(); at += 4)
        pairs.emplace_back(leU16(bytes, at), leU16(bytes, at + 2));
    return pairs;
}

// Background 100 with one bright pixel 9000 at (20, 10): 40 x 20 pixels, baseline 906, brightness mark 5406.
size_t brightPixelPairs() {
    tag_pxImage *image =
        makeImage<uint16_t>(SHORT, 40, 20, [](int x, int y) { return x == 20 && y == 10 ? 9000 : 100; });
    const size_t n = cshortPairs(image).size();
    pxImageDestruct(&image);
    return n;
}

// Pixel 0 is 0 so that the background starts a run of its own, with the range rules of the baseline; one
// outlier at (3, 2). Two pairs when the outlier joins the background run, four when it opens one.
size_t singleOutlierPairs(int w, int h, int background, int outlier) {
    tag_pxImage *image = makeImage<uint16_t>(SHORT, w, h, [&](int x, int y) {
        return x == 0 && y == 0 ? 0 : x == 3 && y == 2 ? outlier : background;
    });
    const size_t n = cshortPairs(image).size();
    pxImageDestruct(&image);
    return n;
}

// ---- CBIT ----

TEST(Cbit, TwoByTwoEncodesAsThreeRunsAndBinarises) {
    tag_pxImage *image = makeImage<uint8_t>(UBYTE, 2, 2, [](int x, int y) {
        const int v[4] = {0, 0, 7, 255};
        return v[y * 2 + x];
    });
    TempFile file("cbit2x2");
    ASSERT_EQ(1u, pxImageWrite(file.name(), CBIT, image));
    const std::vector<uint8_t> bytes = readBytes(file.path());
    ASSERT_EQ(512u + 12u, bytes.size());
    EXPECT_EQ(CBIT, leU16(bytes, 4));
    EXPECT_EQ(-2, leI32(bytes, 512));
    EXPECT_EQ(1, leI32(bytes, 516));
    EXPECT_EQ(1, leI32(bytes, 520));
    for (int requested : {0, (int)CBIT, (int)UBYTE}) {
        tag_pxImage *back = nullptr;
        ASSERT_EQ(1u, pxImageRead(file.name(), requested, 0, &back));
        EXPECT_EQ(UBYTE, back->type);
        EXPECT_EQ(CBIT, back->origType);
        EXPECT_EQ(0, pixel<uint8_t>(back, 0, 0, 0));
        EXPECT_EQ(0, pixel<uint8_t>(back, 0, 1, 0));
        EXPECT_EQ(255, pixel<uint8_t>(back, 0, 0, 1));
        EXPECT_EQ(255, pixel<uint8_t>(back, 0, 1, 1));
        pxImageDestruct(&back);
    }
    pxImageDestruct(&image);
}

TEST(Cbit, EncoderAllocatesChangesPlusTen) {
    const uint8_t one = 9;
    int32_t *runs = nullptr;
    uint32_t count = 0;
    ASSERT_EQ(1u, pxImageCbitEncode(&one, 1, 1, &runs, &count));
    EXPECT_EQ(1u, count);
    EXPECT_EQ(1, runs[0]);
    pxMallocFree(reinterpret_cast<void **>(&runs));
}

TEST(Cbit, ZeroLengthRunsAddNothing) {
    TempFile file("cbitzero");
    writeBytes(file.path(), fileOf(2, 2, CBIT, lengths({0, -1, 0, 3, 0})));
    tag_pxImage *image = nullptr;
    ASSERT_EQ(1u, pxImageRead(file.name(), 0, 0, &image));
    EXPECT_EQ(0, pixel<uint8_t>(image, 0, 0, 0));
    EXPECT_EQ(255, pixel<uint8_t>(image, 0, 1, 1));
    pxImageDestruct(&image);
}

TEST(Cbit, LengthMismatches) {
    expectReadFailure(fileOf(2, 2, CBIT, lengths({-2, 1})), 0, "pxImageFileCodec", MISMATCH);
    expectReadFailure(fileOf(2, 2, CBIT, lengths({-2, 3})), 0, "pxImageFileCodec", MISMATCH);
    expectReadFailure(fileOf(2, 2, CBIT, lengths({INT_MIN})), 0, "pxImageFileCodec", MISMATCH);
    expectReadFailure(fileOf(2, 2, CBIT, lengths({4, 1})), 0, "pxImageFileCodec", MISMATCH);
    expectReadFailure(fileOf(2, 2, CBIT, {}), 0, "pxImagePixData", MISMATCH);
}

TEST(Cbit, RefusedTypeAndBorder) {
    const std::vector<uint8_t> file = fileOf(2, 2, CBIT, lengths({4}));
    for (int type : std::vector<int>{SHORT, CSHORT, INT, FLOAT, DOUBLE, SHORT12})
        expectReadFailure(file, type, "pxImagePixData", "CBIT type file can be read as UBYTE only");
    expectReadFailure(file, UBYTE, "pxImagePixData", "CBIT type file do not support borders", 1);
}

// ---- CSHORT ----

TEST(Cshort, DecodesPairsAcrossRowEnds) {
    TempFile file("cshortpairs");
    writeBytes(file.path(), fileOf(3, 2, CSHORT, words({4, 1000, 2, 65535})));
    tag_pxImage *image = nullptr;
    ASSERT_EQ(1u, pxImageRead(file.name(), CSHORT, 0, &image));
    EXPECT_EQ(SHORT, image->type);
    EXPECT_EQ(CSHORT, image->origType);
    EXPECT_EQ(1000, pixel<uint16_t>(image, 0, 0, 1));
    EXPECT_EQ(65535, pixel<uint16_t>(image, 0, 1, 1));
    pxImageDestruct(&image);
}

TEST(Cshort, LengthMismatches) {
    expectReadFailure(fileOf(3, 2, CSHORT, words({5, 1})), 0, "pxImageFileCodec", MISMATCH);
    expectReadFailure(fileOf(3, 2, CSHORT, words({5, 1, 2, 1})), 0, "pxImageFileCodec", MISMATCH);
    expectReadFailure(fileOf(3, 2, CSHORT, words({6, 1, 0})), 0, "pxImageFileCodec", MISMATCH);
    expectReadFailure(fileOf(3, 2, CSHORT, words({6})), 0, "pxImagePixData", MISMATCH);
    expectReadFailure(fileOf(9999, 9999, CSHORT, words({65535, 1})), 0, "pxImagePixData", MISMATCH);
}

TEST(Cshort, RefusedTypeAndBorder) {
    const std::vector<uint8_t> file = fileOf(3, 2, CSHORT, words({6, 1}));
    for (int type : std::vector<int>{CBIT, UBYTE, INT, FLOAT, DOUBLE, SHORT12})
        expectReadFailure(file, type, "pxImagePixData", "CSHORT type file can be read as SHORT only");
    expectReadFailure(file, SHORT, "pxImagePixData", "CSHORT type file do not support borders", 2);
}

TEST_F(CompressorSettings, FewerThanHundredPixelsUseBaselineAddOn) {
    // q = 0, baseline 800: 700 + 128 exceeds it, so the range above 700 is only +4 and 750 opens a run.
    EXPECT_EQ(3u, singleOutlierPairs(10, 5, 700, 750));
    EXPECT_EQ(2u, singleOutlierPairs(10, 5, 700, 704));
}

// A setting that is present but does not parse fails the compression before anything is allocated; the
// settings are read again on the next call, so a corrected value works.
TEST_F(CompressorSettings, UnparsableSettingFailsTheCall) {
    tag_pxImage *image = makeImage<uint16_t>(SHORT, 12, 10, [](int, int) { return 102; });
    set("pxImageCFLSratioTh", "two");
    TempFile file("badsetting");
    {
        LogCapture log;
        const long live = pxEnvLiveAllocations();
        EXPECT_EQ(0u, pxImageWrite(file.name(), CSHORT, image));
        EXPECT_EQ(live, pxEnvLiveAllocations());
        EXPECT_TRUE(log.messages().empty());
        ASSERT_FALSE(log.records().empty());
        EXPECT_EQ("pxImageCompress", log.records().front().module);
        EXPECT_EQ(1, log.records().front().level);
    }
    set("pxImageCFLSratioTh", "2.0");
    EXPECT_EQ(1u, pxImageWrite(file.name(), CSHORT, image));
    pxImageDestruct(&image);
}

// Extreme settings saturate instead of overflowing. A huge baseline factor lifts the baseline out of reach,
// and the write succeeds; a huge widening protects the whole nine-row band around the bright pixel
// (clipped to the image), every protected pixel opens a run, and the writer refuses the size cleanly.
TEST_F(CompressorSettings, ExtremeSettingsSaturate) {
    tag_pxImage *image =
        makeImage<uint16_t>(SHORT, 40, 20, [](int x, int y) { return x == 20 && y == 10 ? 9000 : 100; });
    TempFile file("extreme");
    set("pxImageCFLSBLfactor", "1e30");
    EXPECT_EQ(1u, pxImageWrite(file.name(), CSHORT, image));
    clear();
    set("pxImageCFLSprotectWidth", "1e30");
    LogCapture log;
    EXPECT_EQ(0u, pxImageWrite(file.name(), CSHORT, image));
    ASSERT_FALSE(log.messages().empty());
    EXPECT_EQ(3, log.messages().front().level);
    EXPECT_EQ(0u, log.messages().front().text.rfind("Images size is too large ", 0));
    pxImageDestruct(&image);
}

TEST_F(CompressorSettings, RunsStopAt65534) {
    tag_pxImage *image = makeImage<uint16_t>(SHORT, 7000, 10, [](int, int) { return 102; });
    const auto pairs = cshortPairs(image);
    ASSERT_EQ(2u, pairs.size());
    EXPECT_EQ(65534, pairs[0].first);
    EXPECT_EQ(102, pairs[0].second);
    EXPECT_EQ(4466, pairs[1].first);
    EXPECT_EQ(102, pairs[1].second);
    // The pixel that opened the second run lost its two low bits in memory.
    EXPECT_EQ(100, pixel<uint16_t>(image, 0, 65534 % 7000, 65534 / 7000));
    EXPECT_EQ(102, pixel<uint16_t>(image, 0, 0, 0));
    pxImageDestruct(&image);
}

TEST_F(CompressorSettings, NoiseIsRefusedAsTooLarge) {
    tag_pxImage *image =
        makeImage<uint16_t>(SHORT, 10, 10, [](int x, int y) { return (x + y) % 2 ? 1000 : 0; });
    TempFile file("noise");
    LogCapture log;
    EXPECT_EQ(0u, pxImageWrite(file.name(), CSHORT, image));
    // Every pixel opens a run except the first of the nine rows that start with the value that ended the row
    // before: 91 pairs, 182 words, 364 bytes.
    EXPECT_TRUE(log.has(3, 0, "pxImageCompress", "Images size is too large 364"));
    EXPECT_EQ(512u, readBytes(file.path()).size()) << "the header stays on disk";
    pxImageDestruct(&image);
}

TEST_F(CompressorSettings, RefusedCompressionLeavesModifiedPixelsForTheShort12Fallback) {
    tag_pxImage *image =
        makeImage<uint16_t>(SHORT, 10, 10, [](int x, int y) { return (x + y) % 2 ? 1003 : 2 + 4 * x; });
    TempFile file("fallback");
    EXPECT_EQ(0u, pxImageWrite(file.name(), CSHORT, image));
    // Every pixel but the first opened a run: its two low bits are cleared.
    EXPECT_EQ(2, pixel<uint16_t>(image, 0, 0, 0));
    EXPECT_EQ(1000, pixel<uint16_t>(image, 0, 1, 0));
    EXPECT_EQ(8, pixel<uint16_t>(image, 0, 2, 0));
    ASSERT_EQ(1u, pxImageWrite(file.name(), SHORT12, image));
    const std::vector<uint8_t> bytes = readBytes(file.path());
    // Row 8 is plain in the SHORT12 layout (two groups of four rows, then two plain rows).
    EXPECT_EQ(1000, leU16(bytes, 512 + 2 * (60 + 1)));
    pxImageDestruct(&image);
}

TEST_F(CompressorSettings, ProtectionMethods) {
    set("pxImageCFLSprotectionMethod", "0");
    EXPECT_EQ(3u, brightPixelPairs());
    set("pxImageCFLSprotectionMethod", "1");
    EXPECT_EQ(82u, brightPixelPairs()) << "9 x 9 square";
    set("pxImageCFLSprotectionMethod", "2");
    EXPECT_EQ(100u, brightPixelPairs()) << "columns 15..25 over nine rows";
    set("pxImageCFLSprotectionMethod", "3");
    EXPECT_EQ(100u, brightPixelPairs());
    set("pxImageCFLSprotectionMethod", "7");
    EXPECT_EQ(3u, brightPixelPairs());
}

TEST_F(CompressorSettings, Method3AlsoProtectsBrightPixelsWithoutEdges) {
    // A gentle ramp (x 1.3 per column, 1.69 over the compared distance) up to a flat plateau above the
    // brightness mark: no steep rise, but bright pixels.
    auto plateau = [] {
        tag_pxImage *image = makeImage<uint16_t>(SHORT, 120, 12, [](int x, int) {
            if (x > 30)
                return 100;
            double v = 100;
            for (int i = 10; i <= x && i <= 25; ++i)
                v *= 1.3;
            return (int)v & ~1;
        });
        const size_t n = cshortPairs(image).size();
        pxImageDestruct(&image);
        return n;
    };
    set("pxImageCFLSprotectionMethod", "2");
    const size_t edges = plateau();
    set("pxImageCFLSprotectionMethod", "3");
    EXPECT_GT(plateau(), edges);
}

TEST_F(CompressorSettings, DefaultsAreTheDocumentedOnes) {
    EXPECT_EQ(100u, brightPixelPairs());
}

TEST_F(CompressorSettings, EachKeyChangesTheOutput) {
    EXPECT_EQ(2u, singleOutlierPairs(10, 5, 100, 150));
    set("pxImageCFLSDiffLow", "10");
    EXPECT_EQ(4u, singleOutlierPairs(10, 5, 100, 150));
    clear();

    EXPECT_EQ(2u, singleOutlierPairs(10, 5, 2000, 2004));
    set("pxImageCFLSDiffHigh", "2");
    EXPECT_EQ(4u, singleOutlierPairs(10, 5, 2000, 2004));
    clear();

    EXPECT_EQ(3u, singleOutlierPairs(10, 5, 700, 750));
    set("pxImageCFLSBLAddOn", "2000");
    EXPECT_EQ(2u, singleOutlierPairs(10, 5, 700, 750));
    clear();

    EXPECT_EQ(2u, singleOutlierPairs(20, 10, 700, 750)) << "baseline 736 + 800";
    set("pxImageCFLSBLfactor", "0.0");
    EXPECT_EQ(3u, singleOutlierPairs(20, 10, 700, 750)) << "baseline 800";
    clear();

    set("pxImageCFLSprotectionMethod", "2");
    set("pxImageCFLSprotectWidth", "0.9");
    EXPECT_EQ(28u, brightPixelPairs()) << "columns 19..21";
    clear();

    set("pxImageCFLSprotectionMethod", "2");
    set("pxImageCFLSratioTh", "100");
    EXPECT_EQ(3u, brightPixelPairs()) << "no steep rise";
    clear();

    set("pxImageCFLSprotectionMethod", "2");
    set("pxImageCFLSratioWidth", "3");
    EXPECT_EQ(136u, brightPixelPairs()) << "columns 13..27";
    clear();

    set("pxImageCFLSprotectionMethod", "2");
    set("pxImageCFLSmaxProtectWidth", "1");
    EXPECT_EQ(3u, brightPixelPairs()) << "stretch abandoned";
}

TEST_F(CompressorSettings, SettingsAreKeptAfterTheFirstCall) {
    EXPECT_EQ(100u, brightPixelPairs());
    ASSERT_EQ(1, pxEnvSetParam("pxImageCFLSprotectionMethod", "0"));
    EXPECT_EQ(100u, brightPixelPairs());
}

TEST_F(CompressorSettings, AllocationFailuresLeaveNothing) {
    TempFile file("compress_alloc");
    tag_pxImage *image = makeImage<uint16_t>(SHORT, 200, 10, [](int x, int) { return x / 20 * 40; });
    const int count =
        forEachAllocationFailure([&] { return pxImageWrite(file.name(), CSHORT, image) == 1; }, [] {});
    pxImageDestruct(&image);
    EXPECT_GT(count, 0);
}

// ---- SHORT12 ----

tag_pxImage *short12Source(int w, int h) {
    return makeImage<uint16_t>(SHORT, w, h, [](int x, int y) { return (uint16_t)(x * 4099 + y * 1237 + 5); });
}

TEST(Short12, HeightFiveStoresThreePackedRowsAndOnePlain) {
    tag_pxImage *image = short12Source(3, 5);
    tag_pxImage *copy = nullptr;
    ASSERT_EQ(1u, pxImageConvertCopy(image, 0, 0, &copy));
    TempFile file("short12_5");
    ASSERT_EQ(1u, pxImageWrite(file.name(), SHORT12, image));
    const std::vector<uint8_t> bytes = readBytes(file.path());
    ASSERT_EQ(512u + 2u * (9 + 3), bytes.size());
    const uint16_t d0 = pixel<uint16_t>(copy, 0, 0, 3);
    EXPECT_EQ((pixel<uint16_t>(copy, 0, 0, 0) & 0xFFF0) | ((d0 >> 4) & 0xF), leU16(bytes, 512));
    EXPECT_EQ((pixel<uint16_t>(copy, 0, 0, 2) & 0xFFF0) | (d0 >> 12), leU16(bytes, 512 + 12));
    EXPECT_EQ(pixel<uint16_t>(copy, 0, 2, 4), leU16(bytes, 512 + 22));
    tag_pxImage *back = nullptr;
    ASSERT_EQ(1u, pxImageRead(file.name(), SHORT12, 0, &back));
    EXPECT_EQ(SHORT, back->type);
    EXPECT_EQ(SHORT12, back->origType);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 3; ++x) {
            EXPECT_EQ(12, pixel<uint16_t>(back, 0, x, y) & 0xF);
            EXPECT_EQ(pixel<uint16_t>(copy, 0, x, y) & 0xFFF0, pixel<uint16_t>(back, 0, x, y) & 0xFFF0);
        }
    pxImageDestruct(&image);
    pxImageDestruct(&copy);
    pxImageDestruct(&back);
}

TEST(Short12, HeightThreeIsStoredPlainly) {
    tag_pxImage *image = short12Source(4, 3);
    TempFile file("short12_3");
    ASSERT_EQ(1u, pxImageWrite(file.name(), SHORT12, image));
    const std::vector<uint8_t> bytes = readBytes(file.path());
    ASSERT_EQ(512u + 2u * 12, bytes.size());
    EXPECT_EQ(pixel<uint16_t>(image, 0, 3, 2), leU16(bytes, 512 + 22));
    tag_pxImage *back = nullptr;
    ASSERT_EQ(1u, pxImageRead(file.name(), 0, 0, &back));
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ((pixel<uint16_t>(image, 0, x, y) & 0xFFF0) | 12, pixel<uint16_t>(back, 0, x, y));
    pxImageDestruct(&image);
    pxImageDestruct(&back);
}

TEST(Short12, TooFewWordsIsALengthMismatch) {
    expectReadFailure(fileOf(4, 4, SHORT12, words({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11})), 0, "pxImagePixData",
                      MISMATCH);
}

TEST(Short12, RefusedTypeAndBorder) {
    const std::vector<uint8_t> file = fileOf(2, 1, SHORT12, words({1, 2}));
    for (int type : std::vector<int>{CBIT, UBYTE, CSHORT, INT, FLOAT, DOUBLE})
        expectReadFailure(file, type, "pxImagePixData", "SHORT12 type file can be read as SHORT only");
    expectReadFailure(file, SHORT, "pxImagePixData", "SHORT12 type file do not support borders", 1);
}

// ---- Writer refusals ----

TEST(EncodingWriter, EncodingsNeedTheirSourceType) {
    tag_pxImage *bytes = makeImage<uint8_t>(UBYTE, 4, 4, [](int x, int) { return x; });
    tag_pxImage *shorts = makeImage<uint16_t>(SHORT, 4, 4, [](int x, int) { return x; });
    TempFile file("refuse_encoding");
    struct Case {
        tag_pxImage *image;
        int type;
        const char *text;
    };
    for (const Case &c : {Case{shorts, CBIT, "CBIT type file can be written from UBYTE only"},
                          Case{bytes, CSHORT, "CSHORT type file can be written from SHORT only"},
                          Case{bytes, SHORT12, "SHORT12 type file can be written from SHORT only"}}) {
        LogCapture log;
        EXPECT_EQ(0u, pxImageWrite(file.name(), c.type, c.image));
        EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImagePixData", c.text)) << c.text;
    }
    pxImageDestruct(&bytes);
    pxImageDestruct(&shorts);
}

TEST(EncodingWriter, BorderIsRefusedAfterEncoding) {
    TempFile file("refuse_border");
    for (int type : std::vector<int>{UBYTE, SHORT}) {
        tag_pxImage *image = nullptr;
        ASSERT_EQ(1u, pxImageConstruct(type, 5, 5, 2, 1, &image));
        for (int write : std::vector<int>{CBIT, CSHORT, SHORT12}) {
            if ((write == CBIT) != (type == UBYTE))
                continue;
            LogCapture log;
            EXPECT_EQ(0u, pxImageWrite(file.name(), write, image));
            EXPECT_TRUE(
                log.has(5, 0xC43D0003u, "pxImagePixData", "Border is not supported in compression mode"));
            EXPECT_EQ(512u, readBytes(file.path()).size());
        }
        pxImageDestruct(&image);
    }
}

TEST(EncodingWriter, EncodedTypeHeldInMemoryIsRefused) {
    tag_pxImage *image = nullptr;
    ASSERT_EQ(1u, pxImageConstruct(CSHORT, 3, 3, 0, 1, &image));
    TempFile file("refuse_memory_type");
    LogCapture log;
    EXPECT_EQ(0u, pxImageWrite(file.name(), 0, image));
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImagePixData", "CSHORT type file can be written from SHORT only"));
    pxImageDestruct(&image);
}

} // namespace
