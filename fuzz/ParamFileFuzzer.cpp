// libFuzzer target: any bytes as a parameter file, loaded into an empty store and read back with every getter
// over the keys of its lines and the library's own settings. The loader and the getters must stay inside
// their buffers and free what they allocate; each getter must report 1 or 0 as its contract says; a value
// that reads as an int must read as the same double; and the file must give the same results as setting each
// line's key and value by hand (trimmed, after the comment cut, later lines winning).
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

#include "pxEnv.h"

namespace {

void quietSink(void *, int, int, int, const char *, const char *, uint32_t, const char *) {}

void check(bool condition) {
    if (!condition)
        abort();
}

const char *const LIBRARY_KEYS[] = {"pxImageCFLSDiffLow",
                                    "pxImageCFLSDiffHigh",
                                    "pxImageCFLSBLAddOn",
                                    "pxImageCFLSBLfactor",
                                    "pxImageCFLSprotectWidth",
                                    "pxImageCFLSratioTh",
                                    "pxImageCFLSratioWidth",
                                    "pxImageCFLSmaxProtectWidth",
                                    "pxImageCFLSprotectionMethod",
                                    "pxImageContainerCompressFLS",
                                    "pxImageContainerCompressCLRandTXT",
                                    "useGaussianBlur",
                                    "corresPrepInitialFilterWinSize",
                                    "corresPrepInitialSigma",
                                    "corresPrepFilterWinSize",
                                    "corresPrepSigma",
                                    "pxImageMarkPtsColor",
                                    "pxImageMarkPtsCrossSize"};

const std::string &scratchPath() {
    static const std::string path = [] {
        const char *dir = getenv("TMPDIR");
        return std::string(dir != nullptr ? dir : "/tmp") + "/pxParamFuzz_" + std::to_string(getpid());
    }();
    return path;
}

// Writes a new file rather than truncating the old one: on some file systems the truncation of a file
// with data waits for its blocks to reach the disk, which made every input take milliseconds.
bool writeScratch(const uint8_t *data, size_t size) {
    unlink(scratchPath().c_str());
    FILE *f = fopen(scratchPath().c_str(), "wb");
    if (f == nullptr)
        return false;
    const bool ok = size == 0 || fwrite(data, 1, size, f) == size;
    return fclose(f) == 0 && ok;
}

std::string trim(const std::string &text) {
    const char *space = " \t\r\n\f\v";
    const size_t first = text.find_first_not_of(space);
    return first == std::string::npos ? std::string()
                                      : text.substr(first, text.find_last_not_of(space) - first + 1);
}

// The keys and values the file format defines for the input, later lines winning.
std::map<std::string, std::string> expectedStore(const std::string &file) {
    std::map<std::string, std::string> values;
    size_t start = 0;
    while (start < file.size()) {
        size_t end = file.find('\n', start);
        if (end == std::string::npos)
            end = file.size();
        std::string line = file.substr(start, end - start);
        line = line.substr(0, line.find('#'));
        const size_t equals = line.find('=');
        if (equals != std::string::npos && !trim(line.substr(0, equals)).empty())
            values[trim(line.substr(0, equals))] = trim(line.substr(equals + 1));
        start = end + 1;
    }
    return values;
}

// What the four getters give for one key.
struct Reading {
    int intResult, floatResult, doubleResult, boolResult;
    int intValue;
    float floatValue;
    double doubleValue;
    pxBool boolValue;

    bool operator==(const Reading &o) const {
        const bool sameFloat = std::isnan(floatValue) ? std::isnan(o.floatValue) : floatValue == o.floatValue;
        const bool sameDouble =
            std::isnan(doubleValue) ? std::isnan(o.doubleValue) : doubleValue == o.doubleValue;
        return intResult == o.intResult && floatResult == o.floatResult && doubleResult == o.doubleResult &&
               boolResult == o.boolResult && intValue == o.intValue && sameFloat && sameDouble &&
               boolValue == o.boolValue;
    }
};

// Reads a key with every getter and checks what holds whatever the value: results are 1 or 0, a failed
// read leaves the default, and an int value reads as the same double.
Reading readKey(const char *key) {
    Reading r{};
    r.intResult = pxEnvGetParam2int(key, -7, &r.intValue);
    r.floatResult = pxEnvGetParam2float(key, -7.5f, &r.floatValue);
    r.doubleResult = pxEnvGetParam2double(key, -7.25, &r.doubleValue);
    r.boolResult = pxEnvGetParam2pxBool(key, 7, &r.boolValue);
    check((r.intResult | r.floatResult | r.doubleResult | r.boolResult) <= 1);
    check(r.intResult == 1 || r.intValue == -7);
    check(r.floatResult == 1 || r.floatValue == -7.5f);
    check(r.doubleResult == 1 || r.doubleValue == -7.25);
    check(r.boolResult == 1 || r.boolValue == 7);
    check(r.boolValue == 0 || r.boolValue == 1 || r.boolValue == 7);
    if (r.intResult == 1 && r.intValue != -7)
        check(r.doubleResult == 1 && r.doubleValue == r.intValue);
    return r;
}

std::vector<std::string> keysToRead(const std::map<std::string, std::string> &expected) {
    std::vector<std::string> keys(std::begin(LIBRARY_KEYS), std::end(LIBRARY_KEYS));
    for (const auto &entry : expected)
        keys.push_back(entry.first);
    keys.push_back("");
    return keys;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    pxEnvSetLogSink(&quietSink, nullptr);
    if (!writeScratch(data, size))
        return 0;
    const std::string file(reinterpret_cast<const char *>(data), size);
    const std::map<std::string, std::string> expected = expectedStore(file);
    const std::vector<std::string> keys = keysToRead(expected);

    pxEnvClearParams();
    check(pxEnvLoadParamFile(scratchPath().c_str()) == 1);
    std::vector<Reading> loaded;
    for (const std::string &key : keys)
        loaded.push_back(readKey(key.c_str()));

    // Keys and values holding a null character cannot be set by hand.
    if (file.find('\0') != std::string::npos)
        return 0;
    pxEnvClearParams();
    for (const auto &entry : expected)
        check(pxEnvSetParam(entry.first.c_str(), entry.second.c_str()) == 1);
    for (size_t i = 0; i < keys.size(); ++i)
        check(readKey(keys[i].c_str()) == loaded[i]);
    pxEnvClearParams();
    return 0;
}
