// Reading and writing whole images: round trips of every type, plane count, border and ROI mode, the
// transform path, the strict end of file, write failures, allocation failures, and the data folders.
#include <gtest/gtest.h>

#include <dirent.h>

#include "FileTestSupport.h"
#include "support/AllocFailure.h"
#include "support/LogCapture.h"

using namespace pxtest;

namespace {

double valueAt(int plane, int x, int y) {
    return (plane * 31 + x * 7 + y * 13) % 250 + 1;
}

// A SHORT image that the lossy compressor keeps small: flat blocks of even values.
tag_pxImage *blocky(int w, int h) {
    return makeImage<uint16_t>(SHORT, w, h, [](int x, int) { return (x / 3) * 400 + 100; });
}

tag_pxImage *patterned(int type, int w, int h, int border, int planes) {
    tag_pxImage *image = nullptr;
    EXPECT_EQ(1u, pxImageConstruct(type, w, h, border, planes, &image));
    for (int p = 0; p < planes; ++p)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                void *row = image->pixMap[p][y];
                const double v = valueAt(p, x, y);
                switch (type) {
                case UBYTE:
                    static_cast<uint8_t *>(row)[x] = (uint8_t)v;
                    break;
                case SHORT:
                    static_cast<uint16_t *>(row)[x] = (uint16_t)v;
                    break;
                case INT:
                    static_cast<int32_t *>(row)[x] = (int32_t)v;
                    break;
                case FLOAT:
                    static_cast<float *>(row)[x] = (float)v;
                    break;
                default:
                    static_cast<double *>(row)[x] = v;
                }
            }
    return image;
}

double read(const tag_pxImage *image, int plane, int x, int y) {
    void *row = image->pixMap[plane][y];
    switch (image->type) {
    case UBYTE:
        return static_cast<uint8_t *>(row)[x];
    case SHORT:
        return static_cast<uint16_t *>(row)[x];
    case INT:
        return static_cast<int32_t *>(row)[x];
    case FLOAT:
        return static_cast<float *>(row)[x];
    default:
        return static_cast<double *>(row)[x];
    }
}

const int PLAIN_TYPES[] = {UBYTE, SHORT, INT, FLOAT, DOUBLE};

TEST(ReadWrite, RoundTripOfEveryPlainTypePlaneCountBorderAndRoiMode) {
    TempFile file("roundtrip");
    for (int type : PLAIN_TYPES)
        for (int planes : {1, 3})
            for (int border : {0, 2}) {
                tag_pxImage *image = patterned(type, 7, 5, border, planes);
                image->roiminX = 2, image->roimaxX = 6, image->roiminY = 1, image->roimaxY = 4;
                ASSERT_EQ(1u, pxImageWrite(file.name(), 0, image));
                ASSERT_EQ(512u + 7 * 5 * planes *
                                     (type == DOUBLE  ? 8
                                      : type >= INT   ? 4
                                      : type == SHORT ? 2
                                                      : 1),
                          readBytes(file.path()).size());
                for (int readBorder : {0, 3})
                    for (int mode : {0, 1, 2}) {
                        SCOPED_TRACE(testing::Message()
                                     << "type " << type << " planes " << planes << " border " << border << "/"
                                     << readBorder << " mode " << mode);
                        tag_pxImage *back = nullptr;
                        ASSERT_EQ(1u, pxImageReadWithROI(file.name(), 0, readBorder, mode, &back));
                        EXPECT_EQ(type, back->type);
                        EXPECT_EQ(planes, back->planes);
                        EXPECT_EQ(readBorder, back->border);
                        const int x0 = mode == 0 ? 0 : 2, x1 = mode == 0 ? 7 : 6;
                        const int y0 = mode == 0 ? 0 : 1, y1 = mode == 0 ? 5 : 4;
                        const int dx = mode == 2 ? x0 : 0, dy = mode == 2 ? y0 : 0;
                        EXPECT_EQ(mode == 2 ? 4 : 7, back->width);
                        EXPECT_EQ(mode == 2 ? 3 : 5, back->height);
                        for (int p = 0; p < planes; ++p)
                            for (int y = 0; y < back->height; ++y)
                                for (int x = 0; x < back->width; ++x) {
                                    const bool inside =
                                        x + dx >= x0 && x + dx < x1 && y + dy >= y0 && y + dy < y1;
                                    ASSERT_EQ(inside ? valueAt(p, x + dx, y + dy) : 0.0, read(back, p, x, y))
                                        << x << "," << y;
                                }
                        pxImageDestruct(&back);
                    }
                pxImageDestruct(&image);
            }
}

