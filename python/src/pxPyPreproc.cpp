// Preprocessing from Python: the illumination normalisations of correspondence search, the local means they
// rest on, and the Gaussian bridge. The in-place modes work on the float32 array they are given (the Python
// layer passes a copy unless the caller asks for the result in place), through an img_4_px view of its rows.
#include <exception>
#include <vector>

#include "pxPyCore.h"

namespace pxpy {

namespace {

// A float image view of a writable C-contiguous float32 2-D array; the row table lives in the object.
class FloatView {
  public:
    explicit FloatView(const py::array &array, const char *what = "the image") {
        if (!array.dtype().equal(py::dtype::of<float>()) || array.ndim() != 2 ||
            !(array.flags() & py::array::c_style) || !array.writeable())
            raiseError("argument", std::string(what) + " must be a writable C-contiguous float32 2-D array");
        if (array.shape(0) < 1 || array.shape(1) < 1)
            raiseError("argument", std::string(what) + " must have at least one row and column");
        float *data = static_cast<float *>(const_cast<void *>(array.data()));
        rows.resize(size_t(array.shape(0)));
        for (size_t y = 0; y < rows.size(); ++y)
            rows[y] = data + y * size_t(array.shape(1));
        view = {rows.data(), int32_t(array.shape(1)), int32_t(array.shape(0))};
    }
    FIMAGE *get() { return &view; }

  private:
    std::vector<float *> rows;
    FIMAGE view{};
};

py::array floatArray(const py::object &object) {
    if (!py::isinstance<py::array>(object))
        raiseError("argument", "the image must be a NumPy array");
    return object.cast<py::array>();
}

py::array sameShape(const py::array &image) {
    return py::module_::import("numpy").attr("zeros")(py::make_tuple(image.shape(0), image.shape(1)),
                                                      py::dtype::of<float>());
}

void bindInPlaceModes(py::module_ &m) {
    m.def(
        "_preproc",
        [](const py::object &image, int32_t window, float offset, float gain, float minSigma) {
            FloatView view(floatArray(image));
            callLibrary("pxImagePreproc",
                        [&] { return pxImagePreproc(view.get(), window, offset, gain, minSigma); });
        },
        py::arg("image"), py::arg("window"), py::arg("offset"), py::arg("gain"), py::arg("min_sigma"));
    m.def(
        "_preproc_adaptive_log",
        [](const py::object &image, int32_t window, bool ignoreSaturation, float saturationLevel) {
            py::array array = floatArray(image);
            FloatView view(array);
            py::array mean = sameShape(array);
            FloatView scratch(mean);
            callLibrary("pxImagePreprocAdaptiveLog", [&] {
                return pxImagePreprocAdaptiveLog(view.get(), scratch.get(), window, ignoreSaturation ? 1 : 0,
                                                 saturationLevel);
            });
            return mean;
        },
        py::arg("image"), py::arg("window"), py::arg("ignore_saturation"), py::arg("saturation_level"));
    m.def(
        "_preproc_bounded",
        [](const py::object &image, int32_t window, float bound, float minSigma, bool ignoreSaturation,
           float saturationLevel) {
            py::array array = floatArray(image);
            FloatView view(array);
            py::array variance = sameShape(array);
            FloatView scratch(variance);
            callLibrary("pxImagePreprocBounded", [&] {
                return pxImagePreprocBounded(view.get(), scratch.get(), window, bound, minSigma,
                                             ignoreSaturation ? 1 : 0, saturationLevel);
            });
            return variance;
        },
        py::arg("image"), py::arg("window"), py::arg("bound"), py::arg("min_sigma"),
        py::arg("ignore_saturation"), py::arg("saturation_level"));
    m.def(
        "_widen_saturation",
        [](const py::object &image, const py::object &reference, float saturationLevel) {
            py::array array = floatArray(image);
            FloatView view(array);
            const bool copyFirst = reference.is_none();
            py::array ref = copyFirst ? sameShape(array) : floatArray(reference);
            FloatView refView(ref, "the reference");
            callLibrary(
                "pxImagePreprocWidenSaturation",
                [&] {
                    pxImagePreprocWidenSaturation(view.get(), refView.get(), saturationLevel,
                                                  copyFirst ? 1 : 0);
                    return uint32_t(1);
                },
                Verdict::ResultOrErrorRecord);
        },
        py::arg("image"), py::arg("reference"), py::arg("saturation_level"));
}

void bindRecordModes(py::module_ &m) {
    m.def(
        "_preproc_log",
        [](const py::object &source, float offset) {
            py::array input = contiguous(source);
            Record in = Record::wrap(input);
            Record result;
            callLibrary("pxImagePreprocLog", [&] {
                *result.out() = pxImagePreprocLog(in.get(), offset);
                return uint32_t(result ? 1 : 0);
            });
            return toArray(std::move(result));
        },
        py::arg("source"), py::arg("offset"));
    m.def(
        "_preproc_standard",
        [](const py::object &source, int32_t window, float gain, float meanGain, bool ignoreSaturation) {
            py::array input = contiguous(source);
            Record in = Record::wrap(input);
            Record result;
            callLibrary("pxImagePreprocStandard", [&] {
                *result.out() =
                    pxImagePreprocStandard(in.get(), window, 0.0f, gain, meanGain, ignoreSaturation ? 1 : 0);
                return uint32_t(result ? 1 : 0);
            });
            return toArray(std::move(result));
        },
        py::arg("source"), py::arg("window"), py::arg("gain"), py::arg("mean_gain"),
        py::arg("ignore_saturation"));
}

void bindMeans(py::module_ &m) {
    m.def(
        "_local_mean",
        [](const py::object &image, int32_t window, const py::object &saturationLevel) {
            FloatView view(floatArray(image));
            if (saturationLevel.is_none()) {
                callLibrary("blur", [&] { return uint32_t(blur(*view.get(), window)); });
                return;
            }
            const float level = saturationLevel.cast<float>();
            callLibrary("blurIgnoreSaturation", [&] {
                return uint32_t(blurIgnoreSaturation(*view.get(), window, level, 0, 0, 0, 0));
            });
        },
        py::arg("image"), py::arg("window"), py::arg("saturation_level"));
    m.def(
        "_gaussian_blur",
        [](const py::object &image, int32_t size, double sigma) {
            FloatView view(floatArray(image));
            std::string refused;
            callLibrary("BlurByGaussianFilterUsingOpenCv", [&] {
                try {
                    return uint32_t(BlurByGaussianFilterUsingOpenCv(view.get(), size, sigma) ? 1 : 0);
                } catch (const std::exception &e) { // OpenCV's refusals
                    refused = e.what();
                    return uint32_t(1);
                }
            });
            if (!refused.empty())
                raiseError("argument",
                           "Gaussian blur of size " + std::to_string(size) + " refused: " + refused);
        },
        py::arg("image"), py::arg("size"), py::arg("sigma"));
}

} // namespace

void bindPreproc(py::module_ &m) {
    bindInPlaceModes(m);
    bindRecordModes(m);
    bindMeans(m);
}

} // namespace pxpy
