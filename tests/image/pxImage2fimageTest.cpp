// Bridges between image records and the float and byte images of img_4_px.
#include "pxImageTestUtil.h"
#include "support/AllocFailure.h"

using namespace pxtest;

TEST(pxImage2fimage, FillsRowTableWidthAndHeight) {
    tag_pxImage *image = nullptr;
    ASSERT_EQ(pxImageConstruct(FLOAT, 6, 4, Image_border, 2, &image), 1u);
    FIMAGE f{};
    LogCapture log;
    EXPECT_EQ(pxImage2fimage(image, &f), 1u);
    EXPECT_TRUE(log.records().empty());
    EXPECT_EQ(f.image, reinterpret_cast<float **>(image->pixMap[0]));
    EXPECT_EQ(f.width, 6);
    EXPECT_EQ(f.height, 4);
    f.image[3][5] = 2.5f;
    f.image[-Image_border][-Image_border] = 1.5f;
    EXPECT_EQ(rowsOf<float>(image)[3][5], 2.5f);
    EXPECT_EQ(rowsOf<float>(image)[-Image_border][-Image_border], 1.5f);
    pxImageDestruct(&image);
}

TEST(pxImage2bimage, FillsRowTableWidthAndHeightWithoutChecking) {
    tag_pxImage *image = nullptr;
    ASSERT_EQ(pxImageConstruct(UBYTE, 3, 7, 0, 1, &image), 1u);
    BIMAGE b{};
    EXPECT_EQ(pxImage2bimage(image, &b), 1u);
    EXPECT_EQ(b.image, reinterpret_cast<uint8_t **>(image->pixMap[0]));
    EXPECT_EQ(b.width, 3);
    EXPECT_EQ(b.height, 7);
    pxImageDestruct(&image);
    // The type is not checked: a FLOAT image is handed over as it is.
    ASSERT_EQ(pxImageConstruct(FLOAT, 2, 2, 0, 1, &image), 1u);
    EXPECT_EQ(pxImage2bimage(image, &b), 1u);
    EXPECT_EQ(b.width, 2);
    pxImageDestruct(&image);
}

TEST(pxImageFimage2pxImage, SharesThePixelsOfTheFloatImage) {
    FIMAGE *f = alloc_image(5, 3, 4, Image_border);
    ASSERT_NE(f, nullptr);
    f->image[2][4] = 7.0f;
    tag_pxImage *image = nullptr;
    LogCapture log;
    ASSERT_EQ(pxImageFimage2pxImage(f, &image), 1u);
    EXPECT_TRUE(log.records().empty());
    EXPECT_EQ(image->type, FLOAT);
    EXPECT_EQ(image->width, 5);
    EXPECT_EQ(image->height, 3);
    EXPECT_EQ(image->border, Image_border);
    EXPECT_EQ(image->planes, 1);
    EXPECT_EQ(image->pixMap[0], reinterpret_cast<pxImagePixMap>(f->image));
    EXPECT_EQ(rowsOf<float>(image)[2][4], 7.0f);
    EXPECT_EQ(image->refCount, 0);
    // The record does not own the pixels: only the header is freed.
    pxImageHeaderDestruct(&image);
    free_image(f);
}

TEST(pxImageFimage2pxImage, HeaderFailureIsTracedUnderTheBridgeModule) {
    FIMAGE f{nullptr, 0, 3};
    tag_pxImage *image = nullptr;
    LogCapture log;
    EXPECT_EQ(pxImageFimage2pxImage(&f, &image), 0u);
    EXPECT_EQ(image, nullptr);
    const auto &records = log.records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].module, "pxImage");
    EXPECT_EQ(records[0].text, "txt");
    EXPECT_EQ(records[0].code, kInvalidArgument);
    EXPECT_EQ(records[1].module, "pxImage"); // pxImageHeaderConstruct
    EXPECT_EQ(records[1].level, 1);
    EXPECT_EQ(records[2].module, "pxImage2fimage");
    EXPECT_EQ(records[2].level, 1);
    EXPECT_EQ(records[2].kind, PXENV_LOG_F);
    EXPECT_EQ(records[2].code, 0u);
    EXPECT_TRUE(records[2].text.empty());
}

TEST(pxImageFimage2pxImage, AllocationFailureLeavesNothing) {
    FIMAGE *f = alloc_image(4, 4, 4, Image_border);
    ASSERT_NE(f, nullptr);
    tag_pxImage *image = nullptr;
    const int allocations = forEachAllocationFailure([&] { return pxImageFimage2pxImage(f, &image) == 1; },
                                                     [&] { pxImageHeaderDestruct(&image); });
    EXPECT_EQ(allocations, 1);
    LogCapture log;
    {
        AllocFailure fail(1);
        EXPECT_EQ(pxImageFimage2pxImage(f, &image), 0u);
    }
    EXPECT_EQ(log.records().back().module, "pxImage2fimage");
    EXPECT_EQ(log.traceCount(), 3u); // pxImageHeaderInit, pxImageHeaderConstruct, the bridge
    free_image(f);
}

TEST(pxImageBimage2pxImage, SharesThePixelsOfTheByteImage) {
    BIMAGE *b = reinterpret_cast<BIMAGE *>(alloc_image(6, 2, 1, Image_border));
    ASSERT_NE(b, nullptr);
    b->image[1][5] = 200;
    tag_pxImage *image = nullptr;
    ASSERT_EQ(pxImageBimage2pxImage(b, &image), 1u);
    EXPECT_EQ(image->type, UBYTE);
    EXPECT_EQ(image->width, 6);
    EXPECT_EQ(image->height, 2);
    EXPECT_EQ(image->border, Image_border);
    EXPECT_EQ(image->planes, 1);
    EXPECT_EQ(rowsOf<uint8_t>(image)[1][5], 200);
    pxImageHeaderDestruct(&image);
    free_image(reinterpret_cast<FIMAGE *>(b));
}

TEST(pxImageBimage2pxImage, AlwaysReturnsOneEvenWhenTheHeaderFails) {
    BIMAGE bad{nullptr, 10000, 2};
    tag_pxImage *image = nullptr;
    LogCapture log;
    EXPECT_EQ(pxImageBimage2pxImage(&bad, &image), 1u);
    EXPECT_EQ(image, nullptr);
    EXPECT_TRUE(log.has(5, kInvalidArgument, "pxImage", "txt"));
    BIMAGE *b = reinterpret_cast<BIMAGE *>(alloc_image(3, 3, 1, Image_border));
    ASSERT_NE(b, nullptr);
    const long live = pxEnvLiveAllocations();
    {
        AllocFailure fail(1);
        EXPECT_EQ(pxImageBimage2pxImage(b, &image), 1u);
    }
    EXPECT_EQ(image, nullptr);
    EXPECT_EQ(pxEnvLiveAllocations(), live);
    free_image(reinterpret_cast<FIMAGE *>(b));
}
