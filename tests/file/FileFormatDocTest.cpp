// The worked examples of docs/file-format.md: each file printed there as a hex dump is decoded by the
// library into the pixels printed beside it, and the library writes the same bytes from those pixels (the
// lossless examples), so the document cannot drift from the reader and writer.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "FileTestSupport.h"
#include "pxImage.h"

namespace {

using pxtest::TempFile;

std::string documentText() {
    std::ifstream in(std::string(PXIMAGE_SOURCE_DIR) + "/docs/file-format.md");
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The lines of the fenced block that follows the marker `<!-- example NAME PART -->`.
std::vector<std::string> blockAfter(const std::string &doc, const std::string &name,
                                    const std::string &part) {
    std::vector<std::string> lines;
    const size_t marker = doc.find("<!-- example " + name + " " + part + " -->");
    if (marker == std::string::npos)
        return lines;
    const size_t open = doc.find("```", marker);
    const size_t first = doc.find('\n', open) + 1;
    const size_t close = doc.find("\n```", first);
    std::istringstream block(doc.substr(first, close - first));
    for (std::string line; std::getline(block, line);)
        lines.push_back(line);
    return lines;
}

// The bytes of a `hexdump -C` listing: offset, up to 16 hex bytes, the text column; `*` repeats the line
// above up to the next offset; the last line is the length.
std::vector<uint8_t> parseHexDump(const std::vector<std::string> &lines) {
    std::vector<uint8_t> bytes;
    std::vector<uint8_t> previous;
    bool repeat = false;
    for (const std::string &line : lines) {
        if (line == "*") {
            repeat = true;
            continue;
        }
        const size_t offset = std::stoul(line.substr(0, 8), nullptr, 16);
        while (repeat && bytes.size() < offset)
            bytes.insert(bytes.end(), previous.begin(), previous.end());
        repeat = false;
        EXPECT_EQ(offset, bytes.size()) << line;
        std::istringstream hex(
            line.substr(8, line.find('|') == std::string::npos ? std::string::npos : line.find('|') - 8));
        previous.clear();
        for (std::string byte; hex >> byte;)
            previous.push_back(static_cast<uint8_t>(std::stoul(byte, nullptr, 16)));
        bytes.insert(bytes.end(), previous.begin(), previous.end());
    }
    return bytes;
}

// Pixel rows as printed: numbers separated by spaces, one line per row.
std::vector<std::vector<double>> parsePixels(const std::vector<std::string> &lines) {
    std::vector<std::vector<double>> rows;
    for (const std::string &line : lines) {
        std::istringstream in(line);
        rows.emplace_back();
        for (double v; in >> v;)
            rows.back().push_back(v);
    }
    return rows;
}

double pixelAt(const tag_pxImage *image, int32_t x, int32_t y) {
    void *row = image->pixMap[0][y];
    switch (image->type) {
    case UBYTE:
        return static_cast<uint8_t *>(row)[x];
    case SHORT:
        return static_cast<uint16_t *>(row)[x];
    default:
        ADD_FAILURE() << "unexpected type " << image->type;
        return 0;
    }
}

void setPixel(tag_pxImage *image, int32_t x, int32_t y, double value) {
    void *row = image->pixMap[0][y];
    if (image->type == UBYTE)
        static_cast<uint8_t *>(row)[x] = static_cast<uint8_t>(value);
    else
        static_cast<uint16_t *>(row)[x] = static_cast<uint16_t>(value);
}

struct Example {
    const char *name;
    int32_t fileType;   // type code in the file
    int32_t memoryType; // type of the image that is read
};

class FileFormatDoc : public ::testing::TestWithParam<Example> {};
// The lossless examples: the writer produces the printed bytes from the printed pixels.
class FileFormatDocWriter : public ::testing::TestWithParam<Example> {};

TEST_P(FileFormatDoc, BytesDecodeToThePrintedPixels) {
    const Example &e = GetParam();
    const std::string doc = documentText();
    ASSERT_FALSE(doc.empty()) << "docs/file-format.md not found";
    const std::vector<uint8_t> bytes = parseHexDump(blockAfter(doc, e.name, "bytes"));
    const std::vector<std::vector<double>> pixels = parsePixels(blockAfter(doc, e.name, "pixels"));
    ASSERT_GT(bytes.size(), 512u);
    ASSERT_FALSE(pixels.empty());
    EXPECT_EQ(e.fileType, bytes[4] | bytes[5] << 8);

    TempFile file(std::string("doc_") + e.name + ".pxi");
    pxtest::writeBytes(file.path(), bytes);
    tag_pxImage *image = nullptr;
    ASSERT_EQ(1u, pxImageRead(file.name(), 0, 0, &image));
    ASSERT_EQ(e.memoryType, image->type);
    ASSERT_EQ(static_cast<int32_t>(pixels.size()), image->height);
    for (int32_t y = 0; y < image->height; ++y) {
        ASSERT_EQ(static_cast<size_t>(image->width), pixels[y].size()) << "row " << y;
        for (int32_t x = 0; x < image->width; ++x)
            EXPECT_EQ(pixels[y][x], pixelAt(image, x, y)) << "pixel (" << x << ", " << y << ")";
    }
    pxImageDestruct(&image);
}

TEST_P(FileFormatDocWriter, WritesThePrintedBytes) {
    const Example &e = GetParam();
    const std::string doc = documentText();
    const std::vector<uint8_t> bytes = parseHexDump(blockAfter(doc, e.name, "bytes"));
    const std::vector<std::vector<double>> pixels = parsePixels(blockAfter(doc, e.name, "pixels"));
    ASSERT_FALSE(pixels.empty());
    tag_pxImage *image = nullptr;
    ASSERT_EQ(1u, pxImageConstruct(e.memoryType, static_cast<int32_t>(pixels[0].size()),
                                   static_cast<int32_t>(pixels.size()), 0, 1, &image));
    for (int32_t y = 0; y < image->height; ++y)
        for (int32_t x = 0; x < image->width; ++x)
            setPixel(image, x, y, pixels[y][x]);
    TempFile file(std::string("doc_written_") + e.name + ".pxi");
    EXPECT_EQ(1u, pxImageWrite(file.name(), e.fileType, image));
    EXPECT_EQ(bytes, pxtest::readBytes(file.path()));
    pxImageDestruct(&image);
}

const Example kPlain{"plain", SHORT, SHORT};
const Example kCbit{"cbit", CBIT, UBYTE};
const Example kCshort{"cshort", CSHORT, SHORT};
// SHORT12 loses the low bits, so other pixels than the printed ones give its bytes.
const Example kShort12{"short12", SHORT12, SHORT};

std::string exampleName(const ::testing::TestParamInfo<Example> &info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Examples, FileFormatDoc, ::testing::Values(kPlain, kCbit, kCshort, kShort12),
                         exampleName);
INSTANTIATE_TEST_SUITE_P(Examples, FileFormatDocWriter, ::testing::Values(kPlain, kCbit, kCshort),
                         exampleName);

} // namespace
