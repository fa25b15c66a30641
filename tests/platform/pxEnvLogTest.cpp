// Logging of the environment library: records reaching the sink, the error catalogue and the default sink.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "pxEnv.h"
#include "support/LogCapture.h"

namespace {

using pxtest::LogCapture;
using pxtest::LogRecord;

// Sets PXENV_LOG_LEVEL while the object lives and restores the previous value.
class LogLevelEnv {
  public:
    explicit LogLevelEnv(const char *value) {
        const char *old = std::getenv("PXENV_LOG_LEVEL");
        hadOld_ = old != nullptr;
        if (old)
            old_ = old;
        if (value)
            setenv("PXENV_LOG_LEVEL", value, 1);
        else
            unsetenv("PXENV_LOG_LEVEL");
    }
    ~LogLevelEnv() {
        if (hadOld_)
            setenv("PXENV_LOG_LEVEL", old_.c_str(), 1);
        else
            unsetenv("PXENV_LOG_LEVEL");
    }

  private:
    bool hadOld_ = false;
    std::string old_;
};

// What the default sink prints for the calls in `emit`.
template <typename F> std::string stderrOf(F emit) {
    testing::internal::CaptureStderr();
    emit();
    return testing::internal::GetCapturedStderr();
}

LogRecord only(const LogCapture &log) {
    EXPECT_EQ(1u, log.records().size());
    return log.records().empty() ? LogRecord{} : log.records().front();
}

TEST(PxEnvLog, WriteLogFDeliversEveryField) {
    LogCapture log;
    writeLogF(4, 17, "pxImageCut", "Jan  2 2024", "value %d of %s", 42, "x");
    const LogRecord r = only(log);
    EXPECT_EQ(PXENV_LOG_F, r.kind);
    EXPECT_EQ(4, r.level);
    EXPECT_EQ(17, r.line);
    EXPECT_EQ("pxImageCut", r.module);
    EXPECT_EQ("Jan  2 2024", r.date);
    EXPECT_EQ(0u, r.code);
    EXPECT_EQ("value 42 of x", r.text);
}

TEST(PxEnvLog, NullFormatIsATraceWithEmptyText) {
    LogCapture log;
    writeLogF(1, 5, "pxImage", "d", nullptr);
    const LogRecord r = only(log);
    EXPECT_EQ(PXENV_LOG_F, r.kind);
    EXPECT_EQ("", r.text);
    EXPECT_EQ(0u, r.code);
    EXPECT_EQ(1u, log.traceCount());
    EXPECT_TRUE(log.messages().empty());
}

TEST(PxEnvLog, WriteLogICarriesTheCode) {
    LogCapture log;
    writeLogI(5, 99, "pxImage", "d", 0xC43D0003u, "bad width %d", -1);
    const LogRecord r = only(log);
    EXPECT_EQ(PXENV_LOG_I, r.kind);
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImage", "bad width -1"));
}

TEST(PxEnvLog, WriteLogIWithNullFormatHasEmptyText) {
    LogCapture log;
    writeLogI(5, 1, "m", "d", 0xC43D0003u, nullptr);
    EXPECT_EQ("", only(log).text);
}

TEST(PxEnvLog, NullModuleAndDateBecomeEmpty) {
    LogCapture log;
    writeLogF(3, 1, nullptr, nullptr, "t");
    const LogRecord r = only(log);
    EXPECT_EQ("", r.module);
    EXPECT_EQ("", r.date);
}

TEST(PxEnvLog, SendErrorIsOfKindError) {
    LogCapture log;
    sendError(5, 8, "PxImageContainer", "d", 0xC41A0003u, "a.img");
    const LogRecord r = only(log);
    EXPECT_EQ(PXENV_LOG_ERROR, r.kind);
    EXPECT_EQ(8, r.line);
    EXPECT_EQ("d", r.date);
    EXPECT_TRUE(
        log.has(5, 0xC41A0003u, "PxImageContainer", "image container: image file could not be read: a.img"));
}

// Sends one error and returns the text of its record.
template <typename... Args> std::string sendErrorText(uint32_t code, Args... args) {
    LogCapture log;
    sendError(5, 1, "m", "d", code, args...);
    return only(log).text;
}

TEST(PxEnvLog, CatalogueCodesWithoutArguments) {
    EXPECT_EQ("invalid argument", sendErrorText(0xC43D0003u));
    EXPECT_EQ("scratch image could not be allocated", sendErrorText(0xC43D0310u));
    EXPECT_EQ("pixel type not supported by the operation", sendErrorText(0xC41A0004u));
    EXPECT_EQ("de-interlacing: no target image", sendErrorText(0xC41A000Cu));
    EXPECT_EQ("de-interlacing: target pixel type differs from the source", sendErrorText(0xC41A000Eu));
    EXPECT_EQ("de-interlacing: target size does not match the source", sendErrorText(0xC41A000Fu));
    EXPECT_EQ("dense warp: pixel type other than FLOAT", sendErrorText(0xC41A0018u));
    EXPECT_EQ("dense warp: image sizes do not match", sendErrorText(0xC41A0019u));
    EXPECT_EQ("masked dense warp: wrong pixel types", sendErrorText(0xC41A001Au));
    EXPECT_EQ("dense warp: border below 3", sendErrorText(0xC41A001Bu));
}

TEST(PxEnvLog, CatalogueCodesWithNumbers) {
    EXPECT_EQ("file input/output failure: errno 2 (No such file or directory)",
              sendErrorText(0xC43D0031u, 2, "No such file or directory"));
    EXPECT_EQ("cut of 10 x 20 at (3, 4) does not fit the image of 8 x 9",
              sendErrorText(0xC41A0005u, 10, 20, 3, 4, 8, 9));
    EXPECT_EQ("de-interlacing: source pixel type 6 not supported", sendErrorText(0xC41A000Du, 6));
    EXPECT_EQ("unknown reflection mode -3", sendErrorText(0xC41A0017u, -3));
}

TEST(PxEnvLog, CatalogueContainerCodesTakeText) {
    EXPECT_EQ("image container: directory missing on write: out/dir", sendErrorText(0xC41A0001u, "out/dir"));
    EXPECT_EQ("image container: FLS image could not be written as CSHORT, SHORT12 or plain: a.img",
              sendErrorText(0xC41A0002u, "a.img"));
    EXPECT_EQ("image container: image file could not be read: b.img", sendErrorText(0xC41A0003u, "b.img"));
    EXPECT_EQ("image container: directory missing on read: in", sendErrorText(0xC41A001Cu, "in"));
    EXPECT_EQ("image container: image could not be written as SHORT12 or plain: c.img",
              sendErrorText(0xC41A001Eu, "c.img"));
    EXPECT_EQ(
        "image container: image could not be written plain (compression of colour and texture images is "
        "off): d.img",
        sendErrorText(0xC41A001Fu, "d.img"));
}

TEST(PxEnvLog, CatalogueTextKeepsNonAsciiUtf8) {
    EXPECT_EQ("image container: image file could not be read: d\xC3\xA4t\xC3\xA4.img",
              sendErrorText(0xC41A0003u, "d\xC3\xA4t\xC3\xA4.img"));
}

TEST(PxEnvLog, NullTextArgumentIsPrintedAsNull) {
    EXPECT_EQ("image container: directory missing on read: (null)",
              sendErrorText(0xC41A001Cu, static_cast<const char *>(nullptr)));
    EXPECT_EQ("file input/output failure: errno 5 ((null))",
              sendErrorText(0xC43D0031u, 5, static_cast<const char *>(nullptr)));
}

TEST(PxEnvLog, UnknownCodePrintsTheCodeAndIgnoresArguments) {
    EXPECT_EQ("unknown error 0x12345678", sendErrorText(0x12345678u, 1, 2, 3));
    EXPECT_EQ("unknown error 0x00000000", sendErrorText(0u));
}

TEST(PxEnvLog, ErrorFormatIsNeverNull) {
    EXPECT_STREQ("unknown reflection mode %d", pxEnvErrorFormat(0xC41A0017u));
    EXPECT_STREQ("unknown error 0x%08X", pxEnvErrorFormat(0xDEADBEEFu));
    const uint32_t codes[] = {0xC43D0003u, 0xC43D0031u, 0xC43D0310u, 0xC41A0004u, 0xC41A0005u,
                              0xC41A000Cu, 0xC41A000Du, 0xC41A000Eu, 0xC41A000Fu, 0xC41A0017u,
                              0xC41A0018u, 0xC41A0019u, 0xC41A001Au, 0xC41A001Bu, 0xC41A0001u,
                              0xC41A0002u, 0xC41A0003u, 0xC41A001Cu, 0xC41A001Eu, 0xC41A001Fu};
    for (uint32_t code : codes) {
        ASSERT_NE(nullptr, pxEnvErrorFormat(code));
        EXPECT_STRNE("unknown error 0x%08X", pxEnvErrorFormat(code)) << std::hex << code;
    }
}

TEST(PxEnvLog, SinkReceivesUserPointerAndNullRestoresDefault) {
    struct Counter {
        int calls = 0;
    } counter;
    pxEnvSetLogSink([](void *user, int, int, int, const char *, const char *, uint32_t,
                       const char *) { ++static_cast<Counter *>(user)->calls; },
                    &counter);
    writeLogF(5, 1, "m", "d", "x");
    pxEnvSetLogSink(nullptr, nullptr);
    LogLevelEnv level(nullptr);
    const std::string out = stderrOf([] { writeLogF(5, 1, "m", "d", "back"); });
    EXPECT_EQ(1, counter.calls);
    EXPECT_EQ("[E] m:1 (d) back\n", out);
}

TEST(PxEnvLog, DefaultSinkLineFormat) {
    LogLevelEnv level(nullptr);
    EXPECT_EQ("[E] pxImage:12 (Jan  1 2024) 0xC43D0003 bad argument\n",
              stderrOf([] { writeLogI(5, 12, "pxImage", "Jan  1 2024", 0xC43D0003u, "bad argument"); }));
    EXPECT_EQ("[W] pxImageCut:3 (d) careful\n",
              stderrOf([] { writeLogF(4, 3, "pxImageCut", "d", "careful"); }));
    EXPECT_EQ("[E] m:4 (d) 0xC41A0017 unknown reflection mode 9\n",
              stderrOf([] { sendError(5, 4, "m", "d", 0xC41A0017u, 9); }));
}

TEST(PxEnvLog, LevelsOutsideOneToFiveReachTheSinkAsGiven) {
    {
        LogCapture log;
        writeLogF(0, 1, "pxImageCut", "d", "cut %dx%d", 2, 3);
        EXPECT_EQ(0, only(log).level);
    }
    LogLevelEnv level("-5");
    EXPECT_EQ("[?] m:1 (d) zero\n[?] m:2 (d) nine\n", stderrOf([] {
                  writeLogF(0, 1, "m", "d", "zero");
                  writeLogF(9, 2, "m", "d", "nine");
              }));
}

TEST(PxEnvLog, DefaultThresholdHidesTracesAndInfo) {
    LogLevelEnv level(nullptr);
    EXPECT_EQ("", stderrOf([] {
                  writeLogF(1, 1, "m", "d", nullptr);
                  writeLogF(2, 1, "m", "d", "debug");
                  writeLogF(3, 1, "m", "d", "info");
              }));
    EXPECT_EQ("[W] m:1 (d) warn\n", stderrOf([] { writeLogF(4, 1, "m", "d", "warn"); }));
}

TEST(PxEnvLog, ThresholdFromEnvironment) {
    {
        LogLevelEnv level("1");
        EXPECT_EQ("[T] m:7 (d)\n[D] m:8 (d) debug\n", stderrOf([] {
                      writeLogF(1, 7, "m", "d", nullptr);
                      writeLogF(2, 8, "m", "d", "debug");
                  }));
    }
    {
        LogLevelEnv level("6");
        EXPECT_EQ("", stderrOf([] { writeLogI(5, 1, "m", "d", 1u, "hidden"); }));
    }
    {
        LogLevelEnv level("3");
        EXPECT_EQ("[I] m:1 (d) info\n", stderrOf([] {
                      writeLogF(2, 1, "m", "d", "debug");
                      writeLogF(3, 1, "m", "d", "info");
                  }));
    }
}

TEST(PxEnvLog, ThresholdThatIsNotANumberFallsBackToWarnings) {
    LogLevelEnv level("verbose");
    EXPECT_EQ("[W] m:1 (d) w\n", stderrOf([] {
                  writeLogF(3, 1, "m", "d", "i");
                  writeLogF(4, 1, "m", "d", "w");
              }));
}

TEST(PxEnvLog, LongMessagesAreNotCut) {
    LogCapture log;
    const std::string longText(5000, 'a');
    writeLogF(4, 1, "m", "d", "%s!", longText.c_str());
    EXPECT_EQ(longText + "!", only(log).text);
}

TEST(PxEnvLog, ConcurrentLoggingDeliversEveryRecordToTheSink) {
    LogCapture log;
    constexpr int THREADS = 4;
    constexpr int PER_THREAD = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < PER_THREAD; ++i)
                writeLogI(4, i, "m", "d", static_cast<uint32_t>(t), "thread %d record %d", t, i);
        });
    for (std::thread &thread : threads)
        thread.join();
    ASSERT_EQ(static_cast<size_t>(THREADS * PER_THREAD), log.records().size());
    std::vector<int> perThread(THREADS, 0);
    for (const LogRecord &r : log.records()) {
        ASSERT_LT(r.code, static_cast<uint32_t>(THREADS));
        EXPECT_EQ("thread " + std::to_string(r.code) + " record " + std::to_string(r.line), r.text);
        ++perThread[r.code];
    }
    for (int count : perThread)
        EXPECT_EQ(PER_THREAD, count);
}

TEST(PxEnvLog, SinkMayLogItself) {
    struct Nested {
        int depth = 0;
        std::vector<std::string> texts;
    } nested;
    pxEnvSetLogSink(
        [](void *user, int, int, int, const char *, const char *, uint32_t, const char *text) {
            Nested &n = *static_cast<Nested *>(user);
            n.texts.push_back(text);
            if (n.depth++ == 0)
                writeLogF(4, 1, "m", "d", "inner");
        },
        &nested);
    writeLogF(4, 1, "m", "d", "outer");
    pxEnvSetLogSink(nullptr, nullptr);
    EXPECT_EQ((std::vector<std::string>{"outer", "inner"}), nested.texts);
}

} // namespace
