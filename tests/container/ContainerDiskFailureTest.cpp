// Writing a container to a disk that refuses the data: a file-size limit makes every file fail at its close,
// and the container must report the failure and leave no truncated file. Also images that the encodings
// cannot hold (several planes), which fall through to plain files with the refusals logged.
#include <gtest/gtest.h>

#include <string>

#include "container/ContainerTestUtil.h"
#include "pxEnvPath.h"
#include "support/FileSizeLimit.h"
#include "support/LogCapture.h"

namespace {

using pxtest::grab;
using pxtest::makeImage;
using pxtest::narrow;
using pxtest::TempDir;
using pxtest::TestContainer;

class ContainerDiskFailure : public ::testing::Test {
  protected:
    void SetUp() override {
        pxEnvClearParams();
        PxImageContainer::freeInstance();
        PxFileName::SetSeparator(u'\\');
        baseline_ = pxEnvLiveAllocations();
    }
    void TearDown() override {
        pxEnvClearParams();
        PxImageContainer::freeInstance();
        EXPECT_EQ(baseline_, pxEnvLiveAllocations()) << "leak";
    }
    TempDir dir_;
    long baseline_ = 0;
};

// True when the log holds exactly one sendError, with this code and text.
bool hasOnlySendError(const pxtest::LogCapture &log, uint32_t code, const std::string &text) {
    int found = 0;
    bool matches = false;
    for (const pxtest::LogRecord &r : log.records()) {
        if (r.kind != PXENV_LOG_ERROR)
            continue;
        ++found;
        matches = r.level == 5 && r.code == code && r.module == "PxImageContainer" && r.text == text;
    }
    return found == 1 && matches;
}

// Writes a one-exposure container of grab type `type` holding a small SHORT image under a file-size limit
// that the header block fits but no encoding of the image does; checks in the child that Write is false
// with the expected sendError. Returns the child's status (0 when everything held).
int writeUnderLimit(const TempDir &dir, int32_t type, uint32_t code, const std::string &what) {
    TestContainer c;
    c.SetPrefix(3, grab(type), 4, 0, 0);
    c.Add(makeImage(SHORT, 9, 7, 0, [](int, int) { return 1000; })); // CSHORT: 512 + 4 bytes
    const std::string name = narrow(c.name(dir.wide().c_str(), 0));
    return pxtest::inChildWithFileSizeLimit(514, [&] {
        pxtest::LogCapture log;
        int failures = 0;
        if (c.Write(dir.wide().c_str()))
            failures |= 1;
        if (!hasOnlySendError(log, code, what + name))
            failures |= 2;
        if (!log.has(5, 0xC43D0031u, "pxImageFile", "file input/output failure: errno 27 (File too large)"))
            failures |= 4;
        return failures;
    });
}

} // namespace

TEST_F(ContainerDiskFailure, FlsImageThatDoesNotReachTheDiskFailsTheWriteAndLeavesNoFile) {
    EXPECT_EQ(
        0, writeUnderLimit(dir_, 1, 0xC41A0002u,
                           "image container: FLS image could not be written as CSHORT, SHORT12 or plain: "));
    EXPECT_EQ(0u, dir_.count()) << "no truncated file stays";
}

TEST_F(ContainerDiskFailure, OtherImageThatDoesNotReachTheDiskFailsTheWriteAndLeavesNoFile) {
    EXPECT_EQ(0, writeUnderLimit(dir_, 2, 0xC41A001Eu,
                                 "image container: image could not be written as SHORT12 or plain: "));
    EXPECT_EQ(0u, dir_.count());
}

TEST_F(ContainerDiskFailure, PlainImageThatDoesNotReachTheDiskFailsTheWriteAndLeavesNoFile) {
    pxEnvSetParam("pxImageContainerCompressCLRandTXT", "false");
    EXPECT_EQ(0,
              writeUnderLimit(dir_, 2, 0xC41A001Fu,
                              "image container: image could not be written plain (compression of colour and "
                              "texture images is off): "));
    EXPECT_EQ(0u, dir_.count());
}

TEST_F(ContainerDiskFailure, MultiPlaneFlsImageIsWrittenPlainAfterTheEncodingsRefuseIt) {
    TestContainer out;
    out.SetPrefix(3, grab(1), 4, 0, 0);
    tag_pxImage *image = nullptr;
    ASSERT_EQ(1u, pxImageConstruct(SHORT, 6, 4, 0, 2, &image));
    reinterpret_cast<uint16_t **>(image->pixMap[1])[3][5] = 4321;
    out.Add(image);
    {
        pxtest::LogCapture log;
        ASSERT_TRUE(out.Write(dir_.wide().c_str()));
        EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImageFile",
                            "CSHORT encoding holds one plane only, the image has 2 planes"));
        EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImageFile",
                            "SHORT12 encoding holds one plane only, the image has 2 planes"));
    }
    const std::u16string name = out.name(dir_.wide().c_str(), 0);
    EXPECT_EQ(SHORT, pxtest::storedType(name));
    tag_pxImage *back = nullptr;
    ASSERT_EQ(1u, pxImageRead(reinterpret_cast<const uint16_t *>(name.c_str()), 0, 0, &back));
    EXPECT_EQ(2, back->planes);
    EXPECT_EQ(4321, reinterpret_cast<uint16_t **>(back->pixMap[1])[3][5]);
    pxImageDestruct(&back);
}

TEST_F(ContainerDiskFailure, ImageWrittenIntoAFullDeviceFailsTheWrite) {
    TestContainer c;
    c.SetPrefix(3, grab(1), 4, 0, 0);
    c.Add(makeImage(SHORT, 9, 7, 0, [](int, int) { return 1000; }));
    const std::string name = narrow(c.name(dir_.wide().c_str(), 0));
    const std::string path = std::string(name).replace(dir_.path().size(), 1, "/");
    std::filesystem::create_symlink("/dev/full", path); // the image's file name leads to the full device
    pxtest::LogCapture log;
    EXPECT_FALSE(c.Write(dir_.wide().c_str()));
    EXPECT_TRUE(hasOnlySendError(
        log, 0xC41A0002u,
        "image container: FLS image could not be written as CSHORT, SHORT12 or plain: " + name));
    EXPECT_TRUE(log.has(5, 0xC43D0031u, "pxImageFile",
                        "file input/output failure: errno 28 (No space left on device)"));
    EXPECT_TRUE(std::filesystem::is_symlink(path)) << "only regular files are removed";
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
}
