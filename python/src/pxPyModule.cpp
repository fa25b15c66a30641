// The extension module pximage._pximage: the library's functions on NumPy arrays, one family per source
// file. The documented API is the package's Python layer (python/pximage), which calls these.
#include "pxPyCore.h"

PYBIND11_MODULE(_pximage, m) {
    m.doc() = "Bindings of the pxImage library; use the pximage package, which documents them.";
    pxpy::installLogSink();
    pxpy::bindRecord(m);
    pxpy::bindFiles(m);
    pxpy::bindContainer(m);
    pxpy::bindFilters(m);
    pxpy::bindStatistics(m);
    pxpy::bindGeometry(m);
    pxpy::bindWarps(m);
    pxpy::bindPreproc(m);
    pxpy::bindMarks(m);
}
