// Warps from Python: integer and sub-pixel shifts, affine resampling and the dense warps by two
// displacement maps. Sources and maps are records built over the arrays without copying; results are new
// arrays or the caller's `out`. The masked warp needs margins, so it works on records of its own.
#include <array>

#include "pxPyCore.h"

namespace pxpy {

namespace {

// A float32 2-D argument.
py::array floatImage(const py::object &object, const char *what) {
    py::array array = image2d(object, what);
    if (pixelTypeOf(array.dtype()) != FLOAT)
        raiseError("argument", std::string(what) + " must be a float32 array");
    return array;
}

std::array<float, 3> coefficients(const py::object &values, const char *what) {
    py::array_t<float, py::array::c_style | py::array::forcecast> a =
        py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(values);
    if (!a || a.size() != 3)
        raiseError("argument", std::string(what) + " must be three numbers");
    return {a.at(0), a.at(1), a.at(2)};
}

// Margin the masked warp needs around its source and target.
constexpr int32_t kMaskedWarpBorder = 3;

void bindShifts(py::module_ &m) {
    m.def(
        "_translate",
        [](const py::object &source, int32_t dx, int32_t dy) {
            py::array input = image2d(source, "the source");
            Record in = Record::wrap(input);
            Record target;
            callLibrary("pxImageTranslationWarpInt",
                        [&] { return pxImageTranslationWarpInt(in.get(), dx, dy, target.out()); });
            return toArray(std::move(target));
        },
        py::arg("source"), py::arg("dx"), py::arg("dy"));
    m.def(
        "_translate_subpixel",
        [](const py::object &source, float dx, float dy, float scale, py::ssize_t rows, py::ssize_t columns,
           const py::object &out) {
            py::array input = floatImage(source, "the source");
            py::array result = outputOfShape(out, input, FLOAT, rows, columns);
            Record in = Record::wrap(input);
            Record dst = Record::wrap(result);
            tag_pxImage *target = dst.get();
            callLibrary("pxImageTranslationWarp",
                        [&] { return pxImageTranslationWarp(in.get(), dx, dy, scale, &target); });
            return result;
        },
        py::arg("source"), py::arg("dx"), py::arg("dy"), py::arg("scale"), py::arg("rows"),
        py::arg("columns"), py::arg("out"));
    m.def(
        "_affine_warp",
        [](const py::object &source, const py::object &a, const py::object &b, float scale, py::ssize_t rows,
           py::ssize_t columns, const py::object &out) {
            py::array input = floatImage(source, "the source");
            std::array<float, 3> ca = coefficients(a, "a");
            std::array<float, 3> cb = coefficients(b, "b");
            py::array result = outputOfShape(out, input, FLOAT, rows, columns);
            Record in = Record::wrap(input);
            Record dst = Record::wrap(result);
            tag_pxImage *target = dst.get();
            callLibrary("pxImageAffineWarp",
                        [&] { return pxImageAffineWarp(in.get(), ca.data(), cb.data(), scale, &target); });
            return result;
        },
        py::arg("source"), py::arg("a"), py::arg("b"), py::arg("scale"), py::arg("rows"), py::arg("columns"),
        py::arg("out"));
}

void bindDenseWarps(py::module_ &m) {
    m.def(
        "_bilinear_warp",
        [](const py::object &source, const py::object &first, const py::object &second,
           const py::object &out) {
            py::array input = floatImage(source, "the source");
            py::array mx = floatImage(first, "the first map");
            py::array my = floatImage(second, "the second map");
            py::array result = outputOfShape(out, input, FLOAT, mx.shape(0), mx.shape(1));
            if (overlaps(result, mx) || overlaps(result, my))
                raiseError("argument", "out must not share memory with a map");
            Record in = Record::wrap(input);
            Record rx = Record::wrap(mx);
            Record ry = Record::wrap(my);
            Record dst = Record::wrap(result);
            tag_pxImage *target = dst.get();
            callLibrary("pxImageBilinearWarp",
                        [&] { return pxImageBilinearWarp(in.get(), rx.get(), ry.get(), &target); });
            return result;
        },
        py::arg("source"), py::arg("first"), py::arg("second"), py::arg("out"));
    m.def(
        "_bilinear_warp_masked",
        [](const py::object &source, const py::object &first, const py::object &second,
           const py::object &third, const py::object &mask) {
            py::array input = floatImage(source, "the source");
            py::array mx = floatImage(first, "the first map");
            py::array my = floatImage(second, "the second map");
            py::array keep = floatImage(third, "the third image");
            py::array valid = image2d(mask, "the mask");
            if (pixelTypeOf(valid.dtype()) != UBYTE)
                raiseError("argument", "the mask must be a uint8 array");
            Record in = copyToRecord(input, kMaskedWarpBorder);
            Record target = copyToRecord(keep, kMaskedWarpBorder);
            Record rx = Record::wrap(mx);
            Record ry = Record::wrap(my);
            Record rm = Record::wrap(valid);
            tag_pxImage *t = target.get();
            callLibrary("pxImageBilinearWarpMasked", [&] {
                return pxImageBilinearWarpMasked(in.get(), rx.get(), ry.get(), target.get(), rm.get(), &t);
            });
            return toArray(std::move(target));
        },
        py::arg("source"), py::arg("first"), py::arg("second"), py::arg("third"), py::arg("mask"));
}

} // namespace

void bindWarps(py::module_ &m) {
    bindShifts(m);
    bindDenseWarps(m);
}

} // namespace pxpy
