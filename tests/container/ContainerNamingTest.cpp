// Set numbers, tile and type setters, and the directory and file names a container builds.
#include <gtest/gtest.h>

#include <string>

#include "container/ContainerTestUtil.h"
#include "pxEnvPath.h"

namespace {

using pxtest::grab;
using pxtest::TestContainer;

class ContainerNaming : public ::testing::Test {
  protected:
    void SetUp() override { PxFileName::SetSeparator(u'\\'); }
};

TEST_F(ContainerNaming, SetPrefixOfATripleExposureFillsSetNum2) {
    TestContainer c;
    c.SetPrefix(grab(24), 7, 9, 0);
    EXPECT_EQ(24, c.GetType());
    EXPECT_EQ(7u, c.setNum(0));
    EXPECT_EQ(9u, c.setNum(1));
    EXPECT_EQ(8u, c.setNum(2));
}

TEST_F(ContainerNaming, SetPrefixOfADoubleExposureKeepsSetNum2Zero) {
    TestContainer c;
    c.SetPrefix(grab(5), 7, 9, 0);
    EXPECT_EQ(0u, c.setNum(2));
}

TEST_F(ContainerNaming, SetPrefixOfType55KeepsSetNum2Zero) {
    TestContainer c;
    c.SetPrefix(grab(55), 7, 9, 0);
    EXPECT_EQ(0u, c.setNum(2));
}

TEST_F(ContainerNaming, SetPrefixKeepsAGivenSetNum2) {
    TestContainer c;
    c.SetPrefix(grab(39), 7, 9, 5);
    EXPECT_EQ(5u, c.setNum(2));
}

TEST_F(ContainerNaming, SetPrefixWithTile) {
    TestContainer c;
    c.SetPrefix(12, grab(23), 1, 2, 0);
    EXPECT_EQ(12u, c.GetId());
    EXPECT_EQ(23, c.GetType());
    EXPECT_EQ(2u, c.setNum(2));
}

TEST_F(ContainerNaming, SetPrefixOld) {
    TestContainer c;
    c.SetPrefixOld(grab(5), 7, 9);
    EXPECT_EQ(5, c.GetType());
    EXPECT_EQ(7u, c.oldSetNum(0));
    EXPECT_EQ(9u, c.oldSetNum(1));
    EXPECT_EQ(8u, c.oldSetNum(2));
    EXPECT_EQ(0u, c.setNum(0));
    c.SetPrefixOld(4, grab(6), 1, 2);
    EXPECT_EQ(4u, c.GetId());
    EXPECT_EQ(6, c.GetType());
    EXPECT_EQ(2u, c.oldSetNum(2));
}

TEST_F(ContainerNaming, SimpleSetters) {
    TestContainer c;
    c.SetID(42).SetType(grab(13)).SetDir(u"dir");
    EXPECT_EQ(42u, c.GetId());
    EXPECT_EQ(13, c.GetType());
    EXPECT_EQ(u"dir", c.GetDir());
}

TEST_F(ContainerNaming, CurrentAndOlderNamesOfEverySlot) {
    TestContainer c;
    c.SetPrefix(7, grab(13), 10, 20, 0).SetPrefixOld(grab(13), 30, 40);
    const char16_t *current[6] = {u"g\\T00007_FLS_00010_0.pxi", u"g\\T00007_FLS_00010_1.pxi",
                                  u"g\\T00007_FLS_00010_2.pxi", u"g\\T00007_LIN_00020_0.pxi",
                                  u"g\\T00007_LIN_00020_1.pxi", u"g\\T00007_LIN_00020_2.pxi"};
    const char16_t *older[6] = {u"g\\T00007_FLS_00030_0.pxi", u"g\\T00007_FLS_00030_1.pxi",
                                u"g\\T00007_FLS_00030_2.pxi", u"g\\T00007_PRJ_00040_0.pxi",
                                u"g\\T00007_PRJ_00040_1.pxi", u"g\\T00007_PRJ_00040_2.pxi"};
    for (size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(current[i], c.name(u"g", i)) << i;
        EXPECT_EQ(older[i], c.name(u"g", i, true)) << i;
    }
}

TEST_F(ContainerNaming, ThirdExposureUsesSetNum2AndOldSetNum2) {
    TestContainer c;
    c.SetPrefix(1, grab(23), 10, 20, 0).SetPrefixOld(grab(23), 30, 40);
    EXPECT_EQ(u"T00001_FLS_00011_2.pxi", c.name(u"", 8));
    EXPECT_EQ(u"T00001_FLS_00031_2.pxi", c.name(nullptr, 8, true));
}

TEST_F(ContainerNaming, DirectoryNames) {
    TestContainer c;
    c.SetID(7).SetDir(u"own");
    char16_t out[64];
    ASSERT_TRUE(c.MakeDirName(0, u"given", out, 64));
    EXPECT_EQ(u"given", std::u16string(out));
    ASSERT_TRUE(c.MakeDirName(1, u"given", out, 64));
    EXPECT_EQ(u"given\\7", std::u16string(out));
    ASSERT_TRUE(c.MakeDirName(1, nullptr, out, 64));
    EXPECT_EQ(u"own\\7", std::u16string(out));
    ASSERT_TRUE(c.MakeDirName(0, nullptr, out, 64));
    EXPECT_EQ(u"own", std::u16string(out));
    EXPECT_FALSE(c.MakeDirName(1, u"given", out, 7));
}

TEST_F(ContainerNaming, DirectoryNameOfATileAboveTheSignedRangeIsPrintedSigned) {
    TestContainer c;
    c.SetID(4294967295u);
    char16_t out[64];
    ASSERT_TRUE(c.MakeDirName(1, u"g", out, 64));
    EXPECT_EQ(u"g\\-1", std::u16string(out));
    c.SetID(2147483648u);
    ASSERT_TRUE(c.MakeDirName(1, u"g", out, 64));
    EXPECT_EQ(u"g\\-2147483648", std::u16string(out));
}

} // namespace
