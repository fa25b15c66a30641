// Geometry from Python: cuts, pixel replication, the textured region, reduction and pyramids,
// de-interlacing and lens-distortion resampling. Sources are records built over the arrays without copying;
// the lens corrections, which exchange a record's pixel maps, work on a record of their own.
#include <algorithm>
#include <array>
#include <cstring>

#include "pxPyCore.h"

namespace pxpy {

namespace {

// Destroys every level of a pyramid when it goes out of scope.
struct PyramidGuard {
    pxImagePyramid levels{};
    ~PyramidGuard() {
        LogScope quiet;
        pxImagePyrDestruct(levels);
    }
};

std::array<float, 3> kernelOf(const py::object &kernel) {
    py::array_t<float, py::array::c_style | py::array::forcecast> values =
        py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(kernel);
    if (!values || values.size() != 3)
        raiseError("argument", "a reduction kernel is three numbers: centre, first and second neighbour");
    return {values.at(0), values.at(1), values.at(2)};
}

void bindCut(py::module_ &m) {
    m.def(
        "_cut",
        [](const py::object &source, uint32_t x, uint32_t y, py::ssize_t width, py::ssize_t height,
           int32_t type, bool transform, const py::object &out) {
            py::array input = image2d(source, "the source");
            py::array result =
                outputOfShape(out, input, type == 0 ? pixelTypeOf(input.dtype()) : type, height, width);
            Record in = Record::wrap(input);
            Record dst = Record::wrap(result);
            callLibrary("pxImageCutWithTransform", [&] {
                return pxImageCutWithTransform(in.get(), x, y, transform ? 1 : 0, dst.get());
            });
            return result;
        },
        py::arg("source"), py::arg("x"), py::arg("y"), py::arg("width"), py::arg("height"), py::arg("type"),
        py::arg("transform"), py::arg("out"));
    m.def(
        "_extend",
        [](const py::object &source, int32_t factor, py::ssize_t width, py::ssize_t height,
           const py::object &out) {
            py::array input = image2d(source, "the source");
            py::array result = outputOfShape(out, input, UBYTE, height, width);
            Record in = Record::wrap(input);
            Record dst = Record::wrap(result);
            callLibrary(
                "pxImageExtend", [&] { return pxImageExtend(in.get(), factor, dst.get()); },
                Verdict::ResultOrErrorRecord);
            return result;
        },
        py::arg("source"), py::arg("factor"), py::arg("width"), py::arg("height"), py::arg("out"));
    m.def(
        "_roi",
        [](const py::object &source) -> py::object {
            py::array input = image2d(source, "the image");
            Record in = Record::wrap(input);
            int32_t rect[4] = {0, 0, 0, 0};
            int32_t found = 1;
            callLibrary("pxImageRoi", [&] { return pxImageRoi(in.get(), rect, &found); });
            return py::make_tuple(rect[0], rect[1], rect[2], rect[3]);
        },
        py::arg("image"));
}

void bindPyramids(py::module_ &m) {
    m.def(
        "_reduce",
        [](const py::object &source, const py::object &kernel, const py::object &out) {
            py::array input = image2d(source, "the source");
            const std::array<float, 3> k = kernelOf(kernel);
            py::array result =
                outputOfShape(out, input, FLOAT, (input.shape(0) + 1) / 2, (input.shape(1) + 1) / 2);
            Record in = Record::wrap(input);
            Record dst = Record::wrap(result);
            tag_pxImage *target = dst.get();
            callLibrary("pxImageReduce", [&] { return pxImageReduce(in.get(), &target, k.data()); });
            return result;
        },
        py::arg("source"), py::arg("kernel"), py::arg("out"));
    m.def(
        "_pyramid",
        [](const py::object &source, int32_t levels, const py::object &kernel) {
            py::array input = image2d(source, "the source");
            if (pixelTypeOf(input.dtype()) != FLOAT)
                raiseError("argument", "a pyramid is built from a float32 image");
            const std::array<float, 3> k = kernelOf(kernel);
            PyramidGuard pyramid;
            Record level0 = copyToRecord(input, 0);
            const tag_pxImage *first = level0.get();
            callLibrary("pxImagePyrHeaderConstruct", [&] {
                return pxImagePyrHeaderConstruct(pyramid.levels, 0, first->width, first->height, FLOAT, 0, 1);
            });
            // A level is reduced from the one before only when that one is 3 or more pixels on each side.
            int32_t built = 1;
            while (built < pxImage_PYR_LEVELS && pyramid.levels[built] != nullptr &&
                   std::min(pyramid.levels[built - 1]->width, pyramid.levels[built - 1]->height) >= 3)
                ++built;
            const int32_t last = (levels < 1 || levels > built ? built : levels) - 1;
            callLibrary("pxImagePyrPixMapConstruct",
                        [&] { return pxImagePyrPixMapConstruct(FLOAT, 0, 1, 0, last, pyramid.levels); });
            const size_t rowBytes = size_t(first->width) * sizeof(float);
            for (int32_t y = 0; y < first->height; ++y)
                std::memcpy(pyramid.levels[0]->pixMap[0][y], first->pixMap[0][y], rowBytes);
            callLibrary("pxImagePyrReduce",
                        [&] { return pxImagePyrReduce(pyramid.levels, 0, last, k.data()); });
            py::list result;
            for (int32_t l = 0; l <= last; ++l)
                result.append(copyToArray(pyramid.levels[l]));
            return result;
        },
        py::arg("source"), py::arg("levels"), py::arg("kernel"));
}

void bindDeInterlace(py::module_ &m) {
    m.def(
        "_deinterlace",
        [](const py::object &source) {
            py::array input = image2d(source, "the source");
            const py::ssize_t h = input.shape(0);
            if (h < 2)
                raiseError("argument", "de-interlacing needs a frame of at least 2 rows");
            const int32_t type = pixelTypeOf(input.dtype());
            py::array even = outputOfShape(py::none(), input, type, h / 2 + h % 2, input.shape(1));
            py::array odd = outputOfShape(py::none(), input, type, h / 2, input.shape(1));
            Record in = Record::wrap(input);
            Record e = Record::wrap(even);
            Record o = Record::wrap(odd);
            callLibrary("pxImageDeInterlace", [&] { return pxImageDeInterlace(in.get(), e.get(), o.get()); });
            return py::make_tuple(even, odd);
        },
        py::arg("source"));
}

void bindLens(py::module_ &m) {
    m.def(
        "_aber",
        [](const py::object &source, double k1, double k2, double k3, double p1, double p2, double cx,
           double cy, int32_t n) {
            Record image = copyToRecord(image2d(source, "the image"), 0);
            callLibrary("pxImageAber",
                        [&] { return pxImageAber(image.get(), k1, k2, k3, p1, p2, cx, cy, n); });
            return toArray(std::move(image));
        },
        py::arg("image"), py::arg("k1"), py::arg("k2"), py::arg("k3"), py::arg("p1"), py::arg("p2"),
        py::arg("cx"), py::arg("cy"), py::arg("n"));
    m.def(
        "_fix_aber",
        [](const py::object &source, double k, double cx, double cy) {
            Record image = copyToRecord(image2d(source, "the image"), 0);
            callLibrary("pxImageFixAber", [&] { return pxImageFixAber(image.get(), k, cx, cy); });
            return toArray(std::move(image));
        },
        py::arg("image"), py::arg("k"), py::arg("cx"), py::arg("cy"));
}

} // namespace

void bindGeometry(py::module_ &m) {
    bindCut(m);
    bindPyramids(m);
    bindDeInterlace(m);
    bindLens(m);
}

} // namespace pxpy
