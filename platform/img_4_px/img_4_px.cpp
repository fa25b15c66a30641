// Float and byte images of img_4_px: one zero-filled block from the environment library's allocator holds
// a hidden header, the FIMAGE record, the row table and the pixels with their margin.
#include "img_4_px.h"

#include "pxEnv.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

int Image_border = 8;

namespace {

constexpr const char *MODULE = "img_4_px";
constexpr uint32_t ERR_INVALID_ARGUMENT = 0xC43D0003u;
// Marks a block made by alloc_image, so free_image refuses anything else.
constexpr uint32_t BLOCK_MAGIC = 0x34504D49u;
constexpr int32_t MAX_PIXEL_SIZE = 16;

// Start of every block; the row table follows it, then the pixels.
struct ImageBlock {
    uint32_t magic;
    int32_t pixelSize;
    int32_t border;
    int32_t reserved;
    FIMAGE image;
};

static_assert(sizeof(ImageBlock) % alignof(void *) == 0, "row table must follow the header aligned");

ImageBlock *blockOf(FIMAGE *image) {
    return reinterpret_cast<ImageBlock *>(reinterpret_cast<char *>(image) - offsetof(ImageBlock, image));
}

// Byte counts of the row table and of the pixels; false when the arguments are out of range or the sizes
// overflow.
bool blockSizes(int32_t width, int32_t height, int32_t pixelSize, int32_t border, size_t &tableBytes,
                size_t &pixelBytes) {
    if (width < 1 || height < 1 || pixelSize < 1 || pixelSize > MAX_PIXEL_SIZE || border < 0)
        return false;
    const int64_t fullWidth = int64_t{width} + 2 * int64_t{border};
    const int64_t fullHeight = int64_t{height} + 2 * int64_t{border};
    if (fullWidth > INT32_MAX || fullHeight > INT32_MAX)
        return false;
    // The whole block (header, row table, pixels) must fit in half of size_t; on a host with a 32-bit size_t
    // the row table alone may not. rowBytes is at least 1; the sum below cannot wrap (pixels <= 2^63,
    // table < 2^34).
    const uint64_t rowBytes = static_cast<uint64_t>(fullWidth) * static_cast<uint64_t>(pixelSize);
    if (static_cast<uint64_t>(fullHeight) > (SIZE_MAX / 2) / rowBytes)
        return false;
    const uint64_t pixels = rowBytes * static_cast<uint64_t>(fullHeight);
    const uint64_t table = static_cast<uint64_t>(fullHeight) * sizeof(float *);
    if (pixels + table + sizeof(ImageBlock) > SIZE_MAX / 2)
        return false;
    tableBytes = static_cast<size_t>(table);
    pixelBytes = static_cast<size_t>(pixels);
    return true;
}

// Points the row table at column 0 of every row, margin rows included.
void fillRowTable(float **table, unsigned char *pixels, int32_t width, int32_t height, int32_t pixelSize,
                  int32_t border) {
    const size_t rowBytes = (static_cast<size_t>(width) + 2 * static_cast<size_t>(border)) * pixelSize;
    const int32_t rows = height + 2 * border;
    for (int32_t r = 0; r < rows; ++r)
        table[r] = reinterpret_cast<float *>(pixels + r * rowBytes + static_cast<size_t>(border) * pixelSize);
}

bool rowsPresent(const FIMAGE &image) {
    if (!image.image)
        return false;
    for (int32_t y = 0; y < image.height; ++y)
        if (!image.image[y])
            return false;
    return true;
}

} // namespace

extern "C" {

FIMAGE *alloc_image(int32_t width, int32_t height, int32_t pixelSize, int32_t border) {
    size_t tableBytes = 0;
    size_t pixelBytes = 0;
    if (!blockSizes(width, height, pixelSize, border, tableBytes, pixelBytes)) {
        writeLogI(5, __LINE__, MODULE, __DATE__, ERR_INVALID_ARGUMENT,
                  "alloc_image: width %d, height %d, pixel size %d, border %d out of range", width, height,
                  pixelSize, border);
        return nullptr;
    }
    void *memory = nullptr;
    if (!pxMallocInitZero(&memory, sizeof(ImageBlock) + tableBytes + pixelBytes))
        return nullptr;
    ImageBlock *block = static_cast<ImageBlock *>(memory);
    float **table = reinterpret_cast<float **>(block + 1);
    unsigned char *pixels = reinterpret_cast<unsigned char *>(table) + tableBytes;
    fillRowTable(table, pixels, width, height, pixelSize, border);
    block->magic = BLOCK_MAGIC;
    block->pixelSize = pixelSize;
    block->border = border;
    block->image.image = table + border;
    block->image.width = width;
    block->image.height = height;
    return &block->image;
}

void free_image(FIMAGE *image) {
    if (!image)
        return;
    ImageBlock *block = blockOf(image);
    if (block->magic != BLOCK_MAGIC) {
        writeLogI(5, __LINE__, MODULE, __DATE__, ERR_INVALID_ARGUMENT,
                  "free_image: not an image of alloc_image");
        return;
    }
    block->magic = 0;
    void *memory = block;
    pxMallocFree(&memory);
}

int fcopy_img(FIMAGE source, FIMAGE destination) {
    if (source.width != destination.width || source.height != destination.height || source.width < 0 ||
        source.height < 0 || !rowsPresent(source) || !rowsPresent(destination))
        return 0;
    const size_t rowBytes = static_cast<size_t>(source.width) * sizeof(float);
    for (int32_t y = 0; y < source.height; ++y)
        std::memmove(destination.image[y], source.image[y], rowBytes);
    return 1;
}

} // extern "C"
