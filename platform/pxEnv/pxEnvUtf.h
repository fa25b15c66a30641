// Conversion of the environment library's 16-bit path strings to UTF-8 (internal to pxEnv).
#pragma once

#include <cstdint>
#include <string>

namespace pxenv {

// Converts a null-terminated UTF-16 string to UTF-8 in out. O(length). Returns false (out unspecified) for
// a null string or an unpaired surrogate.
bool utf16ToUtf8(const uint16_t *text, std::string &out);

// Same as utf16ToUtf8, then turns every '\\' into '/', so that paths written with either separator work
// on every host. Returns false as utf16ToUtf8 does.
bool utf16PathToUtf8(const uint16_t *path, std::string &out);

// Converts UTF-8 text to UTF-16 in out. O(length). Returns false (out unspecified) for a malformed,
// overlong or surrogate-encoding sequence.
bool utf8ToUtf16(const std::string &text, std::u16string &out);

} // namespace pxenv
