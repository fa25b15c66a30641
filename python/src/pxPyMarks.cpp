// Annotation from Python: crosses at points, magnified cut-outs around points and ellipses, and ellipses
// drawn into images. Every call works on a copy of the image with a margin of half a cross, so that crosses
// near the edges are drawn clipped to the image, and returns a new array. The library's cross size and colour
// are process-wide; each call sets them and marks under one lock, so that threads do not mix their settings.
#include <algorithm>
#include <mutex>
#include <vector>

#include "pxMath.h"
#include "pxPyCore.h"

namespace pxpy {

namespace {

std::mutex markSettings;

// The points as n (x, y) pairs of doubles, with `extra` zero pairs after them.
std::vector<double> pointsOf(const py::object &points, size_t extra = 0) {
    py::array_t<double, py::array::c_style | py::array::forcecast> values =
        py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(points);
    if (!values || values.size() % 2 != 0 || (values.ndim() == 2 && values.shape(1) != 2) ||
        values.ndim() > 2)
        raiseError("argument", "points are an array of (x, y) pairs");
    std::vector<double> pairs(values.data(), values.data() + values.size());
    if (pairs.size() / 2 > size_t(INT32_MAX) - extra)
        raiseError("argument", "too many points");
    pairs.resize(pairs.size() + 2 * extra, 0.0);
    return pairs;
}

pxMath2DEllipse ellipseOf(const py::object &ellipse) {
    py::array_t<double, py::array::c_style | py::array::forcecast> values =
        py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(ellipse);
    if (!values || values.size() != 5)
        raiseError("argument", "an ellipse is five numbers: cx, cy, a, b, angle");
    return {values.at(0), values.at(1), values.at(2), values.at(3), values.at(4)};
}

// Margin that holds the arms of a cross of the given size.
int32_t marginFor(int32_t size) {
    return std::clamp(size / 2, 0, 999);
}

// Runs a marking call with the cross size and colour set for it.
template <typename Call> void mark(const char *function, int32_t size, int32_t colour, Call &&call) {
    callLibrary(function, [&] {
        std::lock_guard<std::mutex> lock(markSettings);
        pxImageMarkPtsSetParams(size, colour);
        return call();
    });
}

void bindPoints(py::module_ &m) {
    m.def(
        "_mark_points",
        [](const py::object &source, const py::object &points, int32_t size, int32_t colour) {
            std::vector<double> pairs = pointsOf(points);
            Record image = copyToRecord(image2d(source, "the image"), marginFor(size));
            mark("pxImageMarkPts", size, colour,
                 [&] { return pxImageMarkPts(pairs.data(), int32_t(pairs.size() / 2), image.get()); });
            return copyToArray(image.get());
        },
        py::arg("image"), py::arg("points"), py::arg("size"), py::arg("colour"));
    m.def(
        "_magnify_points",
        [](const py::object &source, const py::object &points, int32_t magnification, int32_t size,
           int32_t colour) {
            std::vector<double> pairs = pointsOf(points, 2);
            const int32_t n = int32_t(pairs.size() / 2) - 2;
            Record image = copyToRecord(image2d(source, "the image"), marginFor(size));
            Record result;
            mark("pxImageMarkPtsMagnify", size, colour, [&] {
                return pxImageMarkPtsMagnify(pairs.data(), n, magnification, image.get(), result.out());
            });
            return toArray(std::move(result));
        },
        py::arg("image"), py::arg("points"), py::arg("magnification"), py::arg("size"), py::arg("colour"));
}

void bindEllipses(py::module_ &m) {
    m.def(
        "_mark_ellipse",
        [](const py::object &source, const py::object &ellipse, int32_t magnification, int32_t size,
           int32_t colour) {
            const pxMath2DEllipse e = ellipseOf(ellipse);
            Record image = copyToRecord(image2d(source, "the image"), marginFor(size));
            Record result;
            mark("pxImageMarkEllipse", size, colour,
                 [&] { return pxImageMarkEllipse(&e, magnification, image.get(), result.out()); });
            return toArray(std::move(result));
        },
        py::arg("image"), py::arg("ellipse"), py::arg("magnification"), py::arg("size"), py::arg("colour"));
    m.def(
        "_mark_ellipse_and_points",
        [](const py::object &source, const py::object &ellipse, const py::object &points, int32_t size,
           int32_t colour) {
            const pxMath2DEllipse e = ellipseOf(ellipse);
            std::vector<double> pairs = pointsOf(points);
            Record image = copyToRecord(image2d(source, "the image"), marginFor(size));
            tag_pxImage *target = image.get();
            mark("pxImageMarkEllipseAndPts", size, colour, [&] {
                return pxImageMarkEllipseAndPts(&e, target, pairs.data(), int32_t(pairs.size() / 2), &target);
            });
            return copyToArray(image.get());
        },
        py::arg("image"), py::arg("ellipse"), py::arg("points"), py::arg("size"), py::arg("colour"));
}

} // namespace

void bindMarks(py::module_ &m) {
    bindPoints(m);
    bindEllipses(m);
}

} // namespace pxpy
