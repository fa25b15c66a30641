// De-interlacing: the documented examples, every pixel type at odd and even heights against a literal
// row-by-row model, headers and margins left alone, and every refusal with its code before anything is
// written.
#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "ResampleTestSupport.h"

namespace {

using namespace pxresample;

const char *const kModule = "pxImageDeInterlace";
constexpr uint32_t kNoField = 0xC41A000Cu, kSourceType = 0xC41A000Du, kFieldType = 0xC41A000Eu,
                   kFieldSize = 0xC41A000Fu;

// Expects field row i to hold source row first + 2i, byte for byte.
void expectField(const tag_pxImage *source, int32_t first, const tag_pxImage *field) {
    const size_t bytes = pixelSize(source->type) * static_cast<size_t>(source->width);
    for (int32_t i = 0; i < field->height; ++i)
        ASSERT_EQ(0, std::memcmp(source->pixMap[0][first + 2 * i], field->pixMap[0][i], bytes)) << i;
}

// The margin and every header field of an image, to prove they are not touched.
struct Untouched {
    const tag_pxImage *image;
    std::vector<unsigned char> header;
    std::vector<unsigned char> plane;
    explicit Untouched(const tag_pxImage *i)
        : image(i), header(reinterpret_cast<const unsigned char *>(i),
                           reinterpret_cast<const unsigned char *>(i) + sizeof *i),
          plane(planeBytes(i)) {}
    // The plane with the image proper replaced by the current pixels must equal the plane now.
    void expectOnlyPixelsChanged() const {
        EXPECT_EQ(0, std::memcmp(header.data(), image, sizeof *image));
        std::vector<unsigned char> now = planeBytes(image);
        const size_t size = pixelSize(image->type);
        const size_t stride = size * static_cast<size_t>(image->width + 2 * image->border);
        std::vector<unsigned char> expected = plane;
        for (int32_t y = 0; y < image->height; ++y) {
            const size_t at = (y + image->border) * stride + image->border * size;
            std::memcpy(&expected[at], &now[at], size * image->width);
        }
        EXPECT_EQ(expected, now);
    }
};

TEST(DeInterlace, FourByFiveGivesThreeEvenAndTwoOddRows) {
    Image source = make(UBYTE, 4, 5);
    for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 4; ++x)
            rows<uint8_t>(source.get())[y][x] = static_cast<uint8_t>(10 * y + x);
    Image even = make(UBYTE, 4, 3), odd = make(UBYTE, 4, 2);
    ASSERT_EQ(1u, pxImageDeInterlace(source.get(), even.get(), odd.get()));
    for (int32_t x = 0; x < 4; ++x) {
        EXPECT_EQ(x, rows<uint8_t>(even.get())[0][x]);
        EXPECT_EQ(20 + x, rows<uint8_t>(even.get())[1][x]);
        EXPECT_EQ(40 + x, rows<uint8_t>(even.get())[2][x]);
        EXPECT_EQ(10 + x, rows<uint8_t>(odd.get())[0][x]);
        EXPECT_EQ(30 + x, rows<uint8_t>(odd.get())[1][x]);
    }
}

TEST(DeInterlace, OneRowSourceGivesTheEvenFieldOnly) {
    Image source = make(FLOAT, 7, 1);
    fillFloats(source.get(), 3);
    Image even = make(FLOAT, 7, 1);
    ASSERT_EQ(1u, pxImageDeInterlace(source.get(), even.get(), nullptr));
    expectField(source.get(), 0, even.get());
    // The one-row source may also be its own even field.
    ASSERT_EQ(1u, pxImageDeInterlace(source.get(), source.get(), nullptr));
}

TEST(DeInterlace, EveryTypeAndHeightFollowsTheRowRule) {
    for (int32_t type = 1; type <= 8; ++type)
        for (int32_t h : {1, 2, 3, 8, 11})
            for (int32_t border : {0, 2}) {
                const int32_t w = 9 + type;
                Image source = make(type, w, h, border);
                fillBytes(source.get(), static_cast<uint32_t>(type * 100 + h));
                Image even = make(type, w, h / 2 + h % 2, border + 1);
                fillBytes(even.get(), 7);
                const Untouched evenBefore(even.get());
                Image odd = h / 2 > 0 ? make(type, w, h / 2, border) : Image();
                if (odd)
                    fillBytes(odd.get(), 8);
                const Untouched oddBefore(odd ? odd.get() : even.get());
                ASSERT_EQ(1u, pxImageDeInterlace(source.get(), even.get(), odd.get()));
                expectField(source.get(), 0, even.get());
                evenBefore.expectOnlyPixelsChanged();
                if (odd) {
                    expectField(source.get(), 1, odd.get());
                    oddBefore.expectOnlyPixelsChanged();
                }
            }
}

