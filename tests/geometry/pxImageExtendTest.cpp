// Enlarging a byte image by pixel replication: blocks, reads into the margin, odd sizes against a plain
// model, and the refusals that keep every read inside the source's storage.
#include <vector>

#include <gtest/gtest.h>

#include "CutPyrTestSupport.h"

namespace {

using geomtest::Image;
using geomtest::kInvalidArgument;

TEST(pxImageExtend, TwoByTwoByTwoGivesBlocks) {
    Image source(UBYTE, 2, 2);
    source.at<uint8_t>(0, 0) = 1;
    source.at<uint8_t>(0, 1) = 2;
    source.at<uint8_t>(1, 0) = 3;
    source.at<uint8_t>(1, 1) = 4;
    Image target(UBYTE, 4, 4);
    pxtest::LogCapture log;
    ASSERT_EQ(1u, pxImageExtend(source.get(), 2, target.get()));
    EXPECT_TRUE(log.records().empty());
    const uint8_t expected[4][4] = {{1, 1, 2, 2}, {1, 1, 2, 2}, {3, 3, 4, 4}, {3, 3, 4, 4}};
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            EXPECT_EQ(expected[r][c], target.at<uint8_t>(r, c)) << r << "," << c;
}

TEST(pxImageExtend, FiveByFiveReadsRowAndColumnTwoInTheMargin) {
    Image source(UBYTE, 2, 2, 1);
    source.randomBytes(1);
    Image target(UBYTE, 5, 5);
    ASSERT_EQ(1u, pxImageExtend(source.get(), 2, target.get()));
    for (int r = 0; r < 5; ++r)
        for (int c = 0; c < 5; ++c)
            EXPECT_EQ(source.at<uint8_t>(r / 2, c / 2), target.at<uint8_t>(r, c)) << r << "," << c;
    EXPECT_EQ(source.at<uint8_t>(2, 2), target.at<uint8_t>(4, 4));
}

TEST(pxImageExtend, ReadsPastTheStorageAreRefused) {
    Image source(UBYTE, 2, 2); // no margin: row 2 does not exist
    Image target(UBYTE, 5, 5);
    target.randomBytes(2);
    const auto before = target.storage();
    pxtest::LogCapture log;
    EXPECT_EQ(1u, pxImageExtend(source.get(), 2, target.get()));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImageExtend",
                                   "extension by 2 into 5x5 reads outside the source's pixels"));
    EXPECT_EQ(1u, log.records().size());
    EXPECT_EQ(before, target.storage());
}

TEST(pxImageExtend, ColumnsPastTheRowReadTheNextRow) {
    Image source(UBYTE, 2, 3); // column 2 of row 0 is column 0 of row 1
    source.randomBytes(3);
    Image target(UBYTE, 5, 4);
    ASSERT_EQ(1u, pxImageExtend(source.get(), 2, target.get()));
    EXPECT_EQ(source.at<uint8_t>(1, 0), target.at<uint8_t>(0, 4));
    EXPECT_EQ(source.at<uint8_t>(2, 0), target.at<uint8_t>(2, 4));
}

TEST(pxImageExtend, OddSizesMatchThePlainRule) {
    for (int factor : {1, 3, 4}) {
        Image source(UBYTE, 7, 5, 1);
        source.randomBytes(uint32_t(factor));
        for (int extra : {0, 1}) {
            Image target(UBYTE, 7 * factor + extra, 5 * factor + extra);
            ASSERT_EQ(1u, pxImageExtend(source.get(), factor, target.get()));
            for (int r = 0; r < target->height; ++r)
                for (int c = 0; c < target->width; ++c)
                    ASSERT_EQ(source.at<uint8_t>(r / factor, c / factor), target.at<uint8_t>(r, c));
        }
    }
}

TEST(pxImageExtend, OtherTypesAreHandledAsBytes) {
    Image source(SHORT, 3, 3);
    source.randomBytes(4);
    Image target(SHORT, 6, 6);
    target.randomBytes(5);
    const auto before = target.storage();
    ASSERT_EQ(1u, pxImageExtend(source.get(), 2, target.get()));
    const auto after = target.storage();
    for (int r = 0; r < 6; ++r) {
        const uint8_t *in = static_cast<const uint8_t *>(source->pixMap[0][r / 2]);
        for (int c = 0; c < 12; ++c)
            EXPECT_EQ(c < 6 ? in[c / 2] : before[r * 12 + c], after[r * 12 + c]) << r << "," << c;
    }
}

TEST(pxImageExtend, NegativeFactorReadsTheMargin) {
    Image source(UBYTE, 3, 3, 2);
    source.randomBytes(6);
    Image target(UBYTE, 3, 3);
    ASSERT_EQ(1u, pxImageExtend(source.get(), -1, target.get()));
    EXPECT_EQ(source.at<uint8_t>(-2, -1), target.at<uint8_t>(2, 1));
    Image narrow(UBYTE, 3, 3);
    pxtest::LogCapture log;
    EXPECT_EQ(1u, pxImageExtend(narrow.get(), -1, target.get()));
    EXPECT_EQ(1u, log.records().size());
}

TEST(pxImageExtend, BadArgumentsAreReportedAndChangeNothing) {
    Image source(UBYTE, 2, 2);
    Image target(UBYTE, 4, 4);
    target.randomBytes(7);
    const auto before = target.storage();
    pxtest::LogCapture log;
    EXPECT_EQ(1u, pxImageExtend(source.get(), 0, target.get()));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImageExtend",
                                   "pxImageExtend needs a factor other than 0"));
    EXPECT_EQ(1u, pxImageExtend(nullptr, 2, target.get()));
    EXPECT_EQ(1u, pxImageExtend(source.get(), 2, nullptr));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImageExtend",
                                   "pxImageExtend needs two images with pixels"));
    EXPECT_EQ(3u, log.records().size());
    EXPECT_EQ(before, target.storage());
}

} // namespace
