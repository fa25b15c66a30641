// Writing and reading the images of a container: encodings chosen per kind, fallbacks, the older naming,
// the settings and every error the container reports.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>

#include "container/ContainerTestUtil.h"
#include "pxEnvPath.h"
#include "support/LogCapture.h"

namespace {

using pxtest::grab;
using pxtest::makeImage;
using pxtest::narrow;
using pxtest::pixel;
using pxtest::storedType;
using pxtest::TempDir;
using pxtest::TestContainer;

const std::string MODULE = "PxImageContainer";

// SHORT image whose every pixel has 12 in its low four bits, so SHORT12 keeps it exactly.
tag_pxImage *short12Exact(int seed) {
    return makeImage(SHORT, 9, 7, 0,
                     [seed](int x, int y) { return ((seed * 37 + x * 13 + y * 101) << 4) | 12; });
}

// SHORT image of one value: CSHORT stores it as runs of that value, exactly.
tag_pxImage *constantShort(int value) {
    return makeImage(SHORT, 9, 7, 0, [value](int, int) { return value; });
}

// SHORT noise that the CSHORT compressor refuses ("Images size is too large %d").
tag_pxImage *noiseShort(unsigned seed) {
    std::mt19937 random(seed);
    return makeImage(SHORT, 32, 24, 0,
                     [&random](int, int) { return static_cast<double>(random() & 0xFFFF); });
}

// Expects one sendError record with this code and text argument formatted by the environment.
void expectSendError(const pxtest::LogCapture &log, uint32_t code, const std::string &text) {
    int found = 0;
    for (const pxtest::LogRecord &r : log.records()) {
        if (r.kind != PXENV_LOG_ERROR)
            continue;
        ++found;
        EXPECT_EQ(5, r.level);
        EXPECT_EQ(code, r.code);
        EXPECT_EQ(MODULE, r.module);
        EXPECT_EQ(text, r.text);
    }
    EXPECT_EQ(1, found);
}

int sendErrorCount(const pxtest::LogCapture &log) {
    int n = 0;
    for (const pxtest::LogRecord &r : log.records())
        n += r.kind == PXENV_LOG_ERROR ? 1 : 0;
    return n;
}

void expectSamePixels(const tag_pxImage *expected, const tag_pxImage *actual) {
    ASSERT_NE(nullptr, actual);
    ASSERT_EQ(expected->width, actual->width);
    ASSERT_EQ(expected->height, actual->height);
    for (int y = 0; y < expected->height; ++y)
        for (int x = 0; x < expected->width; ++x)
            ASSERT_EQ(pixel(expected, x, y), pixel(actual, x, y)) << x << "," << y;
}

// Stored type of the file of slot i written by a container set up like c into dir.
int32_t storedTypeOf(const TestContainer &c, const TempDir &dir, size_t i) {
    return storedType(c.name(dir.wide().c_str(), i));
}

class ContainerFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        pxEnvClearParams();
        PxImageContainer::freeInstance();
        // The separator that Read and Write set, so that names built before them match.
        PxFileName::SetSeparator(u'\\');
        baseline_ = pxEnvLiveAllocations();
    }
    void TearDown() override {
        pxEnvClearParams();
        PxImageContainer::freeInstance();
        EXPECT_EQ(baseline_, pxEnvLiveAllocations()) << "leak";
    }
    // Settings as the environment will report them from the next one-time reading on.
    static void settings(const char *fls, const char *clrAndTxt) {
        pxEnvSetParam("pxImageContainerCompressFLS", fls);
        pxEnvSetParam("pxImageContainerCompressCLRandTXT", clrAndTxt);
    }
    TempDir dir_;
    long baseline_ = 0;
};

