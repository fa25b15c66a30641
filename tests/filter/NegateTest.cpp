// Negation of byte and float rows: complement of width bytes per row, 255 - value in single precision,
// whatever the declared type; an empty image; a type too narrow to hold floats.
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "filter/BoxTestSupport.h"

namespace {

using boxtest::TestImage;

TEST(Negate, ComplementsEveryByteOfTheImageProper) {
    TestImage image(UBYTE, 11, 7, 2);
    TestImage original(UBYTE, 11, 7, 2);
    boxtest::fillRandom(image, 4);
    boxtest::fillRandom(original, 4);
    pxtest::LogCapture log;
    ASSERT_EQ(1u, pxImageOperationsNegate(image.get()));
    EXPECT_TRUE(log.records().empty());
    for (int y = -2; y < 9; ++y)
        for (int x = -2; x < 13; ++x) {
            const bool inside = y >= 0 && y < 7 && x >= 0 && x < 11;
            const uint8_t v = original.at<uint8_t>(y, x);
            ASSERT_EQ(inside ? 255 - v : v, image.at<uint8_t>(y, x));
        }
}

TEST(Negate, WorksOnWidthBytesWhateverTheType) {
    TestImage image(SHORT, 4, 2, 0);
    for (int x = 0; x < 4; ++x)
        image.at<uint16_t>(0, x) = 0x1234;
    ASSERT_EQ(1u, pxImageOperationsNegate(image.get()));
    EXPECT_EQ(0xEDCB, image.at<uint16_t>(0, 0));
    EXPECT_EQ(0xEDCB, image.at<uint16_t>(0, 1));
    EXPECT_EQ(0x1234, image.at<uint16_t>(0, 2)); // only the first 4 bytes of the row
}

TEST(Negate, FloatsBecome255MinusValue) {
    TestImage image(FLOAT, 9, 5, 1);
    TestImage original(FLOAT, 9, 5, 1);
    boxtest::fillRandom(image, 6);
    boxtest::fillRandom(original, 6);
    ASSERT_EQ(1u, pxImageOperationsNegateFloat(image.get()));
    for (int y = -1; y < 6; ++y)
        for (int x = -1; x < 10; ++x) {
            const bool inside = y >= 0 && y < 5 && x >= 0 && x < 9;
            const float v = original.at<float>(y, x);
            ASSERT_TRUE(boxtest::sameBits(inside ? 255.0f - v : v, image.at<float>(y, x)));
        }
}

TEST(Negate, FloatNegationOfAnIntImageTreatsItsBitsAsFloats) {
    TestImage image(INT, 1, 1, 0);
    image.at<float>(0, 0) = 5.0f;
    ASSERT_EQ(1u, pxImageOperationsNegateFloat(image.get()));
    EXPECT_EQ(250.0f, image.at<float>(0, 0));
}

TEST(Negate, EmptyImagesSucceedUntouched) {
    tag_pxImage *empty = nullptr;
    ASSERT_EQ(1u, pxImageCreateEmpty(&empty));
    pxtest::LogCapture log;
    EXPECT_EQ(1u, pxImageOperationsNegate(empty));
    EXPECT_EQ(1u, pxImageOperationsNegateFloat(empty));
    EXPECT_EQ(1u, pxImageOperationsNegate(nullptr));
    EXPECT_TRUE(log.records().empty());
    pxImageDestruct(&empty);
}

// Rows of `width` floats do not fit in a byte or 16-bit plane: reported and left alone instead of written
// past it; the result is 1 as for every call.
TEST(Negate, FloatNegationRefusesNarrowPixels) {
    for (int32_t type : {UBYTE, SHORT}) {
        TestImage image(type, 6, 3, 0);
        boxtest::fillRandom(image, 1);
        const std::vector<uint8_t> before = image.storage();
        pxtest::LogCapture log;
        EXPECT_EQ(1u, pxImageOperationsNegateFloat(image.get()));
        ASSERT_EQ(1u, log.records().size());
        EXPECT_TRUE(log.has(5, 0xC41A0004u, "pxImageOperations",
                            "Pixel type " + std::to_string(type) + " holds no 32-bit floats"));
        EXPECT_EQ(before, image.storage());
    }
}

// A type-0 record has pixels of no bytes: its rows cannot hold `width` bytes, so the call reports it and
// writes nothing instead of complementing bytes past the plane. So does a record with an unknown type.
TEST(Negate, ByteNegationRefusesPixelsOfNoBytes) {
    tag_pxImage *image = nullptr;
    ASSERT_EQ(1u, pxImageConstruct(0, 6, 3, 2, 1, &image));
    pxtest::LogCapture log;
    EXPECT_EQ(1u, pxImageOperationsNegate(image));
    ASSERT_EQ(1u, log.records().size());
    EXPECT_TRUE(log.has(5, 0xC41A0004u, "pxImageOperations", "Pixel type 0 holds no bytes"));
    pxImageDestruct(&image);

    TestImage other(UBYTE, 4, 2, 0);
    boxtest::fillRandom(other, 2);
    const std::vector<uint8_t> before = other.storage();
    other.get()->type = 9;
    log.clear();
    EXPECT_EQ(1u, pxImageOperationsNegate(other.get()));
    EXPECT_TRUE(log.has(5, 0xC41A0004u, "pxImageOperations", "Pixel type 9 holds no bytes"));
    other.get()->type = UBYTE;
    EXPECT_EQ(before, other.storage());
}

} // namespace
