// Point crosses: rounding, arm lengths, the value written per pixel type, unsupported types, crosses in the
// margin, crosses that would leave the storage, and the two settings with their configuration keys.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "mark/MarkTestSupport.h"

namespace {

using marktest::Image;
using marktest::MarkTest;

using MarkPts = MarkTest;

TEST_F(MarkPts, NoPointsMarkNothingAndSucceed) {
    Image image(UBYTE, 8, 8);
    const std::vector<uint8_t> before = image.storage();
    const double point[2] = {3.0, 3.0};
    pxtest::LogCapture log;
    EXPECT_EQ(1u, pxImageMarkPts(point, 0, image.get()));
    EXPECT_EQ(1u, pxImageMarkPts(point, -4, image.get()));
    EXPECT_EQ(1u, pxImageMarkPts(nullptr, 0, nullptr));
    EXPECT_EQ(before, image.storage());
    EXPECT_TRUE(log.records().empty());
}

TEST_F(MarkPts, SizeFourDrawsAFiveByFiveCross) {
    pxImageMarkPtsSetParams(4, 200);
    Image image(UBYTE, 11, 11);
    const double point[2] = {5.0, 5.0};
    ASSERT_EQ(1u, pxImageMarkPts(point, 1, image.get()));
    for (int y = 0; y < 11; ++y)
        for (int x = 0; x < 11; ++x) {
            const bool onCross = (x == 5 && y >= 3 && y <= 7) || (y == 5 && x >= 3 && x <= 7);
            EXPECT_EQ(onCross ? 200 : 0, image.at<uint8_t>(y, x)) << x << "," << y;
        }
}

TEST_F(MarkPts, ArmsAreHalfTheSizeRoundedDown) {
    // size -> pixels set: 0 and 1 the centre alone, 2 and 3 arms of one, -1 the centre, -2 nothing.
    const int cases[][2] = {{0, 1}, {1, 1}, {2, 5}, {3, 5}, {5, 9}, {-1, 1}, {-2, 0}, {-7, 0}};
    for (const auto &c : cases) {
        pxImageMarkPtsSetParams(c[0], 1);
        Image image(UBYTE, 9, 9);
        const double point[2] = {4.0, 4.0};
        ASSERT_EQ(1u, pxImageMarkPts(point, 1, image.get()));
        int set = 0;
        for (uint8_t v : image.storage())
            set += v;
        EXPECT_EQ(c[1], set) << "size " << c[0];
    }
}

TEST_F(MarkPts, PointsRoundToTheNearestPixelByTruncatingXPlusHalf) {
    pxImageMarkPtsSetParams(1, 9);
    Image image(UBYTE, 20, 10, 2);
    const double points[] = {10.49, 3.5, 2.5, 7.49, -0.7, 1.2, -1.6, 0.0};
    ASSERT_EQ(1u, pxImageMarkPts(points, 4, image.get()));
    EXPECT_EQ(9, image.at<uint8_t>(4, 10)); // (10.49, 3.5): column 10, row 4
    EXPECT_EQ(9, image.at<uint8_t>(7, 3));  // (2.5, 7.49): column 3, row 7
    EXPECT_EQ(9, image.at<uint8_t>(1, 0));  // -0.7 + 0.5 = -0.2 truncates to 0
    EXPECT_EQ(9, image.at<uint8_t>(0, -1)); // -1.6 + 0.5 = -1.1 truncates to -1, in the margin
    int set = 0;
    for (uint8_t v : image.storage())
        set += v != 0;
    EXPECT_EQ(4, set);
}

TEST_F(MarkPts, ColourIsWrittenByTheTypeTable) {
    const double point[2] = {1.0, 1.0};
    pxImageMarkPtsSetParams(1, 300);
    Image bytes(UBYTE, 3, 3);
    Image floats(FLOAT, 3, 3);
    Image doubles(DOUBLE, 3, 3);
    ASSERT_EQ(1u, pxImageMarkPts(point, 1, bytes.get()));
    ASSERT_EQ(1u, pxImageMarkPts(point, 1, floats.get()));
    ASSERT_EQ(1u, pxImageMarkPts(point, 1, doubles.get()));
    EXPECT_EQ(44, bytes.at<uint8_t>(1, 1)); // low byte of 300
    EXPECT_EQ(300.0f, floats.at<float>(1, 1));
    EXPECT_EQ(300.0, doubles.at<double>(1, 1));

    pxImageMarkPtsSetParams(1, 70000);
    Image shorts(SHORT, 3, 3);
    ASSERT_EQ(1u, pxImageMarkPts(point, 1, shorts.get()));
    EXPECT_EQ(70000 & 0xFFFF, shorts.at<uint16_t>(1, 1));

    pxImageMarkPtsSetParams(1, -5);
    Image ints(INT, 3, 3);
    Image negativeFloats(FLOAT, 3, 3);
    Image negativeBytes(UBYTE, 3, 3);
    ASSERT_EQ(1u, pxImageMarkPts(point, 1, ints.get()));
    ASSERT_EQ(1u, pxImageMarkPts(point, 1, negativeFloats.get()));
    ASSERT_EQ(1u, pxImageMarkPts(point, 1, negativeBytes.get()));
    EXPECT_EQ(-5, ints.at<int32_t>(1, 1));
    EXPECT_EQ(-5.0f, negativeFloats.at<float>(1, 1));
    EXPECT_EQ(251, negativeBytes.at<uint8_t>(1, 1));

    pxImageMarkPtsSetParams(1, static_cast<int32_t>(0x89ABCDEFu));
    Image word(INT, 3, 3);
    ASSERT_EQ(1u, pxImageMarkPts(point, 1, word.get()));
    EXPECT_EQ(0x89ABCDEFu, static_cast<uint32_t>(word.at<int32_t>(1, 1)));
}

// Every markable type, with a margin: the whole storage equals the reference drawing, margins included.
template <typename T> void expectCrossesLikeReference(int32_t type, int32_t colour, T value) {
    pxImageMarkPtsSetParams(3, colour);
    Image image(type, 13, 9, 2);
    Image expected(type, 13, 9, 2);
    image.fillPattern<T>();
    expected.fillPattern<T>();
    const double points[] = {0.0, 0.0, 12.4, 8.4, 6.6, 4.2, -1.5, 8.7, 3.0, 3.0};
    pxtest::LogCapture log;
    ASSERT_EQ(1u, pxImageMarkPts(points, 5, image.get()));
    EXPECT_TRUE(log.records().empty());
    for (int i = 0; i < 5; ++i)
        marktest::referenceCross<T>(expected, points[2 * i], points[2 * i + 1], 3, value);
    EXPECT_EQ(expected.storage(), image.storage()) << "type " << type;
}

TEST_F(MarkPts, CrossesInEveryMarkableTypeReachIntoTheMargin) {
    expectCrossesLikeReference<uint8_t>(UBYTE, 0x1234, 0x34);
    expectCrossesLikeReference<uint16_t>(SHORT, 0x123456, 0x3456);
    expectCrossesLikeReference<int32_t>(INT, -77, -77);
    expectCrossesLikeReference<float>(FLOAT, 16777217, 16777216.0f); // int -> float rounding
    expectCrossesLikeReference<double>(DOUBLE, -2147483647 - 1, -2147483648.0);
}

TEST_F(MarkPts, UnsupportedTypesAreReportedPerPointAndMarkingGoesOn) {
    pxImageMarkPtsSetParams(3, 255);
    for (int32_t type : {CBIT, CSHORT, SHORT12}) {
        Image image(type, 6, 6);
        const std::vector<uint8_t> before = image.storage();
        const double points[] = {1.0, 1.0, 2.0, 2.0, 3.0, 3.0};
        pxtest::LogCapture log;
        EXPECT_EQ(1u, pxImageMarkPts(points, 3, image.get()));
        EXPECT_EQ(before, image.storage());
        ASSERT_EQ(3u, log.records().size()) << type;
        for (const pxtest::LogRecord &r : log.records()) {
            EXPECT_EQ(PXENV_LOG_ERROR, r.kind);
            EXPECT_EQ(5, r.level);
            EXPECT_EQ(0xC41A0004u, r.code);
            EXPECT_EQ("pxImageMarkPts", r.module);
            EXPECT_EQ("pixel type not supported by the operation", r.text);
        }
    }
}

TEST_F(MarkPts, CrossLeavingTheStorageIsReportedAndSkippedTheOthersDrawn) {
    pxImageMarkPtsSetParams(5, 7); // arms of 2
    Image image(UBYTE, 10, 8, 1);
    const double points[] = {0.0, 4.0, 5.0, 4.0, 8.0, 4.0, 5.0, 6.6};
    Image expected(UBYTE, 10, 8, 1);
    marktest::referenceCross<uint8_t>(expected, 5.0, 4.0, 5, 7);
    marktest::referenceCross<uint8_t>(expected, 8.0, 4.0, 5, 7); // reaches column 10, the margin
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageMarkPts(points, 4, image.get()));
    EXPECT_EQ(expected.storage(), image.storage());
    EXPECT_TRUE(
        log.has(5, 0xC43D0003u, "pxImageMarkPts",
                "Cross at column 0, row 4 with arms of 2 reaches outside the 10 x 8 image and its border "
                "of 1; skipped"));
    EXPECT_TRUE(
        log.has(5, 0xC43D0003u, "pxImageMarkPts",
                "Cross at column 5, row 7 with arms of 2 reaches outside the 10 x 8 image and its border "
                "of 1; skipped"));
    EXPECT_EQ(2u, log.messages().size());
    EXPECT_EQ(1u, log.traceCount());
}