// Writes a full grab of a three-exposure type and reads it back: FLS images go CSHORT (or, refused, SHORT12),
// the others SHORT12, and images that are not 16-bit, or have a border, plain; pixels come back exactly where
// the encoding keeps them.
void roundTripThreeExposures(PxGrabType type, const TempDir &dir) {
    const bool thirdIsFls = type != 55;
    TestContainer out;
    out.SetPrefix(7, type, 10, 20, 30);
    tag_pxImage *noise = noiseShort(5);
    tag_pxImage *bordered = makeImage(SHORT, 6, 5, 2, [](int x, int y) { return 1000 * y + x; });
    out.Add(constantShort(1000))
        .Add(noise)
        .Add(makeImage(UBYTE, 5, 4, 0, [](int x, int y) { return 17 * x + 3 * y; }))
        .Add(short12Exact(1))
        .Add(makeImage(FLOAT, 5, 4, 0, [](int x, int y) { return 0.25 * x - y; }))
        .Add(bordered)
        .Add(thirdIsFls ? constantShort(2000) : short12Exact(2))
        .Add(makeImage(INT, 5, 4, 0, [](int x, int y) { return -70000 * x + y; }))
        .Add(makeImage(DOUBLE, 5, 4, 0, [](int x, int y) { return 1e-3 * x + 1e6 * y; }));
    {
        pxtest::LogCapture log;
        ASSERT_TRUE(out.Write(dir.wide().c_str()));
        EXPECT_EQ(0, sendErrorCount(log));
    }
    EXPECT_EQ(9u, dir.count());
    const int32_t expectedStored[9] = {
        CSHORT, SHORT12, UBYTE, SHORT12, FLOAT, SHORT, thirdIsFls ? CSHORT : SHORT12, INT, DOUBLE};
    for (size_t i = 0; i < 9; ++i)
        EXPECT_EQ(expectedStored[i], storedTypeOf(out, dir, i)) << i;

    TestContainer in;
    in.SetPrefix(7, type, 10, 20, 30);
    pxtest::LogCapture log;
    ASSERT_TRUE(in.Read(dir.wide().c_str()));
    EXPECT_TRUE(log.messages().empty());
    ASSERT_EQ(9u, in.GetCount());
    const int32_t expectedType[9] = {SHORT, SHORT, UBYTE, SHORT, FLOAT, SHORT, SHORT, INT, DOUBLE};
    for (size_t i = 0; i < 9; ++i) {
        ASSERT_NE(nullptr, in[i]) << i;
        EXPECT_EQ(expectedType[i], in[i]->type) << i;
        EXPECT_EQ(0, in[i]->border) << i;
    }
    // Lossless: the constant CSHORT images, SHORT12 images with low nibble 12, and every plain file.
    for (size_t i : {0, 2, 3, 4, 5, 6, 7, 8})
        expectSamePixels(out[i], in[i]);
    // The refused FLS image was written SHORT12 from the pixels the compressor had modified.
    for (int y = 0; y < noise->height; ++y)
        for (int x = 0; x < noise->width; ++x)
            ASSERT_EQ((static_cast<int>(pixel(noise, x, y)) & 0xFFF0) | 12, pixel(in[1], x, y));
}

TEST_F(ContainerFiles, TripleExposureGrabRoundTrips) {
    roundTripThreeExposures(grab(23), dir_);
}

TEST_F(ContainerFiles, Type55ReadsNineFiles) {
    roundTripThreeExposures(grab(55), dir_);
}

TEST_F(ContainerFiles, FileNamesUseKindWordsAndSetNumbers) {
    TestContainer c;
    c.SetPrefix(7, grab(55), 10, 20, 30);
    for (int i = 0; i < 9; ++i)
        c.Add(short12Exact(i));
    ASSERT_TRUE(c.Write(dir_.wide().c_str()));
    const char *names[9] = {"T00007_FLS_00010_0.pxi", "T00007_FLS_00010_1.pxi", "T00007_FLS_00010_2.pxi",
                            "T00007_PRJ_00020_0.pxi", "T00007_PRJ_00020_1.pxi", "T00007_PRJ_00020_2.pxi",
                            "T00007_LGT_00030_0.pxi", "T00007_LGT_00030_1.pxi", "T00007_LGT_00030_2.pxi"};
    for (const char *name : names)
        EXPECT_TRUE(std::filesystem::is_regular_file(dir_.path() + "/" + name)) << name;
}

TEST_F(ContainerFiles, FlsImageOfTypeShortIsWrittenCshort) {
    TestContainer c;
    c.SetPrefix(1, grab(1), 4, 0, 0);
    c.Add(constantShort(500));
    ASSERT_TRUE(c.Write(dir_.wide().c_str()));
    EXPECT_EQ(CSHORT, storedTypeOf(c, dir_, 0));
}

