// The pximg command-line tool: each group of subcommands lives in a module of its own and registers
// itself on the application; the helpers below are shared by all of them.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

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
// 16-bit as SHORT, 32-bit float as FLOAT; colour is refused). `type` 0 keeps the stored type. Throws Error.
ImagePtr loadImage(const std::string &path, int32_t type = 0);

// Saves an image: .png, .tif, .tiff and .pgm through OpenCV (16-bit kept as 16-bit), any other name in our
// format written as `fileType` (0: the image's type; CBIT, CSHORT, SHORT12 for the encodings) with or
// without the SHORT<->FLOAT transform. Throws Error.
void saveImage(const tag_pxImage *image, const std::string &path, int32_t fileType = 0, bool transform = false);

// Synthesises a realistic 16-bit camera frame: dark background, bright textured objects, sensor noise.
// The same seed gives the same frame.
ImagePtr synthesizeFrame(int32_t width, int32_t height, uint32_t seed);

// Subcommand groups.
void addFileCommands(CLI::App &app);      // info, convert, demo
void addFilterCommands(CLI::App &app);    // filter, stats
void addContainerCommands(CLI::App &app); // container write, container read

}  // namespace pximg
