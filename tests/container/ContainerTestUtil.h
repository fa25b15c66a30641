// Helpers of the container tests: a temporary directory, a container that opens its protected members,
// image makers and file inspection.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "PxImageContainer.h"
#include "pxEnv.h"

namespace pxtest {

// A fresh directory under the system's temporary directory, removed with everything in it.
class TempDir {
  public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "pxContainerXXXXXX").string();
        path_ = mkdtemp(&pattern[0]);
    }
    ~TempDir() {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    std::u16string wide() const { return std::u16string(path_.begin(), path_.end()); }
    // Number of entries in the directory.
    size_t count() const {
        size_t n = 0;
        for (const auto &entry : std::filesystem::directory_iterator(path_)) {
            (void)entry;
            ++n;
        }
        return n;
    }

  private:
    std::string path_;
};

// A container whose protected members the tests may call.
class TestContainer : public PxImageContainer {
  public:
    using PxImageContainer::compressionClass;
    using PxImageContainer::exposures;
    using PxImageContainer::Initialize;
    using PxImageContainer::kindWord;
    using PxImageContainer::MakeDirName;
    using PxImageContainer::MakeFullImageName;
    using PxImageContainer::MakeFullOldImageName;
    using PxImageContainer::numImages;
    using PxImageContainer::oldKindWord;
    uint32_t setNum(int e) const { return e == 0 ? SetNum0 : e == 1 ? SetNum1 : SetNum2; }
    uint32_t oldSetNum(int e) const { return e == 0 ? OldSetNum0 : e == 1 ? OldSetNum1 : OldSetNum2; }
    // Name of slot i (current or older naming) in dir, as a string.
    std::u16string name(const char16_t *dir, size_t i, bool old = false) const {
        char16_t out[NameCapacity];
        const bool ok = old ? MakeFullOldImageName(dir, i, out) : MakeFullImageName(dir, i, out);
        return ok ? std::u16string(out) : std::u16string(u"<failed>");
    }
};

inline PxGrabType grab(int32_t t) {
    return static_cast<PxGrabType>(t);
}

// UTF-8 form of an ASCII/UTF-16 test string (the tests use ASCII paths).
inline std::string narrow(const std::u16string &text) {
    return std::string(text.begin(), text.end());
}

// A one-plane image of a type whose pixel (x, y) is value(x, y); fails the test when it cannot be built.
inline tag_pxImage *makeImage(int32_t type, int32_t width, int32_t height, int32_t border,
                              const std::function<double(int, int)> &value) {
    tag_pxImage *image = nullptr;
    EXPECT_EQ(1u, pxImageConstruct(type, width, height, border, 1, &image));
    if (!image)
        return nullptr;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double v = value(x, y);
            void *row = image->pixMap[0][y];
            switch (type) {
            case UBYTE:
                static_cast<uint8_t *>(row)[x] = static_cast<uint8_t>(v);
                break;
            case SHORT:
                static_cast<uint16_t *>(row)[x] = static_cast<uint16_t>(v);
                break;
            case INT:
                static_cast<int32_t *>(row)[x] = static_cast<int32_t>(v);
                break;
            case FLOAT:
                static_cast<float *>(row)[x] = static_cast<float>(v);
                break;
            case DOUBLE:
                static_cast<double *>(row)[x] = v;
                break;
            default:
                ADD_FAILURE() << "type " << type;
                break;
            }
        }
    return image;
}

// Pixel (x, y) of plane 0 as a double.
inline double pixel(const tag_pxImage *image, int x, int y) {
    const void *row = image->pixMap[0][y];
    switch (image->type) {
    case UBYTE:
        return static_cast<const uint8_t *>(row)[x];
    case SHORT:
        return static_cast<const uint16_t *>(row)[x];
    case INT:
        return static_cast<const int32_t *>(row)[x];
    case FLOAT:
        return static_cast<const float *>(row)[x];
    case DOUBLE:
        return static_cast<const double *>(row)[x];
    default:
        return -1.0;
    }
}

// The pixel type stored in a file's header block; -1 when the header cannot be read.
inline int32_t storedType(const std::u16string &fileName) {
    FILE *file = pxFileOpen(reinterpret_cast<const uint16_t *>(fileName.c_str()), "rb");
    if (!file)
        return -1;
    tag_pxImage *header = nullptr;
    int32_t type = -1;
    if (!pxImageHeaderRead(file, 0, 0, &header, &type))
        type = -1;
    pxImageHeaderDestruct(&header);
    pxFileClose(file);
    return type;
}

} // namespace pxtest
