// The image record: construction, defaults, pixel maps, ROI, fill, cut, destruction and references.
#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

#include "pxImageTestUtil.h"
#include "support/AllocFailure.h"

using namespace pxtest;

namespace {

// Owns an image for the length of a test.
struct ImageGuard {
    tag_pxImage *image = nullptr;
    ~ImageGuard() {
        if (image != nullptr)
            image->refCount = 0;
        pxImageDestruct(&image);
    }
};

// Fills every pixel of every plane, margin included, with a distinct non-zero byte pattern.
void fillEverything(tag_pxImage *image) {
    uint32_t size = 0;
    ASSERT_EQ(pxImagePixelSize(image->type, &size), 1u);
    const int b = image->border;
    for (int p = 0; p < image->planes; ++p) {
        for (int y = -b; y < image->height + b; ++y) {
            auto *row = static_cast<uint8_t *>(image->pixMap[p][y]) - size * b;
            for (size_t i = 0; i < size * (image->width + 2 * b); ++i)
                row[i] = static_cast<uint8_t>(1 + (p * 31 + y * 7 + i) % 250);
        }
    }
}

uint8_t pattern(int p, int y, size_t i) {
    return static_cast<uint8_t>(1 + (p * 31 + y * 7 + i) % 250);
}

} // namespace

// ---- Construction ---------------------------------------------------------------------------------------

TEST(pxImageConstruct, OneByOneBorderZeroOnePlaneBuilds) {
    ImageGuard g;
    LogCapture log;
    ASSERT_EQ(pxImageConstruct(UBYTE, 1, 1, 0, 1, &g.image), 1u);
    ASSERT_NE(g.image, nullptr);
    EXPECT_EQ(rowsOf<uint8_t>(g.image)[0][0], 0);
    EXPECT_EQ(g.image->refCount, 0);
    EXPECT_TRUE(log.records().empty());
}

struct BadShape {
    int32_t type, width, height, border, planes;
    const char *text;
};

class pxImageConstructBadShape : public ::testing::TestWithParam<BadShape> {};

TEST_P(pxImageConstructBadShape, FailsWithMessageAndTraceChain) {
    const BadShape s = GetParam();
    tag_pxImage *image = reinterpret_cast<tag_pxImage *>(&image); // any non-null value is cleared
    const long before = pxEnvLiveAllocations();
    LogCapture log;
    EXPECT_EQ(pxImageConstruct(s.type, s.width, s.height, s.border, s.planes, &image), 0u);
    EXPECT_EQ(image, nullptr);
    EXPECT_EQ(pxEnvLiveAllocations(), before);
    // The error where it is found, then pxImageHeaderConstruct and pxImageConstruct trace it.
    expectErrorChain(log, "pxImage", s.text, 2);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, pxImageConstructBadShape,
    ::testing::Values(BadShape{FLOAT, 10000, 5, 0, 1, "txt"}, BadShape{FLOAT, 0, 5, 0, 1, "txt"},
                      BadShape{FLOAT, 5, 0, 0, 1, "txt"}, BadShape{FLOAT, 5, 10000, 0, 1, "txt"},
                      BadShape{FLOAT, 5, 5, 1000, 1, "txt"}, BadShape{FLOAT, 5, 5, -1, 1, "txt"},
                      BadShape{FLOAT, 5, 5, 0, 0, "txt"}, BadShape{FLOAT, 5, 5, 0, 10, "txt"},
                      BadShape{9, 5, 5, 0, 1, "Invalid image type"},
                      BadShape{-1, 5, 5, 0, 1, "Invalid image type"}));

TEST(pxImageConstruct, TheTypeIsCheckedBeforeTheShape) {
    for (const BadShape &s :
         {BadShape{9, 10000, 0, 1000, 0, "Invalid image type"}, BadShape{FLOAT, 0, 10000, 1000, 10, "txt"}}) {
        tag_pxImage *image = nullptr;
        LogCapture log;
        EXPECT_EQ(pxImageConstruct(s.type, s.width, s.height, s.border, s.planes, &image), 0u);
        expectErrorChain(log, "pxImage", s.text, 2);
    }
    LogCapture log;
    pxImagePixMap map = nullptr;
    EXPECT_EQ(pxImagePixMapConstruct(-1, 0, 0, -1, &map), 0u);
    expectErrorChain(log, "pxImage", "Invalid image type", 0);
}

TEST(pxImageConstruct, LargestShapeIsAcceptedByTheChecks) {
    LogCapture log;
    tag_pxImage *image = nullptr;
    ASSERT_EQ(pxImageHeaderConstruct(DOUBLE, 9999, 9999, 999, 9, &image), 1u);
    EXPECT_EQ(image->planes, 9);
    pxImageHeaderDestruct(&image);
    EXPECT_TRUE(log.records().empty());
}

TEST(pxImageConstruct, TypeZeroGivesPixelsOfSizeZero) {
    ImageGuard g;
    ASSERT_EQ(pxImageConstruct(0, 3, 2, 1, 1, &g.image), 1u);
    uint32_t size = 99;
    ASSERT_EQ(pxImagePixelSize(g.image->type, &size), 1u);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(g.image->origType, 0);
    // Every row starts at the same address: the stride is 0 bytes.
    EXPECT_EQ(g.image->pixMap[0][-1], g.image->pixMap[0][2]);
}

