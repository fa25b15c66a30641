// CMarkupSTL: XML document with a current position, on top of pugixml. Strings cross the interface as
// UTF-16 and are held by pugixml as UTF-8.
#include "CMarkupSTL.h"
#include "pxEnvUtf.h"

#include <pugixml.hpp>

#include <sstream>
#include <string>

struct CMarkupSTL::Impl {
    pugi::xml_document doc;
    pugi::xml_node parent;  // the element whose children form the current level (the document at the top)
    pugi::xml_node current; // current element of the level; null before the first
};

namespace {

// UTF-8 form of a 16-bit string; false for an unpaired surrogate or a null character (which XML cannot hold
// and which would otherwise cut the text short).
bool toUtf8(const std::u16string &text, std::string &out) {
    return text.find(u'\0') == std::u16string::npos &&
           pxenv::utf16ToUtf8(reinterpret_cast<const uint16_t *>(text.c_str()), out);
}

// UTF-16 form of pugixml's UTF-8 text (which it keeps well-formed); empty if it is not.
std::u16string toUtf16(const char *text) {
    std::u16string out;
    if (!pxenv::utf8ToUtf16(text ? text : "", out))
        out.clear();
    return out;
}

bool isNameStart(char16_t c) {
    return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || c == u'_' || c == u':' || c >= 0x80;
}

bool isNameChar(char16_t c) {
    return isNameStart(c) || (c >= u'0' && c <= u'9') || c == u'-' || c == u'.';
}

// An XML name: a letter, '_', ':' or non-ASCII character, then also digits, '-' and '.'.
bool isXmlName(const std::u16string &name) {
    if (name.empty() || !isNameStart(name[0]))
        return false;
    for (char16_t c : name)
        if (!isNameChar(c))
            return false;
    return true;
}

// The document as UTF-8 text, without declaration and without added white space.
std::string serialise(const pugi::xml_document &doc) {
    std::ostringstream text;
    doc.save(text, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_utf8);
    return text.str();
}

// True when a parsed document has exactly one top-level element and all its text is valid UTF-8 (a
// character reference to a surrogate or beyond U+10FFFF decodes to bytes that are not).
bool isWellFormed(const pugi::xml_document &doc) {
    int elements = 0;
    for (pugi::xml_node node = doc.first_child(); node; node = node.next_sibling())
        elements += node.type() == pugi::node_element ? 1 : 0;
    std::u16string unused;
    return elements == 1 && pxenv::utf8ToUtf16(serialise(doc), unused);
}

// A valid XML name in its UTF-8 form; false when it is not one.
bool xmlName(const std::u16string &name, std::string &out) {
    return isXmlName(name) && toUtf8(name, out);
}

} // namespace

CMarkupSTL::CMarkupSTL() : impl_(new Impl) {
    ResetPos();
}

CMarkupSTL::~CMarkupSTL() = default;

bool CMarkupSTL::SetDoc(const std::u16string &doc) {
    std::string utf8;
    if (!toUtf8(doc, utf8))
        return false;
    pugi::xml_document parsed;
    if (!parsed.load_buffer(utf8.data(), utf8.size(), pugi::parse_default, pugi::encoding_utf8) ||
        !isWellFormed(parsed))
        return false;
    impl_->doc.reset(parsed);
    ResetPos();
    return true;
}

std::u16string CMarkupSTL::GetDoc() const {
    return toUtf16(serialise(impl_->doc).c_str());
}

bool CMarkupSTL::AddElem(const std::u16string &name, const std::u16string &data) {
    std::string utf8Name, utf8Data;
    if (!xmlName(name, utf8Name) || !toUtf8(data, utf8Data))
        return false;
    if (impl_->parent == impl_->doc && impl_->doc.document_element())
        return false;
    pugi::xml_node added = impl_->current
                               ? impl_->parent.insert_child_after(pugi::node_element, impl_->current)
                               : impl_->parent.append_child(pugi::node_element);
    if (!added)
        return false;
    added.set_name(utf8Name.c_str());
    if (!utf8Data.empty())
        added.text().set(utf8Data.c_str());
    impl_->current = added;
    return true;
}

bool CMarkupSTL::AddAttrib(const std::u16string &name, const std::u16string &value) {
    std::string utf8Name, utf8Value;
    if (!impl_->current || !xmlName(name, utf8Name) || !toUtf8(value, utf8Value))
        return false;
    pugi::xml_attribute attribute = impl_->current.attribute(utf8Name.c_str());
    if (!attribute)
        attribute = impl_->current.append_attribute(utf8Name.c_str());
    return attribute && attribute.set_value(utf8Value.c_str());
}

bool CMarkupSTL::AddAttrib(const std::u16string &name, int value) {
    const std::string digits = std::to_string(value);
    return AddAttrib(name, std::u16string(digits.begin(), digits.end()));
}

bool CMarkupSTL::FindElem(const std::u16string &name) {
    std::string utf8Name;
    if (!name.empty() && !toUtf8(name, utf8Name))
        return false;
    pugi::xml_node node = impl_->current ? impl_->current.next_sibling() : impl_->parent.first_child();
    for (; node; node = node.next_sibling()) {
        if (node.type() == pugi::node_element && (utf8Name.empty() || utf8Name == node.name())) {
            impl_->current = node;
            return true;
        }
    }
    return false;
}

std::u16string CMarkupSTL::GetAttrib(const std::u16string &name) const {
    std::string utf8Name;
    if (!impl_->current || !toUtf8(name, utf8Name))
        return std::u16string();
    return toUtf16(impl_->current.attribute(utf8Name.c_str()).value());
}

std::u16string CMarkupSTL::GetTagName() const {
    return toUtf16(impl_->current.name());
}

std::u16string CMarkupSTL::GetData() const {
    return toUtf16(impl_->current.text().get());
}

bool CMarkupSTL::IntoElem() {
    if (!impl_->current)
        return false;
    impl_->parent = impl_->current;
    impl_->current = pugi::xml_node();
    return true;
}

bool CMarkupSTL::OutOfElem() {
    if (impl_->parent == impl_->doc)
        return false;
    impl_->current = impl_->parent;
    impl_->parent = impl_->parent.parent();
    return true;
}

void CMarkupSTL::ResetPos() {
    impl_->parent = impl_->doc;
    impl_->current = pugi::xml_node();
}
