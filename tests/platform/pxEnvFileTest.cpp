// Files of the environment library: UTF-16 paths, little-endian integers and pxEnvFlip.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "pxEnv.h"

namespace {

namespace fs = std::filesystem;

// A fresh temporary directory, removed with its contents at the end of the test.
class PxEnvFile : public testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "pxEnvFileXXXXXX").string();
        ASSERT_NE(nullptr, mkdtemp(&pattern[0]));
        dir_ = pattern;
    }
    void TearDown() override { fs::remove_all(dir_); }

    // The directory as a UTF-16 string (the temporary directory name is ASCII).
    std::u16string dir16() const {
        const std::string dir = dir_.string();
        return std::u16string(dir.begin(), dir.end());
    }

    static const uint16_t *p16(const std::u16string &text) {
        return reinterpret_cast<const uint16_t *>(text.c_str());
    }

    // Writes bytes to a file of the directory and returns an open read handle.
    FILE *fileWith(const std::vector<unsigned char> &bytes) {
        const fs::path path = dir_ / "data.bin";
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return std::fopen(path.c_str(), "rb");
    }

    std::vector<unsigned char> bytesOf(const fs::path &path) {
        std::ifstream in(path, std::ios::binary);
        return std::vector<unsigned char>(std::istreambuf_iterator<char>(in),
                                          std::istreambuf_iterator<char>());
    }

    fs::path dir_;
};

TEST_F(PxEnvFile, NonAsciiPathWithBackslashesRoundTrips) {
    fs::create_directory(dir_ / "sub");
    // "sub\Bild_ä€𝄞.img": a two-byte, a three-byte and a four-byte (surrogate pair) character.
    const std::u16string path = dir16() + u"\\sub\\Bild_\u00E4\u20AC\U0001D11E.img";
    FILE *out = pxFileOpen(p16(path), "wb");
    ASSERT_NE(nullptr, out);
    EXPECT_EQ(1, pxEnvWriteInt(out, 123456));
    EXPECT_EQ(1, pxFileClose(out));

    const fs::path utf8Path = dir_ / "sub" / fs::u8path("Bild_\xC3\xA4\xE2\x82\xAC\xF0\x9D\x84\x9E.img");
    EXPECT_TRUE(fs::exists(utf8Path));

    FILE *in = pxFileOpen(p16(path), "rb");
    ASSERT_NE(nullptr, in);
    int32_t value = 0;
    EXPECT_EQ(1, pxEnvReadInt(in, &value));
    EXPECT_EQ(123456, value);
    EXPECT_EQ(1, pxFileClose(in));
}

