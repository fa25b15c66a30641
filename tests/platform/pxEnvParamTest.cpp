// Named parameters of the environment library: parsing, absent keys, the parameter file and clearing.
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "pxEnv.h"

namespace {

// Every test starts from an empty store.
class PxEnvParam : public testing::Test {
  protected:
    void SetUp() override { pxEnvClearParams(); }
    void TearDown() override { pxEnvClearParams(); }

    // Writes text to a fresh file in the temporary directory and returns its path.
    std::string writeFile(const std::string &text) {
        char name[] = "/tmp/pxEnvParamXXXXXX";
        const int fd = mkstemp(name);
        EXPECT_GE(fd, 0);
        close(fd);
        std::ofstream(name) << text;
        files_.push_back(name);
        return name;
    }

    ~PxEnvParam() override {
        for (const std::string &file : files_)
            std::remove(file.c_str());
    }

  private:
    std::vector<std::string> files_;
};

TEST_F(PxEnvParam, AbsentKeyGivesDefaultAndSucceeds) {
    int i = -1;
    float f = -1.0f;
    double d = -1.0;
    pxBool b = 7;
    EXPECT_EQ(1, pxEnvGetParam2int("absent", 128, &i));
    EXPECT_EQ(1, pxEnvGetParam2float("absent", 4.0f, &f));
    EXPECT_EQ(1, pxEnvGetParam2double("absent", 1.05, &d));
    EXPECT_EQ(1, pxEnvGetParam2pxBool("absent", 1, &b));
    EXPECT_EQ(128, i);
    EXPECT_EQ(4.0f, f);
    EXPECT_EQ(1.05, d);
    EXPECT_EQ(1, b);
}

TEST_F(PxEnvParam, GoodValuesParse) {
    pxEnvSetParam("i", "-42");
    pxEnvSetParam("plus", "+7");
    pxEnvSetParam("f", "2.5");
    pxEnvSetParam("d", "1e-3");
    int i = 0;
    float f = 0.0f;
    double d = 0.0;
    EXPECT_EQ(1, pxEnvGetParam2int("i", 0, &i));
    EXPECT_EQ(-42, i);
    EXPECT_EQ(1, pxEnvGetParam2int("plus", 0, &i));
    EXPECT_EQ(7, i);
    EXPECT_EQ(1, pxEnvGetParam2float("f", 0.0f, &f));
    EXPECT_EQ(2.5f, f);
    EXPECT_EQ(1, pxEnvGetParam2double("d", 0.0, &d));
    EXPECT_EQ(1e-3, d);
    EXPECT_EQ(1, pxEnvGetParam2double("i", 0.0, &d));
    EXPECT_EQ(-42.0, d);
}

TEST_F(PxEnvParam, BadValuesGiveDefaultAndFail) {
    const char *badInts[] = {"12abc", "", "x", "1.5", "99999999999", "+-3", "0x10", " 5"};
    for (const char *text : badInts) {
        pxEnvSetParam("k", text);
        int i = 0;
        EXPECT_EQ(0, pxEnvGetParam2int("k", 9, &i)) << '"' << text << '"';
        EXPECT_EQ(9, i) << '"' << text << '"';
    }
    const char *badReals[] = {"x", "", "1.5x", "1,5", "1e999", "--1"};
    for (const char *text : badReals) {
        pxEnvSetParam("k", text);
        float f = 0.0f;
        double d = 0.0;
        EXPECT_EQ(0, pxEnvGetParam2float("k", 3.0f, &f)) << '"' << text << '"';
        EXPECT_EQ(3.0f, f);
        EXPECT_EQ(0, pxEnvGetParam2double("k", 3.0, &d)) << '"' << text << '"';
        EXPECT_EQ(3.0, d);
    }
}

TEST_F(PxEnvParam, InfinityAndNanParse) {
    pxEnvSetParam("inf", "-inf");
    pxEnvSetParam("nan", "nan");
    float f = 0.0f;
    double d = 0.0;
    EXPECT_EQ(1, pxEnvGetParam2float("inf", 0.0f, &f));
    EXPECT_EQ(-INFINITY, f);
    EXPECT_EQ(1, pxEnvGetParam2double("nan", 0.0, &d));
    EXPECT_TRUE(std::isnan(d));
}

TEST_F(PxEnvParam, FloatUnderflowFailsButDoubleHoldsIt) {
    pxEnvSetParam("k", "1e-50");
    float f = 0.0f;
    double d = 0.0;
    EXPECT_EQ(0, pxEnvGetParam2float("k", 2.0f, &f));
    EXPECT_EQ(2.0f, f);
    EXPECT_EQ(1, pxEnvGetParam2double("k", 2.0, &d));
    EXPECT_EQ(1e-50, d);
}

TEST_F(PxEnvParam, FloatOutOfRangeButDoubleInRange) {
    pxEnvSetParam("k", "1e300");
    float f = 0.0f;
    double d = 0.0;
    EXPECT_EQ(0, pxEnvGetParam2float("k", 1.0f, &f));
    EXPECT_EQ(1.0f, f);
    EXPECT_EQ(1, pxEnvGetParam2double("k", 1.0, &d));
    EXPECT_EQ(1e300, d);
}

TEST_F(PxEnvParam, BooleanWords) {
    const char *trueWords[] = {"1", "true", "TRUE", "Yes", "on"};
    const char *falseWords[] = {"0", "false", "False", "NO", "off"};
    for (const char *text : trueWords) {
        pxEnvSetParam("b", text);
        pxBool b = 0;
        EXPECT_EQ(1, pxEnvGetParam2pxBool("b", 0, &b)) << text;
        EXPECT_EQ(1, b) << text;
    }
    for (const char *text : falseWords) {
        pxEnvSetParam("b", text);
        pxBool b = 1;
        EXPECT_EQ(1, pxEnvGetParam2pxBool("b", 1, &b)) << text;
        EXPECT_EQ(0, b) << text;
    }
    pxEnvSetParam("b", "maybe");
    pxBool b = 0;
    EXPECT_EQ(0, pxEnvGetParam2pxBool("b", 1, &b));
    EXPECT_EQ(1, b);
}

TEST_F(PxEnvParam, NumbersIgnoreTheLocale) {
    const char *old = std::setlocale(LC_NUMERIC, nullptr);
    const std::string saved = old ? old : "C";
    if (!std::setlocale(LC_NUMERIC, "de_DE.UTF-8"))
        std::setlocale(LC_NUMERIC, "fr_FR.UTF-8");
    pxEnvSetParam("d", "1.25");
    double d = 0.0;
    const int ok = pxEnvGetParam2double("d", 0.0, &d);
    std::setlocale(LC_NUMERIC, saved.c_str());
    EXPECT_EQ(1, ok);
    EXPECT_EQ(1.25, d);
}

TEST_F(PxEnvParam, NullArguments) {
    int i = 5;
    EXPECT_EQ(0, pxEnvGetParam2int(nullptr, 3, &i));
    EXPECT_EQ(3, i);
    EXPECT_EQ(0, pxEnvGetParam2int("k", 3, nullptr));
    EXPECT_EQ(0, pxEnvSetParam(nullptr, "1"));
    EXPECT_EQ(0, pxEnvSetParam("k", nullptr));
    EXPECT_EQ(0, pxEnvLoadParamFile(nullptr));
}

TEST_F(PxEnvParam, SetReplacesAndClearRemoves) {
    int i = 0;
    EXPECT_EQ(1, pxEnvSetParam("k", "1"));
    EXPECT_EQ(1, pxEnvSetParam("k", "2"));
    EXPECT_EQ(1, pxEnvGetParam2int("k", 0, &i));
    EXPECT_EQ(2, i);
    pxEnvClearParams();
    EXPECT_EQ(1, pxEnvGetParam2int("k", 0, &i));
    EXPECT_EQ(0, i);
}

TEST_F(PxEnvParam, LoadFileTrimsCommentsAndLaterLinesWin) {
    const std::string path = writeFile("# settings\n"
                                       "  pxImageCFLSDiffLow = 100  \n"
                                       "\tpxImageCFLSBLfactor=1.5 # factor\n"
                                       "no equals sign here\n"
                                       " = orphan value\n"
                                       "pxImageCFLSDiffLow = 120\r\n"
                                       "flag = off\n"
                                       "empty =\n");
    ASSERT_EQ(1, pxEnvLoadParamFile(path.c_str()));
    int i = 0;
    float f = 0.0f;
    pxBool b = 1;
    EXPECT_EQ(1, pxEnvGetParam2int("pxImageCFLSDiffLow", 0, &i));
    EXPECT_EQ(120, i);
    EXPECT_EQ(1, pxEnvGetParam2float("pxImageCFLSBLfactor", 0.0f, &f));
    EXPECT_EQ(1.5f, f);
    EXPECT_EQ(1, pxEnvGetParam2pxBool("flag", 1, &b));
    EXPECT_EQ(0, b);
    EXPECT_EQ(0, pxEnvGetParam2int("empty", 4, &i));
    EXPECT_EQ(4, i);
    EXPECT_EQ(1, pxEnvGetParam2int("no equals sign here", 6, &i));
    EXPECT_EQ(6, i);
}

TEST_F(PxEnvParam, ConcurrentSetAndGet) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            const std::string key = "key" + std::to_string(t);
            for (int i = 0; i < 300; ++i) {
                pxEnvSetParam(key.c_str(), std::to_string(i).c_str());
                int value = -1;
                EXPECT_EQ(1, pxEnvGetParam2int(key.c_str(), -1, &value));
                EXPECT_EQ(i, value);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST_F(PxEnvParam, UnreadableFileFails) {
    EXPECT_EQ(0, pxEnvLoadParamFile("/nonexistent-dir/params.txt"));
}

// Writes a parameter file, names it in PXENV_PARAM_FILE, optionally clears the store, and tells whether
// "corresPrepSigma" then reads as expected. Meant for a fresh process: the file is read on first use.
bool firstUseReads(bool clearFirst, double expected) {
    char name[] = "/tmp/pxEnvParamEnvXXXXXX";
    const int fd = mkstemp(name);
    if (fd < 0)
        return false;
    close(fd);
    std::ofstream(name) << "corresPrepSigma = 2.75\n";
    setenv("PXENV_PARAM_FILE", name, 1);
    if (clearFirst)
        pxEnvClearParams();
    double d = 0.0;
    const bool ok = pxEnvGetParam2double("corresPrepSigma", 2.0, &d) == 1 && d == expected;
    std::remove(name);
    return ok;
}

// A first use needs a fresh process, so each check runs in a re-executed child.
TEST(PxEnvParamFile, EnvironmentFileIsLoadedOnFirstUse) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(std::exit(firstUseReads(false, 2.75) ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(PxEnvParamFile, ClearStopsTheEnvironmentFileFromLoading) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(std::exit(firstUseReads(true, 2.0) ? 0 : 1), testing::ExitedWithCode(0), "");
}

} // namespace
