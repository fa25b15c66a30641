// The synthetic camera frame of pximg (demo, container write): bright textured objects on a dark
// background with a sensor's offset, dark current, fixed pattern, shot and read noise and converter steps.
#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "pximgCommands.h"

namespace pximg {

namespace {

// Standard normal numbers from a seeded engine (Box-Muller, so the frame is the same with every standard
// library).
class FrameRandom {
  public:
    explicit FrameRandom(uint32_t seed) : engine_(seed) {}
    // Uniform in (0, 1].
    double uniform() { return (double(engine_()) + 1.0) / 4294967296.0; }
    double uniform(double low, double high) { return low + (high - low) * uniform(); }
    double normal() {
        return std::sqrt(-2.0 * std::log(uniform())) * std::cos(6.283185307179586 * uniform());
    }

  private:
    std::mt19937 engine_;
};

// One bright object of the scene: a disc or a rectangle with a brightness gradient and a fine texture.
struct SceneObject {
    bool disc;
    double cx, cy, rx, ry; // centre and half sizes
    double level;          // mean signal in DN
    double gx, gy;         // relative gradient per pixel
    double period, phase;  // texture grating
};

// Random objects covering roughly an eighth of the frame.
std::vector<SceneObject> makeObjects(int32_t width, int32_t height, FrameRandom &random) {
    const double size = std::min(width, height);
    const int count = std::max(1, int(std::lround(10.0 * double(width) * height / (1024.0 * 768.0))));
    std::vector<SceneObject> objects;
    for (int i = 0; i < count; ++i) {
        SceneObject o{};
        o.disc = i % 2 == 0;
        o.rx = size * random.uniform(0.035, 0.1);
        o.ry = o.disc ? o.rx : o.rx * random.uniform(0.5, 1.2);
        o.cx = random.uniform(o.rx, width - o.rx);
        o.cy = random.uniform(o.ry, height - o.ry);
        o.level = 2000.0 * std::pow(20.0, random.uniform()); // 2000 .. 40000 DN
        const double angle = random.uniform(0.0, 6.283185307179586);
        const double slope = random.uniform(0.2, 0.4) / std::max(o.rx, o.ry);
        o.gx = slope * std::cos(angle);
        o.gy = slope * std::sin(angle);
        o.period = random.uniform(3.0, 9.0);
        o.phase = random.uniform(0.0, 6.283185307179586);
        objects.push_back(o);
    }
    return objects;
}

// Coverage of a pixel by an object (1 inside, 0 outside, a one-pixel soft edge) and its signal there.
double objectSignal(const SceneObject &o, double x, double y, double &coverage) {
    const double dx = x - o.cx, dy = y - o.cy;
    double inside; // distance inside the edge, in pixels
    if (o.disc) {
        inside = o.rx - std::sqrt(dx * dx + dy * dy);
    } else {
        inside = std::min(o.rx - std::fabs(dx), o.ry - std::fabs(dy));
    }
    coverage = std::clamp(inside + 0.5, 0.0, 1.0);
    const double texture = 0.15 * std::sin(6.283185307179586 * (x + 0.5 * y) / o.period + o.phase);
    return o.level * (1.0 + o.gx * dx + o.gy * dy) * (1.0 + texture);
}

// Paints the objects (later ones in front) into a signal plane of width x height.
std::vector<double> paintObjects(int32_t width, int32_t height, const std::vector<SceneObject> &objects) {
    std::vector<double> signal(size_t(width) * size_t(height), 0.0);
    for (const SceneObject &o : objects) {
        const int x0 = std::max(0, int(o.cx - o.rx) - 1), x1 = std::min(width - 1, int(o.cx + o.rx) + 1);
        const int y0 = std::max(0, int(o.cy - o.ry) - 1), y1 = std::min(height - 1, int(o.cy + o.ry) + 1);
        for (int y = y0; y <= y1; ++y) {
            for (int x = x0; x <= x1; ++x) {
                double coverage = 0.0;
                const double value = objectSignal(o, x, y, coverage);
                double &s = signal[size_t(y) * width + x];
                s = s * (1.0 - coverage) + value * coverage;
            }
        }
    }
    return signal;
}

} // namespace

ImagePtr synthesizeFrame(int32_t width, int32_t height, uint32_t seed, int32_t significantBits) {
    if (significantBits < 1 || significantBits > 16) {
        throw Error("a frame needs 1..16 significant bits, not " + std::to_string(significantBits));
    }
    const double step = double(1 << (16 - significantBits)); // one step of the converter in 16-bit units
    FrameRandom random(seed);
    const std::vector<SceneObject> objects = makeObjects(width, height, random);
    const std::vector<double> signal = paintObjects(width, height, objects);
    tag_pxImage *raw = nullptr;
    if (!pxImageConstruct(SHORT, width, height, 0, 1, &raw)) {
        throw libraryFailure("cannot build a " + std::to_string(width) + " x " + std::to_string(height) +
                             " frame");
    }
    ImagePtr frame(raw);
    // Sensor model: 100 DN offset, dark current rising across the frame with amplifier glow in one corner,
    // column fixed pattern, shot noise at 1.5 DN per electron, 4 DN read noise; then the converter's steps.
    const double offset = 100.0, gain = 1.5, readNoise = 4.0;
    std::vector<double> columnPattern(static_cast<size_t>(width));
    for (double &c : columnPattern) {
        c = 1.5 * random.normal();
    }
    auto rows = reinterpret_cast<uint16_t **>(frame->pixMap[0]);
    for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < width; ++x) {
            const double glow = 40.0 * std::exp(-std::hypot(x, y) / 150.0);
            const double dark = 8.0 * (double(x) / width + double(y) / height) / 2.0 + glow;
            const double electrons = (signal[size_t(y) * width + x] + dark) / gain;
            const double sigma = std::sqrt(gain * gain * electrons + readNoise * readNoise);
            const double value = offset + columnPattern[x] + gain * electrons + sigma * random.normal();
            const double quantised = std::min(step * std::round(value / step), 65536.0 - step);
            rows[y][x] = static_cast<uint16_t>(std::max(quantised, 0.0));
        }
    }
    return frame;
}

} // namespace pximg
