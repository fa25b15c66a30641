// The CBIT and SHORT12 encodings of pixel data, and the decoder of CSHORT runs. Decoders check every run
// against the room left in the image before writing it, so no input can write outside the image.
#include "pxImageFileInternal.h"

namespace {

const char *const MODULE = "pxImageFileCodec";

void reportLengthMismatch() {
    PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "Compressed data length do not match uncompressed");
}

template <typename T> bool allocateWords(T **words, uint64_t count) {
    if (!pxMallocNoInit(reinterpret_cast<void **>(words), count * sizeof(T))) {
        PX_TRACE(MODULE);
        return false;
    }
    return true;
}

uint64_t changeCount(const uint8_t *pixels, uint64_t n) {
    uint64_t changes = 0;
    for (uint64_t i = 1; i < n; ++i)
        changes += pixels[i] != pixels[i - 1];
    return changes;
}

int32_t closedRun(int32_t length, uint8_t value) {
    return value == 0 ? -length : length;
}

// The nibble of the fourth row of a SHORT12 group that goes into stored row `row` (0..2).
uint16_t nibbleOfD(uint16_t d, int row) {
    return (uint16_t)((d >> (4 + 4 * row)) & 0xF);
}

} // namespace

uint32_t pxImageCbitEncode(const uint8_t *pixels, int32_t width, int32_t height, int32_t **lengths,
                           uint32_t *count) {
    const uint64_t n = (uint64_t)width * (uint64_t)height;
    if (!allocateWords(lengths, changeCount(pixels, n) + 10))
        return 0;
    int32_t *out = *lengths;
    uint32_t runs = 0;
    int32_t length = 1;
    for (uint64_t i = 1; i < n; ++i) {
        if (pixels[i] == pixels[i - 1]) {
            ++length;
            continue;
        }
        out[runs++] = closedRun(length, pixels[i - 1]);
        length = 1;
    }
    out[runs++] = closedRun(length, pixels[n - 1]);
    *count = runs;
    return 1;
}

uint32_t pxImageCbitDecode(const int32_t *lengths, int32_t width, int32_t height, uint32_t count,
                           uint8_t *pixels) {
    const uint64_t n = (uint64_t)width * (uint64_t)height;
    uint64_t position = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const int64_t length = lengths[i];
        const uint64_t run = (uint64_t)(length > 0 ? length : -length);
        if (run > n - position) {
            reportLengthMismatch();
            return 0;
        }
        memset(pixels + position, length > 0 ? 255 : 0, run);
        position += run;
    }
    if (position != n) {
        reportLengthMismatch();
        return 0;
    }
    return 1;
}

uint64_t pxImageShort12StoredWords(int32_t width, int32_t height) {
    const uint64_t w = (uint64_t)width, h = (uint64_t)height, rest = h % 4;
    return (w * (h - rest) * 3) / 4 + w * rest;
}

uint32_t pxImageShort12Pack(const uint16_t *pixels, int32_t width, int32_t height, uint16_t **words,
                            uint32_t *count) {
    const uint64_t stored = pxImageShort12StoredWords(width, height);
    if (!allocateWords(words, stored + 1))
        return 0;
    const uint64_t w = (uint64_t)width;
    const uint64_t groups = (uint64_t)height / 4;
    uint16_t *out = *words;
    for (uint64_t g = 0; g < groups; ++g) {
        const uint16_t *a = pixels + 4 * g * w;
        const uint16_t *d = a + 3 * w;
        uint16_t *packed = out + 3 * g * w;
        for (int row = 0; row < 3; ++row) {
            for (uint64_t x = 0; x < w; ++x)
                packed[row * w + x] = (uint16_t)((a[row * w + x] & 0xFFF0) | nibbleOfD(d[x], row));
        }
    }
    const uint64_t rest = ((uint64_t)height % 4) * w;
    memcpy(out + 3 * groups * w, pixels + 4 * groups * w, rest * sizeof(uint16_t));
    *count = (uint32_t)stored;
    return 1;
}

uint32_t pxImageShort12Unpack(const uint16_t *words, int32_t width, int32_t height, uint32_t count,
                              uint16_t *pixels) {
    if (count < pxImageShort12StoredWords(width, height)) {
        reportLengthMismatch();
        return 0;
    }
    const uint64_t w = (uint64_t)width;
    const uint64_t groups = (uint64_t)height / 4;
    for (uint64_t g = 0; g < groups; ++g) {
        const uint16_t *packed = words + 3 * g * w;
        uint16_t *a = pixels + 4 * g * w;
        uint16_t *d = a + 3 * w;
        for (uint64_t x = 0; x < w; ++x) {
            d[x] = (uint16_t)(((packed[x] & 0xF) << 4) | ((packed[w + x] & 0xF) << 8) |
                              ((packed[2 * w + x] & 0xF) << 12));
        }
        memcpy(a, packed, 3 * w * sizeof(uint16_t));
    }
    const uint64_t rest = ((uint64_t)height % 4) * w;
    memcpy(pixels + 4 * groups * w, words + 3 * groups * w, rest * sizeof(uint16_t));
    const uint64_t n = w * (uint64_t)height;
    for (uint64_t i = 0; i < n; ++i)
        pixels[i] = (uint16_t)((pixels[i] & 0xFFFC) | 12);
    return 1;
}

uint32_t pxImageCshortDecode(const uint16_t *words, int32_t width, int32_t height, uint32_t count,
                             uint16_t *pixels) {
    const uint64_t n = (uint64_t)width * (uint64_t)height;
    if (count % 2 != 0) {
        reportLengthMismatch();
        return 0;
    }
    uint64_t position = 0;
    for (uint32_t i = 0; i < count; i += 2) {
        const uint64_t run = words[i];
        if (run > n - position) {
            reportLengthMismatch();
            return 0;
        }
        for (uint64_t k = 0; k < run; ++k)
            pixels[position + k] = words[i + 1];
        position += run;
    }
    if (position != n) {
        reportLengthMismatch();
        return 0;
    }
    return 1;
}