TEST_F(MarkPts, HugeAndNonFiniteCoordinatesAreOutsideTheStorage) {
    pxImageMarkPtsSetParams(1, 7);
    Image image(FLOAT, 4, 4, 3);
    const std::vector<uint8_t> before = image.storage();
    const double points[] = {1e12, 1.0, 1.0, -1e300, NAN, 2.0, 2.0, INFINITY, 2147483647.0, 0.0, -7.0, 0.0};
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageMarkPts(points, 6, image.get()));
    EXPECT_EQ(before, image.storage());
    EXPECT_EQ(6u, log.messages().size());
}

TEST_F(MarkPts, MissingPointsOrImageAreInvalidArguments) {
    Image image(UBYTE, 4, 4);
    tag_pxImage *empty = nullptr;
    ASSERT_EQ(1u, pxImageCreateEmpty(&empty));
    const double point[2] = {1.0, 1.0};
    for (int i = 0; i < 3; ++i) {
        pxtest::LogCapture log;
        const uint32_t result = i == 0   ? pxImageMarkPts(nullptr, 1, image.get())
                                : i == 1 ? pxImageMarkPts(point, 1, nullptr)
                                         : pxImageMarkPts(point, 1, empty);
        EXPECT_EQ(0u, result);
        EXPECT_TRUE(
            log.has(5, 0xC43D0003u, "pxImageMarkPts", "Marking needs the points and an image with pixels"));
    }
    pxImageDestruct(&empty);
}

