// Shared pieces of the Python extension: calling the library with its log captured (failures become
// pximage.Error, warnings Python warnings), and moving pixels between NumPy arrays and image records.
// Each family of bindings (files, container, filters, ...) lives in a source file of its own and registers
// its functions through a bind* function declared at the end of this header. A new family is one more
// pxPy<Family>.cpp with its bind<Family>, a call in pxPyModule.cpp, and a documented Python module in
// pximage/ whose names __init__.py re-exports; callLibrary and Record do the logging and the arrays.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "pxImage.h"

namespace pxpy {

namespace py = pybind11;

// ---- Log capture and errors -------------------------------------------------------------------------------

// One record of the library's log, as the environment's sink received it.
struct LogRecord {
    int kind;  // 0 writeLogF, 1 writeLogI, 2 sendError
    int level; // 1 trace .. 5 error
    int line;
    std::string module;
    std::string date;
    uint32_t code; // 0 for writeLogF
    std::string text;
};

// Collects the log records that the calling thread produces while it exists (scopes nest: the inner one
// collects). O(1); the records cost what they hold.
class LogScope {
  public:
    LogScope();
    ~LogScope();
    LogScope(const LogScope &) = delete;
    LogScope &operator=(const LogScope &) = delete;
    std::vector<LogRecord> records;

  private:
    LogScope *outer;
};

// Points the environment's log at the capturing sink: records outside a LogScope are dropped, so the
// extension never prints to stderr. O(1). Called once when the module is imported.
void installLogSink();

// Raises the pximage error that describes a failed call of `function` from its records (the last record
// with an error code, else the last with a text). Never returns.
[[noreturn]] void raiseFailure(const char *function, const std::vector<LogRecord> &records);

// Raises a pximage error found by the extension itself (no log record): `kind` is "argument", "file" or
// "error". Never returns.
[[noreturn]] void raiseError(const char *kind, const std::string &message);

// Issues every record with a text at level 4 (warning) or above as a pximage.LibraryWarning (which may raise
// when warnings are errors).
void issueWarnings(const std::vector<LogRecord> &records);

// How a call's result is judged: most functions report failure by their result; a few always return 1 and
// only log the error (then an error record means failure).
enum class Verdict { Result, ResultOrErrorRecord };

// Runs `call` (returning the library's uint32_t result) without the GIL and with its log captured, then
// raises pximage.Error on failure or issues the warnings. O(the call).
template <typename Call>
void callLibrary(const char *function, Call &&call, Verdict verdict = Verdict::Result) {
    LogScope scope;
    uint32_t result = 0;
    {
        py::gil_scoped_release release;
        result = call();
    }
    bool failed = result == 0;
    if (verdict == Verdict::ResultOrErrorRecord) {
        for (const LogRecord &r : scope.records)
            failed = failed || (r.code != 0 && r.level >= 5);
    }
    if (failed)
        raiseFailure(function, scope.records);
    issueWarnings(scope.records);
}

// ---- Records and arrays
// -------------------------------------------------------------------------------------

// Owns an image record: destroyed with pxImageDestruct, or, for a record built over a NumPy array's
// pixels, with its own row tables freed and pxImageHeaderDestruct.
class Record {
  public:
    Record() = default;
    explicit Record(tag_pxImage *image) : image(image) {}
    ~Record();
    Record(const Record &) = delete;
    Record &operator=(const Record &) = delete;
    Record(Record &&other) noexcept;
    Record &operator=(Record &&other) noexcept;

    tag_pxImage *get() const { return image; }
    tag_pxImage **out() { return &image; }
    tag_pxImage *release() { return std::exchange(image, nullptr); }
    explicit operator bool() const { return image != nullptr; }

    // A record of the array's type over its pixels (no copy): the array must be 2-D or 3-D (planes first),
    // C-contiguous, of a supported dtype and 1..9999 on each side. The array must outlive the record.
    static Record wrap(const py::array &array);
    // A new record (border `border`, zero-filled) of the given type and size. O(pixels).
    static Record construct(int32_t type, int32_t width, int32_t height, int32_t planes, int32_t border = 0);

  private:
    tag_pxImage *image = nullptr;
    std::vector<std::unique_ptr<void *[]>> rowTables; // only for wrapped arrays
};

// The library's pixel type of a NumPy dtype (uint8 UBYTE, uint16 SHORT, int32 INT, float32 FLOAT, float64
// DOUBLE); raises ArgumentError for any other.
int32_t pixelTypeOf(const py::dtype &dtype);
// The NumPy dtype of an in-memory pixel type (UBYTE, SHORT, INT, FLOAT, DOUBLE).
py::dtype dtypeOf(int32_t type);

// The array as the library takes it: itself when C-contiguous with a supported dtype, else a C-contiguous
// copy (a non-native byte order or another layout is copied). Raises ArgumentError for other dtypes or
// dimensions.
py::array contiguous(const py::handle &object);

// A NumPy array over the record's pixels, kept alive by a capsule that owns the record (no copy) when the
// record has one plane; planes are copied into one (planes, height, width) array otherwise. The border is
// not part of the array. Takes ownership of the record.
py::array toArray(Record &&record);

// A copy of the record's pixels as a new array (2-D for one plane). O(pixels).
py::array copyToArray(const tag_pxImage *image);

// Every header field of a record as a dict (names as in the record).
py::dict headerDict(const tag_pxImage *image);
// Sets the record's metadata from a dict of the names headerDict gives (size, type and planes keys are
// ignored; unknown keys raise ArgumentError).
void applyHeader(tag_pxImage *image, const py::dict &header);

// A path argument (str or os.PathLike) as the library's 16-bit file name.
std::u16string pathOf(const py::object &path);

// A 2-D image argument, C-contiguous (copied when it is not); `what` names it in the error.
py::array image2d(const py::object &object, const char *what);
// Whether two arrays' pixel bytes overlap.
bool overlaps(const py::array &a, const py::array &b);
// The array a function writes into: `out` when given (checked: a writable C-contiguous 2-D array of the
// result's dtype and the source's shape, not overlapping the source), else a new zero-filled one.
py::array output(const py::object &out, const py::array &source, int32_t type, const char *what = "out");
// As output, for a result of the given shape (rows, columns), not overlapping `source`.
py::array outputOfShape(const py::object &out, const py::array &source, int32_t type, py::ssize_t rows,
                        py::ssize_t columns, const char *what = "out");
// A new record of the array's type (one plane, border `border`) holding a copy of a 2-D array's pixels,
// for library calls that need a margin or exchange a record's pixel maps. O(pixels).
Record copyToRecord(const py::array &array, int32_t border);

// ---- Families
// --------------------------------------------------------------------------------------------------

void bindRecord(py::module_ &m);
void bindFiles(py::module_ &m);
void bindContainer(py::module_ &m);
void bindFilters(py::module_ &m);
void bindStatistics(py::module_ &m);
void bindGeometry(py::module_ &m);
void bindWarps(py::module_ &m);
void bindPreproc(py::module_ &m);
void bindMarks(py::module_ &m);

} // namespace pxpy