TEST(ReadWrite, ConversionOnReadAndWrite) {
    TempFile file("convert");
    tag_pxImage *image = patterned(SHORT, 6, 4, 1, 2);
    ASSERT_EQ(1u, pxImageWrite(file.name(), FLOAT, image));
    for (int type : PLAIN_TYPES) {
        tag_pxImage *back = nullptr;
        ASSERT_EQ(1u, pxImageRead(file.name(), type, 0, &back));
        EXPECT_EQ(FLOAT, back->origType);
        EXPECT_EQ(type, back->type);
        for (int p = 0; p < 2; ++p)
            EXPECT_EQ(valueAt(p, 5, 3), read(back, p, 5, 3));
        pxImageDestruct(&back);
    }
    pxImageDestruct(&image);
}

TEST(ReadWrite, EncodedRoundTripsThroughEveryRoiMode) {
    TempFile file("encoded");
    tag_pxImage *bytes = patterned(UBYTE, 6, 4, 0, 1);
    tag_pxImage *shorts = blocky(6, 4);
    for (int type : {CBIT, CSHORT, SHORT12}) {
        tag_pxImage *source = type == CBIT ? bytes : shorts;
        source->roiminX = 1;
        ASSERT_EQ(1u, pxImageWrite(file.name(), type, source));
        tag_pxImage *back = nullptr;
        ASSERT_EQ(1u, pxImageReadWithROI(file.name(), 0, 0, 0, &back));
        EXPECT_EQ(type == CBIT ? UBYTE : SHORT, back->type);
        pxImageDestruct(&back);
        // Encoded data read with a narrower ROI goes through the row reader as plain data: no conversion.
        for (int mode : {1, 2}) {
            LogCapture log;
            EXPECT_EQ(0u, pxImageReadWithROI(file.name(), 0, 0, mode, &back));
            EXPECT_EQ(nullptr, back);
            EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImage", "Invalid ConvertKind"));
        }
    }
    pxImageDestruct(&bytes);
    pxImageDestruct(&shorts);
}

TEST(ReadWrite, RoiMode2MovesTheOrigin) {
    TempFile file("roi2");
    tag_pxImage *image = patterned(UBYTE, 40, 30, 0, 1);
    image->roiminX = 10, image->roimaxX = 30, image->roiminY = 5, image->roimaxY = 25;
    image->origWidth = 100, image->origHeight = 100, image->origX = 0, image->origY = 0;
    ASSERT_EQ(1u, pxImageWrite(file.name(), 0, image));
    tag_pxImage *back = nullptr;
    ASSERT_EQ(1u, pxImageReadWithROI(file.name(), 0, 0, 2, &back));
    EXPECT_EQ(20, back->width);
    EXPECT_EQ(20, back->height);
    EXPECT_EQ(10, back->origX);
    EXPECT_EQ(5, back->origY);
    EXPECT_EQ(0, back->roiminX);
    EXPECT_EQ(20, back->roimaxX);
    EXPECT_EQ(0, back->roiminY);
    EXPECT_EQ(20, back->roimaxY);
    EXPECT_EQ(valueAt(0, 10, 5), read(back, 0, 0, 0));
    pxImageDestruct(&back);
    pxImageDestruct(&image);
}