// ---- Settings --------------------------------------------------------------------------------------------

// The colour and the arm length that the settings in force draw with.
std::pair<int, int> drawnSettings() {
    Image image(INT, 21, 21, 0);
    const double point[2] = {10.0, 10.0};
    EXPECT_EQ(1u, pxImageMarkPts(point, 1, image.get()));
    int arm = 0;
    while (arm < 10 && image.at<int32_t>(10, 11 + arm) != 0)
        ++arm;
    return {image.at<int32_t>(10, 10), arm};
}

TEST_F(MarkPts, InitReadsBothKeys) {
    ASSERT_EQ(1, pxEnvSetParam("pxImageMarkPtsColor", "77"));
    ASSERT_EQ(1, pxEnvSetParam("pxImageMarkPtsCrossSize", "7"));
    pxtest::LogCapture log;
    EXPECT_EQ(1u, pxImageMarkPts_init());
    EXPECT_TRUE(log.records().empty());
    EXPECT_EQ(std::make_pair(77, 3), drawnSettings());
}

TEST_F(MarkPts, InitWithoutKeysTakesTheDefaults) {
    pxImageMarkPtsSetParams(9, 5);
    ASSERT_EQ(1u, pxImageMarkPts_init());
    // Colour 0 cannot be seen in a zero image: draw into a filled one.
    Image image(UBYTE, 5, 5);
    const uint8_t one = 1;
    ASSERT_EQ(1u, pxImageSetValue(image.get(), &one));
    const double point[2] = {2.0, 2.0};
    ASSERT_EQ(1u, pxImageMarkPts(point, 1, image.get()));
    EXPECT_EQ(0, image.at<uint8_t>(2, 2));
    EXPECT_EQ(1, image.at<uint8_t>(2, 3)); // size 1: no arms
}

TEST_F(MarkPts, MistypedColourFailsBeforeTheSizeIsRead) {
    pxImageMarkPtsSetParams(9, 5);
    ASSERT_EQ(1, pxEnvSetParam("pxImageMarkPtsColor", "12abc"));
    ASSERT_EQ(1, pxEnvSetParam("pxImageMarkPtsCrossSize", "3"));
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageMarkPts_init());
    EXPECT_EQ(1u, log.traceCount());
    EXPECT_TRUE(log.messages().empty());
    // The colour took its default; the size was not read and stays 9.
    pxImageMarkPtsSetParams(9, 5);
    EXPECT_EQ(0u, pxImageMarkPts_init());
    Image image(INT, 21, 21);
    const int32_t minusOne = -1;
    ASSERT_EQ(1u, pxImageSetValue(image.get(), &minusOne));
    const double point[2] = {10.0, 10.0};
    ASSERT_EQ(1u, pxImageMarkPts(point, 1, image.get()));
    EXPECT_EQ(0, image.at<int32_t>(10, 14));
    EXPECT_EQ(-1, image.at<int32_t>(10, 15));
}

