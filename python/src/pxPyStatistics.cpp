// Region statistics from Python: count, mean, standard deviation, value range and histogram of a rectangle
// of an image or of the vector length of a two-image field.
#include <limits>

#include "pxPyCore.h"

namespace pxpy {

namespace {

// Everything a statistics call produces.
struct Statistics {
    int32_t count = 0;
    double mean = std::numeric_limits<double>::quiet_NaN();
    double stdDev = std::numeric_limits<double>::quiet_NaN();
    double minimum = 0.0;
    double maximum = 0.0;
};

py::array_t<double> corners(const py::object &region) {
    py::array_t<double> values =
        py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(region);
    if (!values || values.size() != 4)
        raiseError("argument", "a region is four numbers x0, y0, x1, y1");
    return values;
}

// Calls one statistics function; an empty region (result 0 with a count of 0 and no error) gives count 0
// and NaN mean and deviation instead of an error.
template <typename Call>
py::tuple run(const char *function, int32_t bins, const py::object &range, Call &&call) {
    if (bins < 0)
        raiseError("argument", "bins must be 0 or more, not " + std::to_string(bins));
    Statistics s;
    if (!range.is_none()) {
        const py::sequence bounds = range.cast<py::sequence>();
        if (py::len(bounds) != 2)
            raiseError("argument", "a value range is two numbers: minimum, maximum");
        s.minimum = bounds[0].cast<double>();
        s.maximum = bounds[1].cast<double>();
    }
    py::array_t<uint32_t> histogram(size_t(bins) + 1);
    std::fill_n(histogram.mutable_data(), size_t(bins) + 1, 0u);
    LogScope scope;
    uint32_t result = 0;
    {
        py::gil_scoped_release release;
        result = call(histogram.mutable_data(), s);
    }
    bool errorLogged = false;
    for (const LogRecord &r : scope.records)
        errorLogged = errorLogged || r.code != 0;
    if (result == 0 && (s.count != 0 || errorLogged))
        raiseFailure(function, scope.records);
    if (result == 0) {
        s.mean = std::numeric_limits<double>::quiet_NaN();
        s.stdDev = std::numeric_limits<double>::quiet_NaN();
    }
    issueWarnings(scope.records);
    return py::make_tuple(s.count, s.mean, s.stdDev, s.minimum, s.maximum,
                          bins > 0 ? py::object(histogram) : py::object(py::none()));
}

} // namespace

void bindStatistics(py::module_ &m) {
    m.def(
        "_pixel_statistics",
        [](const py::object &image, const py::object &region, int32_t bins, const py::object &range) {
            py::array array = contiguous(image);
            const py::array_t<double> c = corners(region);
            const double c1[2] = {c.at(0), c.at(1)};
            const double c2[2] = {c.at(2), c.at(3)};
            Record record = Record::wrap(array);
            return run("pxImageGetAvaragePixValue", bins, range, [&](uint32_t *histogram, Statistics &s) {
                return pxImageGetAvaragePixValue(record.get(), c1, c2, bins, histogram, &s.minimum,
                                                 &s.maximum, &s.count, &s.mean, &s.stdDev);
            });
        },
        py::arg("image"), py::arg("region"), py::arg("bins"), py::arg("range"));
    m.def(
        "_flow_statistics",
        [](const py::object &flowX, const py::object &flowY, const py::object &region, int32_t bins,
           const py::object &range) {
            py::array ax = contiguous(flowX);
            py::array ay = contiguous(flowY);
            const py::array_t<double> c = corners(region);
            const double c1[2] = {c.at(0), c.at(1)};
            const double c2[2] = {c.at(2), c.at(3)};
            Record rx = Record::wrap(ax);
            Record ry = Record::wrap(ay);
            return run("pxImageGetAvarageFlowNorm", bins, range, [&](uint32_t *histogram, Statistics &s) {
                return pxImageGetAvarageFlowNorm(rx.get(), ry.get(), c1, c2, bins, histogram, &s.minimum,
                                                 &s.maximum, &s.count, &s.mean, &s.stdDev);
            });
        },
        py::arg("flow_x"), py::arg("flow_y"), py::arg("region"), py::arg("bins"), py::arg("range"));
}

} // namespace pxpy