TEST(ReadWrite, RoiModeWithWholeRoiIsMode0AndModeAbove2FailsWithoutOpening) {
    TempFile file("roi_whole");
    tag_pxImage *image = blocky(6, 4);
    ASSERT_EQ(1u, pxImageWrite(file.name(), CSHORT, image));
    tag_pxImage *back = nullptr;
    ASSERT_EQ(1u, pxImageReadWithROI(file.name(), 0, 0, 2, &back)) << "decoded as in mode 0";
    EXPECT_EQ(6, back->width);
    pxImageDestruct(&back);
    TempFile missing("does_not_exist");
    LogCapture log;
    EXPECT_EQ(0u, pxImageReadWithROI(missing.name(), 0, 0, 3, &back));
    EXPECT_TRUE(log.messages().empty()) << "no file error: the file is never opened";
    EXPECT_EQ(0u, pxImageReadWithROI(missing.name(), 0, 0, -1, &back));
    EXPECT_TRUE(log.messages().empty());
    pxImageDestruct(&image);
}

TEST(ReadWrite, RoiOutsideTheImageIsRefused) {
    TempFile file("roi_outside");
    tag_pxImage *image = patterned(UBYTE, 5, 4, 0, 1);
    image->roimaxX = 9; // written as 5 by the header correction; forge it afterwards
    ASSERT_EQ(1u, pxImageWrite(file.name(), 0, image));
    std::vector<uint8_t> bytes = readBytes(file.path());
    bytes[14] = 9;
    writeBytes(file.path(), bytes);
    tag_pxImage *back = nullptr;
    LogCapture log;
    EXPECT_EQ(0u, pxImageReadWithROI(file.name(), 0, 0, 1, &back));
    EXPECT_TRUE(
        log.has(5, 0xC43D0003u, "pxImagePixData", "Region of interest outside the image (0..9 x 0..4)"));
    EXPECT_EQ(1u, pxImageReadWithROI(file.name(), 0, 0, 0, &back)) << "mode 0 ignores the ROI";
    pxImageDestruct(&back);
    pxImageDestruct(&image);
}

TEST(ReadWrite, TransformOnRead) {
    TempFile file("transform_read");
    tag_pxImage *image = patterned(SHORT, 4, 3, 0, 1);
    reinterpret_cast<uint16_t **>(image->pixMap[0])[0][0] = 65535;
    ASSERT_EQ(1u, pxImageWrite(file.name(), 0, image));
    tag_pxImage *back = nullptr;
    ASSERT_EQ(1u, pxImageReadWithROIandTransform(file.name(), FLOAT, 1, 0, 1, &back));
    EXPECT_EQ(FLOAT, back->type);
    EXPECT_EQ(1, back->border);
    EXPECT_EQ(SHORT, back->origType);
    EXPECT_NEAR(255.0117, pixel<float>(back, 0, 0, 0), 1e-3);
    EXPECT_FLOAT_EQ((float)valueAt(0, 1, 0) * 0.0038912287126899835f, pixel<float>(back, 0, 1, 0));
    pxImageDestruct(&back);
    ASSERT_EQ(1u, pxImageReadWithROIandTransform(file.name(), FLOAT, 0, 0, 0, &back));
    EXPECT_EQ(65535.0f, pixel<float>(back, 0, 0, 0)) << "without the flag an ordinary conversion";
    pxImageDestruct(&back);
    pxImageDestruct(&image);
}

TEST(ReadWrite, TransformOnReadOfCompressedData) {
    TempFile file("transform_cshort");
    tag_pxImage *image = makeImage<uint16_t>(SHORT, 4, 3, [](int, int) { return 2570; });
    ASSERT_EQ(1u, pxImageWrite(file.name(), CSHORT, image));
    tag_pxImage *back = nullptr;
    ASSERT_EQ(1u, pxImageReadWithROIandTransform(file.name(), FLOAT, 0, 0, 1, &back));
    EXPECT_NEAR(10.0, pixel<float>(back, 0, 3, 2), 1e-3);
    pxImageDestruct(&back);
    pxImageDestruct(&image);
}