TEST_F(ContainerFiles, RefusedCompressionFallsBackToShort12) {
    TestContainer c;
    c.SetPrefix(1, grab(1), 4, 0, 0);
    c.Add(noiseShort(1));
    pxtest::LogCapture log;
    ASSERT_TRUE(c.Write(dir_.wide().c_str()));
    EXPECT_EQ(SHORT12, storedTypeOf(c, dir_, 0));
    bool refused = false;
    for (const pxtest::LogRecord &r : log.messages())
        refused = refused || (r.level == 3 && r.text.rfind("Images size is too large ", 0) == 0);
    EXPECT_TRUE(refused);
    EXPECT_EQ(0, sendErrorCount(log));
}

TEST_F(ContainerFiles, ImagesThatAreNotShortFallThroughToPlain) {
    TestContainer c;
    c.SetPrefix(1, grab(5), 4, 5, 0);
    c.Add(makeImage(FLOAT, 3, 3, 0, [](int x, int) { return x; }));
    c.Add(nullptr).Add(nullptr);
    c.Add(makeImage(UBYTE, 3, 3, 0, [](int x, int) { return x; }));
    ASSERT_TRUE(c.Write(dir_.wide().c_str()));
    EXPECT_EQ(2u, dir_.count()) << "null slots are skipped";
    EXPECT_EQ(FLOAT, storedTypeOf(c, dir_, 0));
    EXPECT_EQ(UBYTE, storedTypeOf(c, dir_, 3));
}

TEST_F(ContainerFiles, CompressFlsOffWritesFlsImagesShort12) {
    settings("false", "true");
    TestContainer c;
    c.SetPrefix(1, grab(1), 4, 0, 0);
    c.Add(constantShort(500));
    ASSERT_TRUE(c.Write(dir_.wide().c_str()));
    EXPECT_EQ(SHORT12, storedTypeOf(c, dir_, 0));
}

TEST_F(ContainerFiles, CompressFlsOffDoesNotAskForTheCompressionClass) {
    settings("false", "true");
    TestContainer c;
    c.SetPrefix(1, grab(4), 4, 0, 0);
    c.Add(short12Exact(1));
    pxtest::LogCapture log;
    ASSERT_TRUE(c.Write(dir_.wide().c_str()));
    EXPECT_TRUE(log.messages().empty());
    EXPECT_EQ(SHORT12, storedTypeOf(c, dir_, 0));
}

TEST_F(ContainerFiles, InvalidGrabTypeIsLoggedAndWrittenAsOtherImages) {
    TestContainer c;
    c.SetPrefix(1, grab(4), 4, 0, 0);
    c.Add(short12Exact(1));
    pxtest::LogCapture log;
    ASSERT_TRUE(c.Write(dir_.wide().c_str()));
    EXPECT_TRUE(log.has(5, 0, MODULE, "Invalid type of image container. Type=4"));
    EXPECT_EQ(SHORT12, storedTypeOf(c, dir_, 0));
}

TEST_F(ContainerFiles, CompressClrAndTxtOffWritesOtherImagesPlain) {
    settings("true", "false");
    TestContainer c;
    c.SetPrefix(1, grab(5), 4, 5, 0);
    c.Add(constantShort(500)).Add(nullptr).Add(nullptr).Add(short12Exact(3));
    ASSERT_TRUE(c.Write(dir_.wide().c_str()));
    EXPECT_EQ(CSHORT, storedTypeOf(c, dir_, 0));
    EXPECT_EQ(SHORT, storedTypeOf(c, dir_, 3));
}

TEST_F(ContainerFiles, BothSettingsOffWriteEverythingPlain) {
    settings("0", "no");
    TestContainer c;
    c.SetPrefix(1, grab(5), 4, 5, 0);
    c.Add(constantShort(500)).Add(nullptr).Add(nullptr).Add(short12Exact(3));
    ASSERT_TRUE(c.Write(dir_.wide().c_str()));
    EXPECT_EQ(SHORT, storedTypeOf(c, dir_, 0));
    EXPECT_EQ(SHORT, storedTypeOf(c, dir_, 3));
}