TEST(pxImageConstruct, BorderTwoMarginIsAddressableAndZero) {
    const int32_t types[] = {CBIT, UBYTE, SHORT, CSHORT, INT, FLOAT, DOUBLE, SHORT12};
    for (int32_t type : types) {
        ImageGuard g;
        const int w = 5, h = 3;
        ASSERT_EQ(pxImageConstruct(type, w, h, 2, 2, &g.image), 1u);
        uint32_t s = 0;
        pxImagePixelSize(type, &s);
        for (int p = 0; p < 2; ++p) {
            pxImagePixMap map = g.image->pixMap[p];
            const auto *first = static_cast<const uint8_t *>(map[-2]) - 2 * s;         // map[-2][-2]
            const auto *last = static_cast<const uint8_t *>(map[h + 1]) + (w + 1) * s; // map[h+1][w+1]
            for (uint32_t k = 0; k < s; ++k) {
                EXPECT_EQ(first[k], 0);
                EXPECT_EQ(last[k], 0);
            }
            // One contiguous block: stride s * (w + 4) between every pair of rows.
            for (int y = -2; y < h + 1; ++y)
                EXPECT_EQ(static_cast<const uint8_t *>(map[y + 1]) - static_cast<const uint8_t *>(map[y]),
                          static_cast<ptrdiff_t>(s * (w + 4)));
            EXPECT_EQ(last + s - first, static_cast<ptrdiff_t>(s * (w + 4) * (h + 4)));
        }
        for (int p = 2; p < 9; ++p)
            EXPECT_EQ(g.image->pixMap[p], nullptr);
    }
}

TEST(pxImageConstruct, EveryAllocationFailureFreesWhatWasAllocated) {
    tag_pxImage *image = nullptr;
    const int allocations = forEachAllocationFailure(
        [&] { return pxImageConstruct(SHORT, 7, 5, 2, 3, &image) == 1; }, [&] { pxImageDestruct(&image); });
    EXPECT_EQ(allocations, 7); // the record and two blocks per plane
}

TEST(pxImageConstruct, AllocationFailureOfTheRecordIsTraced) {
    tag_pxImage *image = nullptr;
    LogCapture log;
    {
        AllocFailure fail(1);
        EXPECT_EQ(pxImageConstruct(SHORT, 7, 5, 2, 3, &image), 0u);
    }
    EXPECT_EQ(image, nullptr);
    expectTracesOnly(log, "pxImage", 3);
}

TEST(pxImageConstruct, AllocationFailureOfAPlaneIsTraced) {
    tag_pxImage *image = nullptr;
    LogCapture log;
    {
        AllocFailure fail(4); // plane 1's row array
        EXPECT_EQ(pxImageConstruct(SHORT, 7, 5, 2, 3, &image), 0u);
    }
    EXPECT_EQ(image, nullptr);
    expectTracesOnly(log, "pxImage", 2); // pxImagePixMapConstruct, pxImageConstruct
}

// ---- Header -----------------------------------------------------------------------------------------------

TEST(pxImageHeaderConstruct, EveryFieldHasItsDefault) {
    tag_pxImage *image = nullptr;
    ASSERT_EQ(pxImageHeaderConstruct(SHORT, 5, 7, 3, 4, &image), 1u);
    EXPECT_EQ(image->type, SHORT);
    EXPECT_EQ(image->width, 5);
    EXPECT_EQ(image->height, 7);
    EXPECT_EQ(image->border, 3);
    EXPECT_EQ(image->planes, 4);
    EXPECT_EQ(image->origX, 0);
    EXPECT_EQ(image->origY, 0);
    EXPECT_EQ(image->origWidth, 5);
    EXPECT_EQ(image->origHeight, 7);
    EXPECT_EQ(image->roiminX, 0);
    EXPECT_EQ(image->roimaxX, 5);
    EXPECT_EQ(image->roiminY, 0);
    EXPECT_EQ(image->roimaxY, 7);
    EXPECT_EQ(image->origType, SHORT);
    EXPECT_EQ(image->auxInt, 0);
    for (float t : image->temperature)
        EXPECT_EQ(t, -273.0f);
    EXPECT_EQ(image->opticsParam[0], 4.545);
    EXPECT_EQ(image->opticsParam[1], 1240.0);
    EXPECT_EQ(image->opticsParam[2], 50.0);
    EXPECT_EQ(image->opticsParam[3], 0.009);
    EXPECT_EQ(image->opticsParam[4], 70.0);
    EXPECT_EQ(image->aberK1, 0.0);
    EXPECT_EQ(image->aberK2, 0.0);
    EXPECT_EQ(image->aberK3, 0.0);
    EXPECT_EQ(image->aberP1, 0.0);
    EXPECT_EQ(image->aberP2, 0.0);
    EXPECT_EQ(image->aberCx, 1.5); // 5 / 2 - 0.5
    EXPECT_EQ(image->aberCy, 2.5); // 7 / 2 - 0.5
    EXPECT_EQ(image->auxShort[0], -1);
    EXPECT_EQ(image->auxShort[1], -1);
    EXPECT_EQ(image->auxShort[2], -1);
    EXPECT_EQ(image->auxShort[3], 0);
    for (int32_t v : image->auxLong)
        EXPECT_EQ(v, -1);
    EXPECT_EQ(image->auxWide, 0);
    for (int32_t v : image->auxInt2)
        EXPECT_EQ(v, 0);
    for (pxImagePixMap map : image->pixMap)
        EXPECT_EQ(map, nullptr);
    EXPECT_EQ(image->refCount, 0);
    pxImageHeaderDestruct(&image);
    EXPECT_EQ(image, nullptr);
}

