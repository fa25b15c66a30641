// UTF-16 to UTF-8 conversion of the environment library's path strings.
#include "pxEnvUtf.h"

#include <algorithm>

namespace pxenv {

namespace {

bool isHighSurrogate(uint32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(uint32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void appendUtf8(uint32_t codePoint, std::string &out) {
    if (codePoint < 0x80) {
        out += static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
        out += static_cast<char>(0xC0 | (codePoint >> 6));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        out += static_cast<char>(0xE0 | (codePoint >> 12));
        out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (codePoint >> 18));
        out += static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    }
}

} // namespace

bool utf16ToUtf8(const uint16_t *text, std::string &out) {
    if (!text)
        return false;
    out.clear();
    for (const uint16_t *p = text; *p; ++p) {
        uint32_t unit = *p;
        if (isLowSurrogate(unit))
            return false;
        if (isHighSurrogate(unit)) {
            if (!isLowSurrogate(p[1]))
                return false;
            unit = 0x10000 + ((unit - 0xD800) << 10) + (p[1] - 0xDC00u);
            ++p;
        }
        appendUtf8(unit, out);
    }
    return true;
}

bool utf16PathToUtf8(const uint16_t *path, std::string &out) {
    if (!utf16ToUtf8(path, out))
        return false;
    std::replace(out.begin(), out.end(), '\\', '/');
    return true;
}

} // namespace pxenv