TEST_F(ContainerFiles, SettingsAreReadOnceUntilFreeInstance) {
    settings("false", "true");
    TestContainer c;
    c.SetPrefix(1, grab(1), 4, 0, 0);
    c.Add(constantShort(500));
    ASSERT_TRUE(c.Write(dir_.wide().c_str()));
    EXPECT_EQ(SHORT12, storedTypeOf(c, dir_, 0));

    settings("true", "true");
    ASSERT_TRUE(c.Write(dir_.wide().c_str()));
    EXPECT_EQ(SHORT12, storedTypeOf(c, dir_, 0)) << "the first reading is kept";

    PxImageContainer::freeInstance();
    ASSERT_TRUE(c.Write(dir_.wide().c_str()));
    EXPECT_EQ(CSHORT, storedTypeOf(c, dir_, 0)) << "read again after freeInstance";
}

TEST_F(ContainerFiles, ReadAlsoReadsTheSettingsOnce) {
    settings("false", "true");
    TestContainer reader;
    reader.SetType(grab(1));
    EXPECT_FALSE(reader.Read((dir_.wide() + u"/missing").c_str()));
    settings("true", "true");
    TestContainer c;
    c.SetPrefix(1, grab(1), 4, 0, 0);
    c.Add(constantShort(500));
    ASSERT_TRUE(c.Write(dir_.wide().c_str()));
    EXPECT_EQ(SHORT12, storedTypeOf(c, dir_, 0));
}

TEST_F(ContainerFiles, InitializeSetsTheBackslashSeparator) {
    PxFileName::SetSeparator(u'/');
    TestContainer c;
    c.Initialize();
    EXPECT_EQ(u'\\', PxFileName::GetSeparator());
}

TEST_F(ContainerFiles, WriteOfAnEmptyContainerTouchesNothing) {
    TestContainer c;
    pxtest::LogCapture log;
    EXPECT_TRUE(c.Write((dir_.wide() + u"/missing").c_str()));
    EXPECT_TRUE(c.Write(dir_.wide().c_str()));
    EXPECT_TRUE(log.records().empty());
    EXPECT_EQ(0u, dir_.count());
    EXPECT_FALSE(std::filesystem::exists(dir_.path() + "/missing"));
}

TEST_F(ContainerFiles, WriteUsesTheContainersDirectoryWhenNoneIsGiven) {
    TestContainer c;
    c.SetPrefix(1, grab(1), 4, 0, 0).SetDir(dir_.wide());
    c.Add(constantShort(500));
    ASSERT_TRUE(c.Write());
    EXPECT_EQ(1u, dir_.count());
    TestContainer in;
    in.SetPrefix(1, grab(1), 4, 0, 0).SetDir(dir_.wide());
    pxtest::LogCapture log;
    EXPECT_FALSE(in.Read()) << "files 1 and 2 are missing";
    ASSERT_EQ(1u, in.GetCount());
    expectSamePixels(c[0], in[0]);
}

TEST_F(ContainerFiles, WriteToAMissingDirectoryFails) {
    TestContainer c;
    c.SetType(grab(1));
    c.Add(constantShort(500));
    const std::u16string missing = dir_.wide() + u"/missing";
    pxtest::LogCapture log;
    EXPECT_FALSE(c.Write(missing.c_str()));
    expectSendError(log, 0xC41A0001u, "image container: directory missing on write: " + narrow(missing));
}

TEST_F(ContainerFiles, WriteWithoutAnyDirectoryFails) {
    TestContainer c;
    c.SetType(grab(1));
    c.Add(constantShort(500));
    pxtest::LogCapture log;
    EXPECT_FALSE(c.Write());
    expectSendError(log, 0xC41A0001u, "image container: directory missing on write: ");
}