TEST(DeInterlace, OddFieldAlone) {
    Image source = make(SHORT, 5, 6);
    fillBytes(source.get(), 4);
    Image odd = make(SHORT, 5, 3);
    ASSERT_EQ(1u, pxImageDeInterlace(source.get(), nullptr, odd.get()));
    expectField(source.get(), 1, odd.get());
}

TEST(DeInterlace, EvenFieldOfTwoRowsForFiveRowsIsRefused) {
    Image source = make(UBYTE, 4, 5), even = make(UBYTE, 4, 2), odd = make(UBYTE, 4, 2);
    fillBytes(even.get(), 1);
    const std::vector<unsigned char> before = planeBytes(even.get());
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageDeInterlace(source.get(), even.get(), odd.get()));
    expectRefusal(log, PXENV_LOG_ERROR, kFieldSize, kModule,
                  "de-interlacing: target size does not match the source");
    EXPECT_EQ(before, planeBytes(even.get()));
}

TEST(DeInterlace, RefusalsCarryTheirCodes) {
    Image source = make(INT, 6, 4), even = make(INT, 6, 2), odd = make(INT, 6, 2);
    Image wrongType = make(FLOAT, 6, 2), wrongWidth = make(INT, 5, 2), wrongOdd = make(INT, 6, 3);
    Image typeless = make(0, 6, 4);
    fillBytes(odd.get(), 3);
    const std::vector<unsigned char> oddBefore = planeBytes(odd.get());
    struct Call {
        uint32_t code;
        std::string text;
        const tag_pxImage *source;
        tag_pxImage *even, *odd;
    };
    const std::vector<Call> calls = {
        {kNoField, "de-interlacing: no target image", source.get(), nullptr, nullptr},
        {kSourceType, "de-interlacing: source pixel type 0 not supported", typeless.get(), even.get(),
         odd.get()},
        {kFieldType, "de-interlacing: target pixel type differs from the source", source.get(),
         wrongType.get(), odd.get()},
        {kFieldType, "", source.get(), even.get(), wrongType.get()},
        {kFieldSize, "", source.get(), wrongWidth.get(), odd.get()},
        {kFieldSize, "", source.get(), even.get(), wrongOdd.get()},
    };
    for (const Call &call : calls) {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageDeInterlace(call.source, call.even, call.odd));
        expectRefusal(log, PXENV_LOG_ERROR, call.code, kModule, call.text);
        EXPECT_EQ(oddBefore, planeBytes(odd.get()));
    }
    // A type outside 1..8 is named in the message.
    source->type = 9;
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageDeInterlace(source.get(), even.get(), odd.get()));
    expectRefusal(log, PXENV_LOG_ERROR, kSourceType, kModule,
                  "de-interlacing: source pixel type 9 not supported");
    source->type = INT;
}

TEST(DeInterlace, ImagesWithoutPixelsOrWithNegativeSizesAreRefused) {
    Image source = make(UBYTE, 4, 4), even = make(UBYTE, 4, 2);
    tag_pxImage *header = nullptr;
    ASSERT_EQ(1u, pxImageHeaderConstruct(UBYTE, 4, 2, 0, 1, &header));
    {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageDeInterlace(source.get(), even.get(), header));
        expectRefusal(log, PXENV_LOG_I, kInvalidArgument, kModule);
    }
    {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageDeInterlace(nullptr, even.get(), nullptr));
        expectRefusal(log, PXENV_LOG_I, kInvalidArgument, kModule);
    }
    {
        // A negative width matched by the field would copy a negative size.
        source->width = -4;
        even->width = -4;
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageDeInterlace(source.get(), even.get(), nullptr));
        expectRefusal(log, PXENV_LOG_I, kInvalidArgument, kModule);
        source->width = 4;
        even->width = 4;
    }
    pxImageHeaderDestruct(&header);
}

} // namespace
