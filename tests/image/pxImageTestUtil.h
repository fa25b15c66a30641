// Small helpers shared by the image-model tests.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "image/pxImageInternal.h"
#include "pxEnv.h"
#include "support/LogCapture.h"

namespace pxtest {

constexpr uint32_t kInvalidArgument = 0xC43D0003u;
constexpr uint32_t kTypeNotSupported = 0xC41A0004u;

// Plane `plane` of an image as rows of T.
template <typename T> T **rowsOf(const tag_pxImage *image, int plane = 0) {
    return reinterpret_cast<T **>(image->pixMap[plane]);
}

// Expects exactly one message record: level 5 error with code, module and text, plus `traces` traces of
// the same module at level 1 without text.
inline void expectErrorChain(const LogCapture &log, const std::string &module, const std::string &text,
                             size_t traces, int kind = PXENV_LOG_I, uint32_t code = kInvalidArgument) {
    const auto messages = log.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].kind, kind);
    EXPECT_EQ(messages[0].level, 5);
    EXPECT_EQ(messages[0].module, module);
    EXPECT_EQ(messages[0].code, code);
    EXPECT_EQ(messages[0].text, text);
    EXPECT_EQ(messages[0].date.size(), std::strlen(__DATE__));
    EXPECT_GT(messages[0].line, 0);
    EXPECT_EQ(log.records().size(), traces + 1);
    EXPECT_EQ(log.traceCount(), traces);
    for (const LogRecord &r : log.records()) {
        EXPECT_EQ(r.module, module);
        if (r.text.empty()) {
            EXPECT_EQ(r.kind, PXENV_LOG_F);
            EXPECT_EQ(r.level, 1);
            EXPECT_EQ(r.code, 0u);
            EXPECT_GT(r.line, 0);
        }
    }
}

// Expects only level-1 traces of a module.
inline void expectTracesOnly(const LogCapture &log, const std::string &module, size_t traces) {
    EXPECT_EQ(log.records().size(), traces);
    EXPECT_EQ(log.traceCount(), traces);
    for (const LogRecord &r : log.records()) {
        EXPECT_EQ(r.module, module);
        EXPECT_EQ(r.level, 1);
        EXPECT_EQ(r.kind, PXENV_LOG_F);
    }
}

} // namespace pxtest