TEST_F(ContainerFiles, FlsImageThatCannotBeWrittenReportsItsName) {
    TestContainer c;
    c.SetPrefix(3, grab(1), 4, 0, 0);
    c.Add(constantShort(500));
    const std::u16string name = c.name(dir_.wide().c_str(), 0);
    std::filesystem::create_directory(narrow(name).replace(dir_.path().size(), 1, "/"));
    pxtest::LogCapture log;
    EXPECT_FALSE(c.Write(dir_.wide().c_str()));
    expectSendError(log, 0xC41A0002u,
                    "image container: FLS image could not be written as CSHORT, SHORT12 or plain: " +
                        narrow(name));
}

TEST_F(ContainerFiles, OtherImageThatCannotBeWrittenReportsItsName) {
    TestContainer c;
    c.SetPrefix(3, grab(2), 4, 0, 0);
    c.Add(short12Exact(1)).Add(short12Exact(2));
    const std::u16string name = c.name(dir_.wide().c_str(), 1);
    std::filesystem::create_directory(narrow(name).replace(dir_.path().size(), 1, "/"));
    pxtest::LogCapture log;
    EXPECT_FALSE(c.Write(dir_.wide().c_str()));
    expectSendError(log, 0xC41A001Eu,
                    "image container: image could not be written as SHORT12 or plain: " + narrow(name));
    EXPECT_EQ(SHORT12, storedTypeOf(c, dir_, 0)) << "files written before stay";
}

TEST_F(ContainerFiles, PlainImageThatCannotBeWrittenReportsItsName) {
    settings("true", "false");
    TestContainer c;
    c.SetPrefix(3, grab(2), 4, 0, 0);
    c.Add(short12Exact(1));
    const std::u16string name = c.name(dir_.wide().c_str(), 0);
    std::filesystem::create_directory(narrow(name).replace(dir_.path().size(), 1, "/"));
    pxtest::LogCapture log;
    EXPECT_FALSE(c.Write(dir_.wide().c_str()));
    expectSendError(
        log, 0xC41A001Fu,
        "image container: image could not be written plain (compression of colour and texture images is "
        "off): " +
            narrow(name));
}

TEST_F(ContainerFiles, ReadFromAMissingDirectoryFails) {
    TestContainer c;
    c.SetType(grab(1));
    c.Add(constantShort(1));
    const std::u16string missing = dir_.wide() + u"/missing";
    pxtest::LogCapture log;
    EXPECT_FALSE(c.Read(missing.c_str()));
    expectSendError(log, 0xC41A001Cu, "image container: directory missing on read: " + narrow(missing));
    EXPECT_EQ(0u, c.GetCount()) << "the images held before are destroyed";
}

TEST_F(ContainerFiles, ReadFailureKeepsTheImagesReadBefore) {
    TestContainer out;
    out.SetPrefix(2, grab(5), 4, 5, 0);
    out.Add(short12Exact(1)).Add(short12Exact(2)).Add(short12Exact(3)).Add(short12Exact(4));
    ASSERT_TRUE(out.Write(dir_.wide().c_str()));
    TestContainer in;
    in.SetPrefix(2, grab(5), 4, 5, 0);
    const std::u16string missingOld = in.name(dir_.wide().c_str(), 4, true);
    pxtest::LogCapture log;
    EXPECT_FALSE(in.Read(dir_.wide().c_str()));
    expectSendError(log, 0xC41A0003u, "image container: image file could not be read: " + narrow(missingOld));
    ASSERT_EQ(4u, in.GetCount());
    for (size_t i = 0; i < 4; ++i)
        expectSamePixels(out[i], in[i]);
}

TEST_F(ContainerFiles, ReadOfABrokenFileFails) {
    TestContainer out;
    out.SetPrefix(2, grab(2), 4, 0, 0);
    out.Add(short12Exact(1)).Add(short12Exact(2)).Add(short12Exact(3));
    ASSERT_TRUE(out.Write(dir_.wide().c_str()));
    const std::u16string second = out.name(dir_.wide().c_str(), 1);
    const std::string path = narrow(second).replace(dir_.path().size(), 1, "/");
    std::filesystem::resize_file(path, std::filesystem::file_size(path) + 1);
    TestContainer in;
    in.SetPrefix(2, grab(2), 4, 0, 0);
    pxtest::LogCapture log;
    EXPECT_FALSE(in.Read(dir_.wide().c_str()));
    expectSendError(log, 0xC41A0003u, "image container: image file could not be read: " + narrow(second));
    EXPECT_EQ(1u, in.GetCount());
}