TEST(pxImageHeaderConstruct, AberrationCentreUsesIntegerHalving) {
    tag_pxImage *image = nullptr;
    ASSERT_EQ(pxImageHeaderConstruct(FLOAT, 6, 1, 0, 1, &image), 1u);
    EXPECT_EQ(image->aberCx, 2.5);
    EXPECT_EQ(image->aberCy, -0.5);
    pxImageHeaderDestruct(&image);
}

TEST(pxImageHeaderConstruct, AlwaysAllocatesAFreshRecord) {
    tag_pxImage held{};
    held.refCount = 5;
    tag_pxImage *image = &held;
    ASSERT_EQ(pxImageHeaderConstruct(FLOAT, 2, 2, 0, 1, &image), 1u);
    EXPECT_NE(image, &held);
    EXPECT_EQ(image->refCount, 0);
    EXPECT_EQ(held.width, 0); // the record the pointer held is untouched
    pxImageHeaderDestruct(&image);
}

TEST(pxImageHeaderInit, ReusesTheHeldRecordAndKeepsItsReferenceCount) {
    tag_pxImage held{};
    held.refCount = 2;
    held.auxInt = 77;
    held.width = 1234;
    tag_pxImage *image = &held;
    const long before = pxEnvLiveAllocations();
    ASSERT_EQ(pxImageHeaderInit(INT, 4, 3, 1, 2, &image), 1u);
    EXPECT_EQ(image, &held);
    EXPECT_EQ(pxEnvLiveAllocations(), before);
    EXPECT_EQ(held.refCount, 2);
    EXPECT_EQ(held.auxInt, 0);
    EXPECT_EQ(held.width, 4);
    EXPECT_EQ(held.roimaxY, 3);
    EXPECT_EQ(held.auxLong[7], -1);
}

TEST(pxImageHeaderInit, AllocatesWhenThePointerIsNull) {
    tag_pxImage *image = nullptr;
    ASSERT_EQ(pxImageHeaderInit(INT, 4, 3, 1, 2, &image), 1u);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->type, INT);
    pxImageHeaderDestruct(&image);
}

TEST(pxImageHeaderInit, RefusesBadArgumentsWithoutTouchingTheRecord) {
    tag_pxImage held{};
    held.width = 1234;
    tag_pxImage *image = &held;
    LogCapture log;
    EXPECT_EQ(pxImageHeaderInit(INT, 4, 3, 1, 10, &image), 0u);
    EXPECT_EQ(held.width, 1234);
    expectErrorChain(log, "pxImage", "txt", 0);
}

TEST(pxImageHeaderDestruct, KeepsAReferencedRecordAndNeverTouchesPixels) {
    tag_pxImage *image = nullptr;
    ASSERT_EQ(pxImageConstruct(UBYTE, 3, 3, 0, 1, &image), 1u);
    const long live = pxEnvLiveAllocations();
    image->refCount = 1;
    EXPECT_EQ(pxImageHeaderDestruct(&image), 1u);
    EXPECT_NE(image, nullptr);
    EXPECT_EQ(pxEnvLiveAllocations(), live);
    image->refCount = 0;
    EXPECT_EQ(pxImageDestruct(&image), 1u);
    EXPECT_EQ(pxEnvLiveAllocations(), live - 3);
    tag_pxImage **none = nullptr;
    EXPECT_EQ(pxImageHeaderDestruct(none), 1u);
    EXPECT_EQ(pxImageHeaderDestruct(&image), 1u);
}

TEST(pxImageCreateEmpty, GivesAZeroFilledRecord) {
    tag_pxImage *image = nullptr;
    ASSERT_EQ(pxImageCreateEmpty(&image), 1u);
    static const tag_pxImage zero{};
    EXPECT_EQ(std::memcmp(image, &zero, sizeof(tag_pxImage)), 0);
    EXPECT_EQ(pxImageDestruct(&image), 1u);
    EXPECT_EQ(image, nullptr);
}

TEST(pxImageCreateEmpty, AllocationFailureIsTraced) {
    tag_pxImage *image = nullptr;
    LogCapture log;
    {
        AllocFailure fail(1);
        EXPECT_EQ(pxImageCreateEmpty(&image), 0u);
    }
    EXPECT_EQ(image, nullptr);
    expectTracesOnly(log, "pxImage", 1);
}

// ---- Pixel size and pixel maps ----------------------------------------------------------------------------

TEST(pxImagePixelSize, TableValuesAndInvalidTypes) {
    const uint32_t expected[9] = {0, 1, 1, 2, 2, 4, 4, 8, 2};
    for (int32_t type = 0; type <= 8; ++type) {
        uint32_t size = 99;
        EXPECT_EQ(pxImagePixelSize(type, &size), 1u);
        EXPECT_EQ(size, expected[type]);
        EXPECT_EQ(pxImagePixelSizeTable[type], expected[type]);
        EXPECT_EQ(pxImageTypeIsValid(type), type != 0);
    }
    for (int32_t type : {9, -1, 1000}) {
        LogCapture log;
        uint32_t size = 99;
        EXPECT_EQ(pxImagePixelSize(type, &size), 0u);
        EXPECT_EQ(size, 99u);
        EXPECT_FALSE(pxImageTypeIsValid(type));
        expectErrorChain(log, "pxImage", "Invalid image type", 0);
    }
}