TEST_F(PxEnvFile, MissingFileFailsWithErrno) {
    const std::u16string path = dir16() + u"/missing.img";
    errno = 0;
    EXPECT_EQ(nullptr, pxFileOpen(p16(path), "rb"));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(PxEnvFile, UnpairedSurrogatesAreRejected) {
    const std::u16string lonelyHigh = dir16() + u"/a" + char16_t(0xD834) + u"b.img";
    const std::u16string lonelyLow = dir16() + u"/a" + char16_t(0xDD1E) + u".img";
    const std::u16string highAtEnd = dir16() + u"/a" + char16_t(0xD834);
    for (const std::u16string *path : {&lonelyHigh, &lonelyLow, &highAtEnd}) {
        errno = 0;
        EXPECT_EQ(nullptr, pxFileOpen(p16(*path), "wb"));
        EXPECT_EQ(EINVAL, errno);
    }
    EXPECT_TRUE(fs::is_empty(dir_)) << "nothing is created";
}

TEST_F(PxEnvFile, NullPathOrModeFails) {
    const std::u16string path = dir16() + u"/x.img";
    errno = 0;
    EXPECT_EQ(nullptr, pxFileOpen(nullptr, "rb"));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_EQ(nullptr, pxFileOpen(p16(path), nullptr));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(PxEnvFile, CloseOfNullSucceeds) {
    EXPECT_EQ(1, pxFileClose(nullptr));
}

TEST_F(PxEnvFile, RemoveDeletesARegularFile) {
    const std::u16string path = dir16() + u"\\gone.img";
    std::ofstream(dir_ / "gone.img") << "x";
    EXPECT_EQ(1, pxFileRemove(p16(path)));
    EXPECT_FALSE(fs::exists(dir_ / "gone.img"));
    errno = 0;
    EXPECT_EQ(0, pxFileRemove(p16(path)));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(PxEnvFile, RemoveLeavesEverythingButRegularFiles) {
    fs::create_directory(dir_ / "sub");
    std::ofstream(dir_ / "target.img") << "x";
    fs::create_symlink(dir_ / "target.img", dir_ / "link.img");
    for (const std::u16string &path :
         {dir16() + u"/sub", dir16() + u"/link.img", std::u16string(u"/dev/full")}) {
        errno = 0;
        EXPECT_EQ(0, pxFileRemove(p16(path)));
        EXPECT_EQ(EPERM, errno);
    }
    EXPECT_TRUE(fs::is_directory(dir_ / "sub"));
    EXPECT_TRUE(fs::is_symlink(dir_ / "link.img"));
    EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

TEST_F(PxEnvFile, RemoveOfANullOrMalformedPathFails) {
    errno = 0;
    EXPECT_EQ(0, pxFileRemove(nullptr));
    EXPECT_EQ(EINVAL, errno);
    const std::u16string lonely = dir16() + u"/a" + char16_t(0xD834);
    errno = 0;
    EXPECT_EQ(0, pxFileRemove(p16(lonely)));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(PxEnvFile, BytesOnDiskAreLittleEndian) {
    const std::u16string path = dir16() + u"/order.bin";
    FILE *out = pxFileOpen(p16(path), "wb");
    ASSERT_NE(nullptr, out);
    EXPECT_EQ(1, pxEnvWriteShort(out, 0x1234));
    EXPECT_EQ(1, pxEnvWriteInt(out, 0x01020304));
    EXPECT_EQ(1, pxEnvWriteInt(out, -2));
    EXPECT_EQ(1, pxEnvWriteShort(out, 0xFFFE));
    pxFileClose(out);
    const std::vector<unsigned char> expected = {0x34, 0x12, 0x04, 0x03, 0x02, 0x01,
                                                 0xFE, 0xFF, 0xFF, 0xFF, 0xFE, 0xFF};
    EXPECT_EQ(expected, bytesOf(dir_ / "order.bin"));
}

TEST_F(PxEnvFile, ReadsDecodeLittleEndian) {
    FILE *in = fileWith({0x34, 0x12, 0x04, 0x03, 0x02, 0x01, 0xFE, 0xFF, 0xFF, 0xFF, 0x00, 0x80});
    ASSERT_NE(nullptr, in);
    uint16_t s = 0;
    int32_t i = 0;
    EXPECT_EQ(1, pxEnvReadShort(in, &s));
    EXPECT_EQ(0x1234, s);
    EXPECT_EQ(1, pxEnvReadInt(in, &i));
    EXPECT_EQ(0x01020304, i);
    EXPECT_EQ(1, pxEnvReadInt(in, &i));
    EXPECT_EQ(-2, i);
    EXPECT_EQ(1, pxEnvReadShort(in, &s));
    EXPECT_EQ(0x8000, s);
    std::fclose(in);
}

TEST_F(PxEnvFile, ShortReadsFailAndKeepTheValue) {
    FILE *in = fileWith({0x01, 0x02, 0x03});
    ASSERT_NE(nullptr, in);
    int32_t i = 77;
    EXPECT_EQ(0, pxEnvReadInt(in, &i));
    EXPECT_EQ(77, i);
    std::rewind(in);
    uint16_t s = 0;
    EXPECT_EQ(1, pxEnvReadShort(in, &s));
    EXPECT_EQ(0x0201, s);
    s = 5;
    EXPECT_EQ(0, pxEnvReadShort(in, &s));
    EXPECT_EQ(5, s);
    EXPECT_EQ(0, pxEnvReadShort(in, &s)) << "at end of file";
    EXPECT_EQ(3, std::ftell(in)) << "a short read leaves the position past the bytes read";
    std::fclose(in);
}

TEST_F(PxEnvFile, WritesToReadOnlyFileFail) {
    FILE *in = fileWith({0x01});
    ASSERT_NE(nullptr, in);
    EXPECT_EQ(0, pxEnvWriteShort(in, 1));
    EXPECT_EQ(0, pxEnvWriteInt(in, 1));
    std::fclose(in);
}

TEST_F(PxEnvFile, NullFileFailsWithEinval) {
    uint16_t s = 0;
    int32_t i = 0;
    errno = 0;
    EXPECT_EQ(0, pxEnvReadShort(nullptr, &s));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(0, pxEnvReadInt(nullptr, &i));
    EXPECT_EQ(0, pxEnvWriteShort(nullptr, 1));
    EXPECT_EQ(0, pxEnvWriteInt(nullptr, 1));
}

TEST(PxEnvFlip, GivesFileOrderAndIsItsOwnInverse) {
    const double doubles[3] = {1.5, -2.25e300, 3.0};
    const uint32_t words[2] = {0x11223344u, 0xA0B0C0D0u};
    unsigned char buffer[sizeof doubles];
    std::memcpy(buffer, doubles, sizeof doubles);
    pxEnvFlip(buffer, 3, 8);
    pxEnvFlip(buffer, 3, 8);
    EXPECT_EQ(0, std::memcmp(buffer, doubles, sizeof doubles));

    unsigned char file[sizeof words];
    std::memcpy(file, words, sizeof words);
    pxEnvFlip(file, 2, 4);
    const unsigned char littleEndian[] = {0x44, 0x33, 0x22, 0x11, 0xD0, 0xC0, 0xB0, 0xA0};
    EXPECT_EQ(0, std::memcmp(file, littleEndian, sizeof file));
    pxEnvFlip(file, 2, 4);
    EXPECT_EQ(0, std::memcmp(file, words, sizeof words));
}

TEST(PxEnvFlip, SingleBytesAndEmptyBuffersAreUntouched) {
    unsigned char bytes[3] = {1, 2, 3};
    pxEnvFlip(bytes, 3, 1);
    pxEnvFlip(bytes, 0, 4);
    pxEnvFlip(nullptr, 4, 4);
    EXPECT_EQ(1, bytes[0]);
    EXPECT_EQ(2, bytes[1]);
    EXPECT_EQ(3, bytes[2]);
}

} // namespace
