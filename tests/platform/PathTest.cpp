// Paths of the environment library: the image file naming pattern, path joining, existence tests and the
// UTF-8 form of a path.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "pxEnvPath.h"

namespace {

namespace fs = std::filesystem;

// Sets the naming separator for one test and restores the previous one.
class Separator {
  public:
    explicit Separator(char16_t separator) : previous_(PxFileName::GetSeparator()) {
        PxFileName::SetSeparator(separator);
    }
    ~Separator() { PxFileName::SetSeparator(previous_); }

  private:
    char16_t previous_;
};

// A fresh directory under the system's temporary directory, removed with everything in it.
class TempDir {
  public:
    TempDir() {
        std::string pattern = (fs::temp_directory_path() / "pxEnvPathXXXXXX").string();
        path_ = mkdtemp(&pattern[0]);
    }
    ~TempDir() {
        std::error_code error;
        fs::remove_all(path_, error);
    }
    const std::string &path() const { return path_; }
    std::u16string wide() const { return std::u16string(path_.begin(), path_.end()); }

  private:
    std::string path_;
};

std::u16string imageName(const char16_t *dir, uint32_t tile, const char16_t *kind, uint32_t set,
                         uint32_t position, uint32_t repeat) {
    char16_t out[256];
    if (!PxFileName::ImageForTile(dir, tile, kind, set, position, repeat, out, 256))
        return u"<failed>";
    return out;
}

TEST(PathImageForTile, FollowsThePattern) {
    Separator backslash(u'\\');
    EXPECT_EQ(u"grabs\\T00007_FLS_00009_0.pxi", imageName(u"grabs", 7, u"FLS", 9, 0, 0));
    EXPECT_EQ(u"grabs\\T00000_LIN_00000_2.pxi", imageName(u"grabs", 0, u"LIN", 0, 2, 0));
}

TEST(PathImageForTile, WideNumbersAreNotCut) {
    Separator backslash(u'\\');
    EXPECT_EQ(u"d\\T4294967295_PRJ_123456_12.pxi", imageName(u"d", 4294967295u, u"PRJ", 123456, 12, 0));
}

TEST(PathImageForTile, RepeatNumberIsAppendedWhenNotZero) {
    Separator backslash(u'\\');
    EXPECT_EQ(u"d\\T00001_IMG_00002_1_r3.pxi", imageName(u"d", 1, u"IMG", 2, 1, 3));
}

TEST(PathImageForTile, EmptyOrNullDirectoryGivesTheBareName) {
    EXPECT_EQ(u"T00001_BRT_00002_0.pxi", imageName(u"", 1, u"BRT", 2, 0, 0));
    EXPECT_EQ(u"T00001_BRT_00002_0.pxi", imageName(nullptr, 1, u"BRT", 2, 0, 0));
}

TEST(PathImageForTile, UsesTheSeparatorSet) {
    Separator slash(u'/');
    EXPECT_EQ(u'/', PxFileName::GetSeparator());
    EXPECT_EQ(u"a/b/T00001_FLS_00002_0.pxi", imageName(u"a/b", 1, u"FLS", 2, 0, 0));
}

TEST(PathImageForTile, SeparatorMayChangeWhileOtherThreadsName) {
    Separator restore(u'\\');
    std::vector<std::thread> threads;
    threads.emplace_back([] {
        for (int i = 0; i < 2000; ++i)
            PxFileName::SetSeparator(i % 2 ? u'/' : u'\\');
    });
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([] {
            for (int i = 0; i < 2000; ++i) {
                const std::u16string name = imageName(u"d", 1, u"FLS", 2, 0, 0);
                ASSERT_TRUE(name == u"d/T00001_FLS_00002_0.pxi" || name == u"d\\T00001_FLS_00002_0.pxi");
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST(PathImageForTile, SeparatorIsNotDoubled) {
    Separator backslash(u'\\');
    EXPECT_EQ(u"a\\T00001_FLS_00002_0.pxi", imageName(u"a\\", 1, u"FLS", 2, 0, 0));
    EXPECT_EQ(u"a/T00001_FLS_00002_0.pxi", imageName(u"a/", 1, u"FLS", 2, 0, 0));
}

TEST(PathImageForTile, ExactCapacityFitsAndOneLessFails) {
    Separator backslash(u'\\');
    const std::u16string expected = u"d\\T00001_FLS_00002_0.pxi";
    char16_t out[64];
    EXPECT_TRUE(PxFileName::ImageForTile(u"d", 1, u"FLS", 2, 0, 0, out, expected.size() + 1));
    EXPECT_EQ(expected, std::u16string(out));
    EXPECT_FALSE(PxFileName::ImageForTile(u"d", 1, u"FLS", 2, 0, 0, out, expected.size()));
    EXPECT_EQ(u"", std::u16string(out));
}

TEST(PathImageForTile, NullKindOrOutputFails) {
    char16_t out[64] = u"unchanged";
    EXPECT_FALSE(PxFileName::ImageForTile(u"d", 1, nullptr, 2, 0, 0, out, 64));
    EXPECT_EQ(u"", std::u16string(out));
    EXPECT_FALSE(PxFileName::ImageForTile(u"d", 1, u"FLS", 2, 0, 0, nullptr, 64));
    EXPECT_FALSE(PxFileName::ImageForTile(u"d", 1, u"FLS", 2, 0, 0, out, 0));
}

TEST(PathMakePath, JoinsDirectoryAndPart) {
    Separator backslash(u'\\');
    char16_t out[64];
    ASSERT_TRUE(PxMakePath(u"grabs", u"7", out, 64));
    EXPECT_EQ(u"grabs\\7", std::u16string(out));
    ASSERT_TRUE(PxMakePath(u"grabs/", u"7", out, 64));
    EXPECT_EQ(u"grabs/7", std::u16string(out));
    ASSERT_TRUE(PxMakePath(u"", u"7", out, 64));
    EXPECT_EQ(u"7", std::u16string(out));
    ASSERT_TRUE(PxMakePath(nullptr, u"7", out, 64));
    EXPECT_EQ(u"7", std::u16string(out));
}

TEST(PathMakePath, WithoutPartGivesTheDirectory) {
    char16_t out[64];
    ASSERT_TRUE(PxMakePath(u"grabs", nullptr, out, 64));
    EXPECT_EQ(u"grabs", std::u16string(out));
    ASSERT_TRUE(PxMakePath(u"grabs", u"", out, 64));
    EXPECT_EQ(u"grabs", std::u16string(out));
    ASSERT_TRUE(PxMakePath(nullptr, nullptr, out, 64));
    EXPECT_EQ(u"", std::u16string(out));
}

TEST(PathMakePath, TooSmallOutputFailsEmpty) {
    Separator backslash(u'\\');
    char16_t out[8] = u"xxxxxxx";
    EXPECT_FALSE(PxMakePath(u"grabs", u"7", out, 7));
    EXPECT_EQ(u"", std::u16string(out));
    EXPECT_TRUE(PxMakePath(u"grabs", u"7", out, 8));
    EXPECT_FALSE(PxMakePath(u"grabs", u"7", nullptr, 8));
}

TEST(PathExist, FindsFilesAndDirectories) {
    TempDir dir;
    const std::u16string file = dir.wide() + u"/f.pxi";
    std::ofstream(dir.path() + "/f.pxi") << "x";
    EXPECT_TRUE(PxDirectoryExist(dir.wide().c_str()));
    EXPECT_FALSE(PxFileExist(dir.wide().c_str()));
    EXPECT_TRUE(PxFileExist(file.c_str()));
    EXPECT_FALSE(PxDirectoryExist(file.c_str()));
    const std::u16string missing = dir.wide() + u"/missing";
    EXPECT_FALSE(PxFileExist(missing.c_str()));
    EXPECT_FALSE(PxDirectoryExist(missing.c_str()));
}

TEST(PathExist, BackslashIsASeparatorOnEveryHost) {
    TempDir dir;
    fs::create_directory(dir.path() + "/sub");
    std::ofstream(dir.path() + "/sub/f.pxi") << "x";
    const std::u16string sub = dir.wide() + u"\\sub";
    const std::u16string file = dir.wide() + u"\\sub\\f.pxi";
    EXPECT_TRUE(PxDirectoryExist(sub.c_str()));
    EXPECT_TRUE(PxFileExist(file.c_str()));
}

TEST(PathExist, NonAsciiNames) {
    TempDir dir;
    std::ofstream(dir.path() + "/\xC3\xA4\xF0\x9D\x84\x9E.pxi") << "x";
    const std::u16string file = dir.wide() + u"/\u00E4\U0001D11E.pxi";
    EXPECT_TRUE(PxFileExist(file.c_str()));
}

TEST(PathExist, NullEmptyAndBrokenPathsAreMissing) {
    EXPECT_FALSE(PxFileExist(nullptr));
    EXPECT_FALSE(PxDirectoryExist(nullptr));
    EXPECT_FALSE(PxFileExist(u""));
    EXPECT_FALSE(PxDirectoryExist(u""));
    const char16_t unpaired[] = {u'.', 0xD800, 0};
    EXPECT_FALSE(PxDirectoryExist(unpaired));
}

TEST(PathTextToUtf8, ConvertsAndKeepsSeparators) {
    EXPECT_EQ("a\\b/c", PxTextToUtf8(u"a\\b/c"));
    EXPECT_EQ("\xC3\xA4\xE2\x9C\x93\xF0\x9D\x84\x9E", PxTextToUtf8(u"\u00E4\u2713\U0001D11E"));
    EXPECT_EQ("", PxTextToUtf8(nullptr));
    const char16_t unpaired[] = {u'a', 0xDC00, 0};
    EXPECT_EQ("", PxTextToUtf8(unpaired));
}

TEST(PathTextToUtf16, ConvertsAndRefusesMalformedText) {
    std::u16string out;
    ASSERT_TRUE(PxTextToUtf16("a\\b/\xC3\xA4\xF0\x9D\x84\x9E", out));
    EXPECT_EQ(u"a\\b/\u00E4\U0001D11E", out);
    EXPECT_FALSE(PxTextToUtf16("\xC3", out));         // cut short
    EXPECT_FALSE(PxTextToUtf16("\xC0\xAF", out));     // overlong
    EXPECT_FALSE(PxTextToUtf16("\xED\xA0\x80", out)); // an encoded surrogate
}

} // namespace
