// img_4_px images: allocation with margin, freeing and copying.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "img_4_px.h"
#include "pxEnv.h"
#include "support/AllocFailure.h"
#include "support/LogCapture.h"

namespace {

// Every pixel of rows [-border, height+border) x columns [-border, width+border) of a float image.
std::vector<float> allPixels(const FIMAGE &image, int border) {
    std::vector<float> out;
    for (int y = -border; y < image.height + border; ++y)
        for (int x = -border; x < image.width + border; ++x)
            out.push_back(image.image[y][x]);
    return out;
}

TEST(Img4Px, DefaultBorderIsEight) {
    EXPECT_EQ(8, Image_border);
}

TEST(Img4Px, AllocatesZeroFilledImageWithMargin) {
    const long before = pxEnvLiveAllocations();
    FIMAGE *image = alloc_image(5, 3, 4, Image_border);
    ASSERT_NE(nullptr, image);
    EXPECT_EQ(5, image->width);
    EXPECT_EQ(3, image->height);
    EXPECT_EQ(before + 1, pxEnvLiveAllocations());
    const int border = Image_border;
    for (float value : allPixels(*image, border))
        ASSERT_EQ(0.0f, value);
    const std::ptrdiff_t stride = 5 + 2 * border;
    for (int y = -border; y < 3 + border - 1; ++y)
        EXPECT_EQ(stride, image->image[y + 1] - image->image[y]) << y;
    // One contiguous buffer: the last margin pixel of a row is followed by the first of the next row.
    EXPECT_EQ(&image->image[0][5 + border], &image->image[1][-border]);
    image->image[-border][-border] = 1.0f;
    image->image[2 + border][4 + border] = 2.0f;
    free_image(image);
    EXPECT_EQ(before, pxEnvLiveAllocations());
}

TEST(Img4Px, ByteImagesHaveTheSameLayout) {
    BIMAGE *image = reinterpret_cast<BIMAGE *>(alloc_image(7, 2, 1, 2));
    ASSERT_NE(nullptr, image);
    EXPECT_EQ(7, image->width);
    EXPECT_EQ(2, image->height);
    EXPECT_EQ(11, image->image[1] - image->image[0]);
    for (int y = -2; y < 4; ++y)
        for (int x = -2; x < 9; ++x)
            ASSERT_EQ(0, image->image[y][x]);
    image->image[3][8] = 255;
    free_image(reinterpret_cast<FIMAGE *>(image));
}

TEST(Img4Px, ZeroBorderAndRowsBackToBack) {
    FIMAGE *image = alloc_image(4, 4, 4, 0);
    ASSERT_NE(nullptr, image);
    EXPECT_EQ(4, image->image[1] - image->image[0]);
    free_image(image);
}

TEST(Img4Px, FloatRowsAreAligned) {
    FIMAGE *image = alloc_image(3, 3, 4, 1);
    ASSERT_NE(nullptr, image);
    EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(image->image[-1]) % alignof(float));
    free_image(image);
}

TEST(Img4Px, BadArgumentsGiveNullAndAnError) {
    pxtest::LogCapture log;
    const long before = pxEnvLiveAllocations();
    EXPECT_EQ(nullptr, alloc_image(0, 3, 4, 8));
    EXPECT_EQ(nullptr, alloc_image(3, -1, 4, 8));
    EXPECT_EQ(nullptr, alloc_image(3, 3, 0, 8));
    EXPECT_EQ(nullptr, alloc_image(3, 3, 4, -1));
    EXPECT_EQ(nullptr, alloc_image(INT32_MAX, 3, 4, 1));
    EXPECT_EQ(nullptr, alloc_image(INT32_MAX - 4, INT32_MAX - 4, 4, 1));
    EXPECT_EQ(before, pxEnvLiveAllocations());
    EXPECT_EQ(6u, log.records().size());
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "img_4_px",
                        "alloc_image: width 0, height 3, pixel size 4, border 8 out of range"));
}

TEST(Img4Px, PixelSizesFromOneToSixteen) {
    pxtest::LogCapture log;
    FIMAGE *widest = alloc_image(3, 2, 16, 1);
    ASSERT_NE(nullptr, widest);
    EXPECT_EQ(5 * 16,
              reinterpret_cast<char *>(widest->image[1]) - reinterpret_cast<char *>(widest->image[0]));
    free_image(widest);
    EXPECT_EQ(nullptr, alloc_image(3, 2, 17, 1));
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "img_4_px",
                        "alloc_image: width 3, height 2, pixel size 17, border 1 out of range"));
    EXPECT_EQ(1u, log.records().size());
}

