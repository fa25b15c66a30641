// Named parameters of the environment library: an in-process key/value store, filled on first use from
// the file named by PXENV_PARAM_FILE and by pxEnvSetParam. Values are kept as text and parsed by each
// getter without regard to the C locale.
#include "pxEnv.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <string>

namespace {

struct ParamStore {
    std::mutex mutex;
    std::map<std::string, std::string> values;
    bool fileLoaded = false; // the PXENV_PARAM_FILE file was read, or loading was switched off
};

ParamStore &store() {
    static ParamStore instance;
    return instance;
}

std::string trim(const std::string &text) {
    const char *space = " \t\r\n\f\v";
    const size_t first = text.find_first_not_of(space);
    if (first == std::string::npos)
        return std::string();
    return text.substr(first, text.find_last_not_of(space) - first + 1);
}

// Reads `key = value` lines into the map (caller holds the lock); later lines win. Returns false when the
// file cannot be opened.
bool loadFileLocked(const char *path, std::map<std::string, std::string> &values) {
    std::ifstream in(path);
    if (!in)
        return false;
    std::string line;
    while (std::getline(in, line)) {
        line = line.substr(0, line.find('#'));
        const size_t equals = line.find('=');
        if (equals == std::string::npos)
            continue;
        const std::string key = trim(line.substr(0, equals));
        if (!key.empty())
            values[key] = trim(line.substr(equals + 1));
    }
    return true;
}

// Loads the file named by PXENV_PARAM_FILE once (caller holds the lock).
void ensureLoadedLocked(ParamStore &s) {
    if (s.fileLoaded)
        return;
    s.fileLoaded = true;
    const char *path = std::getenv("PXENV_PARAM_FILE");
    if (path && *path)
        loadFileLocked(path, s.values);
}

// Looks a key up; false when absent or the key is null.
bool lookup(const char *key, std::string &value) {
    if (!key)
        return false;
    ParamStore &s = store();
    std::lock_guard<std::mutex> lock(s.mutex);
    ensureLoadedLocked(s);
    const auto it = s.values.find(key);
    if (it == s.values.end())
        return false;
    value = it->second;
    return true;
}

// Parses the whole text as a number with std::from_chars (locale-independent; a leading '+' allowed).
// Trailing characters, an empty text or a value out of range fail.
template <typename T> bool parseNumber(const std::string &text, T &out) {
    const char *first = text.data();
    const char *last = first + text.size();
    if (first != last && *first == '+')
        ++first;
    if (first == last || (first != text.data() && *first == '-'))
        return false;
    const std::from_chars_result result = std::from_chars(first, last, out);
    return result.ec == std::errc() && result.ptr == last;
}

bool parseBool(std::string text, pxBool &out) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (text == "1" || text == "true" || text == "yes" || text == "on") {
        out = 1;
        return true;
    }
    if (text == "0" || text == "false" || text == "no" || text == "off") {
        out = 0;
        return true;
    }
    return false;
}

// Common shape of the getters: absent key -> default and 1; present and parsed -> value and 1; present
// but not parsed -> default and 0.
template <typename T, typename Parse> int getParam(const char *key, T defaultValue, T *out, Parse parse) {
    if (!out)
        return 0;
    *out = defaultValue;
    std::string text;
    if (!lookup(key, text))
        return key ? 1 : 0;
    T value{};
    if (!parse(text, value))
        return 0;
    *out = value;
    return 1;
}

} // namespace

extern "C" {

int pxEnvGetParam2int(const char *key, int defaultValue, int *out) {
    return getParam(key, defaultValue, out, parseNumber<int>);
}

int pxEnvGetParam2float(const char *key, float defaultValue, float *out) {
    return getParam(key, defaultValue, out, parseNumber<float>);
}

int pxEnvGetParam2double(const char *key, double defaultValue, double *out) {
    return getParam(key, defaultValue, out, parseNumber<double>);
}

int pxEnvGetParam2pxBool(const char *key, pxBool defaultValue, pxBool *out) {
    return getParam(key, defaultValue, out, parseBool);
}

int pxEnvSetParam(const char *key, const char *value) {
    if (!key || !value)
        return 0;
    ParamStore &s = store();
    std::lock_guard<std::mutex> lock(s.mutex);
    ensureLoadedLocked(s);
    s.values[key] = value;
    return 1;
}

void pxEnvClearParams(void) {
    ParamStore &s = store();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.values.clear();
    s.fileLoaded = true;
}

int pxEnvLoadParamFile(const char *path) {
    if (!path)
        return 0;
    ParamStore &s = store();
    std::lock_guard<std::mutex> lock(s.mutex);
    ensureLoadedLocked(s);
    return loadFileLocked(path, s.values) ? 1 : 0;
}

} // extern "C"
