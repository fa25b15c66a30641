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

// Number of continuation bytes after a lead byte, the lowest code point that length may encode and the
// lead's payload bits; -1 continuation bytes for a byte that cannot start a sequence.
struct Utf8Lead {
    int continuation;
    uint32_t minimum;
    uint32_t bits;
};

Utf8Lead utf8Lead(unsigned char byte) {
    if (byte < 0x80)
        return {0, 0, byte};
    if ((byte & 0xE0) == 0xC0)
        return {1, 0x80, byte & 0x1Fu};
    if ((byte & 0xF0) == 0xE0)
        return {2, 0x800, byte & 0x0Fu};
    if ((byte & 0xF8) == 0xF0)
        return {3, 0x10000, byte & 0x07u};
    return {-1, 0, 0};
}

void appendUtf16(uint32_t codePoint, std::u16string &out) {
    if (codePoint < 0x10000) {
        out += static_cast<char16_t>(codePoint);
        return;
    }
    codePoint -= 0x10000;
    out += static_cast<char16_t>(0xD800 + (codePoint >> 10));
    out += static_cast<char16_t>(0xDC00 + (codePoint & 0x3FF));
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

bool utf8ToUtf16(const std::string &text, std::u16string &out) {
    out.clear();
    for (size_t i = 0; i < text.size();) {
        const Utf8Lead lead = utf8Lead(static_cast<unsigned char>(text[i]));
        if (lead.continuation < 0 || text.size() - i <= static_cast<size_t>(lead.continuation))
            return false;
        uint32_t codePoint = lead.bits;
        for (int k = 1; k <= lead.continuation; ++k) {
            const unsigned char byte = static_cast<unsigned char>(text[i + k]);
            if ((byte & 0xC0) != 0x80)
                return false;
            codePoint = (codePoint << 6) | (byte & 0x3Fu);
        }
        if (codePoint < lead.minimum || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF))
            return false;
        appendUtf16(codePoint, out);
        i += 1 + lead.continuation;
    }
    return true;
}

} // namespace pxenv