TEST(Img4Px, AllocationFailureLeavesNothing) {
    FIMAGE *image = nullptr;
    const int allocations = pxtest::forEachAllocationFailure(
        [&] {
            image = alloc_image(16, 8, 4, Image_border);
            return image != nullptr;
        },
        [&] { free_image(image); });
    EXPECT_EQ(1, allocations);
}

TEST(Img4Px, FreeOfNullIsFine) {
    free_image(nullptr);
}

TEST(Img4Px, FreeRefusesForeignRecords) {
    pxtest::LogCapture log;
    struct {
        uint32_t words[4];
        FIMAGE image;
    } foreign = {{0, 0, 0, 0}, {nullptr, 1, 1}};
    const long before = pxEnvLiveAllocations();
    free_image(&foreign.image);
    EXPECT_EQ(before, pxEnvLiveAllocations());
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "img_4_px", "free_image: not an image of alloc_image"));
}

TEST(Img4Px, CopyCopiesPixelsButNotMargins) {
    FIMAGE *source = alloc_image(6, 4, 4, 2);
    FIMAGE *target = alloc_image(6, 4, 4, 3);
    ASSERT_NE(nullptr, source);
    ASSERT_NE(nullptr, target);
    for (int y = -2; y < 6; ++y)
        for (int x = -2; x < 8; ++x)
            source->image[y][x] = static_cast<float>(100 * y + x);
    EXPECT_EQ(1, fcopy_img(*source, *target));
    for (int y = -3; y < 7; ++y)
        for (int x = -3; x < 9; ++x) {
            const bool inside = y >= 0 && y < 4 && x >= 0 && x < 6;
            ASSERT_EQ(inside ? static_cast<float>(100 * y + x) : 0.0f, target->image[y][x]) << y << "," << x;
        }
    free_image(source);
    free_image(target);
}

TEST(Img4Px, CopyOntoItselfKeepsPixels) {
    FIMAGE *image = alloc_image(3, 2, 4, 0);
    ASSERT_NE(nullptr, image);
    image->image[1][2] = 5.0f;
    EXPECT_EQ(1, fcopy_img(*image, *image));
    EXPECT_EQ(5.0f, image->image[1][2]);
    free_image(image);
}

TEST(Img4Px, CopyOfDifferentSizesFailsAndTouchesNothing) {
    FIMAGE *source = alloc_image(6, 4, 4, 0);
    FIMAGE *wider = alloc_image(7, 4, 4, 0);
    FIMAGE *taller = alloc_image(6, 5, 4, 0);
    ASSERT_TRUE(source && wider && taller);
    source->image[0][0] = 1.0f;
    EXPECT_EQ(0, fcopy_img(*source, *wider));
    EXPECT_EQ(0, fcopy_img(*source, *taller));
    EXPECT_EQ(0.0f, wider->image[0][0]);
    EXPECT_EQ(0.0f, taller->image[0][0]);
    free_image(source);
    free_image(wider);
    free_image(taller);
}

TEST(Img4Px, CopyWithMissingRowsFails) {
    FIMAGE *image = alloc_image(2, 2, 4, 0);
    ASSERT_NE(nullptr, image);
    const FIMAGE noTable = {nullptr, 2, 2};
    EXPECT_EQ(0, fcopy_img(noTable, *image));
    EXPECT_EQ(0, fcopy_img(*image, noTable));
    float row[2] = {1.0f, 2.0f};
    float *rows[2] = {row, nullptr};
    const FIMAGE holed = {rows, 2, 2};
    EXPECT_EQ(0, fcopy_img(holed, *image));
    EXPECT_EQ(0.0f, image->image[0][0]) << "nothing copied before the missing row was found";
    const FIMAGE negative = {rows, -1, 2};
    EXPECT_EQ(0, fcopy_img(negative, negative));
    free_image(image);
}

TEST(Img4Px, CopyOfEmptyImagesSucceeds) {
    const FIMAGE empty = {nullptr, 0, 0};
    float *rows[1] = {nullptr};
    const FIMAGE emptyWithTable = {rows, 0, 0};
    EXPECT_EQ(0, fcopy_img(empty, empty)) << "a row table is required";
    EXPECT_EQ(1, fcopy_img(emptyWithTable, emptyWithTable));
}

} // namespace
