// Paths of the environment library: joining a directory and a part, existence tests of files and
// directories by UTF-16 path, and the UTF-8 form of a path for messages.
#include "pxEnvPath.h"
#include "pxEnvSeparator.h"
#include "pxEnvUtf.h"

#include <filesystem>
#include <string>
#include <system_error>

namespace {

bool isSeparator(char16_t c) {
    return c == u'\\' || c == u'/';
}

// Copies text with its terminating zero into output when it fits; otherwise leaves output empty.
bool copyOut(const std::u16string &text, char16_t *output, size_t capacity) {
    if (!output || capacity == 0)
        return false;
    if (text.size() >= capacity) {
        output[0] = u'\0';
        return false;
    }
    text.copy(output, text.size());
    output[text.size()] = u'\0';
    return true;
}

// The path as a UTF-8 file-system path ('\' taken as separator); false for null, empty or unconvertible.
bool toFsPath(const char16_t *path, std::filesystem::path &out) {
    std::string utf8;
    if (!path || !*path || !pxenv::utf16PathToUtf8(reinterpret_cast<const uint16_t *>(path), utf8))
        return false;
    out = std::filesystem::u8path(utf8);
    return true;
}

} // namespace

bool PxMakePath(const char16_t *directory, const char16_t *part, char16_t *output, size_t capacity) {
    std::u16string path = directory ? directory : u"";
    if (part && *part) {
        if (!path.empty() && !isSeparator(path.back()))
            path += pxenv::pathSeparator();
        path += part;
    }
    return copyOut(path, output, capacity);
}

bool PxFileExist(const char16_t *path) {
    std::filesystem::path fsPath;
    std::error_code error;
    return toFsPath(path, fsPath) && std::filesystem::is_regular_file(fsPath, error);
}

bool PxDirectoryExist(const char16_t *path) {
    std::filesystem::path fsPath;
    std::error_code error;
    return toFsPath(path, fsPath) && std::filesystem::is_directory(fsPath, error);
}

std::string PxTextToUtf8(const char16_t *text) {
    std::string utf8;
    if (!text || !pxenv::utf16ToUtf8(reinterpret_cast<const uint16_t *>(text), utf8))
        utf8.clear();
    return utf8;
}

bool PxTextToUtf16(const std::string &text, std::u16string &out) {
    return pxenv::utf8ToUtf16(text, out);
}
