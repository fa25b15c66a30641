// Helpers of the image file tests: temporary paths as 16-bit strings, raw file bytes, little-endian block
// assembly, and small images with known pixels.
#pragma once

#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "pxEnv.h"
#include "pxImage.h"

namespace pxtest {

// A path as the 16-bit string the file functions take.
inline std::u16string widePath(const std::string &path) {
    return std::u16string(path.begin(), path.end());
}

inline const uint16_t *wide(const std::u16string &path) {
    return reinterpret_cast<const uint16_t *>(path.c_str());
}

// A file in the test's temporary directory, removed when the object goes away.
class TempFile {
  public:
    // The process id keeps the names apart when several test processes run at once.
    explicit TempFile(const std::string &name)
        : path_(::testing::TempDir() + "pxImageFileTest_" + std::to_string(getpid()) + "_" + name) {
        std::remove(path_.c_str());
        wide_ = widePath(path_);
    }
    ~TempFile() { std::remove(path_.c_str()); }
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;
    const std::string &path() const { return path_; }
    const uint16_t *name() const { return wide(wide_); }

  private:
    std::string path_;
    std::u16string wide_;
};

inline std::vector<uint8_t> readBytes(const std::string &path) {
    std::vector<uint8_t> bytes;
    FILE *f = std::fopen(path.c_str(), "rb");
    if (f == nullptr)
        return bytes;
    int c;
    while ((c = std::fgetc(f)) != EOF)
        bytes.push_back((uint8_t)c);
    std::fclose(f);
    return bytes;
}

inline void writeBytes(const std::string &path, const std::vector<uint8_t> &bytes) {
    FILE *f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    if (!bytes.empty()) {
        ASSERT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), f), bytes.size());
    }
    std::fclose(f);
}

// Appends little-endian numbers and raw bytes.
class Bytes {
  public:
    Bytes &u16(uint32_t v) { return raw(&v, 2); }
    Bytes &i32(int32_t v) { return raw(&v, 4); }
    Bytes &f32(float v) { return raw(&v, 4); }
    Bytes &f64(double v) { return raw(&v, 8); }
    Bytes &text(const char *s) { return raw(s, std::strlen(s)); }
    Bytes &zeros(size_t n) {
        data.insert(data.end(), n, 0);
        return *this;
    }
    Bytes &raw(const void *p, size_t n) {
        const uint8_t *b = static_cast<const uint8_t *>(p);
        data.insert(data.end(), b, b + n);
        return *this;
    }
    Bytes &append(const std::vector<uint8_t> &more) {
        data.insert(data.end(), more.begin(), more.end());
        return *this;
    }
    std::vector<uint8_t> data;
};

// Little-endian numbers from file bytes.
inline uint16_t leU16(const std::vector<uint8_t> &b, size_t at) {
    return (uint16_t)(b[at] | (b[at + 1] << 8));
}
inline int32_t leI32(const std::vector<uint8_t> &b, size_t at) {
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i)
        v = (v << 8) | b[at + i];
    return (int32_t)v;
}

// A one-plane image without border whose pixels are set by value(x, y).
template <typename T, typename F> tag_pxImage *makeImage(int32_t type, int32_t w, int32_t h, F value) {
    tag_pxImage *image = nullptr;
    EXPECT_EQ(1u, pxImageConstruct(type, w, h, 0, 1, &image));
    if (image == nullptr)
        return nullptr;
    T **rows = reinterpret_cast<T **>(image->pixMap[0]);
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x)
            rows[y][x] = (T)value(x, y);
    return image;
}

template <typename T> T pixel(const tag_pxImage *image, int plane, int x, int y) {
    return reinterpret_cast<T **>(image->pixMap[plane])[y][x];
}

} // namespace pxtest
