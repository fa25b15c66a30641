// Colour input of pximg: the layout a PNG file stores (OpenCV hides it), and one grey plane of any decoded
// image, by the choice made with --grey or --channel.
#include <algorithm>
#include <cstring>
#include <fstream>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "pximgTool.h"

namespace pximg {

namespace {

// The colour layout of a PNG file from its header and palette chunks (OpenCV decodes grey + alpha as four
// channels and any palette as three); false for other files.
bool pngLayout(const std::string &path, ImageLayout &layout) {
    std::ifstream file(path, std::ios::binary);
    unsigned char b[37 + 768 + 8];
    file.read(reinterpret_cast<char *>(b), sizeof b);
    const size_t got = static_cast<size_t>(file.gcount());
    if (got < 33 || std::memcmp(b, "\x89PNG\r\n\x1a\n", 8) != 0 || std::memcmp(b + 12, "IHDR", 4) != 0) {
        return false;
    }
    const char *const names[] = {"grey", "", "RGB", "palette", "grey + alpha", "", "RGBA"};
    const int channels[] = {1, 0, 3, 3, 2, 0, 4};
    const int colourType = b[25];
    if (colourType > 6 || channels[colourType] == 0) {
        return false;
    }
    layout = {names[colourType], channels[colourType], b[24]};
    const uint32_t length =
        (uint32_t(b[33]) << 24) | (uint32_t(b[34]) << 16) | (uint32_t(b[35]) << 8) | b[36];
    if (colourType == 3 && got >= 41 && std::memcmp(b + 37, "PLTE", 4) == 0 && length % 3 == 0 &&
        41 + length <= got) {
        bool grey = true;
        for (uint32_t i = 0; i < length; i += 3) {
            grey = grey && b[41 + i] == b[42 + i] && b[41 + i] == b[43 + i];
        }
        layout = {grey ? "grey palette" : "colour palette", grey ? 1 : 3, 8};
    }
    return true;
}

// How colour images are read: -1 refused, -2 luminance, 0..2 one channel (red, green, blue).
int32_t colourReading = -1;

// True when every pixel of a matrix of 3 or 4 channels has equal first three channels.
bool colourChannelsEqual(const cv::Mat &mat) {
    std::vector<cv::Mat> channels;
    cv::split(mat, channels);
    return cv::countNonZero(channels[0] != channels[1]) == 0 &&
           cv::countNonZero(channels[0] != channels[2]) == 0;
}

} // namespace

// One grey plane of a decoded image: grey stored as RGB or a grey palette as it is, colour by the choice
// made with --grey or --channel; an alpha channel is dropped.
cv::Mat greyOf(const cv::Mat &mat, const std::string &path) {
    if (mat.channels() == 1) {
        return mat;
    }
    if (mat.channels() == 2) { // grey and alpha
        std::vector<cv::Mat> channels;
        cv::split(mat, channels);
        return channels[0];
    }
    cv::Mat bgr = mat;
    if (mat.channels() == 4) {
        cv::cvtColor(mat, bgr, cv::COLOR_BGRA2BGR);
    }
    if (colourReading == -2) {
        cv::Mat grey;
        cv::cvtColor(bgr, grey, cv::COLOR_BGR2GRAY);
        return grey;
    }
    if (colourReading >= 0) {
        cv::Mat channel;
        cv::extractChannel(bgr, channel, 2 - colourReading);
        return channel;
    }
    if (colourChannelsEqual(bgr)) {
        cv::Mat channel;
        cv::extractChannel(bgr, channel, 0);
        return channel;
    }
    throw Error(path + ": a colour image (" + fileLayout(path, mat).text() +
                "); add --grey for its luminance or --channel 0, 1 or 2 for red, green or blue");
}

ImageLayout fileLayout(const std::string &path, const cv::Mat &decoded) {
    ImageLayout layout;
    if (pngLayout(path, layout)) {
        return layout;
    }
    const char *const names[] = {"", "grey", "grey + alpha", "colour", "colour + alpha"};
    const int channels = std::clamp(decoded.channels(), 1, 4);
    return {names[channels], channels, int(8 * decoded.elemSize1())};
}

void setColourReading(int32_t choice) {
    colourReading = choice;
}

} // namespace pximg
