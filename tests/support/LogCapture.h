// Captures the records that reach the environment library's log sink while an object of this class lives,
// so that a test can check the message, level, code and module of what a call reported.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace pxtest {

struct LogRecord {
    int kind; // PXENV_LOG_F, PXENV_LOG_I or PXENV_LOG_ERROR
    int level;
    int line;
    std::string module;
    std::string date;
    uint32_t code;
    std::string text;
};

class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    const std::vector<LogRecord> &records() const { return records_; }
    void clear() { records_.clear(); }
    // Records that carry text (everything but traces).
    std::vector<LogRecord> messages() const;
    // Number of level-1 traces without text.
    size_t traceCount() const;
    // True when a record with exactly these values was captured.
    bool has(int level, uint32_t code, const std::string &module, const std::string &text) const;

  private:
    static void sink(void *user, int kind, int level, int line, const char *module, const char *date,
                     uint32_t code, const char *text);
    std::vector<LogRecord> records_;
};

} // namespace pxtest
