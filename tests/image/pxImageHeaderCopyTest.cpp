// The header copy with conversion: new type and border, every metadata field through the 16-bit form.
#include "pxImageTestUtil.h"
#include "support/AllocFailure.h"

using namespace pxtest;

namespace {

// A SHORT source with every metadata field set to a distinct value.
tag_pxImage *makeSource() {
    tag_pxImage *image = nullptr;
    EXPECT_EQ(pxImageConstruct(SHORT, 7, 5, 2, 3, &image), 1u);
    image->origX = 11;
    image->origY = 12;
    image->origWidth = 300;
    image->origHeight = 200;
    image->roiminX = 1;
    image->roimaxX = 6;
    image->roiminY = 2;
    image->roimaxY = 4;
    image->origType = CSHORT;
    image->auxInt = -77;
    image->temperature[0] = 20.5f;
    image->temperature[1] = -3.25f;
    image->temperature[2] = 99.0f;
    for (int i = 0; i < 5; ++i)
        image->opticsParam[i] = 1.0 / (i + 3);
    image->aberK1 = 1e-3;
    image->aberK2 = -2e-6;
    image->aberK3 = 3e-9;
    image->aberP1 = 4e-4;
    image->aberP2 = -5e-4;
    image->aberCx = 3.25;
    image->aberCy = 2.75;
    image->auxShort[0] = 1;
    image->auxShort[1] = -2;
    image->auxShort[2] = 32767;
    image->auxShort[3] = -32768;
    for (int i = 0; i < 8; ++i)
        image->auxLong[i] = 1000 * i - 3;
    image->auxWide = 0x0123456789ABCDEFll;
    image->auxInt2[0] = 5;
    image->auxInt2[1] = -6;
    image->auxInt2[2] = 7;
    image->refCount = 3;
    return image;
}

// Releases the source built by makeSource.
void dropSource(tag_pxImage **image) {
    (*image)->refCount = 0;
    pxImageDestruct(image);
}

} // namespace

TEST(pxImageHeaderConvertCopy, CopiesEveryMetadataFieldWithTheNewTypeAndBorder) {
    tag_pxImage *source = makeSource();
    tag_pxImage *copy = nullptr;
    LogCapture log;
    ASSERT_EQ(pxImageHeaderConvertCopy(source, DOUBLE, 1, &copy), 1u);
    EXPECT_TRUE(log.records().empty());
    EXPECT_EQ(copy->type, DOUBLE);
    EXPECT_EQ(copy->width, 7);
    EXPECT_EQ(copy->height, 5);
    EXPECT_EQ(copy->border, 1);
    EXPECT_EQ(copy->planes, 3);
    // Everything from origX up to pixMap is the same as in the source.
    const size_t from = offsetof(tag_pxImage, origX), to = offsetof(tag_pxImage, pixMap);
    EXPECT_EQ(std::memcmp(reinterpret_cast<const char *>(copy) + from,
                          reinterpret_cast<const char *>(source) + from, to - from),
              0);
    EXPECT_EQ(copy->refCount, 0);
    for (int p = 0; p < 3; ++p) {
        ASSERT_NE(copy->pixMap[p], nullptr);
        EXPECT_NE(copy->pixMap[p], source->pixMap[p]);
        for (int y = -1; y < 6; ++y)
            for (int x = -1; x < 8; ++x)
                EXPECT_EQ(rowsOf<double>(copy, p)[y][x], 0.0);
    }
    for (int p = 3; p < 9; ++p)
        EXPECT_EQ(copy->pixMap[p], nullptr);
    pxImageDestruct(&copy);
    dropSource(&source);
}

TEST(pxImageHeaderConvertCopy, TypeZeroKeepsTheSourceType) {
    tag_pxImage *source = makeSource();
    tag_pxImage *copy = nullptr;
    ASSERT_EQ(pxImageHeaderConvertCopy(source, 0, 0, &copy), 1u);
    EXPECT_EQ(copy->type, SHORT);
    EXPECT_EQ(copy->origType, CSHORT);
    pxImageDestruct(&copy);
    dropSource(&source);
}