TEST(pxImagePixMapConstruct, ChecksEachArgument) {
    struct Case {
        int32_t type, width, height, border;
        const char *text;
    };
    const Case cases[] = {{9, 4, 4, 0, "Invalid image type"},
                          {FLOAT, 0, 4, 0, "txt"},
                          {FLOAT, 4, 10000, 0, "txt"},
                          {FLOAT, 4, 4, 1000, "txt"},
                          {FLOAT, 4, 4, -2, "txt"}};
    for (const Case &c : cases) {
        LogCapture log;
        pxImagePixMap map = nullptr;
        EXPECT_EQ(pxImagePixMapConstruct(c.type, c.width, c.height, c.border, &map), 0u);
        EXPECT_EQ(map, nullptr);
        expectErrorChain(log, "pxImage", c.text, 0);
    }
}

TEST(pxImagePixMapConstruct, BothAllocationFailuresFreeTheRowArray) {
    pxImagePixMap map = nullptr;
    const int allocations =
        forEachAllocationFailure([&] { return pxImagePixMapConstruct(DOUBLE, 3, 4, 1, &map) == 1; },
                                 [&] { pxImagePixMapDestruct(&map, DOUBLE, 1); });
    EXPECT_EQ(allocations, 2);
}

TEST(pxImagePixMapDestruct, NullIsSuccessAndBadShapeIsRefused) {
    EXPECT_EQ(pxImagePixMapDestruct(nullptr, FLOAT, 0), 1u);
    pxImagePixMap map = nullptr;
    EXPECT_EQ(pxImagePixMapDestruct(&map, FLOAT, 0), 1u);
    ASSERT_EQ(pxImagePixMapConstruct(FLOAT, 2, 2, 1, &map), 1u);
    {
        LogCapture log;
        EXPECT_EQ(pxImagePixMapDestruct(&map, 12, 1), 0u);
        expectErrorChain(log, "pxImage", "Invalid image type", 0);
    }
    {
        LogCapture log;
        EXPECT_EQ(pxImagePixMapDestruct(&map, FLOAT, 1000), 0u);
        expectErrorChain(log, "pxImage", "txt", 0);
    }
    EXPECT_NE(map, nullptr);
    EXPECT_EQ(pxImagePixMapDestruct(&map, FLOAT, 1), 1u);
    EXPECT_EQ(map, nullptr);
}

// ---- Region of interest -----------------------------------------------------------------------------------

TEST(pxImageGetROI, GivesXYWidthHeight) {
    tag_pxImage image{};
    image.roiminX = 2;
    image.roimaxX = 6;
    image.roiminY = 1;
    image.roimaxY = 3;
    int32_t roi[4] = {};
    EXPECT_EQ(pxImageGetROI(&image, roi), 1u);
    EXPECT_EQ(roi[0], 2);
    EXPECT_EQ(roi[1], 1);
    EXPECT_EQ(roi[2], 4);
    EXPECT_EQ(roi[3], 2);
}

TEST(pxImageGetROI, ExtremeFieldsWrapAroundLikeThirtyTwoBitArithmetic) {
    // The record is public: a caller may store any values; the size is their 32-bit difference.
    tag_pxImage image{};
    image.roiminX = -1;
    image.roimaxX = INT32_MAX;
    image.roiminY = 1;
    image.roimaxY = INT32_MIN;
    int32_t roi[4] = {};
    EXPECT_EQ(pxImageGetROI(&image, roi), 1u);
    EXPECT_EQ(roi[0], -1);
    EXPECT_EQ(roi[1], 1);
    EXPECT_EQ(roi[2], INT32_MIN);
    EXPECT_EQ(roi[3], INT32_MAX);
}

namespace {

// Tries a ROI on a width x height header and returns the result; on failure checks that nothing changed
// and that exactly one trace was logged.
uint32_t trySetRoi(int32_t width, int32_t height, int32_t x, int32_t y, int32_t w, int32_t h,
                   tag_pxImage *out) {
    tag_pxImage *image = nullptr;
    EXPECT_EQ(pxImageHeaderConstruct(UBYTE, width, height, 0, 1, &image), 1u);
    const tag_pxImage before = *image;
    const int32_t roi[4] = {x, y, w, h};
    LogCapture log;
    const uint32_t result = pxImageSetROI(image, roi);
    if (result == 0) {
        EXPECT_EQ(std::memcmp(&before, image, sizeof(tag_pxImage)), 0);
        expectTracesOnly(log, "pxImage", 1);
    } else {
        EXPECT_TRUE(log.records().empty());
    }
    *out = *image;
    pxImageHeaderDestruct(&image);
    return result;
}

} // namespace

TEST(pxImageSetROI, FirstCheckColumnOutsideTheWidth) {
    tag_pxImage r;
    EXPECT_EQ(trySetRoi(10, 10, -1, 0, 2, 2, &r), 0u);
    EXPECT_EQ(trySetRoi(10, 10, 10, 0, 0, 2, &r), 0u);
}