TEST(ReadWrite, TransformOnWrite) {
    TempFile file("transform_write");
    tag_pxImage *image = makeImage<float>(FLOAT, 3, 2, [](int x, int) { return x == 0 ? 1.0f : 255.0f; });
    ASSERT_EQ(1u, pxImageWriteWithTransform(file.name(), SHORT, 1, image));
    std::vector<uint8_t> bytes = readBytes(file.path());
    ASSERT_EQ(512u + 12u, bytes.size());
    EXPECT_EQ(SHORT, leU16(bytes, 4));
    EXPECT_EQ(257, leU16(bytes, 512));
    EXPECT_EQ(65532, leU16(bytes, 514));
    ASSERT_EQ(1u, pxImageWriteWithTransform(file.name(), SHORT, 0, image));
    bytes = readBytes(file.path());
    EXPECT_EQ(1, leU16(bytes, 512));
    pxImageDestruct(&image);
}

TEST(ReadWrite, ExtraByteAfterTheLastPlaneFails) {
    TempFile file("extra");
    tag_pxImage *image = patterned(INT, 3, 3, 0, 2);
    ASSERT_EQ(1u, pxImageWrite(file.name(), 0, image));
    std::vector<uint8_t> bytes = readBytes(file.path());
    bytes.push_back(0);
    writeBytes(file.path(), bytes);
    tag_pxImage *back = nullptr;
    LogCapture log;
    const long live = pxEnvLiveAllocations();
    EXPECT_EQ(0u, pxImageRead(file.name(), 0, 0, &back));
    EXPECT_EQ(nullptr, back);
    EXPECT_EQ(live, pxEnvLiveAllocations());
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImageFile", "Image file has data after the last plane"));
    pxImageDestruct(&image);
}

TEST(ReadWrite, TruncatedPlainDataFailsBeforeAllocating) {
    TempFile file("truncated");
    tag_pxImage *image = patterned(SHORT, 3, 3, 0, 1);
    ASSERT_EQ(1u, pxImageWrite(file.name(), 0, image));
    std::vector<uint8_t> bytes = readBytes(file.path());
    bytes.pop_back();
    writeBytes(file.path(), bytes);
    for (int mode : {0, 1, 2}) {
        tag_pxImage *back = nullptr;
        LogCapture log;
        EXPECT_EQ(0u, pxImageReadWithROI(file.name(), 0, 0, mode, &back));
        // The short read that would follow is a file input/output failure: same code.
        EXPECT_TRUE(log.has(5, 0xC43D0031u, "pxImagePixData", "Image data truncated (17 of 18 bytes)"));
    }
    pxImageDestruct(&image);
}

TEST(ReadWrite, ReadToImageReusesTheRecord) {
    TempFile file("reuse");
    tag_pxImage *image = patterned(UBYTE, 4, 4, 0, 1);
    ASSERT_EQ(1u, pxImageWrite(file.name(), 0, image));
    tag_pxImage *target = patterned(DOUBLE, 9, 9, 1, 3);
    pxImageAddRef(target);
    tag_pxImage *const record = target;
    pxImageDestruct(&target); // frees the pixels, keeps the referenced record
    ASSERT_EQ(record, target);
    ASSERT_EQ(1u, pxImageReadToImage(file.name(), 0, 0, &target));
    EXPECT_EQ(record, target);
    EXPECT_EQ(1, target->refCount);
    EXPECT_EQ(UBYTE, target->type);
    EXPECT_EQ(4, target->width);
    EXPECT_EQ(1, target->planes);
    EXPECT_EQ(valueAt(0, 3, 3), pixel<uint8_t>(target, 0, 3, 3));
    pxImageReleaseRef(target);
    pxImageDestruct(&target);
    tag_pxImage *fresh = nullptr;
    ASSERT_EQ(1u, pxImageReadToImage(file.name(), 0, 0, &fresh));
    pxImageDestruct(&fresh);
    pxImageDestruct(&image);
}

