// The pximg command-line tool: each group of subcommands lives in a module of its own and registers
// itself on the application; the helpers below are shared by all of them.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "pxImage.h"

namespace pximg {

// A one-line error for the person at the terminal; main prints it and exits with status 1.
struct Error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Owns an image record and destroys it with pxImageDestruct.
struct ImageDeleter {
    void operator()(tag_pxImage *image) const { pxImageDestruct(&image); }
};
using ImagePtr = std::unique_ptr<tag_pxImage, ImageDeleter>;

// Loads an image: our format (recognised by content), or PNG, TIFF or PGM through OpenCV (8-bit as UBYTE,
// 16-bit as SHORT, 32-bit float as FLOAT; grey in any colour layout as grey, colour as setColourReading in
// pximgTool.h chose; "-" and images over 9999 x 9999 are refused). `type` 0 keeps the stored type. Throws
// Error.
ImagePtr loadImage(const std::string &path, int32_t type = 0);

// Saves an image: .png, .tif, .tiff and .pgm through OpenCV (16-bit kept as 16-bit), .pxi and .pim (or any
// name with `format` "pxi"; other names are refused) in our format written as `fileType` (0: the image's
// type; CBIT, CSHORT, SHORT12 for the encodings) with or without the SHORT<->FLOAT transform. Throws Error.
void saveImage(const tag_pxImage *image, const std::string &path, int32_t fileType = 0,
               bool transform = false, const std::string &format = "");

// Checks that an output file can be made at `path` (a file beside it is created and removed again), so that
// a command with several outputs can refuse before it writes any. O(1). Throws Error with the system's
// reason.
void checkWritable(const std::string &path);

// Copies an image into a new record of pixel type `type` (0: the same) with border 0, with or without the
// SHORT<->FLOAT transform (0..65535 <-> about 0..255). O(pixels). Throws Error.
ImagePtr convertImage(const tag_pxImage *image, int32_t type, bool transform);

// Reads only the 512-byte header block of a file of our format (no pixels): the header record, the version
// tag (bytes 8..11 of the file) and the stored pixel type. O(1). Throws Error for a file that is missing,
// too short or not of our format.
ImagePtr readHeaderBlock(const std::string &path, std::string &version, int32_t &storedType);

// Synthesises a realistic 16-bit camera frame: dark background, bright textured objects, sensor noise. The
// analogue-to-digital converter keeps `significantBits` (1..16) bits, aligned to the top of the 16-bit word
// as cameras deliver them (12: every value a multiple of 16). O(pixels). The same seed gives the same frame.
ImagePtr synthesizeFrame(int32_t width, int32_t height, uint32_t seed, int32_t significantBits = 12);

// Routes the library's log into the tool: warnings (level 4) are printed as "pximg: warning: ..." lines,
// and the text of the last error is kept for libraryFailure. Call once, before any command runs.
void installLibraryLog();

// Turns the printing of the library's warnings off (false) and on again (true), for a call whose warnings the
// tool states in its own words. O(1).
void showLibraryWarnings(bool show);

// An Error for a library call that returned 0: "<what>: <text of the last error the library logged>".
// Clears the kept text.
Error libraryFailure(const std::string &what);

// A UTF-8 path as the null-terminated UTF-16 string that the library's file functions take. Throws Error
// on malformed UTF-8. O(length).
std::vector<uint16_t> utf16Path(const std::string &path);

// Pixel type from a name (cbit, ubyte, short, cshort, int, float, double, short12, any case) or a number
// 1..8. Throws Error naming the accepted values.
int32_t parsePixelType(const std::string &text);

// Upper-case name of a pixel type ("SHORT"), or "type N" for an unknown one.
std::string pixelTypeName(int32_t type);

// Shortest decimal text that reads back as the same value ("4.545", "1240", "-273"; "nan", "inf"), without
// an exponent for integers of up to 17 digits. O(1).
std::string shortest(double value);
std::string shortest(float value);
std::string shortest(int32_t value);

// Fixed-point text with the given number of decimals. O(1).
std::string fixed(double value, int decimals);

// Subcommand groups.
void addFileCommands(CLI::App &app);      // info, convert, demo, compare, preview
void addFilterCommands(CLI::App &app);    // filter, stats
void addContainerCommands(CLI::App &app); // container write, container read
void addMarkCommands(CLI::App &app);      // mark
void addGeometryCommands(CLI::App &app);  // cut, pyramid, roi
void addPreprocCommands(CLI::App &app);   // preproc, stereo-pair
void addWarpCommands(CLI::App &app);      // warp, undistort, distort, deinterlace

} // namespace pximg