TEST(pxImageSetROI, SecondCheckNegativeRow) {
    tag_pxImage r;
    EXPECT_EQ(trySetRoi(10, 10, 0, -1, 2, 2, &r), 0u);
}

TEST(pxImageSetROI, SecondCheckComparesTheColumnWithTheHeight) {
    tag_pxImage r;
    // x = 5 on an image 10 wide and 4 high fails although the ROI would fit.
    EXPECT_EQ(trySetRoi(10, 4, 5, 0, 2, 2, &r), 0u);
    EXPECT_EQ(trySetRoi(10, 4, 3, 0, 2, 2, &r), 1u);
}

TEST(pxImageSetROI, ThirdCheckRightEdgeBeyondTheWidth) {
    tag_pxImage r;
    EXPECT_EQ(trySetRoi(10, 10, 4, 0, 7, 2, &r), 0u);
    EXPECT_EQ(trySetRoi(10, 10, 4, 0, INT32_MAX, 2, &r), 0u);
    EXPECT_EQ(trySetRoi(10, 10, 4, 0, 6, 2, &r), 1u);
}

TEST(pxImageSetROI, FourthCheckBottomEdgeBeyondTheHeight) {
    tag_pxImage r;
    // y = height - 1 and h = 2 fails at the fourth test.
    EXPECT_EQ(trySetRoi(10, 10, 0, 9, 2, 2, &r), 0u);
    EXPECT_EQ(trySetRoi(10, 10, 0, 9, 2, INT32_MAX, &r), 0u);
    EXPECT_EQ(trySetRoi(10, 10, 0, 9, 2, 1, &r), 1u);
}

TEST(pxImageSetROI, SetsTheFieldsAndAcceptsEmptyAndInvertedSizes) {
    tag_pxImage r;
    ASSERT_EQ(trySetRoi(10, 8, 2, 1, 4, 2, &r), 1u);
    EXPECT_EQ(r.roiminX, 2);
    EXPECT_EQ(r.roimaxX, 6);
    EXPECT_EQ(r.roiminY, 1);
    EXPECT_EQ(r.roimaxY, 3);
    ASSERT_EQ(trySetRoi(10, 8, 2, 1, 0, -1, &r), 1u);
    EXPECT_EQ(r.roimaxX, 2);
    EXPECT_EQ(r.roimaxY, 0);
    // A row beyond the height passes when the height of the ROI brings it back.
    ASSERT_EQ(trySetRoi(10, 4, 1, 10, 2, -8, &r), 1u);
    EXPECT_EQ(r.roiminY, 10);
    EXPECT_EQ(r.roimaxY, 2);
}

// ---- Fill
// ----------------------------------------------------------------------------------------------------

namespace {

// Fills a two-plane image with border 1 and checks that exactly plane 0's image proper holds `value`.
template <typename T> void checkSetValue(int32_t type, T value) {
    ImageGuard g;
    ASSERT_EQ(pxImageConstruct(type, 4, 3, 1, 2, &g.image), 1u);
    LogCapture log;
    EXPECT_EQ(pxImageSetValue(g.image, &value), 1u);
    EXPECT_TRUE(log.records().empty());
    for (int p = 0; p < 2; ++p) {
        T **rows = rowsOf<T>(g.image, p);
        for (int y = -1; y < 4; ++y) {
            for (int x = -1; x < 5; ++x) {
                const bool inside = p == 0 && y >= 0 && y < 3 && x >= 0 && x < 4;
                const T expected = inside ? value : T{};
                EXPECT_EQ(std::memcmp(&rows[y][x], &expected, sizeof(T)), 0) << p << " " << y << " " << x;
            }
        }
    }
}

} // namespace

TEST(pxImageSetValue, EveryFillableType) {
    checkSetValue<uint8_t>(UBYTE, 0xAB);
    checkSetValue<uint16_t>(SHORT, 0xABCD);
    checkSetValue<int32_t>(INT, -123456789);
    checkSetValue<float>(FLOAT, -1.25f);
    checkSetValue<double>(DOUBLE, 3.0e300);
    // The 64-bit pattern is kept exactly, NaN payload included.
    uint64_t bits = 0x7FF4000000000123ull;
    double nan;
    std::memcpy(&nan, &bits, sizeof nan);
    checkSetValue<double>(DOUBLE, nan);
}

TEST(pxImageSetValue, UnfillableTypesReturnOneAndChangeNothing) {
    for (int32_t type : {CSHORT, CBIT, SHORT12}) {
        ImageGuard g;
        ASSERT_EQ(pxImageConstruct(type, 4, 3, 0, 1, &g.image), 1u);
        const uint16_t value = 0xFFFF;
        LogCapture log;
        EXPECT_EQ(pxImageSetValue(g.image, &value), 1u);
        uint32_t size = 0;
        pxImagePixelSize(type, &size);
        for (int y = 0; y < 3; ++y)
            for (uint32_t i = 0; i < 4 * size; ++i)
                EXPECT_EQ(static_cast<uint8_t *>(g.image->pixMap[0][y])[i], 0);
        expectErrorChain(log, "pxImage", log.messages().empty() ? "" : log.messages()[0].text, 0,
                         PXENV_LOG_ERROR, kTypeNotSupported);
        ASSERT_EQ(log.messages().size(), 1u);
        EXPECT_FALSE(log.messages()[0].text.empty());
    }
}

