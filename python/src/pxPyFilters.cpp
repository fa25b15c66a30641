// Neighbourhood filters from Python: each takes 2-D arrays (plane 0 of a record built over them without
// copying when they are C-contiguous), and writes into a new array or the caller's `out`. Operations that
// work in place in the library (thresholds, normalisation, negation) work on the array they are given; the
// Python layer passes them a copy unless the caller asks for the result in place.
#include <cstring>

#include "pxPyCore.h"

namespace pxpy {

namespace {

// An array the library changes in place: a writable C-contiguous 2-D array of a supported dtype.
py::array inPlace(const py::object &object) {
    if (!py::isinstance<py::array>(object))
        raiseError("argument", "the image must be a NumPy array");
    py::array array = object.cast<py::array>();
    pixelTypeOf(array.dtype());
    if (array.ndim() != 2 || !(array.flags() & py::array::c_style) || !array.writeable())
        raiseError("argument", "the image must be a writable C-contiguous 2-D array");
    return array;
}

using SourceToDestination = uint32_t (*)(const tag_pxImage *, int32_t, tag_pxImage *);

// Binds a filter of the form f(source, n, destination) whose destination has the source's type.
void bindSameType(py::module_ &m, const char *name, const char *function, SourceToDestination call) {
    m.def(
        name,
        [function, call](const py::object &source, int32_t n, const py::object &out) {
            py::array input = image2d(source, "the source");
            py::array result = output(out, input, pixelTypeOf(input.dtype()));
            Record in = Record::wrap(input);
            Record dst = Record::wrap(result);
            callLibrary(function, [&] { return call(in.get(), n, dst.get()); });
            return result;
        },
        py::arg("source"), py::arg("n"), py::arg("out"));
}

using InPlaceWithValue = uint32_t (*)(tag_pxImage *, double);

void bindThreshold(py::module_ &m, const char *name, const char *function, InPlaceWithValue call) {
    m.def(
        name,
        [function, call](const py::object &image, double threshold) {
            py::array array = inPlace(image);
            Record record = Record::wrap(array);
            callLibrary(function, [&] { return call(record.get(), threshold); });
        },
        py::arg("image"), py::arg("threshold"));
}

// A FLOAT copy of the source with a border of n pixels filled by pxImageReflect, returned whole (border
// included) as a view of the new record.
py::array reflect(const py::object &source, int32_t n, int32_t mode) {
    py::array input = image2d(source, "the source");
    if (n < 0 || n > 999)
        raiseError("argument", "the border width n must be 0..999, not " + std::to_string(n));
    Record in = Record::wrap(input);
    Record framed;
    callLibrary("pxImageConvertCopy", [&] { return pxImageConvertCopy(in.get(), 0, n, framed.out()); });
    callLibrary("pxImageReflect", [&] { return pxImageReflect(framed.get(), n, mode); });
    tag_pxImage *image = framed.get();
    const py::ssize_t stride = py::ssize_t(image->width + 2 * n) * py::ssize_t(sizeof(float));
    float *first = static_cast<float *>(image->pixMap[0][-n]) - n;
    py::capsule owner(framed.release(), [](void *p) {
        tag_pxImage *record = static_cast<tag_pxImage *>(p);
        LogScope quiet;
        pxImageDestruct(&record);
    });
    return py::array(py::dtype::of<float>(),
                     {py::ssize_t(image->height + 2 * n), py::ssize_t(image->width + 2 * n)},
                     {stride, py::ssize_t(sizeof(float))}, first, owner);
}

} // namespace

void bindFilters(py::module_ &m) {
    bindSameType(m, "_block_sum_x", "pxImageBlockSumX", pxImageBlockSumX);
    bindSameType(m, "_block_sum_y", "pxImageBlockSumY", pxImageBlockSumY);
    bindSameType(m, "_box_sums", "pxImageBoxSums", pxImageBoxSums);
    bindSameType(m, "_box_average", "pxImageBoxAverage", pxImageBoxAverage);
    bindSameType(m, "_box_min", "pxImageBoxMin", pxImageBoxMin);
    bindSameType(m, "_box_max", "pxImageBoxMax", pxImageBoxMax);
    bindSameType(m, "_dilate", "pxImageDilate", pxImageDilate);
    bindSameType(m, "_erode", "pxImageErode", pxImageErode);
    m.def(
        "_box_min_and_range",
        [](const py::object &source, int32_t n, const py::object &minOut, const py::object &rangeOut) {
            py::array input = image2d(source, "the source");
            const int32_t type = pixelTypeOf(input.dtype());
            py::array minimum = output(minOut, input, type, "out_min");
            py::array range = output(rangeOut, input, type, "out_range");
            if (overlaps(minimum, range))
                raiseError("argument", "out_min and out_range must not share memory");
            Record in = Record::wrap(input);
            Record lo = Record::wrap(minimum);
            Record span = Record::wrap(range);
            callLibrary("pxImageBoxMinAndRange",
                        [&] { return pxImageBoxMinAndRange(in.get(), n, lo.get(), span.get()); });
            return py::make_tuple(minimum, range);
        },
        py::arg("source"), py::arg("n"), py::arg("out_min"), py::arg("out_range"));
    m.def(
        "_box_normalize",
        [](const py::object &image, int32_t n) {
            py::array array = inPlace(image);
            Record record = Record::wrap(array);
            callLibrary("pxImageBoxNormalize", [&] { return pxImageBoxNormalize(record.get(), n); });
        },
        py::arg("image"), py::arg("n"));
    bindThreshold(m, "_thresh_to_binary", "pxImageThresh2Binary", pxImageThresh2Binary);
    bindThreshold(m, "_thresh_upper", "pxImageThreshUpper", pxImageThreshUpper);
    m.def(
        "_negate",
        [](const py::object &image, bool asFloat) {
            py::array array = inPlace(image);
            Record record = Record::wrap(array);
            if (asFloat)
                callLibrary(
                    "pxImageOperationsNegateFloat",
                    [&] { return pxImageOperationsNegateFloat(record.get()); }, Verdict::ResultOrErrorRecord);
            else
                callLibrary("pxImageOperationsNegate", [&] { return pxImageOperationsNegate(record.get()); });
        },
        py::arg("image"), py::arg("as_float"));
    m.def(
        "_combine",
        [](const py::object &first, const py::object &second, double w1, double w2, int32_t width,
           int32_t height, const py::object &out) {
            py::array a = image2d(first, "the first image");
            py::array b = image2d(second, "the second image");
            py::array result = output(out, a, UBYTE);
            if (overlaps(result, b))
                raiseError("argument", "out must not share memory with the second image");
            Record ra = Record::wrap(a);
            Record rb = Record::wrap(b);
            Record ro = Record::wrap(result);
            callLibrary(
                "pxImageCombine",
                [&] { return pxImageCombine(ra.get(), rb.get(), w1, w2, width, height, ro.get()); },
                Verdict::ResultOrErrorRecord);
            return result;
        },
        py::arg("first"), py::arg("second"), py::arg("first_weight"), py::arg("second_weight"),
        py::arg("width"), py::arg("height"), py::arg("out"));
    m.def("_reflect", &reflect, py::arg("source"), py::arg("n"), py::arg("mode"));
}

} // namespace pxpy