TEST(ReadWrite, FailedReadIntoAReferencedRecordLeavesNoFreedPixels) {
    TempFile file("reuse_fail");
    tag_pxImage *image = patterned(UBYTE, 4, 4, 0, 2);
    ASSERT_EQ(1u, pxImageWrite(file.name(), 0, image));
    std::vector<uint8_t> bytes = readBytes(file.path());
    bytes.push_back(0);
    writeBytes(file.path(), bytes);
    tag_pxImage *target = patterned(UBYTE, 3, 3, 0, 1);
    pxImageAddRef(target);
    pxImageDestruct(&target);
    tag_pxImage *const record = target;
    const long live = pxEnvLiveAllocations();
    {
        LogCapture log;
        EXPECT_EQ(0u, pxImageReadToImage(file.name(), 0, 0, &target));
        EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImageFile", "Image file has data after the last plane"));
        EXPECT_FALSE(log.has(5, 0u, "pxImage", "Destruct referenced image"));
    }
    ASSERT_EQ(record, target) << "the referenced record stays with its holders";
    EXPECT_EQ(live, pxEnvLiveAllocations());
    for (int p = 0; p < 9; ++p)
        EXPECT_EQ(nullptr, target->pixMap[p]) << p;
    EXPECT_EQ(0, pxImageReleaseRef(target));
    pxImageDestruct(&target); // frees the record once, and no pixels twice
    EXPECT_EQ(nullptr, target);
    pxImageDestruct(&image);
}

TEST(ReadWrite, MissingFileIsAFileError) {
    TempFile missing("missing");
    tag_pxImage *back = nullptr;
    LogCapture log;
    EXPECT_EQ(0u, pxImageRead(missing.name(), 0, 0, &back));
    EXPECT_TRUE(log.has(5, 0xC43D0031u, "pxImageFile",
                        "file input/output failure: errno 2 (No such file or directory)"));
}

TEST(ReadWrite, WriteFailures) {
    tag_pxImage *image = patterned(SHORT, 3, 3, 0, 1);
    {
        LogCapture log;
        const std::u16string path = widePath(::testing::TempDir() + "no_such_dir/x.pim");
        EXPECT_EQ(0u, pxImageWrite(wide(path), 0, image));
        EXPECT_TRUE(log.has(5, 0xC43D0031u, "pxImageFile",
                            "file input/output failure: errno 2 (No such file or directory)"));
    }
    {
        LogCapture log;
        TempFile never("never_created");
        EXPECT_EQ(0u, pxImageWrite(never.name(), 0, nullptr));
        EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImageFile", "Image is null"));
        EXPECT_EQ(nullptr, std::fopen(never.path().c_str(), "rb"));
    }
    const std::u16string full = widePath("/dev/full");
    // A small image fits the stream buffer: only the close fails, and the close is not looked at.
    EXPECT_EQ(1u, pxImageWrite(wide(full), 0, image));
    tag_pxImage *big = patterned(DOUBLE, 200, 100, 0, 1);
    LogCapture log;
    EXPECT_EQ(0u, pxImageWrite(wide(full), 0, big));
    EXPECT_TRUE(log.has(5, 0xC43D0031u, "pxImagePixData",
                        "file input/output failure: errno 28 (No space left on device)"));
    pxImageDestruct(&big);
    pxImageDestruct(&image);
}

void expectAllocationFailuresClean(const std::function<uint32_t(tag_pxImage **)> &read) {
    tag_pxImage *image = nullptr;
    const int count = forEachAllocationFailure(
        [&] {
            const bool ok = read(&image) == 1;
            if (!ok) {
                EXPECT_EQ(nullptr, image);
            }
            return ok;
        },
        [&] { pxImageDestruct(&image); });
    EXPECT_GT(count, 0);
}