// ---- Applying the ROI
// --------------------------------------------------------------------------------------

TEST(pxImageCutByROI, CutGivesTheRoiAsANewImage) {
    ImageGuard g;
    ASSERT_EQ(pxImageConstruct(SHORT, 8, 4, 0, 2, &g.image), 1u);
    for (int p = 0; p < 2; ++p)
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 8; ++x)
                rowsOf<uint16_t>(g.image, p)[y][x] = static_cast<uint16_t>(1000 * p + 10 * y + x);
    g.image->origX = 5;
    g.image->origY = 7;
    g.image->origWidth = 100;
    const int32_t roi[4] = {2, 1, 4, 2}; // ROI (2, 6, 1, 3)
    ASSERT_EQ(pxImageSetROI(g.image, roi), 1u);
    LogCapture log;
    ASSERT_EQ(pxImageCutByROI(g.image, 2), 1u);
    EXPECT_TRUE(log.records().empty());
    EXPECT_EQ(g.image->width, 4);
    EXPECT_EQ(g.image->height, 2);
    EXPECT_EQ(g.image->origX, 7);
    EXPECT_EQ(g.image->origY, 8);
    EXPECT_EQ(g.image->origWidth, 100);
    EXPECT_EQ(g.image->origHeight, 4);
    EXPECT_EQ(g.image->roiminX, 0);
    EXPECT_EQ(g.image->roimaxX, 4);
    EXPECT_EQ(g.image->roiminY, 0);
    EXPECT_EQ(g.image->roimaxY, 2);
    EXPECT_EQ(g.image->border, 0);
    for (int p = 0; p < 2; ++p)
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 4; ++x)
                EXPECT_EQ(rowsOf<uint16_t>(g.image, p)[y][x], 1000 * p + 10 * (y + 1) + (x + 2));
}

TEST(pxImageCutByROI, CutFromAnOriginAtZeroAndAZeroedMargin) {
    ImageGuard g;
    ASSERT_EQ(pxImageConstruct(UBYTE, 8, 4, 2, 1, &g.image), 1u);
    fillEverything(g.image);
    const int32_t roi[4] = {2, 1, 4, 2};
    ASSERT_EQ(pxImageSetROI(g.image, roi), 1u);
    ASSERT_EQ(pxImageCutByROI(g.image, 2), 1u);
    EXPECT_EQ(g.image->origX, 2);
    EXPECT_EQ(g.image->origY, 1);
    // The new map keeps the border width; its margin is zero-filled.
    EXPECT_EQ(g.image->border, 2);
    uint8_t **rows = rowsOf<uint8_t>(g.image);
    for (int y = -2; y < 4; ++y) {
        for (int x = -2; x < 6; ++x) {
            const bool inside = y >= 0 && y < 2 && x >= 0 && x < 4;
            // Source pixel (x + 2, y + 1) lies at byte offset x + 2 + 2 of stored row y + 1.
            const uint8_t expected = inside ? pattern(0, y + 1, static_cast<size_t>(x + 4)) : 0;
            EXPECT_EQ(rows[y][x], expected) << y << " " << x;
        }
    }
}

TEST(pxImageCutByROI, CutOriginWrapsAroundLikeThirtyTwoBitArithmetic) {
    ImageGuard g;
    ASSERT_EQ(pxImageConstruct(UBYTE, 8, 4, 0, 1, &g.image), 1u);
    g.image->origX = INT32_MAX;
    g.image->origY = INT32_MAX - 1;
    const int32_t roi[4] = {2, 1, 4, 2};
    ASSERT_EQ(pxImageSetROI(g.image, roi), 1u);
    ASSERT_EQ(pxImageCutByROI(g.image, 2), 1u);
    EXPECT_EQ(g.image->origX, INT32_MIN + 1);
    EXPECT_EQ(g.image->origY, INT32_MAX);
}

TEST(pxImageCutByROI, FullImageRoiChangesNothingInEitherMode) {
    for (uint32_t mode : {1u, 2u}) {
        ImageGuard g;
        ASSERT_EQ(pxImageConstruct(INT, 5, 3, 1, 2, &g.image), 1u);
        fillEverything(g.image);
        const tag_pxImage before = *g.image;
        LogCapture log;
        EXPECT_EQ(pxImageCutByROI(g.image, mode), 1u);
        EXPECT_TRUE(log.records().empty());
        EXPECT_EQ(std::memcmp(&before, g.image, sizeof(tag_pxImage)), 0);
        for (int p = 0; p < 2; ++p)
            for (int y = -1; y < 4; ++y)
                for (size_t i = 0; i < 4 * 7; ++i)
                    EXPECT_EQ((static_cast<uint8_t *>(g.image->pixMap[p][y]) - 4)[i], pattern(p, y, i));
    }
}

