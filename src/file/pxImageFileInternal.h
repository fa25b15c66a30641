// Functions of the image file subsystem that its modules share but the library does not export: the header
// block writer, the pixel data reader and writer, and the encoders and decoders of the three encodings.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "pxImage.h"
#include "image/pxImageLog.h"

// A failed C runtime file operation: the numeric errno and the system's text for it, with the file-error
// code. Callers clear errno before the operation so that the record names this failure.
#define PX_FILE_ERROR(module)                                                                                \
    PX_ERROR((module), PX_ERR_FILE_IO, "file input/output failure: errno %d (%s)", errno, strerror(errno))

// ---- Header block (module pxImageFileHeader) -----------------------------------------------------------

// Size of the header block in every version.
constexpr long PX_FILE_HEADER_SIZE = 512;

// Reads one header block from the current position and builds the header in *header, reusing a record it
// already holds (refCount kept) or allocating one. The pixel map entries are left null. O(1). On success
// *storedType receives the stored pixel type; on failure *header is untouched.
uint32_t pxImageFileHeaderReadInto(FILE *file, int32_t type, int32_t border, tag_pxImage **header,
                                   int32_t *storedType);

// Checks the image header, logs a level-4 warning for every inconsistent ROI/orig value, corrects the
// written copy (never the image) and writes the 512-byte "im13" block with pixel type `type` (0: the
// image's). O(1). Result 1 or 0.
uint32_t pxImageFileHeaderWrite(FILE *file, int32_t type, const tag_pxImage *image);

// ---- Pixel data (module pxImagePixData) ------------------------------------------------------------------

// Checks, before anything is allocated, that a file stored plainly (any type but CBIT, CSHORT, SHORT12) holds
// at least planes x width x height pixels of the stored type after the current position. O(1). Result 1,
// or 0 with a file input/output error (as the short read would give) when the file is too short.
uint32_t pxImagePixDataCheckLength(FILE *file, int32_t storedType, const tag_pxImage *header);

// Reads one plane of the stored type into a new pixel map of the header's type (CBIT as UBYTE, CSHORT and
// SHORT12 as SHORT: the header's type is set accordingly) with ROI mode 0, 1 or 2. O(pixels). *map receives
// the plane; on failure nothing stays allocated.
uint32_t pxImagePixDataRead(FILE *file, int32_t storedType, tag_pxImage *header, uint32_t roiMode,
                            pxImagePixMap *map);

// Writes one plane of an image (type imageType) as type writeType (0: imageType), encoded for CBIT, CSHORT
// and SHORT12 (which take the image's pixels in place and may change them) and plain otherwise. O(pixels).
uint32_t pxImagePixDataWrite(FILE *file, int32_t writeType, int32_t imageType, int32_t width, int32_t height,
                             int32_t border, pxImagePixMap map);

// ---- Encodings (module pxImageFileCodec) ------------------------------------------------------------------

// CBIT run lengths of width x height bytes (255 runs positive, 0 runs negative, any change of byte value
// closes a run). O(pixels). *lengths is allocated here (free with pxMallocFree); *count receives its size.
uint32_t pxImageCbitEncode(const uint8_t *pixels, int32_t width, int32_t height, int32_t **lengths,
                           uint32_t *count);

// Expands count CBIT run lengths into width x height bytes. O(pixels). Fails with "Compressed data length do
// not match uncompressed" when a run overflows the image or the runs do not fill it; nothing is written
// beyond the image.
uint32_t pxImageCbitDecode(const int32_t *lengths, int32_t width, int32_t height, uint32_t count,
                           uint8_t *pixels);

// Words of the SHORT12 layout of a width x height image.
uint64_t pxImageShort12StoredWords(int32_t width, int32_t height);

// Packs width x height 16-bit pixels into the SHORT12 layout (12 high bits per pixel). O(pixels). *words is
// allocated here; *count receives the number of words to write.
uint32_t pxImageShort12Pack(const uint16_t *pixels, int32_t width, int32_t height, uint16_t **words,
                            uint32_t *count);

// Unpacks the SHORT12 layout into width x height pixels whose low four bits read 12. O(pixels). Fails with
// the length-mismatch error when fewer words than the layout needs are given; extra words are ignored.
uint32_t pxImageShort12Unpack(const uint16_t *words, int32_t width, int32_t height, uint32_t count,
                              uint16_t *pixels);

// Expands count words of CSHORT (count, value) pairs into width x height pixels. O(pixels). Fails with the
// length-mismatch error when a run overflows the image, a pair is incomplete or the runs do not fill it.
uint32_t pxImageCshortDecode(const uint16_t *words, int32_t width, int32_t height, uint32_t count,
                             uint16_t *pixels);

// ---- Lossy compressor (module pxImageCompress) ------------------------------------------------------------

// Compresses width x height 16-bit pixels into CSHORT (count, value) pairs; marks protected pixels (bit 0)
// and clears the two low bits of every pixel that opens a run, in the caller's buffer. Reads its nine
// settings on the first call of the process. O(pixels). *words is allocated here; *count receives the number
// of 16-bit words. Fails (level-3 "Images size is too large %d") when the pairs need more than 3/4 of the
// pixel count in words.
uint32_t pxImageCompressShort(uint16_t *pixels, int32_t width, int32_t height, uint16_t **words,
                              uint32_t *count);

// Forgets the compressor settings so that the next call reads them again (for tests of the settings).
void pxImageCompressResetSettings();