TEST(pxImageHeaderConvertCopy, MetadataPassesThroughTheSixteenBitForm) {
    tag_pxImage *source = makeSource();
    source->origX = -1;
    source->origY = 65536 + 9;
    source->origWidth = 70000;
    source->origHeight = -2;
    source->roiminX = -1;
    source->roimaxX = 65537;
    source->roiminY = -65535;
    source->roimaxY = 3;
    source->origType = 0x10000 + FLOAT;
    source->auxShort[0] = 40000;
    source->auxShort[1] = -40000;
    source->auxShort[2] = 65535;
    source->auxShort[3] = 0x12345;
    tag_pxImage *copy = nullptr;
    ASSERT_EQ(pxImageHeaderConvertCopy(source, 0, 0, &copy), 1u);
    EXPECT_EQ(copy->origX, 65535);
    EXPECT_EQ(copy->origY, 9);
    EXPECT_EQ(copy->origWidth, 4464);
    EXPECT_EQ(copy->origHeight, 65534);
    EXPECT_EQ(copy->roiminX, 65535);
    EXPECT_EQ(copy->roimaxX, 1);
    EXPECT_EQ(copy->roiminY, 1);
    EXPECT_EQ(copy->roimaxY, 3);
    EXPECT_EQ(copy->origType, FLOAT);
    EXPECT_EQ(copy->auxShort[0], -25536);
    EXPECT_EQ(copy->auxShort[1], 25536);
    EXPECT_EQ(copy->auxShort[2], -1);
    EXPECT_EQ(copy->auxShort[3], 0x2345);
    pxImageDestruct(&copy);
    dropSource(&source);
}

TEST(pxImageHeaderConvertCopy, InvalidSourcePixelTypeFailsAndLeavesNothing) {
    tag_pxImage *source = makeSource();
    const long live = pxEnvLiveAllocations();
    for (int32_t origType : {-1, 9, 0x10009}) {
        source->origType = origType;
        tag_pxImage *copy = nullptr;
        LogCapture log;
        EXPECT_EQ(pxImageHeaderConvertCopy(source, FLOAT, 0, &copy), 0u);
        EXPECT_EQ(copy, nullptr);
        EXPECT_EQ(pxEnvLiveAllocations(), live);
        expectErrorChain(log, "pxImage", "Invalid image type", 0);
    }
    dropSource(&source);
}

TEST(pxImageHeaderConvertCopy, ChecksTypeThenBorder) {
    tag_pxImage *source = makeSource();
    struct Case {
        int32_t type, border;
        const char *text;
    };
    for (const Case &c : {Case{9, 1000, "Invalid image type"}, Case{-1, 0, "Invalid image type"},
                          Case{FLOAT, 1000, "txt"}, Case{FLOAT, -1, "txt"}}) {
        tag_pxImage *copy = nullptr;
        LogCapture log;
        EXPECT_EQ(pxImageHeaderConvertCopy(source, c.type, c.border, &copy), 0u);
        EXPECT_EQ(copy, nullptr);
        expectErrorChain(log, "pxImage", c.text, 0);
    }
    dropSource(&source);
}

TEST(pxImageHeaderConvertCopy, InvalidSourceShapeFailsInHeaderConstruction) {
    tag_pxImage *source = makeSource();
    source->planes = 0;
    tag_pxImage *copy = nullptr;
    LogCapture log;
    EXPECT_EQ(pxImageHeaderConvertCopy(source, FLOAT, 0, &copy), 0u);
    expectErrorChain(log, "pxImage", "txt", 2); // pxImageHeaderConstruct, pxImageHeaderConvertCopy
    source->planes = 3;
    dropSource(&source);
}

TEST(pxImageHeaderConvertCopy, EveryAllocationFailureFreesWhatWasAllocated) {
    tag_pxImage *source = makeSource();
    tag_pxImage *copy = nullptr;
    const int allocations =
        forEachAllocationFailure([&] { return pxImageHeaderConvertCopy(source, INT, 4, &copy) == 1; },
                                 [&] { pxImageDestruct(&copy); });
    EXPECT_EQ(allocations, 7);
    LogCapture log;
    {
        AllocFailure fail(3); // plane 0's pixel buffer
        EXPECT_EQ(pxImageHeaderConvertCopy(source, INT, 4, &copy), 0u);
    }
    EXPECT_EQ(copy, nullptr);
    expectTracesOnly(log, "pxImage", 2); // pxImagePixMapConstruct, pxImageHeaderConvertCopy
    dropSource(&source);
}