TEST(pxImageCutByROI, ModeZeroDoesNothingAndModeThreeFails) {
    ImageGuard g;
    ASSERT_EQ(pxImageConstruct(UBYTE, 5, 3, 0, 1, &g.image), 1u);
    fillEverything(g.image);
    const int32_t roi[4] = {1, 1, 2, 1};
    ASSERT_EQ(pxImageSetROI(g.image, roi), 1u);
    const tag_pxImage before = *g.image;
    EXPECT_EQ(pxImageCutByROI(g.image, 0), 1u);
    for (uint32_t mode : {3u, 0xFFFFFFFFu}) {
        LogCapture log;
        EXPECT_EQ(pxImageCutByROI(g.image, mode), 0u);
        expectTracesOnly(log, "pxImage", 1);
    }
    EXPECT_EQ(std::memcmp(&before, g.image, sizeof(tag_pxImage)), 0);
    for (int y = 0; y < 3; ++y)
        for (size_t i = 0; i < 5; ++i)
            EXPECT_EQ(rowsOf<uint8_t>(g.image)[y][i], pattern(0, y, i));
}

TEST(pxImageCutByROI, MaskZeroesExactlyTheImageOutsideTheRoi) {
    ImageGuard g;
    const int w = 9, h = 7, b = 2;
    ASSERT_EQ(pxImageConstruct(FLOAT, w, h, b, 3, &g.image), 1u);
    fillEverything(g.image);
    const int32_t roi[4] = {3, 2, 4, 3}; // columns 3..6, rows 2..4
    ASSERT_EQ(pxImageSetROI(g.image, roi), 1u);
    const tag_pxImage before = *g.image;
    ASSERT_EQ(pxImageCutByROI(g.image, 1), 1u);
    EXPECT_EQ(std::memcmp(&before, g.image, sizeof(tag_pxImage)), 0);
    for (int p = 0; p < 3; ++p) {
        for (int y = -b; y < h + b; ++y) {
            const auto *row = static_cast<const uint8_t *>(g.image->pixMap[p][y]) - 4 * b;
            for (int x = -b; x < w + b; ++x) {
                const bool proper = y >= 0 && y < h && x >= 0 && x < w;
                const bool inRoi = y >= 2 && y < 5 && x >= 3 && x < 7;
                for (int k = 0; k < 4; ++k) {
                    const size_t i = static_cast<size_t>(4 * (x + b) + k);
                    const uint8_t expected = proper && !inRoi ? 0 : pattern(p, y, i);
                    EXPECT_EQ(row[i], expected) << p << " " << y << " " << x;
                }
            }
        }
    }
}

TEST(pxImageCutByROI, MaskWithAnInvertedRoiZeroesTheWholeImage) {
    ImageGuard g;
    ASSERT_EQ(pxImageConstruct(UBYTE, 6, 4, 1, 1, &g.image), 1u);
    fillEverything(g.image);
    const int32_t roi[4] = {1, 10, 2, -8}; // rows 10..2: inverted, beyond the height
    ASSERT_EQ(pxImageSetROI(g.image, roi), 1u);
    ASSERT_EQ(pxImageCutByROI(g.image, 1), 1u);
    for (int y = -1; y < 5; ++y)
        for (int x = -1; x < 7; ++x) {
            const bool proper = y >= 0 && y < 4 && x >= 0 && x < 6;
            EXPECT_EQ(rowsOf<uint8_t>(g.image)[y][x], proper ? 0 : pattern(0, y, static_cast<size_t>(x + 1)));
        }
}

TEST(pxImageCutByROI, CutOfAnEmptyRoiFailsInTheMapConstruction) {
    ImageGuard g;
    ASSERT_EQ(pxImageConstruct(UBYTE, 6, 4, 0, 1, &g.image), 1u);
    const int32_t roi[4] = {2, 1, 0, 2};
    ASSERT_EQ(pxImageSetROI(g.image, roi), 1u);
    LogCapture log;
    EXPECT_EQ(pxImageCutByROI(g.image, 2), 0u);
    expectErrorChain(log, "pxImage", "txt", 1);
    EXPECT_EQ(g.image->width, 6);
}

TEST(pxImageCutByROI, CutOfARoiOutsideTheImageIsRefused) {
    ImageGuard g;
    ASSERT_EQ(pxImageConstruct(UBYTE, 6, 4, 0, 1, &g.image), 1u);
    // The record is public: a caller may set a ROI that reaches past the planes.
    const int32_t outside[4][4] = {{-1, 3, 0, 4}, {3, 7, 0, 4}, {0, 6, -1, 2}, {0, 6, 2, 5}};
    for (const auto &r : outside) {
        g.image->roiminX = r[0];
        g.image->roimaxX = r[1];
        g.image->roiminY = r[2];
        g.image->roimaxY = r[3];
        const tag_pxImage before = *g.image;
        LogCapture log;
        EXPECT_EQ(pxImageCutByROI(g.image, 2), 0u);
        expectErrorChain(log, "pxImage", "txt", 0);
        EXPECT_EQ(std::memcmp(&before, g.image, sizeof(tag_pxImage)), 0);
    }
}

TEST(pxImageCutByROI, CutOfAnInvertedRoiFailsInTheMapConstruction) {
    ImageGuard g;
    ASSERT_EQ(pxImageConstruct(UBYTE, 6, 4, 0, 1, &g.image), 1u);
    const int32_t roi[4] = {1, 10, 2, -8}; // rows 10..2
    ASSERT_EQ(pxImageSetROI(g.image, roi), 1u);
    LogCapture log;
    EXPECT_EQ(pxImageCutByROI(g.image, 2), 0u);
    expectErrorChain(log, "pxImage", "txt", 1);
    EXPECT_EQ(g.image->height, 4);
}

