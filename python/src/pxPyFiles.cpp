// Image files from Python: reading into arrays (no copy for one plane), reading the header block alone,
// and writing arrays in every encoding.
#include <cerrno>
#include <cstring>

#include "pxEnv.h"
#include "pxPyCore.h"

namespace pxpy {

namespace {

constexpr long kVersionOffset = 8;

const char *typeName(int32_t type) {
    static const char *const names[] = {"none", "CBIT",  "UBYTE",  "SHORT",  "CSHORT",
                                        "INT",  "FLOAT", "DOUBLE", "SHORT12"};
    return type >= 0 && type <= SHORT12 ? names[type] : "unknown";
}

const char *encodingName(int32_t storedType) {
    switch (storedType) {
    case CBIT:
        return "cbit";
    case CSHORT:
        return "cshort";
    case SHORT12:
        return "short12";
    default:
        return "plain";
    }
}

// Closes a file opened for the header when it leaves scope.
struct FileCloser {
    FILE *file;
    ~FileCloser() {
        if (file != nullptr)
            pxFileClose(file);
    }
};

[[noreturn]] void raiseFileError(int error) {
    raiseError("file", "file input/output failure: errno " + std::to_string(error) + " (" +
                           std::strerror(error) + ")");
}

// The header block of a file as a dict: version tag, stored type and encoding, then the record's fields.
py::dict fileHeader(const py::object &path) {
    const std::u16string name = pathOf(path);
    errno = 0;
    FileCloser closer{pxFileOpen(reinterpret_cast<const uint16_t *>(name.c_str()), "rb")};
    if (closer.file == nullptr)
        raiseFileError(errno);
    Record header;
    int32_t storedType = 0;
    callLibrary("pxImageHeaderRead",
                [&] { return pxImageHeaderRead(closer.file, 0, 0, header.out(), &storedType); });
    char tag[4] = {0, 0, 0, 0};
    if (fseek(closer.file, kVersionOffset, SEEK_SET) != 0 || fread(tag, 1, 4, closer.file) != 4)
        raiseFileError(errno ? errno : EIO);
    std::string version;
    for (char c : tag)
        version += (c >= 32 && c < 127) ? c : '?';
    py::dict result;
    result["version"] = version;
    result["type"] = storedType;
    result["typeName"] = typeName(storedType);
    result["encoding"] = encodingName(storedType);
    for (auto item : headerDict(header.get()))
        result[item.first] = item.second;
    return result;
}

// Reads a file into a record of the given type (0: as stored), ROI mode and transform.
Record readRecord(const py::object &path, int32_t type, int32_t roiMode, bool transform) {
    const std::u16string name = pathOf(path);
    Record record;
    callLibrary("pxImageReadWithROIandTransform", [&] {
        return pxImageReadWithROIandTransform(reinterpret_cast<const uint16_t *>(name.c_str()), type, 0,
                                              roiMode, transform ? 1 : 0, record.out());
    });
    return record;
}

} // namespace

void bindFiles(py::module_ &m) {
    m.def(
        "_imread",
        [](const py::object &path, int32_t type, int32_t roiMode, bool transform) {
            return toArray(readRecord(path, type, roiMode, transform));
        },
        py::arg("path"), py::arg("type"), py::arg("roi_mode"), py::arg("transform"));
    m.def(
        "_read",
        [](const py::object &path, int32_t type, int32_t roiMode, bool transform) {
            py::dict header = fileHeader(path);
            Record record = readRecord(path, type, roiMode, transform);
            for (auto item : headerDict(record.get()))
                header[item.first] = item.second;
            return py::make_tuple(toArray(std::move(record)), header);
        },
        py::arg("path"), py::arg("type"), py::arg("roi_mode"), py::arg("transform"));
    m.def("_info", &fileHeader, py::arg("path"));
    m.def(
        "_imwrite",
        [](const py::object &path, const py::object &pixels, int32_t fileType, const py::object &header,
           bool transform) {
            py::array array = contiguous(pixels);
            // The compressed encodings change the pixels they write: they get a copy.
            if (fileType == CBIT || fileType == CSHORT || fileType == SHORT12)
                array = py::module_::import("numpy").attr("array")(array, py::arg("order") = "C");
            Record record = Record::wrap(array);
            if (!header.is_none())
                applyHeader(record.get(), header.cast<py::dict>());
            const std::u16string name = pathOf(path);
            callLibrary("pxImageWriteWithTransform", [&] {
                return pxImageWriteWithTransform(reinterpret_cast<const uint16_t *>(name.c_str()), fileType,
                                                 transform ? 1 : 0, record.get());
            });
        },
        py::arg("path"), py::arg("array"), py::arg("file_type"), py::arg("header"), py::arg("transform"));
}

} // namespace pxpy
