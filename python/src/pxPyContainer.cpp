// The grab container from Python: set-up, reading and writing the grab's files, the XML form, the images
// by position (copied in and out: the container may destroy its records on the next read) and the kind
// words and file names the container computes.
#include "PxImageContainer.h"
#include "pxEnvPath.h"
#include "pxPyCore.h"

#include <pybind11/stl.h>

namespace pxpy {

namespace {

// A container that also tells its file names and kind words.
class PyContainer : public PxImageContainer {
  public:
    PyContainer(int32_t grabType, uint32_t tile, const std::vector<uint32_t> &sets,
                const std::u16string &dir) {
        if (sets.size() > 3)
            raiseError("argument",
                       "a grab has at most three set numbers, not " + std::to_string(sets.size()));
        const uint32_t s0 = sets.size() > 0 ? sets[0] : 0;
        const uint32_t s1 = sets.size() > 1 ? sets[1] : 0;
        const uint32_t s2 = sets.size() > 2 ? sets[2] : 0;
        SetPrefix(tile, static_cast<PxGrabType>(grabType), s0, s1, s2);
        SetDir(dir);
        initForGrab();
    }

    std::vector<uint32_t> sets() const { return {SetNum0, SetNum1, SetNum2}; }

    // File names of every slot of the grab (current naming), with '/' separators.
    std::vector<std::string> fileNames(bool older) const {
        std::vector<std::string> names;
        for (size_t i = 0; i < size_t(numImages()); ++i) {
            char16_t name[NameCapacity];
            const bool made = older ? MakeFullOldImageName(GetDir().c_str(), i, name)
                                    : MakeFullImageName(GetDir().c_str(), i, name);
            if (!made)
                raiseError("argument", "the file name of image " + std::to_string(i) + " is too long");
            std::string text = PxTextToUtf8(name);
            for (char &c : text)
                c = c == '\\' ? '/' : c;
            names.push_back(text);
        }
        return names;
    }

    std::vector<std::string> kinds(bool older) const {
        std::vector<std::string> words;
        for (int i = 0; i < numImages(); ++i)
            words.push_back(PxTextToUtf8(older ? oldKindWord(GetType(), i / 3) : kindWord(GetType(), i / 3)));
        return words;
    }

    size_t slot(py::ssize_t index) const {
        const py::ssize_t count = py::ssize_t(GetCount());
        const py::ssize_t i = index < 0 ? index + count : index;
        if (i < 0 || i >= count)
            throw py::index_error("container slot " + std::to_string(index) + " out of range (" +
                                  std::to_string(count) + " slots)");
        return size_t(i);
    }

    py::object item(py::ssize_t index) {
        const tag_pxImage *image = Get(slot(index));
        return image == nullptr ? py::object(py::none()) : py::object(copyToArray(image));
    }

    py::object header(py::ssize_t index) {
        const tag_pxImage *image = Get(slot(index));
        return image == nullptr ? py::object(py::none()) : py::object(headerDict(image));
    }

    // Stores a copy of the array (with the header's metadata) in a slot; None empties the slot.
    void store(py::ssize_t index, const py::object &pixels, const py::object &meta) {
        const size_t i = slot(index);
        Record copy;
        if (!pixels.is_none()) {
            py::array array = contiguous(pixels);
            Record view = Record::wrap(array);
            if (!meta.is_none())
                applyHeader(view.get(), meta.cast<py::dict>());
            callLibrary("pxImageConvertCopy",
                        [&] { return pxImageConvertCopy(view.get(), 0, 0, copy.out()); });
        }
        callLibrary("PxImageContainer::Set", [&] { return uint32_t(Set(i, copy.get())); });
        copy.release();
    }

    void readFiles(const py::object &dir) {
        std::u16string name = dir.is_none() ? std::u16string() : pathOf(dir);
        callLibrary("PxImageContainer::Read",
                    [&] { return uint32_t(Read(dir.is_none() ? nullptr : name.c_str())); });
    }

    void writeFiles(const py::object &dir) {
        std::u16string name = dir.is_none() ? std::u16string() : pathOf(dir);
        callLibrary("PxImageContainer::Write",
                    [&] { return uint32_t(Write(dir.is_none() ? nullptr : name.c_str())); });
    }
};

} // namespace

void bindContainer(py::module_ &m) {
    py::class_<PyContainer>(m, "_Container")
        .def(py::init([](int32_t grabType, uint32_t tile, const std::vector<uint32_t> &sets,
                         const py::object &dir) {
                 return new PyContainer(grabType, tile, sets, dir.is_none() ? std::u16string() : pathOf(dir));
             }),
             py::arg("grab_type"), py::arg("tile"), py::arg("sets"), py::arg("directory"))
        .def("read", &PyContainer::readFiles, py::arg("directory"))
        .def("write", &PyContainer::writeFiles, py::arg("directory"))
        .def("to_xml", [](const PyContainer &c) { return c.toXMLString(); })
        .def("from_xml",
             [](PyContainer &c, const std::u16string &xml) {
                 LogScope scope;
                 c.fromXMLString(xml);
                 issueWarnings(scope.records);
             })
        .def("__len__", &PyContainer::GetCount)
        .def_static("reload_settings", [] { PxImageContainer::freeInstance(); })
        .def("item", &PyContainer::item)
        .def("header", &PyContainer::header)
        .def("store", &PyContainer::store)
        .def("init_for_grab", [](PyContainer &c) { c.initForGrab(); })
        .def("file_names", &PyContainer::fileNames, py::arg("older"))
        .def("kinds", &PyContainer::kinds, py::arg("older"))
        .def_property_readonly("grab_type", [](const PyContainer &c) { return int32_t(c.GetType()); })
        .def_property_readonly("tile", &PyContainer::GetId)
        .def_property_readonly("sets", &PyContainer::sets)
        .def_property_readonly("directory", [](const PyContainer &c) { return c.GetDir(); })
        .def_property_readonly("is_double_exposure", &PyContainer::IsDoubleExposure)
        .def_property_readonly("is_triple_exposure", &PyContainer::IsTripleExposure);
}

} // namespace pxpy
