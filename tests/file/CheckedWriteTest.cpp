// Checked writes: success only when the data reached the system (the file is flushed and closed with both
// results looked at), and no file left behind by a failure. The plain writes keep their lenient close. Also
// the refusal of multi-plane images in the single-plane encodings, before any file is made.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <functional>
#include <random>

#include "FileTestSupport.h"
#include "support/AllocFailure.h"
#include "support/FileSizeLimit.h"
#include "support/LogCapture.h"

using namespace pxtest;

namespace {

const uint32_t FILE_IO_ERROR = 0xC43D0031u;
const uint32_t INVALID_ARGUMENT = 0xC43D0003u;
const std::string ENOSPC_TEXT = "file input/output failure: errno 28 (No space left on device)";
const std::string EFBIG_TEXT = "file input/output failure: errno 27 (File too large)";
const std::u16string DEV_FULL = u"/dev/full";

using WriteFunction = std::function<uint32_t(const uint16_t *, int32_t, tag_pxImage *)>;

uint32_t plainWrite(const uint16_t *name, int32_t type, tag_pxImage *image) {
    return pxImageWrite(name, type, image);
}
uint32_t checkedWrite(const uint16_t *name, int32_t type, tag_pxImage *image) {
    return pxImageWriteChecked(name, type, image);
}
uint32_t plainTransformWrite(const uint16_t *name, int32_t type, tag_pxImage *image) {
    return pxImageWriteWithTransform(name, type, 1, image);
}
uint32_t checkedTransformWrite(const uint16_t *name, int32_t type, tag_pxImage *image) {
    return pxImageWriteWithTransformChecked(name, type, 1, image);
}

bool exists(const std::string &path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

long fileSize(const std::string &path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 ? (long)status.st_size : -1;
}

bool devFullIsIntact() {
    struct stat status;
    return lstat("/dev/full", &status) == 0 && S_ISCHR(status.st_mode);
}

// 20 x 20 SHORT pixels: 1312 bytes in a file, far below the stream buffer.
tag_pxImage *smallShort() {
    return makeImage<uint16_t>(SHORT, 20, 20, [](int x, int y) { return x * 100 + y; });
}

// 64 x 64 SHORT image of flat bright blocks 8 pixels wide (neighbour ratio below 2, nothing protected):
// CSHORT keeps it as 8 runs a row, 2048 bytes of pixel data against 8192 plain.
tag_pxImage *blockyShort() {
    return makeImage<uint16_t>(SHORT, 64, 64,
                               [](int x, int y) { return 10000 + (x / 8) * 500 + (y % 2) * 40; });
}

// Exactly one message (error or warning) was logged, and it is this error.
void expectOnlyError(const LogCapture &log, const std::string &module, uint32_t code,
                     const std::string &text) {
    EXPECT_TRUE(log.has(5, code, module, text));
    EXPECT_EQ(1u, log.messages().size());
}

} // namespace

TEST(CheckedWrite, SmallImageOnAFullDeviceFailsWhereThePlainWriteSucceeds) {
    tag_pxImage *image = smallShort();
    {
        LogCapture log;
        EXPECT_EQ(1u, pxImageWrite(wide(DEV_FULL), 0, image)) << "the plain write ignores the close";
        EXPECT_TRUE(log.messages().empty());
    }
    for (const WriteFunction &write : {WriteFunction(checkedWrite), WriteFunction(checkedTransformWrite)}) {
        LogCapture log;
        EXPECT_EQ(0u, write(wide(DEV_FULL), 0, image));
        expectOnlyError(log, "pxImageFile", FILE_IO_ERROR, ENOSPC_TEXT);
        EXPECT_GE(log.traceCount(), 1u);
        EXPECT_TRUE(devFullIsIntact()) << "a device is never removed";
    }
    pxImageDestruct(&image);
}

TEST(CheckedWrite, WellCompressedCshortImageOnAFullDeviceFails) {
    // 40000 bytes of pixels, but one run: the whole file fits the stream buffer.
    tag_pxImage *flat = makeImage<uint16_t>(SHORT, 200, 100, [](int, int) { return 3000; });
    EXPECT_EQ(1u, pxImageWrite(wide(DEV_FULL), CSHORT, flat));
    LogCapture log;
    EXPECT_EQ(0u, pxImageWriteChecked(wide(DEV_FULL), CSHORT, flat));
    expectOnlyError(log, "pxImageFile", FILE_IO_ERROR, ENOSPC_TEXT);
    EXPECT_TRUE(devFullIsIntact());
    pxImageDestruct(&flat);
}

TEST(CheckedWrite, TransformWriteOnAFullDeviceFails) {
    tag_pxImage *floats = makeImage<float>(FLOAT, 10, 10, [](int x, int y) { return x + y * 10.0f; });
    EXPECT_EQ(1u, pxImageWriteWithTransform(wide(DEV_FULL), SHORT, 1, floats));
    LogCapture log;
    EXPECT_EQ(0u, pxImageWriteWithTransformChecked(wide(DEV_FULL), SHORT, 1, floats));
    expectOnlyError(log, "pxImageFile", FILE_IO_ERROR, ENOSPC_TEXT);
    pxImageDestruct(&floats);
}

TEST(CheckedWrite, DataBeyondTheBufferFailsOnceAtTheFailingWrite) {
    tag_pxImage *big = makeImage<double>(DOUBLE, 200, 100, [](int x, int y) { return x * y; });
    LogCapture log;
    EXPECT_EQ(0u, pxImageWriteChecked(wide(DEV_FULL), 0, big));
    expectOnlyError(log, "pxImagePixData", FILE_IO_ERROR, ENOSPC_TEXT);
    EXPECT_TRUE(devFullIsIntact());
    pxImageDestruct(&big);
}

TEST(CheckedWrite, FileSizeLimitFailsTheCheckedWriteAndRemovesTheFile) {
    TempFile plain("limit_plain"), checked("limit_checked"), cshort("limit_cshort"), reference("limit_ref");
    tag_pxImage *image = smallShort();
    tag_pxImage *blocks = blockyShort();
    ASSERT_EQ(1u, pxImageWrite(reference.name(), CSHORT, blocks));
    ASSERT_EQ(512 + 2048, fileSize(reference.path())) << "the CSHORT file must fit the stream buffer";
    pxImageDestruct(&blocks);
    blocks = blockyShort();
    const int status = inChildWithFileSizeLimit(1000, [&] {
        int failures = 0;
        if (pxImageWrite(plain.name(), 0, image) != 1)
            failures |= 1; // the plain write keeps its result
        LogCapture log;
        if (pxImageWriteChecked(checked.name(), 0, image) != 0 ||
            !log.has(5, FILE_IO_ERROR, "pxImageFile", EFBIG_TEXT))
            failures |= 2;
        log.clear();
        if (pxImageWriteChecked(cshort.name(), CSHORT, blocks) != 0 ||
            !log.has(5, FILE_IO_ERROR, "pxImageFile", EFBIG_TEXT))
            failures |= 4;
        return failures;
    });
    EXPECT_EQ(0, status);
    EXPECT_EQ(1000, fileSize(plain.path())) << "the plain write leaves the truncated file";
    EXPECT_FALSE(exists(checked.path()));
    EXPECT_FALSE(exists(cshort.path()));
    pxImageDestruct(&blocks);
    pxImageDestruct(&image);
}

TEST(CheckedWrite, SucceedsWithTheSameBytesAsThePlainWrite) {
    struct Case {
        int32_t type;
        int32_t transform;
        std::function<tag_pxImage *()> make;
    };
    const Case cases[] = {
        {0, 0, smallShort},
        {CSHORT, 0, blockyShort},
        {SHORT12, 0, smallShort},
        {CBIT, 0,
         [] { return makeImage<uint8_t>(UBYTE, 7, 5, [](int x, int y) { return (x + y) % 3 ? 255 : 0; }); }},
        {SHORT, 1, [] { return makeImage<float>(FLOAT, 9, 4, [](int x, int y) { return x * 20.0f + y; }); }},
    };
    for (const Case &c : cases) {
        TempFile plain("same_plain"), checked("same_checked");
        tag_pxImage *a = c.make();
        tag_pxImage *b = c.make();
        ASSERT_EQ(1u, pxImageWriteWithTransform(plain.name(), c.type, c.transform, a));
        LogCapture log;
        ASSERT_EQ(1u, pxImageWriteWithTransformChecked(checked.name(), c.type, c.transform, b));
        EXPECT_TRUE(log.messages().empty());
        EXPECT_EQ(readBytes(plain.path()), readBytes(checked.path())) << "type " << c.type;
        tag_pxImage *back = nullptr;
        EXPECT_EQ(1u, pxImageRead(checked.name(), 0, 0, &back));
        pxImageDestruct(&back);
        pxImageDestruct(&a);
        pxImageDestruct(&b);
    }
    tag_pxImage *image = smallShort();
    TempFile file("same_checked_plain");
    EXPECT_EQ(1u, pxImageWriteChecked(file.name(), 0, image));
    EXPECT_EQ(512 + 800, fileSize(file.path()));
    pxImageDestruct(&image);
}

TEST(CheckedWrite, RefusedWritesLeaveNoFile) {
    tag_pxImage *floats = makeImage<float>(FLOAT, 4, 3, [](int x, int) { return x; });
    tag_pxImage *bordered = nullptr;
    ASSERT_EQ(1u, pxImageConstruct(SHORT, 6, 5, 2, 1, &bordered));
    std::mt19937 random(7);
    tag_pxImage *noise =
        makeImage<uint16_t>(SHORT, 32, 24, [&random](int, int) { return random() & 0xFFFF; });
    struct Case {
        tag_pxImage *image;
        int32_t type;
        const char *module;
        const char *text;
    };
    const Case cases[] = {
        {floats, CSHORT, "pxImagePixData", nullptr},
        {bordered, SHORT12, "pxImagePixData", "Border is not supported in compression mode"},
        {noise, CSHORT, "pxImageCompress", nullptr},
    };
    for (const Case &c : cases) {
        TempFile plain("refused_plain"), checked("refused_checked");
        LogCapture log;
        EXPECT_EQ(0u, pxImageWrite(plain.name(), c.type, c.image));
        EXPECT_EQ(512, fileSize(plain.path())) << "the plain write leaves the header block";
        EXPECT_EQ(0u, pxImageWriteChecked(checked.name(), c.type, c.image));
        EXPECT_FALSE(exists(checked.path()));
        if (c.text != nullptr) {
            EXPECT_TRUE(log.has(5, INVALID_ARGUMENT, c.module, c.text));
        }
    }
    {
        LogCapture log;
        TempFile never("checked_null");
        EXPECT_EQ(0u, pxImageWriteChecked(never.name(), 0, nullptr));
        EXPECT_EQ(0u, pxImageWriteWithTransformChecked(never.name(), 0, 1, nullptr));
        EXPECT_TRUE(log.has(5, INVALID_ARGUMENT, "pxImageFile", "Image is null"));
        EXPECT_FALSE(exists(never.path()));
    }
    LogCapture log;
    const std::u16string missing = widePath(::testing::TempDir() + "no_such_dir/x.pim");
    EXPECT_EQ(0u, pxImageWriteChecked(wide(missing), 0, floats));
    expectOnlyError(log, "pxImageFile", FILE_IO_ERROR,
                    "file input/output failure: errno 2 (No such file or directory)");
    pxImageDestruct(&noise);
    pxImageDestruct(&bordered);
    pxImageDestruct(&floats);
}

TEST(CheckedWrite, AllocationFailuresLeaveNothingAndNoFile) {
    TempFile file("checked_alloc");
    tag_pxImage *floats = makeImage<float>(FLOAT, 6, 5, [](int x, int y) { return x + y; });
    tag_pxImage *shorts = blockyShort();
    for (const auto &c :
         {std::make_pair(floats, SHORT), std::make_pair(shorts, CSHORT), std::make_pair(shorts, SHORT12)}) {
        const int count = forEachAllocationFailure(
            [&] {
                const bool ok = pxImageWriteWithTransformChecked(file.name(), c.second, 1, c.first) == 1;
                if (!ok) {
                    EXPECT_FALSE(exists(file.path()));
                }
                return ok;
            },
            [] {});
        EXPECT_GT(count, 0);
    }
    pxImageDestruct(&shorts);
    pxImageDestruct(&floats);
}

// The encoded layouts run to the end of the file and so hold one plane; the writer refuses more before it
// opens the file, whichever write is called.
TEST(CheckedWrite, MultiPlaneEncodedImagesAreRefusedBeforeAnyFileIsMade) {
    struct Case {
        int32_t imageType;
        int32_t planes;
        int32_t fileType;
        const char *text;
    };
    const Case cases[] = {
        {UBYTE, 2, CBIT, "CBIT encoding holds one plane only, the image has 2 planes"},
        {SHORT, 3, CSHORT, "CSHORT encoding holds one plane only, the image has 3 planes"},
        {SHORT, 2, SHORT12, "SHORT12 encoding holds one plane only, the image has 2 planes"},
        {SHORT, 9, SHORT12, "SHORT12 encoding holds one plane only, the image has 9 planes"},
    };
    for (const Case &c : cases) {
        tag_pxImage *image = nullptr;
        ASSERT_EQ(1u, pxImageConstruct(c.imageType, 8, 4, 0, c.planes, &image));
        for (const WriteFunction &write :
             {WriteFunction(plainWrite), WriteFunction(checkedWrite), WriteFunction(plainTransformWrite),
              WriteFunction(checkedTransformWrite)}) {
            TempFile never("multiplane_new"), kept("multiplane_kept");
            writeBytes(kept.path(), {1, 2, 3});
            LogCapture log;
            EXPECT_EQ(0u, write(never.name(), c.fileType, image));
            expectOnlyError(log, "pxImageFile", INVALID_ARGUMENT, c.text);
            EXPECT_FALSE(exists(never.path())) << "not even an empty file";
            EXPECT_EQ(0u, write(kept.name(), c.fileType, image));
            EXPECT_EQ((std::vector<uint8_t>{1, 2, 3}), readBytes(kept.path()))
                << "an existing file is untouched";
        }
        // Written plain, every plane reads back.
        TempFile plain("multiplane_plain");
        EXPECT_EQ(1u, pxImageWriteChecked(plain.name(), 0, image));
        tag_pxImage *back = nullptr;
        EXPECT_EQ(1u, pxImageRead(plain.name(), 0, 0, &back));
        EXPECT_EQ(c.planes, back != nullptr ? back->planes : 0);
        pxImageDestruct(&back);
        pxImageDestruct(&image);
    }
}

TEST(CheckedWrite, OnePlaneEncodedImagesAreStillWritten) {
    tag_pxImage *bytes = makeImage<uint8_t>(UBYTE, 5, 3, [](int x, int) { return x % 2 ? 255 : 0; });
    TempFile file("oneplane_cbit");
    EXPECT_EQ(1u, pxImageWrite(file.name(), CBIT, bytes));
    tag_pxImage *back = nullptr;
    EXPECT_EQ(1u, pxImageRead(file.name(), 0, 0, &back));
    pxImageDestruct(&back);
    pxImageDestruct(&bytes);
}
