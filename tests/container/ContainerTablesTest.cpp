// The grab-type tables of the container: image count, double and triple exposure, the kind words of both
// namings and the compression class, for every grab type 0..56.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "container/ContainerTestUtil.h"
#include "support/LogCapture.h"

namespace {

using pxtest::grab;
using pxtest::TestContainer;

struct Row {
    int type;
    const char *current; // kind words of exposures 0, 1, 2 in the current naming
    const char *older;   // ... in the older naming
};

// Written from the naming tables: a single-kind grab gives its word for every exposure.
const Row KIND_TABLE[57] = {
    {0, "IMG IMG IMG", "IMG IMG IMG"},  {1, "FLS FLS FLS", "FLS FLS FLS"},
    {2, "PRJ PRJ PRJ", "PRJ PRJ PRJ"},  {3, "LGT LGT LGT", "LGT LGT LGT"},
    {4, "IMG IMG IMG", "IMG IMG IMG"},  {5, "FLS PRJ IMG", "FLS PRJ IMG"},
    {6, "FLS LGT IMG", "FLS LGT IMG"},  {7, "IMG IMG IMG", "IMG IMG IMG"},
    {8, "PRJ LGT IMG", "PRJ LGT IMG"},  {9, "LIN LIN LIN", "PRJ PRJ PRJ"},
    {10, "LIN LIN LIN", "PRJ PRJ PRJ"}, {11, "LIN LIN LIN", "PRJ PRJ PRJ"},
    {12, "BRT BRT BRT", "PRJ PRJ PRJ"}, {13, "FLS LIN IMG", "FLS PRJ IMG"},
    {14, "FLS LIN IMG", "FLS PRJ IMG"}, {15, "FLS LIN IMG", "FLS PRJ IMG"},
    {16, "LIN LIN LIN", "PRJ PRJ PRJ"}, {17, "FLS LIN IMG", "FLS PRJ IMG"},
    {18, "FLS BRT IMG", "FLS PRJ IMG"}, {19, "IMG IMG IMG", "IMG IMG IMG"},
    {20, "IMG IMG IMG", "IMG IMG IMG"}, {21, "LGT LGT LGT", "LGT LGT LGT"},
    {22, "IMG IMG IMG", "IMG IMG IMG"}, {23, "FLS PRJ FLS", "FLS PRJ FLS"},
    {24, "FLS LIN FLS", "FLS PRJ FLS"}, {25, "FLS LIN FLS", "FLS PRJ FLS"},
    {26, "FLS LIN FLS", "FLS PRJ FLS"}, {27, "FLS BRT FLS", "FLS PRJ FLS"},
    {28, "LIN LIN LIN", "PRJ PRJ PRJ"}, {29, "LIN LIN LIN", "PRJ PRJ PRJ"},
    {30, "LIN LIN LIN", "PRJ PRJ PRJ"}, {31, "LIN LIN LIN", "PRJ PRJ PRJ"},
    {32, "LIN LIN LIN", "PRJ PRJ PRJ"}, {33, "LIN LIN LIN", "PRJ PRJ PRJ"},
    {34, "LIN LIN LIN", "PRJ PRJ PRJ"}, {35, "LIN LIN LIN", "PRJ PRJ PRJ"},
    {36, "LIN LIN LIN", "PRJ PRJ PRJ"}, {37, "IMG IMG IMG", "IMG IMG IMG"},
    {38, "LGT PRJ IMG", "LGT PRJ IMG"}, {39, "FLS LGT FLS", "FLS LGT FLS"},
    {40, "IMG IMG IMG", "IMG IMG IMG"}, {41, "PRJ PRJ PRJ", "PRJ PRJ PRJ"},
    {42, "LIN LIN LIN", "PRJ PRJ PRJ"}, {43, "LIN LIN LIN", "PRJ PRJ PRJ"},
    {44, "LIN LIN LIN", "PRJ PRJ PRJ"}, {45, "LIN LIN LIN", "PRJ PRJ PRJ"},
    {46, "LIN LIN LIN", "PRJ PRJ PRJ"}, {47, "LIN LIN LIN", "PRJ PRJ PRJ"},
    {48, "LIN LIN LIN", "PRJ PRJ PRJ"}, {49, "LIN LIN LIN", "PRJ PRJ PRJ"},
    {50, "LIN LIN LIN", "PRJ PRJ PRJ"}, {51, "LIN LIN LIN", "PRJ PRJ PRJ"},
    {52, "LIN LIN LIN", "PRJ PRJ PRJ"}, {53, "LIN LIN LIN", "PRJ PRJ PRJ"},
    {54, "BRT BRT BRT", "PRJ PRJ PRJ"}, {55, "FLS PRJ LGT", "FLS PRJ LGT"},
    {56, "IMG IMG IMG", "IMG IMG IMG"},
};

const std::set<int> TWO_EXPOSURES = {5, 6, 8, 13, 14, 15, 17, 18, 38};
const std::set<int> THREE_EXPOSURES = {23, 24, 25, 26, 27, 39, 55};
const std::set<int> DOUBLE = {5, 6, 13, 14, 15, 17, 18, 38};
const std::set<int> TRIPLE = {23, 24, 25, 26, 27, 39};
const std::set<int> LOGGED_CLASS = {0, 4, 7, 19, 20, 22, 40, 56};

std::string words(const char16_t *(*kind)(PxGrabType, int), int type) {
    std::string out;
    for (int e = 0; e < 3; ++e)
        out += (e ? " " : "") + pxtest::narrow(kind(grab(type), e));
    return out;
}

int classOf(const std::string &word) {
    if (word == "FLS")
        return 1;
    if (word == "PRJ")
        return 2;
    if (word == "LGT")
        return 4;
    if (word == "BRT")
        return 5;
    if (word == "LIN")
        return 6;
    return 0;
}

TEST(ContainerTables, ImageCountPerGrabType) {
    for (int t = 0; t <= 56; ++t) {
        TestContainer c;
        c.SetType(grab(t));
        const int exposures = TWO_EXPOSURES.count(t) ? 2 : THREE_EXPOSURES.count(t) ? 3 : 1;
        EXPECT_EQ(exposures, TestContainer::exposures(grab(t))) << t;
        EXPECT_EQ(3 * exposures, c.numImages()) << t;
    }
    EXPECT_EQ(1, TestContainer::exposures(grab(-1)));
}

TEST(ContainerTables, DoubleAndTripleExposure) {
    for (int t = 0; t <= 56; ++t) {
        TestContainer c;
        c.SetType(grab(t));
        EXPECT_EQ(DOUBLE.count(t) == 1, c.IsDoubleExposure()) << t;
        EXPECT_EQ(TRIPLE.count(t) == 1, c.IsTripleExposure()) << t;
    }
}

TEST(ContainerTables, Type8HasTwoExposuresButIsNotDouble) {
    TestContainer c;
    c.SetType(grab(8));
    EXPECT_EQ(6, c.numImages());
    EXPECT_FALSE(c.IsDoubleExposure());
}

TEST(ContainerTables, Type55HasThreeExposuresButIsNotTriple) {
    TestContainer c;
    c.SetType(grab(55));
    EXPECT_EQ(9, c.numImages());
    EXPECT_FALSE(c.IsTripleExposure());
}

TEST(ContainerTables, CurrentKindWords) {
    for (const Row &row : KIND_TABLE)
        EXPECT_EQ(row.current, words(&TestContainer::kindWord, row.type)) << row.type;
    EXPECT_EQ("IMG IMG IMG", words(&TestContainer::kindWord, -5));
    EXPECT_EQ("IMG IMG IMG", words(&TestContainer::kindWord, 1000));
}

TEST(ContainerTables, OlderKindWords) {
    for (const Row &row : KIND_TABLE)
        EXPECT_EQ(row.older, words(&TestContainer::oldKindWord, row.type)) << row.type;
    EXPECT_EQ("IMG IMG IMG", words(&TestContainer::oldKindWord, -5));
}

TEST(ContainerTables, CompressionClassFollowsTheCurrentKindWords) {
    for (const Row &row : KIND_TABLE) {
        const std::string current = row.current;
        for (int e = 0; e < 3; ++e) {
            pxtest::LogCapture log;
            const int expected = LOGGED_CLASS.count(row.type) ? 0 : classOf(current.substr(4 * e, 3));
            EXPECT_EQ(expected, TestContainer::compressionClass(grab(row.type), e)) << row.type << " " << e;
            if (LOGGED_CLASS.count(row.type)) {
                ASSERT_EQ(1u, log.records().size()) << row.type;
                const pxtest::LogRecord &r = log.records()[0];
                EXPECT_EQ(PXENV_LOG_F, r.kind);
                EXPECT_EQ(5, r.level);
                EXPECT_EQ("PxImageContainer", r.module);
                EXPECT_EQ("Invalid type of image container. Type=" + std::to_string(row.type), r.text);
            } else {
                EXPECT_TRUE(log.records().empty()) << row.type;
            }
        }
    }
}

TEST(ContainerTables, Type37GivesClassZeroSilently) {
    pxtest::LogCapture log;
    EXPECT_EQ(0, TestContainer::compressionClass(grab(37), 0));
    EXPECT_TRUE(log.records().empty());
}

TEST(ContainerTables, NegativeTypeIsLoggedWithItsValue) {
    pxtest::LogCapture log;
    EXPECT_EQ(0, TestContainer::compressionClass(grab(-3), 0));
    EXPECT_TRUE(log.has(5, 0, "PxImageContainer", "Invalid type of image container. Type=-3"));
}

} // namespace
