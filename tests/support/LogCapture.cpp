#include "support/LogCapture.h"

#include "pxEnv.h"

namespace pxtest {

LogCapture::LogCapture() {
    pxEnvSetLogSink(&LogCapture::sink, this);
}

LogCapture::~LogCapture() {
    pxEnvSetLogSink(nullptr, nullptr);
}

void LogCapture::sink(void *user, int kind, int level, int line, const char *module, const char *date,
                      uint32_t code, const char *text) {
    static_cast<LogCapture *>(user)->records_.push_back(
        LogRecord{kind, level, line, module ? module : "", date ? date : "", code, text ? text : ""});
}

std::vector<LogRecord> LogCapture::messages() const {
    std::vector<LogRecord> out;
    for (const LogRecord &r : records_)
        if (!r.text.empty())
            out.push_back(r);
    return out;
}

size_t LogCapture::traceCount() const {
    size_t n = 0;
    for (const LogRecord &r : records_)
        n += (r.level == 1 && r.text.empty()) ? 1 : 0;
    return n;
}

bool LogCapture::has(int level, uint32_t code, const std::string &module, const std::string &text) const {
    for (const LogRecord &r : records_)
        if (r.level == level && r.code == code && r.module == module && r.text == text)
            return true;
    return false;
}

} // namespace pxtest
