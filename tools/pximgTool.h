// Helpers shared by the everyday subcommands of pximg (info, convert, demo, stats, compare, preview): number
// and JSON text, the one rule for changing the pixel type of an image, argument checks, per-file outcomes.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <opencv2/core.hpp>

#include "pximgCommands.h"

namespace pximg {

// A failure whose lines are already printed: main exits with status 1 and prints nothing more.
struct Failed : Error {
    Failed() : Error("") {}
};

// Shortest decimal text that reads back as the same value ("4.545", "1240"); "nan", "inf". O(1).
std::string shortest(double value);
std::string shortest(float value);
std::string shortest(int32_t value);
// Fixed-point text with the given decimals. O(1).
std::string fixed(double value, int decimals);
// Six significant digits ("%.6g": "0.333333", "1.5e+07"). O(1).
std::string number(double value);
// A JSON number (null for non-finite values) and a JSON string with escapes. O(length).
std::string jsonNumber(double value);
std::string jsonString(const std::string &text);

// A CLI11 check for a whole number in lo..hi: "'abc' is not a whole number", "12 is outside 1..7".
CLI::Validator wholeNumber(long lo, long hi);

// The number of the first line `pximg` prints for a command-line error: its message, with the help of the
// subcommand the arguments reached as the hint. Returns the exit status.
int reportUsageError(const CLI::App &app, const CLI::ParseError &error, int argc, char **argv);

// How the tool changes the pixel type of an image (convert, filter): values are kept as they are (rounded
// to whole numbers for integer types), unless --stretch maps a value range onto the type's range
// ("auto": the image's own minimum and maximum; "LO:HI") or --shift multiplies by 2^N (N < 0 divides and
// drops the low bits). Values the type cannot hold are clipped with a warning that says how many.
struct TypeChange {
    std::string stretch; // empty, "auto" or "LO:HI"
    int32_t shift = 0;
    bool hasShift = false;
    // The options on a command.
    void addOptions(CLI::App *command);
    // True when any option asks for a change of values.
    bool mapsValues() const { return !stretch.empty() || hasShift; }
};

// Range of values a pixel type holds (integers: whole numbers only); false for types without a limit.
bool typeLimits(int32_t type, double &lo, double &hi);

// Applies a TypeChange; `type` 0 keeps the image's type. Warns on stderr about clipped pixels. O(pixels).
// Throws Error for a conflicting or malformed choice.
ImagePtr changeType(const tag_pxImage *image, const TypeChange &change, int32_t type);

// Minimum and maximum of plane 0 (NaNs skipped; 0, 0 when there is no number). O(pixels).
void valueRange(const tag_pxImage *image, double &lo, double &hi);

// Value of pixel (x, y) of plane `plane` of an image of any plain type, as a double. O(1).
double pixelAt(const tag_pxImage *image, int32_t x, int32_t y, int32_t plane = 0);

// Runs `work` for every input; prints "ok"/"FAILED" lines and a summary when there are several (unless
// quiet), keeps going after a failure and throws Failed at the end if any failed.
struct BatchOptions {
    std::vector<std::string> inputs;
    std::string output, outDir, format;
    bool quiet = false, verbose = false;
};
void addBatchOptions(CLI::App *command, BatchOptions &options, const std::string &what);
// The output path of one input: OUT for one input, DIR/<stem>.<format or input extension> for --out-dir.
std::string batchOutput(const BatchOptions &options, const std::string &input);
void runBatch(const BatchOptions &options,
              const std::function<std::string(const std::string &, const std::string &)> &work);

// The colour layout a file stores: "grey", "grey + alpha", "RGB", "grey palette", "colour palette"...,
// its channel count and bits per sample.
struct ImageLayout {
    std::string name;
    int channels = 1;
    int bits = 8;
    std::string text() const {
        return name + ", " + std::to_string(channels) + (channels == 1 ? " channel" : " channels");
    }
};
// The layout of a file decoded by OpenCV into `decoded` (PNG from its own header). O(1).
ImageLayout fileLayout(const std::string &path, const cv::Mat &decoded);

// How loadImage reads colour: -1 refuses it (the default), -2 takes the luminance, 0..2 one channel (red,
// green, blue). Grey stored as RGB or a grey palette is read as grey whatever the choice.
void setColourReading(int32_t choice);
// One grey plane of a decoded image (one to four channels): grey stored as RGB or a grey palette as it is,
// alpha dropped, colour as setColourReading chose or refused naming the file's layout. O(pixels).
cv::Mat greyOf(const cv::Mat &decoded, const std::string &path);
// The --grey and --channel options of a command that reads images; they set the colour reading.
void addColourOptions(CLI::App *command);

// Registers commands of their own modules.
void addDemoCommand(CLI::App &app);
void addConvertCommand(CLI::App &app);
void addStatsCommand(CLI::App &app);
void addCompareCommands(CLI::App &app); // compare, preview

// A tile of a contact sheet: the image with the automatic stretch, scaled into width x height with a label
// below. O(pixels).
cv::Mat contactTile(const tag_pxImage *image, const std::string &label, int width, int height);
// Writes tiles of one size three to a row as an 8-bit PNG. Throws Error.
void writeSheet(const std::vector<cv::Mat> &tiles, const std::string &path);

} // namespace pximg