TEST_F(MarkPts, MistypedSizeFailsAfterTheColourWasRead) {
    ASSERT_EQ(1, pxEnvSetParam("pxImageMarkPtsColor", "41"));
    ASSERT_EQ(1, pxEnvSetParam("pxImageMarkPtsCrossSize", "1.5"));
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageMarkPts_init());
    EXPECT_EQ(1u, log.traceCount());
    EXPECT_EQ(std::make_pair(41, 0), drawnSettings()); // the size took its default 1
}

TEST_F(MarkPts, SetParamsReplacesBothSettingsAndAlwaysSucceeds) {
    EXPECT_EQ(1u, pxImageMarkPtsSetParams(5, 1234));
    EXPECT_EQ(std::make_pair(1234, 2), drawnSettings());
    EXPECT_EQ(1u, pxImageMarkPtsSetParams(-3, -9));
    const double point[2] = {1.0, 1.0};
    Image image(INT, 3, 3);
    ASSERT_EQ(1u, pxImageMarkPts(point, 1, image.get()));
    EXPECT_EQ(0, image.at<int32_t>(1, 1)); // arms of -3 / 2 = -1: both arms are empty
    EXPECT_EQ(1u, pxImageMarkPtsSetParams(-1, -9));
    ASSERT_EQ(1u, pxImageMarkPts(point, 1, image.get()));
    EXPECT_EQ(-9, image.at<int32_t>(1, 1)); // arms of -1 / 2 = 0: the centre
}

// Writes a parameter file with the two keys and returns its name.
std::string writeParameterFile(const char *colour, const char *size) {
    char name[] = "/tmp/pxImageMarkParamsXXXXXX";
    const int fd = mkstemp(name);
    EXPECT_GE(fd, 0);
    close(fd);
    std::ofstream(name) << "# mark settings\npxImageMarkPtsColor = " << colour
                        << "\npxImageMarkPtsCrossSize = " << size << "\n";
    return name;
}

TEST_F(MarkPts, InitReadsTheParameterFile) {
    const std::string file = writeParameterFile("250", "3");
    ASSERT_EQ(1, pxEnvLoadParamFile(file.c_str()));
    std::remove(file.c_str());
    EXPECT_EQ(1u, pxImageMarkPts_init());
    EXPECT_EQ(std::make_pair(250, 1), drawnSettings());
}

// In a fresh process, the first marking call reads the settings from the file of PXENV_PARAM_FILE, once;
// a later change of the store does not reach marking until pxImageMarkPts_init runs again.
bool firstMarkReadsTheFile() {
    const std::string file = writeParameterFile("99", "5");
    setenv("PXENV_PARAM_FILE", file.c_str(), 1);
    const std::pair<int, int> first = drawnSettings();
    pxEnvSetParam("pxImageMarkPtsColor", "11");
    const std::pair<int, int> second = drawnSettings();
    pxImageMarkPts_init();
    const std::pair<int, int> third = drawnSettings();
    std::remove(file.c_str());
    return first == std::make_pair(99, 2) && second == first && third == std::make_pair(11, 2);
}

TEST(MarkPtsSettings, FirstMarkReadsTheParameterFileOnce) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(std::exit(firstMarkReadsTheFile() ? 0 : 1), testing::ExitedWithCode(0), "");
}

// In a fresh process with a mistyped colour, the first mark warns once and draws with the defaults.
bool firstMarkWarnsOnAMistypedSetting() {
    pxEnvClearParams();
    pxEnvSetParam("pxImageMarkPtsColor", "red");
    pxtest::LogCapture log;
    const std::pair<int, int> first = drawnSettings();
    const std::pair<int, int> second = drawnSettings();
    return first == std::make_pair(0, 0) && second == first && log.traceCount() == 1 &&
           log.has(
               4, 0, "pxImageMarkPts",
               "Mark settings could not be read from the configuration; colour 0 and cross size 1 in use");
}

TEST(MarkPtsSettings, FirstMarkWarnsOnceOnAMistypedSetting) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(std::exit(firstMarkWarnsOnAMistypedSetting() ? 0 : 1), testing::ExitedWithCode(0), "");
}

} // namespace
