// File naming of grab images: the name of each image file of a tile, from the kind word, set number and
// position, and the separator that the naming functions insert.
#include "pxEnvPath.h"
#include "pxEnvSeparator.h"

#include <string>

namespace {

// Decimal digits of value, zero-padded to at least `width` digits, as 16-bit characters.
std::u16string decimal(uint32_t value, size_t width) {
    const std::string digits = std::to_string(value);
    std::u16string out(digits.size() < width ? width - digits.size() : 0, u'0');
    out.append(digits.begin(), digits.end());
    return out;
}

// The file name without directory: T<tile>_<KIND>_<set>_<position>[_r<repeat>].pxi
std::u16string baseName(uint32_t tile, const char16_t *kind, uint32_t setNumber, uint32_t position,
                        uint32_t repeat) {
    std::u16string name =
        u"T" + decimal(tile, 5) + u"_" + kind + u"_" + decimal(setNumber, 5) + u"_" + decimal(position, 1);
    if (repeat != 0)
        name += u"_r" + decimal(repeat, 1);
    return name + u".pxi";
}

} // namespace

bool PxFileName::ImageForTile(const char16_t *directory, uint32_t tile, const char16_t *kind,
                              uint32_t setNumber, uint32_t position, uint32_t repeat, char16_t *output,
                              size_t capacity) {
    if (!kind) {
        if (output && capacity > 0)
            output[0] = u'\0';
        return false;
    }
    const std::u16string name = baseName(tile, kind, setNumber, position, repeat);
    return PxMakePath(directory, name.c_str(), output, capacity);
}

void PxFileName::SetSeparator(char16_t separator) {
    pxenv::setPathSeparator(separator);
}

char16_t PxFileName::GetSeparator() {
    return pxenv::pathSeparator();
}
