// Logging of the environment library: formats every record and hands it to one replaceable sink. The
// default sink prints one line to stderr for records at or above the level in PXENV_LOG_LEVEL.
#include "pxEnv.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

namespace {

// Level below which the default sink stays silent when PXENV_LOG_LEVEL is unset or not a number.
constexpr int DEFAULT_THRESHOLD = 4;

// Kinds of argument lists the catalogue formats take.
enum class ErrorArgs { None, Int, IntText, SixInts, Text };

struct ErrorEntry {
    uint32_t code;
    const char *format;
    ErrorArgs args;
};

// One printf format per code; `args` says which arguments sendError takes from its variadic list.
constexpr ErrorEntry ERROR_CATALOGUE[] = {
    {0xC43D0003u, "invalid argument", ErrorArgs::None},
    {0xC43D0031u, "file input/output failure: errno %d (%s)", ErrorArgs::IntText},
    {0xC43D0310u, "scratch image could not be allocated", ErrorArgs::None},
    {0xC41A0004u, "pixel type not supported by the operation", ErrorArgs::None},
    {0xC41A0005u, "cut of %d x %d at (%d, %d) does not fit the image of %d x %d", ErrorArgs::SixInts},
    {0xC41A000Cu, "de-interlacing: no target image", ErrorArgs::None},
    {0xC41A000Du, "de-interlacing: source pixel type %d not supported", ErrorArgs::Int},
    {0xC41A000Eu, "de-interlacing: target pixel type differs from the source", ErrorArgs::None},
    {0xC41A000Fu, "de-interlacing: target size does not match the source", ErrorArgs::None},
    {0xC41A0017u, "unknown reflection mode %d", ErrorArgs::Int},
    {0xC41A0018u, "dense warp: pixel type other than FLOAT", ErrorArgs::None},
    {0xC41A0019u, "dense warp: image sizes do not match", ErrorArgs::None},
    {0xC41A001Au, "masked dense warp: wrong pixel types", ErrorArgs::None},
    {0xC41A001Bu, "dense warp: border below 3", ErrorArgs::None},
    {0xC41A0001u, "image container: directory missing on write: %s", ErrorArgs::Text},
    {0xC41A0002u, "image container: FLS image could not be written as CSHORT, SHORT12 or plain: %s",
     ErrorArgs::Text},
    {0xC41A0003u, "image container: image file could not be read: %s", ErrorArgs::Text},
    {0xC41A001Cu, "image container: directory missing on read: %s", ErrorArgs::Text},
    {0xC41A001Eu, "image container: image could not be written as SHORT12 or plain: %s", ErrorArgs::Text},
    {0xC41A001Fu,
     "image container: image could not be written plain (compression of colour and texture images is off): "
     "%s",
     ErrorArgs::Text},
};

// Format of a code missing from the catalogue; its one argument is the code itself.
constexpr const char *UNKNOWN_ERROR_FORMAT = "unknown error 0x%08X";

// The active sink. The recursive mutex serialises emission and replacement and lets a sink log itself.
struct SinkState {
    std::recursive_mutex mutex;
    pxEnvLogSink sink = nullptr;
    void *user = nullptr;
};

SinkState &sinkState() {
    static SinkState state;
    return state;
}

const ErrorEntry *findError(uint32_t code) {
    for (const ErrorEntry &entry : ERROR_CATALOGUE)
        if (entry.code == code)
            return &entry;
    return nullptr;
}

// printf-style formatting into a string; a broken format gives an empty text.
std::string formatV(const char *format, va_list args) {
    if (!format)
        return std::string();
    va_list copy;
    va_copy(copy, args);
    const int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (length <= 0)
        return std::string();
    std::string text(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(&text[0], text.size(), format, args);
    text.resize(static_cast<size_t>(length));
    return text;
}

std::string format(const char *format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = formatV(format, args);
    va_end(args);
    return text;
}

const char *textOrNull(const char *text) {
    return text ? text : "(null)";
}

// Takes the arguments the catalogue names for an entry from the list and formats its text.
std::string formatError(const ErrorEntry &entry, va_list args) {
    switch (entry.args) {
    case ErrorArgs::Int:
        return format(entry.format, va_arg(args, int));
    case ErrorArgs::IntText: {
        const int number = va_arg(args, int);
        return format(entry.format, number, textOrNull(va_arg(args, const char *)));
    }
    case ErrorArgs::SixInts: {
        int v[6];
        for (int &value : v)
            value = va_arg(args, int);
        return format(entry.format, v[0], v[1], v[2], v[3], v[4], v[5]);
    }
    case ErrorArgs::Text:
        return format(entry.format, textOrNull(va_arg(args, const char *)));
    case ErrorArgs::None:
        break;
    }
    return entry.format;
}

int thresholdFromEnvironment() {
    const char *value = std::getenv("PXENV_LOG_LEVEL");
    if (!value || !*value)
        return DEFAULT_THRESHOLD;
    char *end = nullptr;
    const long level = std::strtol(value, &end, 10);
    if (*end != '\0' || level < -1000 || level > 1000)
        return DEFAULT_THRESHOLD;
    return static_cast<int>(level);
}

char levelLetter(int level) {
    static const char letters[] = "?TDIWE";
    return (level >= 1 && level <= 5) ? letters[level] : '?';
}

// The default sink: "[E] module:line (date) 0xC43D0003 text" on stderr, the code only when non-zero.
void stderrSink(void *, int, int level, int line, const char *module, const char *date, uint32_t code,
                const char *text) {
    if (level < thresholdFromEnvironment())
        return;
    std::string out = format("[%c] %s:%d (%s)", levelLetter(level), module, line, date);
    if (code != 0)
        out += format(" 0x%08X", static_cast<unsigned>(code));
    if (*text)
        out += std::string(" ") + text;
    out += '\n';
    std::fputs(out.c_str(), stderr);
}

void emit(int kind, int level, int line, const char *module, const char *date, uint32_t code,
          const std::string &text) {
    SinkState &state = sinkState();
    std::lock_guard<std::recursive_mutex> lock(state.mutex);
    const pxEnvLogSink sink = state.sink ? state.sink : &stderrSink;
    sink(state.user, kind, level, line, module ? module : "", date ? date : "", code, text.c_str());
}

} // namespace

extern "C" {

void pxEnvSetLogSink(pxEnvLogSink sink, void *user) {
    SinkState &state = sinkState();
    std::lock_guard<std::recursive_mutex> lock(state.mutex);
    state.sink = sink;
    state.user = sink ? user : nullptr;
}

void writeLogF(int level, int line, const char *module, const char *date, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const std::string text = formatV(format, args);
    va_end(args);
    emit(PXENV_LOG_F, level, line, module, date, 0, text);
}

void writeLogI(int level, int line, const char *module, const char *date, uint32_t code, const char *format,
               ...) {
    va_list args;
    va_start(args, format);
    const std::string text = formatV(format, args);
    va_end(args);
    emit(PXENV_LOG_I, level, line, module, date, code, text);
}

void sendError(int level, int line, const char *module, const char *date, uint32_t code, ...) {
    const ErrorEntry *entry = findError(code);
    std::string text;
    if (entry) {
        va_list args;
        va_start(args, code);
        text = formatError(*entry, args);
        va_end(args);
    } else {
        text = format(UNKNOWN_ERROR_FORMAT, static_cast<unsigned>(code));
    }
    emit(PXENV_LOG_ERROR, level, line, module, date, code, text);
}

const char *pxEnvErrorFormat(uint32_t code) {
    const ErrorEntry *entry = findError(code);
    return entry ? entry->format : UNKNOWN_ERROR_FORMAT;
}

} // extern "C"
