// The library's log seen from Python: records are captured per thread while a call runs, failures become
// pximage.Error (built by the package's Python layer, which picks the subclass from the code) and warnings
// become pximage.LibraryWarning. Records outside a call are dropped: nothing reaches stderr.
#include "pxPyCore.h"

#include "pxEnv.h"

namespace pxpy {

namespace {

thread_local LogScope *current = nullptr;

// The sink: runs under the environment's lock, possibly without the GIL, so it only copies the record.
void captureRecord(void *, int kind, int level, int line, const char *module, const char *date, uint32_t code,
                   const char *text) {
    if (current == nullptr)
        return;
    current->records.push_back(
        LogRecord{kind, level, line, module ? module : "", date ? date : "", code, text ? text : ""});
}

// The records as a list of tuples (kind, level, line, module, date, code, text).
py::list recordList(const std::vector<LogRecord> &records) {
    py::list list;
    for (const LogRecord &r : records)
        list.append(py::make_tuple(r.kind, r.level, r.line, r.module, r.date, r.code, r.text));
    return list;
}

// The record that names a failure: the last with an error code (the outermost report, e.g. the container's
// over the file reader's), else the last with a text.
const LogRecord *describingRecord(const std::vector<LogRecord> &records) {
    const LogRecord *withText = nullptr;
    for (auto it = records.rbegin(); it != records.rend(); ++it) {
        if (it->code != 0)
            return &*it;
        if (withText == nullptr && !it->text.empty())
            withText = &*it;
    }
    return withText;
}

[[noreturn]] void raiseObject(const py::object &error) {
    PyErr_SetObject(reinterpret_cast<PyObject *>(Py_TYPE(error.ptr())), error.ptr());
    throw py::error_already_set();
}

} // namespace

LogScope::LogScope() : outer(current) {
    current = this;
}

LogScope::~LogScope() {
    current = outer;
}

void installLogSink() {
    pxEnvSetLogSink(captureRecord, nullptr);
}

void raiseFailure(const char *function, const std::vector<LogRecord> &records) {
    const LogRecord *record = describingRecord(records);
    py::object code = py::none();
    py::object module = py::none();
    std::string message = std::string(function) + " failed";
    if (record != nullptr) {
        if (record->code != 0)
            code = py::int_(record->code);
        module = py::str(record->module);
        if (!record->text.empty())
            message = record->text;
    }
    py::object make = py::module_::import("pximage._errors").attr("_from_library");
    raiseObject(make(function, code, module, message, recordList(records)));
}

void raiseError(const char *kind, const std::string &message) {
    py::object make = py::module_::import("pximage._errors").attr("_from_extension");
    raiseObject(make(kind, message));
}

void issueWarnings(const std::vector<LogRecord> &records) {
    py::object warn;
    for (const LogRecord &r : records) {
        if (r.text.empty() || r.level < 4)
            continue;
        if (!warn)
            warn = py::module_::import("pximage._errors").attr("_warn");
        warn(r.text, r.code == 0 ? py::object(py::none()) : py::object(py::int_(r.code)), r.module, r.level);
    }
}

} // namespace pxpy