TEST_F(ContainerFiles, MissingFilesAreReadUnderTheOlderNames) {
    TestContainer old;
    old.SetPrefix(6, grab(9), 44, 0, 0);
    old.SetPrefixOld(grab(9), 33, 0);
    tag_pxImage *images[3] = {short12Exact(1), short12Exact(2), short12Exact(3)};
    for (size_t i = 0; i < 3; ++i) {
        const std::u16string name = old.name(dir_.wide().c_str(), i, true);
        ASSERT_EQ(1u, pxImageWrite(reinterpret_cast<const uint16_t *>(name.c_str()), 0, images[i]));
    }
    EXPECT_NE(std::u16string::npos, old.name(nullptr, 0, true).find(u"_PRJ_00033_"));
    EXPECT_NE(std::u16string::npos, old.name(nullptr, 0).find(u"_LIN_00044_"));
    pxtest::LogCapture log;
    ASSERT_TRUE(old.Read(dir_.wide().c_str()));
    ASSERT_EQ(3u, old.GetCount());
    for (size_t i = 0; i < 3; ++i)
        expectSamePixels(images[i], old[i]);
    int notFound = 0;
    for (const pxtest::LogRecord &r : log.messages()) {
        EXPECT_EQ(PXENV_LOG_F, r.kind);
        EXPECT_EQ(4, r.level);
        EXPECT_EQ(MODULE, r.module);
        EXPECT_EQ("'%' file not found. Make old file name.", r.text);
        ++notFound;
    }
    EXPECT_EQ(3, notFound);
    for (tag_pxImage *image : images)
        pxImageDestruct(&image);
}

TEST_F(ContainerFiles, CurrentNameIsPreferredOverTheOlderOne) {
    TestContainer c;
    c.SetPrefix(6, grab(1), 44, 0, 0);
    c.SetPrefixOld(grab(1), 44, 0);
    c.Add(short12Exact(1)).Add(short12Exact(2)).Add(short12Exact(3));
    ASSERT_TRUE(c.Write(dir_.wide().c_str()));
    TestContainer in;
    in.SetPrefix(6, grab(1), 44, 0, 0);
    in.SetPrefixOld(grab(1), 99, 0);
    pxtest::LogCapture log;
    ASSERT_TRUE(in.Read(dir_.wide().c_str()));
    EXPECT_TRUE(log.messages().empty());
    EXPECT_EQ(3u, in.GetCount());
}

TEST_F(ContainerFiles, ReadOfAGrabTypeOutsideTheTableReadsThreeImgFiles) {
    TestContainer out;
    out.SetPrefix(1, grab(77), 4, 0, 0);
    out.Add(short12Exact(1)).Add(short12Exact(2)).Add(short12Exact(3));
    ASSERT_TRUE(out.Write(dir_.wide().c_str()));
    EXPECT_TRUE(std::filesystem::is_regular_file(dir_.path() + "/T00001_IMG_00004_2.pxi"));
    TestContainer in;
    in.SetPrefix(1, grab(77), 4, 0, 0);
    ASSERT_TRUE(in.Read(dir_.wide().c_str()));
    EXPECT_EQ(3u, in.GetCount());
}

TEST_F(ContainerFiles, NamesLongerThanTheCapacityAreRefused) {
    std::string deep = dir_.path();
    while (deep.size() < PxImageContainer::NameCapacity) {
        deep += "/" + std::string(200, 'd');
        ASSERT_TRUE(std::filesystem::create_directory(deep));
    }
    const std::u16string wide(deep.begin(), deep.end());
    TestContainer c;
    c.SetType(grab(1));
    c.Add(short12Exact(1));
    pxtest::LogCapture log;
    EXPECT_FALSE(c.Write(wide.c_str()));
    EXPECT_TRUE(log.has(5, 0xC43D0003u, MODULE, "Image file name longer than 1023 characters"));
    log.clear();
    EXPECT_FALSE(c.Read(wide.c_str()));
    EXPECT_TRUE(log.has(5, 0xC43D0003u, MODULE, "Image file name longer than 1023 characters"));
}

} // namespace
