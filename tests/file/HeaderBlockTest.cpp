// The header block: golden files of all thirteen versions assembled byte by byte, defaults, the lenient tag,
// argument checks, and the writer's warnings and corrections.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "FileTestSupport.h"
#include "support/AllocFailure.h"
#include "support/LogCapture.h"

#include "file/pxImageFileInternal.h"

using namespace pxtest;

namespace {

const char *const HEADER_MODULE = "pxImageFileHeader";

// One field after the tag: its file form, the value the golden files store, the default of a version that
// does not store it, and where it lands in the record.
struct FieldCase {
    char kind; // 's' u16, 'i' i32, 'f' f32, 'd' f64, 'w' 8 raw bytes
    double stored;
    double expected; // value read back (the aux shorts are widened with their sign)
    double fallback;
    std::function<double(const tag_pxImage &)> get;
};

const int W = 7, H = 5;

std::vector<FieldCase> fieldCases() {
    using I = const tag_pxImage &;
    return {
        {'s', 1, 1, 0, [](I h) { return h.roiminX; }},
        {'s', 6, 6, W, [](I h) { return h.roimaxX; }},
        {'s', 1, 1, 0, [](I h) { return h.roiminY; }},
        {'s', 4, 4, H, [](I h) { return h.roimaxY; }},
        {'s', 100, 100, 0, [](I h) { return h.origX; }},
        {'s', 200, 200, 0, [](I h) { return h.origY; }},
        {'s', 1000, 1000, W, [](I h) { return h.origWidth; }},
        {'s', 900, 900, H, [](I h) { return h.origHeight; }},
        {'i', -123456, -123456, 0, [](I h) { return h.auxInt; }},
        {'s', 0xFFFE, -2, -1, [](I h) { return h.auxShort[0]; }},
        {'s', 7, 7, -1, [](I h) { return h.auxShort[1]; }},
        {'s', 0x8000, -32768, -1, [](I h) { return h.auxShort[2]; }},
        {'f', 21.5, 21.5, -273.0, [](I h) { return h.temperature[0]; }},
        {'d', 1.25, 1.25, 4.545, [](I h) { return h.opticsParam[0]; }},
        {'d', 0.5, 0.5, 0.009, [](I h) { return h.opticsParam[3]; }},
        {'d', 71.0, 71.0, 70.0, [](I h) { return h.opticsParam[4]; }},
        {'d', 1300.0, 1300.0, 1240.0, [](I h) { return h.opticsParam[1]; }},
        {'d', 55.0, 55.0, 50.0, [](I h) { return h.opticsParam[2]; }},
        {'d', 0.1, 0.1, 0.0, [](I h) { return h.aberK1; }},
        {'d', 0.2, 0.2, 0.0, [](I h) { return h.aberK2; }},
        {'d', 0.3, 0.3, 0.0, [](I h) { return h.aberK3; }},
        {'d', 0.4, 0.4, 0.0, [](I h) { return h.aberP1; }},
        {'d', 0.5, 0.5, 0.0, [](I h) { return h.aberP2; }},
        {'d', 3.25, 3.25, 2.5, [](I h) { return h.aberCx; }},
        {'d', 2.75, 2.75, 1.5, [](I h) { return h.aberCy; }},
        {'w', 0, (double)0x0807060504030201LL, 0, [](I h) { return (double)h.auxWide; }},
        {'i', 11, 11, 0, [](I h) { return h.auxInt2[0]; }},
        {'i', 12, 12, 0, [](I h) { return h.auxInt2[1]; }},
        {'f', 30.5, 30.5, -273.0, [](I h) { return h.temperature[1]; }},
        {'f', -5.25, -5.25, -273.0, [](I h) { return h.temperature[2]; }},
        {'i', 13, 13, 0, [](I h) { return h.auxInt2[2]; }},
        {'s', 9, 9, 0, [](I h) { return h.auxShort[3]; }},
        {'i', 21, 21, -1, [](I h) { return h.auxLong[1]; }},
        {'i', 22, 22, -1, [](I h) { return h.auxLong[2]; }},
        {'i', 23, 23, -1, [](I h) { return h.auxLong[3]; }},
        {'i', 24, 24, -1, [](I h) { return h.auxLong[4]; }},
        {'i', 25, 25, -1, [](I h) { return h.auxLong[5]; }},
        {'i', 26, 26, -1, [](I h) { return h.auxLong[6]; }},
        {'i', 27, 27, -1, [](I h) { return h.auxLong[7]; }},
        {'i', 20, 20, -1, [](I h) { return h.auxLong[0]; }},
    };
}

struct VersionCase {
    const char *tag;
    size_t fields;
    size_t bytes;
};

const VersionCase VERSIONS[] = {{"img1", 8, 16},   {"img2", 12, 26},  {"img3", 13, 30},  {"img4", 14, 38},
                                {"img5", 18, 70},  {"img6", 25, 126}, {"img7", 27, 138}, {"img8", 28, 142},
                                {"img9", 30, 150}, {"im10", 31, 154}, {"im11", 32, 156}, {"im12", 39, 184},
                                {"im13", 40, 188}};

size_t kindSize(char kind) {
    return kind == 's' ? 2 : (kind == 'i' || kind == 'f') ? 4 : 8;
}

// The block of a version: leading fields, tag, the version's fields, zeros up to 512 bytes.
std::vector<uint8_t> goldenBlock(const char *tag, size_t fieldCount, int type = UBYTE, int planes = 1) {
    Bytes b;
    b.u16(W).u16(H).u16(type).u16(planes).text(tag);
    const std::vector<FieldCase> cases = fieldCases();
    for (size_t i = 0; i < fieldCount; ++i) {
        const FieldCase &f = cases[i];
        switch (f.kind) {
        case 's':
            b.u16((uint32_t)f.stored);
            break;
        case 'i':
            b.i32((int32_t)f.stored);
            break;
        case 'f':
            b.f32((float)f.stored);
            break;
        case 'd':
            b.f64(f.stored);
            break;
        default: {
            const uint8_t wide[8] = {1, 2, 3, 4, 5, 6, 7, 8};
            b.raw(wide, 8);
        }
        }
    }
    b.zeros(512 - b.data.size());
    return b.data;
}

std::vector<uint8_t> ubytePixels(int w, int h) {
    std::vector<uint8_t> p;
    for (int i = 0; i < w * h; ++i)
        p.push_back((uint8_t)(i * 3 + 1));
    return p;
}

void expectFields(const tag_pxImage &h, size_t storedFields) {
    const std::vector<FieldCase> cases = fieldCases();
    for (size_t i = 0; i < cases.size(); ++i) {
        const double want = i < storedFields ? cases[i].expected : cases[i].fallback;
        EXPECT_EQ(want, cases[i].get(h)) << "field " << i;
    }
}

TEST(HeaderBlock, VersionTableByteCounts) {
    const std::vector<FieldCase> cases = fieldCases();
    for (const VersionCase &v : VERSIONS) {
        size_t bytes = 0;
        for (size_t i = 0; i < v.fields; ++i)
            bytes += kindSize(cases[i].kind);
        EXPECT_EQ(v.bytes, bytes) << v.tag;
    }
}

TEST(HeaderBlock, GoldenFileOfEveryVersionReadsEveryField) {
    for (const VersionCase &v : VERSIONS) {
        SCOPED_TRACE(v.tag);
        TempFile file(std::string("golden_") + v.tag);
        writeBytes(file.path(), Bytes().append(goldenBlock(v.tag, v.fields)).append(ubytePixels(W, H)).data);
        tag_pxImage *image = nullptr;
        ASSERT_EQ(1u, pxImageRead(file.name(), 0, 0, &image));
        EXPECT_EQ(UBYTE, image->type);
        EXPECT_EQ(W, image->width);
        EXPECT_EQ(H, image->height);
        EXPECT_EQ(0, image->border);
        EXPECT_EQ(1, image->planes);
        EXPECT_EQ(UBYTE, image->origType);
        EXPECT_EQ(0, image->refCount);
        expectFields(*image, v.fields);
        EXPECT_EQ(1, pixel<uint8_t>(image, 0, 0, 0));
        EXPECT_EQ((uint8_t)(34 * 3 + 1), pixel<uint8_t>(image, 0, 6, 4));
        pxImageDestruct(&image);
    }
}

TEST(HeaderBlock, HeaderReadStopsAtPixelData) {
    for (const VersionCase &v : VERSIONS) {
        SCOPED_TRACE(v.tag);
        TempFile file(std::string("position_") + v.tag);
        writeBytes(file.path(),
                   Bytes().append(goldenBlock(v.tag, v.fields, SHORT)).append(ubytePixels(W, H)).data);
        FILE *f = std::fopen(file.path().c_str(), "rb");
        ASSERT_NE(f, nullptr);
        tag_pxImage *header = reinterpret_cast<tag_pxImage *>(0x1);
        int32_t origType = 0;
        ASSERT_EQ(1u, pxImageHeaderRead(f, FLOAT, 3, &header, &origType));
        EXPECT_EQ(512, std::ftell(f));
        EXPECT_EQ(SHORT, origType);
        EXPECT_EQ(FLOAT, header->type);
        EXPECT_EQ(SHORT, header->origType);
        EXPECT_EQ(3, header->border);
        for (int p = 0; p < 9; ++p)
            EXPECT_EQ(nullptr, header->pixMap[p]);
        expectFields(*header, v.fields);
        pxImageHeaderDestruct(&header);
        std::fclose(f);
    }
}

TEST(HeaderBlock, Img1DefaultsAndFullBlockConsumed) {
    TempFile file("img1_defaults");
    writeBytes(file.path(), goldenBlock("img1", 8));
    FILE *f = std::fopen(file.path().c_str(), "rb");
    tag_pxImage *header = nullptr;
    int32_t origType = 0;
    ASSERT_EQ(1u, pxImageHeaderRead(f, 0, 0, &header, &origType));
    EXPECT_EQ(512, std::ftell(f));
    EXPECT_EQ(0, header->auxInt);
    EXPECT_EQ(-273.0f, header->temperature[0]);
    EXPECT_EQ(-273.0f, header->temperature[1]);
    EXPECT_EQ(-273.0f, header->temperature[2]);
    const double optics[5] = {4.545, 1240.0, 50.0, 0.009, 70.0};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(optics[i], header->opticsParam[i]);
    EXPECT_EQ(2.5, header->aberCx);
    EXPECT_EQ(1.5, header->aberCy);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(-1, header->auxLong[i]);
    pxImageHeaderDestruct(&header);
    std::fclose(f);
}

TEST(HeaderBlock, UnknownTagIsReadAsIm13) {
    TempFile file("unknown_tag");
    writeBytes(file.path(), Bytes().append(goldenBlock("zq!9", 40)).append(ubytePixels(W, H)).data);
    tag_pxImage *image = nullptr;
    ASSERT_EQ(1u, pxImageRead(file.name(), 0, 0, &image));
    expectFields(*image, 40);
    pxImageDestruct(&image);
}

TEST(HeaderBlock, BorderLimit) {
    TempFile file("border_limit");
    writeBytes(file.path(), goldenBlock("im13", 40));
    FILE *f = std::fopen(file.path().c_str(), "rb");
    tag_pxImage *header = nullptr;
    int32_t origType = -5;
    {
        LogCapture log;
        EXPECT_EQ(0u, pxImageHeaderRead(f, 0, 1000, &header, &origType));
        EXPECT_TRUE(log.has(5, 0xC43D0003u, HEADER_MODULE, "txt"));
    }
    EXPECT_EQ(0, std::ftell(f)) << "nothing read";
    EXPECT_EQ(nullptr, header);
    EXPECT_EQ(-5, origType);
    ASSERT_EQ(1u, pxImageHeaderRead(f, 0, 999, &header, &origType));
    EXPECT_EQ(999, header->border);
    pxImageHeaderDestruct(&header);
    std::fclose(f);
}

TEST(HeaderBlock, InvalidRequestedTypeFailsBeforeReading) {
    TempFile file("bad_request");
    writeBytes(file.path(), goldenBlock("im13", 40));
    FILE *f = std::fopen(file.path().c_str(), "rb");
    tag_pxImage *header = nullptr;
    int32_t origType = 0;
    LogCapture log;
    EXPECT_EQ(0u, pxImageHeaderRead(f, 9, 0, &header, &origType));
    EXPECT_TRUE(log.has(5, 0xC43D0003u, HEADER_MODULE, "Invalid image type"));
    EXPECT_EQ(0, std::ftell(f));
    std::fclose(f);
}

TEST(HeaderBlock, InvalidStoredTypeFails) {
    for (int stored : {9, 65535}) {
        TempFile file("bad_stored");
        writeBytes(file.path(), goldenBlock("im13", 40, stored));
        tag_pxImage *image = nullptr;
        LogCapture log;
        EXPECT_EQ(0u, pxImageRead(file.name(), 0, 0, &image));
        EXPECT_EQ(nullptr, image);
        EXPECT_TRUE(log.has(5, 0xC43D0003u, HEADER_MODULE, "Invalid image type"));
    }
}

TEST(HeaderBlock, Width10000FailsTheRead) {
    std::vector<uint8_t> block = goldenBlock("im13", 40);
    block[0] = 10000 & 0xFF;
    block[1] = 10000 >> 8;
    TempFile file("width10000");
    writeBytes(file.path(), block);
    tag_pxImage *image = nullptr;
    LogCapture log;
    EXPECT_EQ(0u, pxImageRead(file.name(), 0, 0, &image));
    EXPECT_EQ(nullptr, image);
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImage", "txt"));
}

TEST(HeaderBlock, ZeroPlanesFailTheRead) {
    TempFile file("planes0");
    writeBytes(file.path(), goldenBlock("im13", 40, UBYTE, 0));
    tag_pxImage *image = nullptr;
    EXPECT_EQ(0u, pxImageRead(file.name(), 0, 0, &image));
    EXPECT_EQ(nullptr, image);
}

TEST(HeaderBlock, TruncatedBlockFailsAtEveryLength) {
    const std::vector<uint8_t> full = goldenBlock("im13", 40);
    for (size_t length : {0, 3, 8, 11, 12, 40, 199, 200, 511}) {
        SCOPED_TRACE(length);
        TempFile file("truncated_block");
        writeBytes(file.path(), std::vector<uint8_t>(full.begin(), full.begin() + length));
        FILE *f = std::fopen(file.path().c_str(), "rb");
        tag_pxImage *header = reinterpret_cast<tag_pxImage *>(0x1);
        int32_t origType = 0;
        LogCapture log;
        EXPECT_EQ(0u, pxImageHeaderRead(f, 0, 0, &header, &origType));
        EXPECT_EQ(nullptr, header);
        const bool inFread = length == 8 || length == 11 || length == 40 || length == 200 || length == 511;
        if (inFread) {
            // fread failures carry the file-error code, errno and its text.
            ASSERT_EQ(1u, log.messages().size());
            EXPECT_EQ(0xC43D0031u, log.messages()[0].code);
            EXPECT_EQ(5, log.messages()[0].level);
            EXPECT_EQ("file input/output failure: errno 0 (Success)", log.messages()[0].text);
        } else {
            // The integer readers of the environment fail silently: only traces.
            EXPECT_TRUE(log.messages().empty());
            EXPECT_GT(log.traceCount(), 0u);
        }
        std::fclose(f);
    }
}

TEST(HeaderBlock, AllocationFailureOfTheHeaderLeavesNothing) {
    TempFile file("alloc_header");
    writeBytes(file.path(), goldenBlock("im13", 40));
    FILE *f = std::fopen(file.path().c_str(), "rb");
    tag_pxImage *header = nullptr;
    const int count = forEachAllocationFailure(
        [&] {
            std::rewind(f);
            int32_t origType;
            const bool ok = pxImageHeaderRead(f, 0, 0, &header, &origType) == 1;
            if (!ok) {
                EXPECT_EQ(nullptr, header);
            }
            return ok;
        },
        [&] { pxImageHeaderDestruct(&header); });
    EXPECT_GT(count, 0);
    std::fclose(f);
}

// ---- Writing ----

tag_pxImage *writerImage() {
    return makeImage<uint8_t>(UBYTE, 10, 8, [](int x, int y) { return x + 10 * y; });
}

struct WrittenBlock {
    std::vector<uint8_t> bytes;
    std::vector<LogRecord> warnings;
};

WrittenBlock writeAndCapture(tag_pxImage *image, const char *name) {
    TempFile file(name);
    LogCapture log;
    EXPECT_EQ(1u, pxImageWrite(file.name(), 0, image));
    WrittenBlock out{readBytes(file.path()), {}};
    for (const LogRecord &r : log.messages())
        out.warnings.push_back(r);
    return out;
}

TEST(HeaderBlockWriter, LayoutOfAFreshImage) {
    tag_pxImage *image = writerImage();
    image->auxWide = 0x1122334455667788LL;
    image->auxLong[0] = 5;
    image->auxLong[7] = 6;
    image->temperature[2] = 3.5f;
    image->opticsParam[2] = 49.0;
    const WrittenBlock w = writeAndCapture(image, "layout");
    ASSERT_EQ(512u + 80u, w.bytes.size());
    EXPECT_TRUE(w.warnings.empty());
    EXPECT_EQ(10, leU16(w.bytes, 0));
    EXPECT_EQ(8, leU16(w.bytes, 2));
    EXPECT_EQ(UBYTE, leU16(w.bytes, 4));
    EXPECT_EQ(1, leU16(w.bytes, 6));
    EXPECT_EQ(0, std::memcmp(&w.bytes[8], "im13", 4));
    EXPECT_EQ(10, leU16(w.bytes, 14));
    EXPECT_EQ(8, leU16(w.bytes, 18));
    EXPECT_EQ(0xFFFF, leU16(w.bytes, 32));
    double d;
    std::memcpy(&d, &w.bytes[74], 8);
    EXPECT_EQ(49.0, d) << "opticsParam[2] at 74";
    std::memcpy(&d, &w.bytes[130], 8);
    EXPECT_EQ(3.5, d) << "aberCy at 130";
    int64_t wide;
    std::memcpy(&wide, &w.bytes[138], 8);
    EXPECT_EQ(0x1122334455667788LL, wide);
    float t;
    std::memcpy(&t, &w.bytes[158], 4);
    EXPECT_EQ(3.5f, t);
    EXPECT_EQ(6, leI32(w.bytes, 192));
    EXPECT_EQ(5, leI32(w.bytes, 196));
    for (size_t i = 200; i < 512; ++i)
        ASSERT_EQ(0, w.bytes[i]) << i;
    EXPECT_EQ(0, w.bytes[512]);
    EXPECT_EQ(79, w.bytes[591]);
    pxImageDestruct(&image);
}

struct WarningCase {
    std::function<void(tag_pxImage &)> set;
    std::string text;
    size_t offset;   // offset of the corrected field, 0 for none
    uint16_t stored; // value in the file
};

TEST(HeaderBlockWriter, EveryWarningAndCorrection) {
    const std::vector<WarningCase> cases = {
        {[](tag_pxImage &i) { i.roiminY = -3; }, "negative Image->roiminY -3", 16, 0},
        {[](tag_pxImage &i) { i.roimaxY = 9; }, "Image->roimaxY > Image->height (9 > 8)", 18, 8},
        {[](tag_pxImage &i) { i.roiminY = 5, i.roimaxY = 5; }, "Image->roiminY >= Image->roimaxY (5 >= 5)",
         16, 5},
        {[](tag_pxImage &i) { i.roiminX = -1; }, "negative Image->roiminX -1", 12, 0},
        {[](tag_pxImage &i) { i.roimaxX = 11; }, "Image->roimaxX > Image->width (11 > 10)", 14, 10},
        {[](tag_pxImage &i) { i.roiminX = 7, i.roimaxX = 2; }, "Image->roiminX >= Image->roimaxX (7 >= 2)",
         14, 2},
        {[](tag_pxImage &i) { i.origWidth = -2, i.origX = -100; }, "negative Image->origWidth -2", 24, 0},
        {[](tag_pxImage &i) { i.origWidth = 10001; }, "Image->origWidth > pxImage_MAX_SIZE (10001 > 10000)",
         24, 10000},
        {[](tag_pxImage &i) { i.origHeight = -7, i.origY = -100; }, "negative Image->origHeight -7", 26, 0},
        {[](tag_pxImage &i) { i.origHeight = 20000; }, "Image->origHeight > pxImage_MAX_SIZE (20000 > 10000)",
         26, 10000},
        {[](tag_pxImage &i) { i.origX = -4; }, "negative Image->origX -4", 20, 0},
        {[](tag_pxImage &i) { i.origX = 3; }, "Image->origX + Image->width > Image->origWidth (3+10 > 10)",
         20, 3},
        {[](tag_pxImage &i) { i.origY = -5; }, "negative Image->origY -5", 22, 0},
        {[](tag_pxImage &i) { i.origY = 1; }, "Image->origY + Image->height > Image->origHeight (1+8 > 8)",
         22, 1},
    };
    for (const WarningCase &c : cases) {
        SCOPED_TRACE(c.text);
        tag_pxImage *image = writerImage();
        c.set(*image);
        tag_pxImage before;
        std::memcpy(&before, image, sizeof(before));
        const WrittenBlock w = writeAndCapture(image, "warning");
        bool found = false;
        for (const LogRecord &r : w.warnings) {
            if (r.text == c.text) {
                found = true;
                EXPECT_EQ(4, r.level);
                EXPECT_EQ(HEADER_MODULE, r.module);
                EXPECT_EQ(PXENV_LOG_F, r.kind);
            }
        }
        EXPECT_TRUE(found);
        EXPECT_EQ(c.stored, leU16(w.bytes, c.offset));
        EXPECT_EQ(0, std::memcmp(&before, image, sizeof(before))) << "the image keeps its values";
        pxImageDestruct(&image);
    }
}

TEST(HeaderBlockWriter, WarningsComeInTableOrder) {
    tag_pxImage *image = writerImage();
    image->roiminY = -1;
    image->roimaxX = 12;
    image->origWidth = 10001;
    image->origY = -1;
    const WrittenBlock w = writeAndCapture(image, "order");
    ASSERT_EQ(4u, w.warnings.size());
    EXPECT_EQ("negative Image->roiminY -1", w.warnings[0].text);
    EXPECT_EQ("Image->roimaxX > Image->width (12 > 10)", w.warnings[1].text);
    EXPECT_EQ("Image->origWidth > pxImage_MAX_SIZE (10001 > 10000)", w.warnings[2].text);
    EXPECT_EQ("negative Image->origY -1", w.warnings[3].text);
    pxImageDestruct(&image);
}

// Two images that together break all fourteen rules (three pairs of rules exclude each other); each logs its
// warnings in table order, with the image's values.
TEST(HeaderBlockWriter, AllFourteenWarningsInTableOrder) {
    tag_pxImage *first = writerImage();
    first->roiminY = -1, first->roimaxY = 9, first->roiminX = -1, first->roimaxX = 11;
    first->origWidth = -2, first->origHeight = -7, first->origX = -4, first->origY = -5;
    tag_pxImage *second = writerImage();
    second->roiminY = 5, second->roimaxY = 5, second->roiminX = 7, second->roimaxX = 2;
    second->origWidth = 10001, second->origHeight = 20000;
    const std::vector<std::vector<std::string>> expected = {
        {"negative Image->roiminY -1", "Image->roimaxY > Image->height (9 > 8)", "negative Image->roiminX -1",
         "Image->roimaxX > Image->width (11 > 10)", "negative Image->origWidth -2",
         "negative Image->origHeight -7", "negative Image->origX -4",
         "Image->origX + Image->width > Image->origWidth (-4+10 > -2)", "negative Image->origY -5",
         "Image->origY + Image->height > Image->origHeight (-5+8 > -7)"},
        {"Image->roiminY >= Image->roimaxY (5 >= 5)", "Image->roiminX >= Image->roimaxX (7 >= 2)",
         "Image->origWidth > pxImage_MAX_SIZE (10001 > 10000)",
         "Image->origHeight > pxImage_MAX_SIZE (20000 > 10000)"}};
    tag_pxImage *images[2] = {first, second};
    for (int i = 0; i < 2; ++i) {
        const WrittenBlock w = writeAndCapture(images[i], "all_warnings");
        ASSERT_EQ(expected[i].size(), w.warnings.size());
        for (size_t k = 0; k < w.warnings.size(); ++k) {
            EXPECT_EQ(expected[i][k], w.warnings[k].text);
            EXPECT_EQ(4, w.warnings[k].level);
            EXPECT_EQ(PXENV_LOG_F, w.warnings[k].kind);
            EXPECT_EQ(HEADER_MODULE, w.warnings[k].module);
        }
    }
    const WrittenBlock corrected = writeAndCapture(first, "all_warnings_block");
    EXPECT_EQ(0, leU16(corrected.bytes, 16)) << "roiminY";
    EXPECT_EQ(8, leU16(corrected.bytes, 18)) << "roimaxY";
    EXPECT_EQ(0, leU16(corrected.bytes, 12)) << "roiminX";
    EXPECT_EQ(10, leU16(corrected.bytes, 14)) << "roimaxX";
    EXPECT_EQ(0, leU16(corrected.bytes, 20)) << "origX";
    EXPECT_EQ(0, leU16(corrected.bytes, 22)) << "origY";
    EXPECT_EQ(0, leU16(corrected.bytes, 24)) << "origWidth";
    EXPECT_EQ(0, leU16(corrected.bytes, 26)) << "origHeight";
    EXPECT_EQ(-1, first->roiminY) << "the image keeps its values";
    EXPECT_EQ(-7, first->origHeight);
    pxImageDestruct(&first);
    pxImageDestruct(&second);
}

TEST(HeaderBlockWriter, OrigWidth10001ReadsBackAs10000) {
    tag_pxImage *image = writerImage();
    image->origWidth = 10001;
    TempFile file("orig10001");
    ASSERT_EQ(1u, pxImageWrite(file.name(), 0, image));
    tag_pxImage *back = nullptr;
    ASSERT_EQ(1u, pxImageRead(file.name(), 0, 0, &back));
    EXPECT_EQ(10000, back->origWidth);
    pxImageDestruct(&image);
    pxImageDestruct(&back);
}

TEST(HeaderBlockWriter, RoundTripKeepsEveryField) {
    tag_pxImage *image = makeImage<float>(FLOAT, 6, 4, [](int x, int y) { return x * 0.5f - y; });
    image->origX = 3, image->origY = 2, image->origWidth = 40, image->origHeight = 30;
    image->roiminX = 1, image->roimaxX = 5, image->roiminY = 1, image->roimaxY = 3;
    image->origType = SHORT;
    image->auxInt = -77;
    image->temperature[0] = 1.5f, image->temperature[1] = 2.5f, image->temperature[2] = -3.5f;
    for (int i = 0; i < 5; ++i)
        image->opticsParam[i] = 10.0 + i;
    image->aberK1 = 1e-3, image->aberK2 = -2e-5, image->aberK3 = 3e-7, image->aberP1 = 4e-4,
    image->aberP2 = -5e-4;
    image->aberCx = 2.25, image->aberCy = 1.75;
    image->auxShort[0] = -5, image->auxShort[1] = 300, image->auxShort[2] = -32768,
    image->auxShort[3] = 32767;
    for (int i = 0; i < 8; ++i)
        image->auxLong[i] = i * 1000 - 3;
    image->auxWide = -0x123456789ALL;
    image->auxInt2[0] = 1, image->auxInt2[1] = -2, image->auxInt2[2] = 3;
    TempFile file("roundtrip_fields");
    ASSERT_EQ(1u, pxImageWrite(file.name(), 0, image));
    tag_pxImage *back = nullptr;
    ASSERT_EQ(1u, pxImageRead(file.name(), 0, 0, &back));
    tag_pxImage expected;
    std::memcpy(&expected, image, sizeof(expected));
    expected.origType = FLOAT;
    for (int p = 0; p < 9; ++p)
        expected.pixMap[p] = back->pixMap[p];
    EXPECT_EQ(0, std::memcmp(&expected, back, sizeof(expected)));
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x)
            EXPECT_EQ(pixel<float>(image, 0, x, y), pixel<float>(back, 0, x, y));
    pxImageDestruct(&image);
    pxImageDestruct(&back);
}

TEST(HeaderBlockWriter, RefusesBadTypeSizeAndPlanes) {
    tag_pxImage *image = writerImage();
    TempFile file("refuse");
    {
        LogCapture log;
        EXPECT_EQ(0u, pxImageWrite(file.name(), 9, image));
        EXPECT_TRUE(log.has(5, 0xC43D0003u, HEADER_MODULE, "Invalid image type"));
    }
    for (auto change : std::vector<std::function<void(tag_pxImage &)>>{
             [](tag_pxImage &i) { i.width = 0; }, [](tag_pxImage &i) { i.width = 10000; },
             [](tag_pxImage &i) { i.height = 0; }, [](tag_pxImage &i) { i.height = 10000; },
             [](tag_pxImage &i) { i.planes = 0; }, [](tag_pxImage &i) { i.planes = 10; }}) {
        tag_pxImage copy = *image;
        change(copy);
        LogCapture log;
        EXPECT_EQ(0u, pxImageWrite(file.name(), 0, &copy));
        EXPECT_TRUE(log.has(5, 0xC43D0003u, HEADER_MODULE, "txt"));
    }
    pxImageDestruct(&image);
}

} // namespace
