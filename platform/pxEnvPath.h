// pxEnv paths: the file naming of grab images, path joining and existence tests (C++ interface of the
// environment library).
//
// Paths are null-terminated UTF-16 strings. Both '\' and '/' are understood as separators on every host;
// the separator that the naming functions insert is set with PxFileName::SetSeparator (the host's own by
// default). The name of an image file is
//
//     <directory><separator>T<tile>_<KIND>_<set>_<position>[_r<repeat>].pxi
//
// with the tile and the set number printed in decimal with at least five digits (zero-padded), the kind
// word as given, the position in decimal, and "_r<repeat>" only for a repeat number other than 0; for
// example "grabs\T00007_FLS_00009_0.pxi". An empty directory gives the bare file name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "pxEnv.h"

// Builds the names of the files of the environment's file layout.
class PXENV_API PxFileName {
  public:
    // Writes the full name of one image file of a tile (pattern above) into output, which holds `capacity`
    // 16-bit characters including the terminating zero. A null directory is the empty one; `repeat` 0 is
    // the first recording of the set. O(length). False, with output empty (when capacity > 0), for a null
    // kind or output, or a name that does not fit.
    static bool ImageForTile(const char16_t *directory, uint32_t tile, const char16_t *kind,
                             uint32_t setNumber, uint32_t position, uint32_t repeat, char16_t *output,
                             size_t capacity);

    // Sets the separator that ImageForTile and PxMakePath insert between path parts. O(1). Thread-safe
    // (atomic); a name built while another thread changes it uses either the old or the new separator.
    static void SetSeparator(char16_t separator);

    // The separator inserted between path parts. O(1).
    static char16_t GetSeparator();
};

// Joins a directory (null: empty) and one further part (null or empty: none) with the separator, which is
// not doubled when the directory already ends in '\' or '/'. Output as for ImageForTile. O(length). False,
// with output empty (when capacity > 0), for a null output or a path that does not fit.
PXENV_API bool PxMakePath(const char16_t *directory, const char16_t *part, char16_t *output, size_t capacity);

// True when the path names an existing regular file (symbolic links followed). Null, empty or not
// convertible to UTF-8 is false. One file-system query.
PXENV_API bool PxFileExist(const char16_t *path);

// True when the path names an existing directory (symbolic links followed). Null, empty or not convertible
// to UTF-8 is false. One file-system query.
PXENV_API bool PxDirectoryExist(const char16_t *path);

// The UTF-8 form of a null-terminated UTF-16 text, for messages and logs (separators are kept as they are).
// O(length). Null, or a text with an unpaired surrogate, gives the empty string.
PXENV_API std::string PxTextToUtf8(const char16_t *text);

// The UTF-16 form of a UTF-8 text, for building 16-bit paths from 8-bit ones. O(length). Returns false (out
// unspecified) for a malformed, overlong or surrogate-encoding sequence.
PXENV_API bool PxTextToUtf16(const std::string &text, std::u16string &out);
