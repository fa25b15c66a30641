// Image records and NumPy arrays: records built over an array's pixels without copying, arrays viewing a
// record's pixels (the record kept alive by the array), copies where the layouts differ, and the header
// as a dict.
#include <cstring>

#include "pxEnv.h"
#include "pxPyCore.h"

namespace pxpy {

namespace {

constexpr int32_t kMaxSide = 9999;
constexpr int32_t kMaxPlanes = 9;

// Releases a record that a capsule kept alive for an array.
void destroyCapsuleRecord(void *pointer) {
    tag_pxImage *image = static_cast<tag_pxImage *>(pointer);
    LogScope quiet;
    pxImageDestruct(&image);
}

size_t pixelBytes(int32_t type) {
    uint32_t size = 0;
    pxImagePixelSize(type, &size);
    return size;
}

// Distance in bytes from one row of a plane to the next.
py::ssize_t rowStride(const tag_pxImage *image) {
    return static_cast<py::ssize_t>((image->width + 2 * image->border) * pixelBytes(image->type));
}

// Copies one plane (the image proper, no border) into `target`, rows packed.
void copyPlane(const tag_pxImage *image, int32_t plane, char *target) {
    const size_t rowBytes = static_cast<size_t>(image->width) * pixelBytes(image->type);
    void **map = image->pixMap[plane];
    for (int32_t y = 0; y < image->height; ++y)
        std::memcpy(target + y * rowBytes, map[y], rowBytes);
}

// Integer fields of the header, by name.
struct IntField {
    const char *name;
    int32_t tag_pxImage::*field;
};
constexpr IntField kIntFields[] = {
    {"roiminX", &tag_pxImage::roiminX},     {"roimaxX", &tag_pxImage::roimaxX},
    {"roiminY", &tag_pxImage::roiminY},     {"roimaxY", &tag_pxImage::roimaxY},
    {"origX", &tag_pxImage::origX},         {"origY", &tag_pxImage::origY},
    {"origWidth", &tag_pxImage::origWidth}, {"origHeight", &tag_pxImage::origHeight},
    {"origType", &tag_pxImage::origType},   {"auxInt", &tag_pxImage::auxInt},
};

struct DoubleField {
    const char *name;
    double tag_pxImage::*field;
};
constexpr DoubleField kDoubleFields[] = {
    {"aberK1", &tag_pxImage::aberK1}, {"aberK2", &tag_pxImage::aberK2}, {"aberK3", &tag_pxImage::aberK3},
    {"aberP1", &tag_pxImage::aberP1}, {"aberP2", &tag_pxImage::aberP2}, {"aberCx", &tag_pxImage::aberCx},
    {"aberCy", &tag_pxImage::aberCy},
};

// Keys that describe the pixels rather than metadata: taken from the array and the encoding on writing.
constexpr const char *kPixelKeys[] = {"version", "type", "typeName", "encoding", "width", "height", "planes"};

template <typename T, size_t N> py::tuple tupleOf(const T (&values)[N]) {
    py::tuple tuple(N);
    for (size_t i = 0; i < N; ++i)
        tuple[i] = values[i];
    return tuple;
}

template <typename T, size_t N>
void setArray(T (&values)[N], const py::handle &value, const std::string &key) {
    py::sequence sequence = py::reinterpret_borrow<py::sequence>(value);
    if (!py::isinstance<py::sequence>(value) || py::len(sequence) != N)
        raiseError("argument", "header field '" + key + "' needs " + std::to_string(N) + " values");
    for (size_t i = 0; i < N; ++i)
        values[i] = sequence[i].cast<T>();
}

// Sets one metadata field by name; false for an unknown name.
bool setField(tag_pxImage *image, const std::string &key, const py::handle &value) {
    for (const IntField &f : kIntFields) {
        if (key == f.name) {
            image->*f.field = value.cast<int32_t>();
            return true;
        }
    }
    for (const DoubleField &f : kDoubleFields) {
        if (key == f.name) {
            image->*f.field = value.cast<double>();
            return true;
        }
    }
    if (key == "temperature")
        setArray(image->temperature, value, key);
    else if (key == "opticsParam")
        setArray(image->opticsParam, value, key);
    else if (key == "auxShort")
        setArray(image->auxShort, value, key);
    else if (key == "auxLong")
        setArray(image->auxLong, value, key);
    else if (key == "auxInt2")
        setArray(image->auxInt2, value, key);
    else if (key == "auxWide")
        image->auxWide = value.cast<int64_t>();
    else
        return false;
    return true;
}

} // namespace

Record::~Record() {
    if (image == nullptr)
        return;
    LogScope quiet;
    if (rowTables.empty()) {
        pxImageDestruct(&image);
        return;
    }
    for (int32_t p = 0; p < kMaxPlanes; ++p)
        image->pixMap[p] = nullptr;
    pxImageHeaderDestruct(&image);
}

Record::Record(Record &&other) noexcept
    : image(std::exchange(other.image, nullptr)), rowTables(std::move(other.rowTables)) {}

Record &Record::operator=(Record &&other) noexcept {
    if (this != &other) {
        Record old(std::move(*this));
        image = std::exchange(other.image, nullptr);
        rowTables = std::move(other.rowTables);
    }
    return *this;
}

Record Record::wrap(const py::array &array) {
    if (!(array.flags() & py::array::c_style))
        raiseError("argument", "the array must be C-contiguous");
    const int32_t type = pixelTypeOf(array.dtype());
    const bool planar = array.ndim() == 3;
    if (array.ndim() != 2 && !planar)
        raiseError("argument", "an image is a 2-D array, or 3-D with the planes first, not " +
                                   std::to_string(array.ndim()) + "-D");
    const py::ssize_t planes = planar ? array.shape(0) : 1;
    const py::ssize_t height = array.shape(planar ? 1 : 0);
    const py::ssize_t width = array.shape(planar ? 2 : 1);
    if (planes < 1 || planes > kMaxPlanes || height < 1 || height > kMaxSide || width < 1 || width > kMaxSide)
        raiseError("argument", "an image has 1..9999 rows and columns and 1..9 planes, not " +
                                   std::to_string(planes) + " x " + std::to_string(height) + " x " +
                                   std::to_string(width));
    Record record;
    callLibrary("pxImageHeaderConstruct", [&] {
        return pxImageHeaderConstruct(type, int32_t(width), int32_t(height), 0, int32_t(planes),
                                      record.out());
    });
    char *data = static_cast<char *>(const_cast<void *>(array.data()));
    const size_t rowBytes = size_t(width) * pixelBytes(type);
    for (py::ssize_t p = 0; p < planes; ++p) {
        auto table = std::make_unique<void *[]>(size_t(height));
        for (py::ssize_t y = 0; y < height; ++y)
            table[size_t(y)] = data + size_t(p * height + y) * rowBytes;
        record.image->pixMap[p] = table.get();
        record.rowTables.push_back(std::move(table));
    }
    return record;
}

Record Record::construct(int32_t type, int32_t width, int32_t height, int32_t planes, int32_t border) {
    Record record;
    callLibrary("pxImageConstruct",
                [&] { return pxImageConstruct(type, width, height, border, planes, record.out()); });
    return record;
}

int32_t pixelTypeOf(const py::dtype &dtype) {
    if (dtype.is(py::dtype::of<uint8_t>()) || dtype.equal(py::dtype::of<uint8_t>()))
        return UBYTE;
    if (dtype.equal(py::dtype::of<uint16_t>()))
        return SHORT;
    if (dtype.equal(py::dtype::of<int32_t>()))
        return INT;
    if (dtype.equal(py::dtype::of<float>()))
        return FLOAT;
    if (dtype.equal(py::dtype::of<double>()))
        return DOUBLE;
    raiseError("argument", "pixels of dtype " + py::str(py::handle(dtype)).cast<std::string>() +
                               " are not supported (uint8, uint16, int32, float32 or float64)");
}

py::dtype dtypeOf(int32_t type) {
    switch (type) {
    case UBYTE:
        return py::dtype::of<uint8_t>();
    case SHORT:
        return py::dtype::of<uint16_t>();
    case INT:
        return py::dtype::of<int32_t>();
    case FLOAT:
        return py::dtype::of<float>();
    case DOUBLE:
        return py::dtype::of<double>();
    default:
        raiseError("error", "the library returned pixels of type " + std::to_string(type));
    }
}

py::array contiguous(const py::handle &object) {
    py::array array = py::array::ensure(object);
    if (!array)
        throw py::error_already_set();
    const py::dtype dtype = array.dtype();
    const char order = dtype.attr("byteorder").cast<std::string>()[0];
    if (order == '>' || order == '<')
        array = array.attr("astype")(dtype.attr("newbyteorder")("="));
    pixelTypeOf(array.dtype());
    if (array.ndim() != 2 && array.ndim() != 3)
        raiseError("argument", "an image is a 2-D array, or 3-D with the planes first, not " +
                                   std::to_string(array.ndim()) + "-D");
    if (!(array.flags() & py::array::c_style))
        array = py::module_::import("numpy").attr("ascontiguousarray")(array);
    return array;
}

py::array toArray(Record &&record) {
    tag_pxImage *image = record.get();
    if (image->planes != 1)
        return copyToArray(image);
    const py::dtype dtype = dtypeOf(image->type);
    const py::ssize_t item = py::ssize_t(pixelBytes(image->type));
    void *pixels = image->pixMap[0][0];
    py::capsule owner(record.release(), destroyCapsuleRecord);
    return py::array(dtype, {py::ssize_t(image->height), py::ssize_t(image->width)}, {rowStride(image), item},
                     pixels, owner);
}

py::array copyToArray(const tag_pxImage *image) {
    const py::dtype dtype = dtypeOf(image->type);
    std::vector<py::ssize_t> shape{image->height, image->width};
    if (image->planes != 1)
        shape.insert(shape.begin(), image->planes);
    py::array array(dtype, shape);
    const size_t planeBytes = size_t(image->width) * size_t(image->height) * pixelBytes(image->type);
    char *target = static_cast<char *>(array.mutable_data());
    for (int32_t p = 0; p < image->planes; ++p)
        copyPlane(image, p, target + p * planeBytes);
    return array;
}

py::dict headerDict(const tag_pxImage *image) {
    py::dict header;
    header["width"] = image->width;
    header["height"] = image->height;
    header["planes"] = image->planes;
    for (const IntField &f : kIntFields)
        header[f.name] = image->*f.field;
    header["temperature"] = tupleOf(image->temperature);
    header["opticsParam"] = tupleOf(image->opticsParam);
    for (const DoubleField &f : kDoubleFields)
        header[f.name] = image->*f.field;
    header["auxShort"] = tupleOf(image->auxShort);
    header["auxLong"] = tupleOf(image->auxLong);
    header["auxWide"] = image->auxWide;
    header["auxInt2"] = tupleOf(image->auxInt2);
    return header;
}

void applyHeader(tag_pxImage *image, const py::dict &header) {
    for (auto item : header) {
        const std::string key = py::str(item.first).cast<std::string>();
        bool pixelKey = false;
        for (const char *k : kPixelKeys)
            pixelKey = pixelKey || key == k;
        if (pixelKey)
            continue;
        bool known = false;
        try {
            known = setField(image, key, item.second);
        } catch (const py::cast_error &) {
            raiseError("argument", "header field '" + key + "' has a value of the wrong kind");
        }
        if (!known)
            raiseError("argument", "unknown header field '" + key + "'");
    }
}

std::u16string pathOf(const py::object &path) {
    py::object os = py::module_::import("os");
    py::object text = os.attr("fsdecode")(path);
    std::u16string name = text.cast<std::u16string>();
    if (name.find(u'\0') != std::u16string::npos)
        raiseError("argument", "a file name cannot hold a zero character");
    return name;
}

py::array image2d(const py::object &object, const char *what) {
    py::array array = contiguous(object);
    if (array.ndim() != 2)
        raiseError("argument",
                   std::string(what) + " must be a 2-D array, not " + std::to_string(array.ndim()) + "-D");
    return array;
}

bool overlaps(const py::array &a, const py::array &b) {
    const char *a0 = static_cast<const char *>(a.data());
    const char *b0 = static_cast<const char *>(b.data());
    return a0 < b0 + b.nbytes() && b0 < a0 + a.nbytes();
}

py::array output(const py::object &out, const py::array &source, int32_t type, const char *what) {
    return outputOfShape(out, source, type, source.shape(0), source.shape(1), what);
}

py::array outputOfShape(const py::object &out, const py::array &source, int32_t type, py::ssize_t rows,
                        py::ssize_t columns, const char *what) {
    const py::dtype dtype = dtypeOf(type);
    if (rows < 1 || rows > kMaxSide || columns < 1 || columns > kMaxSide)
        raiseError("argument", "a result of " + std::to_string(rows) + " x " + std::to_string(columns) +
                                   " pixels is outside 1..9999 rows and columns");
    if (out.is_none())
        return py::module_::import("numpy").attr("zeros")(py::make_tuple(rows, columns), dtype);
    if (!py::isinstance<py::array>(out))
        raiseError("argument", std::string(what) + " must be a NumPy array");
    py::array array = out.cast<py::array>();
    if (!array.dtype().equal(dtype) || array.ndim() != 2 || array.shape(0) != rows ||
        array.shape(1) != columns)
        raiseError("argument", std::string(what) + " must be a " +
                                   py::str(py::handle(dtype)).cast<std::string>() + " array of shape (" +
                                   std::to_string(rows) + ", " + std::to_string(columns) + ")");
    if (!(array.flags() & py::array::c_style) || !array.writeable())
        raiseError("argument", std::string(what) + " must be writable and C-contiguous");
    if (overlaps(array, source))
        raiseError("argument", std::string(what) + " must not share memory with the source");
    return array;
}

Record copyToRecord(const py::array &array, int32_t border) {
    const int32_t type = pixelTypeOf(array.dtype());
    if (array.ndim() != 2 || !(array.flags() & py::array::c_style))
        raiseError("argument", "the image must be a C-contiguous 2-D array");
    if (array.shape(0) < 1 || array.shape(0) > kMaxSide || array.shape(1) < 1 || array.shape(1) > kMaxSide)
        raiseError("argument", "an image has 1..9999 rows and columns, not " +
                                   std::to_string(array.shape(0)) + " x " + std::to_string(array.shape(1)));
    Record record = Record::construct(type, int32_t(array.shape(1)), int32_t(array.shape(0)), 1, border);
    const size_t rowBytes = size_t(array.shape(1)) * pixelBytes(type);
    const char *data = static_cast<const char *>(array.data());
    void **map = record.get()->pixMap[0];
    for (py::ssize_t y = 0; y < array.shape(0); ++y)
        std::memcpy(map[y], data + size_t(y) * rowBytes, rowBytes);
    return record;
}

void bindRecord(py::module_ &m) {
    m.def(
        "_live_allocations", [] { return pxEnvLiveAllocations(); },
        "Blocks allocated through the environment library and not yet freed.");
    m.def(
        "_fail_allocation_after", [](long n) { pxEnvFailAllocationAfter(n); },
        "Test hook: the n-th allocation of the library from now fails, once (0 disarms).");
    m.def(
        "_set_parameter",
        [](const std::string &key, const std::string &value) {
            if (!pxEnvSetParam(key.c_str(), value.c_str()))
                raiseError("argument", "the setting '" + key + "' could not be stored");
        },
        py::arg("key"), py::arg("value"));
    m.def(
        "_convert",
        [](const py::object &source, int32_t type, bool transform) {
            py::array array = contiguous(source);
            Record input = Record::wrap(array);
            Record output;
            callLibrary("pxImageConvertWithTransformCopy", [&] {
                return pxImageConvertWithTransformCopy(input.get(), type, 0, transform ? 1 : 0, output.out());
            });
            return toArray(std::move(output));
        },
        py::arg("array"), py::arg("type"), py::arg("transform"));
}

} // namespace pxpy