TEST(ReadWrite, AllocationFailuresOfReadsLeaveNothing) {
    TempFile file("alloc_read");
    tag_pxImage *shorts = patterned(SHORT, 6, 5, 0, 2);
    shorts->roiminX = 1;
    ASSERT_EQ(1u, pxImageWrite(file.name(), 0, shorts));
    for (int mode : {0, 1, 2})
        expectAllocationFailuresClean([&](tag_pxImage **image) {
            return pxImageReadWithROIandTransform(file.name(), INT, 1, mode, 0, image);
        });
    expectAllocationFailuresClean([&](tag_pxImage **image) {
        return pxImageReadWithROIandTransform(file.name(), FLOAT, 0, 2, 1, image);
    });
    pxImageDestruct(&shorts);
    tag_pxImage *one = blocky(6, 5);
    for (int type : {CSHORT, SHORT12}) {
        ASSERT_EQ(1u, pxImageWrite(file.name(), type, one));
        expectAllocationFailuresClean(
            [&](tag_pxImage **image) { return pxImageRead(file.name(), 0, 0, image); });
    }
    pxImageDestruct(&one);
    tag_pxImage *bytes = patterned(UBYTE, 6, 5, 0, 1);
    ASSERT_EQ(1u, pxImageWrite(file.name(), CBIT, bytes));
    expectAllocationFailuresClean([&](tag_pxImage **image) { return pxImageRead(file.name(), 0, 0, image); });
    pxImageDestruct(&bytes);
}

TEST(ReadWrite, AllocationFailuresOfWritesLeaveNothing) {
    TempFile file("alloc_write");
    tag_pxImage *floats = patterned(FLOAT, 6, 5, 1, 2);
    tag_pxImage *bytes = patterned(UBYTE, 6, 5, 0, 1);
    tag_pxImage *shorts = blocky(6, 5);
    struct Case {
        tag_pxImage *image;
        int type;
        int transform;
    };
    for (const Case &c : {Case{floats, SHORT, 1}, Case{floats, INT, 0}, Case{bytes, CBIT, 0},
                          Case{shorts, SHORT12, 0}, Case{shorts, CSHORT, 0}}) {
        const int count = forEachAllocationFailure(
            [&] { return pxImageWriteWithTransform(file.name(), c.type, c.transform, c.image) == 1; }, [] {});
        EXPECT_GT(count, 0);
    }
    pxImageDestruct(&floats);
    pxImageDestruct(&bytes);
    pxImageDestruct(&shorts);
}

std::vector<std::string> filesIn(const std::string &folder) {
    std::vector<std::string> names;
    DIR *dir = opendir(folder.c_str());
    if (dir == nullptr)
        return names;
    while (dirent *entry = readdir(dir))
        if (entry->d_name[0] != '.')
            names.push_back(entry->d_name);
    closedir(dir);
    return names;
}

TEST(DataFolders, EveryGoodFileReads) {
    const std::string folder = std::string(PXIMAGE_TEST_DATA_DIR) + "/good/";
    const std::vector<std::string> names = filesIn(folder);
    ASSERT_FALSE(names.empty());
    for (const std::string &name : names) {
        const std::u16string path = widePath(folder + name);
        tag_pxImage *image = nullptr;
        EXPECT_EQ(1u, pxImageRead(wide(path), 0, 0, &image)) << name;
        pxImageDestruct(&image);
    }
}

TEST(DataFolders, EveryBadFileFailsCleanly) {
    const std::string folder = std::string(PXIMAGE_TEST_DATA_DIR) + "/bad/";
    const std::vector<std::string> names = filesIn(folder);
    ASSERT_FALSE(names.empty());
    for (const std::string &name : names) {
        const std::u16string path = widePath(folder + name);
        for (int mode : {0, 1, 2}) {
            tag_pxImage *image = nullptr;
            LogCapture log;
            const long live = pxEnvLiveAllocations();
            EXPECT_EQ(0u, pxImageReadWithROI(wide(path), 0, 0, mode, &image)) << name << " mode " << mode;
            EXPECT_EQ(nullptr, image);
            EXPECT_EQ(live, pxEnvLiveAllocations()) << name;
            EXPECT_GT(log.traceCount(), 0u) << name;
        }
    }
}

} // namespace