TEST(pxImageCutByROI, CutAllocationFailureLeavesEarlierPlanesCutAndNoLeak) {
    const long baseline = pxEnvLiveAllocations();
    int failures = 0;
    for (long n = 1;; ++n) {
        tag_pxImage *image = nullptr;
        ASSERT_EQ(pxImageConstruct(SHORT, 8, 4, 1, 3, &image), 1u);
        fillEverything(image);
        const int32_t roi[4] = {2, 1, 4, 2};
        ASSERT_EQ(pxImageSetROI(image, roi), 1u);
        const long live = pxEnvLiveAllocations();
        uint32_t result;
        LogCapture log;
        {
            AllocFailure fail(n);
            result = pxImageCutByROI(image, 2);
        }
        EXPECT_EQ(pxEnvLiveAllocations(), live);
        if (result == 1) {
            EXPECT_EQ(image->width, 4);
            pxImageDestruct(&image);
            break;
        }
        ++failures;
        EXPECT_EQ(log.traceCount(), 2u); // pxImagePixMapConstruct, pxImageCutByROI
        // The header is not yet updated; planes before the failing one are already cut.
        EXPECT_EQ(image->width, 8);
        const int failedPlane = static_cast<int>((n - 1) / 2);
        for (int p = 0; p < failedPlane; ++p)
            EXPECT_EQ(rowsOf<uint16_t>(image, p)[0][0], pattern(p, 1, 2 * (2 + 1)) | pattern(p, 1, 2 * 3 + 1)
                                                                                         << 8);
        pxImageDestruct(&image);
    }
    EXPECT_EQ(failures, 6);
    EXPECT_EQ(pxEnvLiveAllocations(), baseline);
}

// ---- Destruction and references --------------------------------------------------------------------------

TEST(pxImageDestruct, NullIsSuccess) {
    EXPECT_EQ(pxImageDestruct(nullptr), 1u);
    tag_pxImage *image = nullptr;
    EXPECT_EQ(pxImageDestruct(&image), 1u);
}

TEST(pxImageDestruct, ReferencedImageLosesItsPixelsButKeepsTheRecord) {
    const long baseline = pxEnvLiveAllocations();
    tag_pxImage *image = nullptr;
    ASSERT_EQ(pxImageConstruct(FLOAT, 4, 4, 1, 2, &image), 1u);
    EXPECT_EQ(pxEnvLiveAllocations(), baseline + 5);
    pxImageAddRef(image);
    const pxImagePixMap plane0 = image->pixMap[0];
    LogCapture log;
    EXPECT_EQ(pxImageDestruct(&image), 1u);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(pxEnvLiveAllocations(), baseline + 1); // only the record
    EXPECT_EQ(image->pixMap[0], plane0);             // entries keep the freed addresses
    const auto messages = log.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].kind, PXENV_LOG_F);
    EXPECT_EQ(messages[0].level, 5);
    EXPECT_EQ(messages[0].code, 0u);
    EXPECT_EQ(messages[0].module, "pxImage");
    EXPECT_EQ(messages[0].text, "Destruct referenced image");
    EXPECT_EQ(log.records().size(), 1u);
    // The holder releases its reference and frees the header.
    EXPECT_EQ(pxImageReleaseRef(image), 0);
    EXPECT_EQ(pxImageHeaderDestruct(&image), 1u);
    EXPECT_EQ(image, nullptr);
    EXPECT_EQ(pxEnvLiveAllocations(), baseline);
}

TEST(pxImageReleaseRef, BelowZeroGivesMinusOne) {
    ImageGuard g;
    ASSERT_EQ(pxImageHeaderConstruct(UBYTE, 1, 1, 0, 1, &g.image), 1u);
    EXPECT_EQ(pxImageReleaseRef(g.image), -1);
    EXPECT_EQ(pxImageReleaseRef(g.image), -2);
    pxImageAddRef(g.image);
    pxImageAddRef(g.image);
    EXPECT_EQ(g.image->refCount, 0);
}

TEST(pxImageAddRef, ManyThreadsAddAndReleaseExactly) {
    ImageGuard g;
    ASSERT_EQ(pxImageHeaderConstruct(UBYTE, 1, 1, 0, 1, &g.image), 1u);
    constexpr int kThreads = 8, kTimes = 100000;
    std::atomic<bool> go{false};
    auto run = [&](auto body) {
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&, t] {
                while (!go.load())
                    std::this_thread::yield();
                body(t);
            });
        go = true;
        for (std::thread &th : threads)
            th.join();
        go = false;
    };
    run([&](int) {
        for (int i = 0; i < kTimes; ++i)
            pxImageAddRef(g.image);
    });
    EXPECT_EQ(g.image->refCount, kThreads * kTimes);
    // Half the threads add while the other half release; every count a release returns is distinct.
    std::vector<std::vector<int32_t>> seen(kThreads);
    run([&](int t) {
        for (int i = 0; i < kTimes; ++i) {
            if (t % 2 == 0)
                pxImageAddRef(g.image);
            else
                seen[t].push_back(pxImageReleaseRef(g.image));
        }
    });
    EXPECT_EQ(g.image->refCount, kThreads * kTimes);
    run([&](int) {
        for (int i = 0; i < kTimes; ++i)
            pxImageReleaseRef(g.image);
    });
    EXPECT_EQ(g.image->refCount, 0);
}
