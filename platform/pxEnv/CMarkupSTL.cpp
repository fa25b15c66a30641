// CMarkupSTL: XML document with a current position, on top of pugixml. Strings cross the interface as
// UTF-16 and are held by pugixml as UTF-8.
#include "CMarkupSTL.h"
#include "pxEnvUtf.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cstring>
#include <string>

// Parsing keeps white-space-only text when it is the whole content of an element ("<a> </a>"), and drops it
// between elements (indentation). References are decoded by this module (ReferenceDecoder), not by the
// parser, which would cut a text at a reference to the null character and wrap references beyond 32 bits.
constexpr unsigned int PARSE_OPTIONS =
    (pugi::parse_default & ~pugi::parse_escapes) | pugi::parse_ws_pcdata_single;

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

// How a piece of text is written into the document text.
enum class Escape {
    Text,       // element text
    WhiteSpace, // white-space-only element text beside other content of its element
    Attribute,  // attribute value
};

// True when a character must be written as a character reference for a parser to give it back unchanged:
// a parser reads a carriage return (with a line feed after it or not) as a line feed, reads tabs and line
// breaks in attribute values as spaces, and drops white-space-only text beside other content of an element
// (indentation). Other control characters are written as references for readability.
bool needsReference(unsigned char c, Escape escape) {
    if (c == '\t' || c == '\n')
        return escape != Escape::Text;
    if (c == ' ')
        return escape == Escape::WhiteSpace;
    return c < 0x20;
}

void appendEscaped(std::string &out, const char *text, Escape escape) {
    for (const char *p = text; *p != '\0'; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if (c == '&')
            out += "&amp;";
        else if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else if (c == '"' && escape == Escape::Attribute)
            out += "&quot;";
        else if (needsReference(c, escape))
            out += "&#" + std::to_string(c) + ';';
        else
            out += *p;
    }
}

bool isWhiteSpaceOnly(const char *text) {
    return *text != '\0' && text[std::strspn(text, " \t\n\r")] == '\0';
}

// Element text (its white space escaped when the parser would drop it) or a CDATA section; the parse
// options keep no other kind of content. A parsed CDATA section holds neither "]]>" nor a carriage return.
void appendContent(std::string &out, const pugi::xml_node &node) {
    if (node.type() == pugi::node_cdata) {
        out += "<![CDATA[";
        out += node.value();
        out += "]]>";
    } else if (node.type() == pugi::node_pcdata) {
        const bool alone = !node.previous_sibling() && !node.next_sibling();
        appendEscaped(out, node.value(),
                      isWhiteSpaceOnly(node.value()) && !alone ? Escape::WhiteSpace : Escape::Text);
    }
}

// "<name" and the attributes; the caller closes the tag.
void appendStartTag(std::string &out, const pugi::xml_node &element) {
    out += '<';
    out += element.name();
    for (const pugi::xml_attribute &attribute : element.attributes()) {
        out += ' ';
        out += attribute.name();
        out += "=\"";
        appendEscaped(out, attribute.value(), Escape::Attribute);
        out += '"';
    }
}

// The document as UTF-8 text, without declaration and without added white space, escaped so that parsing
// it gives back every text and attribute value unchanged. Walks the tree without recursion, so that the
// depth of a document is bounded by memory only, as in the parser.
std::string serialise(const pugi::xml_document &doc) {
    std::string out;
    pugi::xml_node node = doc.first_child();
    while (node) {
        if (node.type() == pugi::node_element) {
            appendStartTag(out, node);
            if (node.first_child()) {
                out += '>';
                node = node.first_child();
                continue;
            }
            out += "/>";
        } else {
            appendContent(out, node);
        }
        for (; !node.next_sibling() && node.parent() != doc; node = node.parent()) {
            out += "</";
            out += node.parent().name();
            out += '>';
        }
        node = node.next_sibling();
    }
    return out;
}

// Appends the UTF-8 form of a code point below U+110000 that is not a surrogate.
void appendUtf8(std::string &out, uint32_t point) {
    if (point < 0x80) {
        out += static_cast<char>(point);
        return;
    }
    const int continuations = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
    static const unsigned char LEAD[] = {0, 0xC0, 0xE0, 0xF0};
    out += static_cast<char>(LEAD[continuations] | point >> (6 * continuations));
    for (int i = continuations - 1; i >= 0; --i)
        out += static_cast<char>(0x80 | ((point >> (6 * i)) & 0x3F));
}

int digitValue(char c, bool hex) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (hex && c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (hex && c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

enum class Reference {
    Decoded, // a reference to a character XML can hold
    Text,    // not a complete reference: stays as written
    Invalid, // a reference to the null character, a surrogate, or beyond U+10FFFF
};

// Reads the character reference "&#digits;" or "&#xhexdigits;" at `text`, which starts with "&#": its length
// and code point.
Reference readCharacterReference(const char *text, size_t &length, uint32_t &point) {
    const bool hex = text[2] == 'x';
    const size_t first = hex ? 3 : 2;
    size_t end = first;
    uint32_t value = 0;
    for (int digit; (digit = digitValue(text[end], hex)) >= 0; ++end) // capped: no wrap-around
        value = std::min<uint32_t>(value * (hex ? 16 : 10) + static_cast<uint32_t>(digit), 0x110000);
    if (end == first || text[end] != ';')
        return Reference::Text;
    length = end + 1;
    point = value;
    const bool holdable = value != 0 && value < 0x110000 && (value < 0xD800 || value >= 0xE000);
    return holdable ? Reference::Decoded : Reference::Invalid;
}

// The character of a predefined entity ("lt;" ... after the '&') and its length; 0 for any other text.
char predefinedEntity(const char *text, size_t &length) {
    static const struct {
        const char *name;
        char value;
    } ENTITIES[] = {{"lt;", '<'}, {"gt;", '>'}, {"amp;", '&'}, {"apos;", '\''}, {"quot;", '"'}};
    for (const auto &entity : ENTITIES) {
        length = std::strlen(entity.name);
        if (std::strncmp(text, entity.name, length) == 0)
            return entity.value;
    }
    return 0;
}

// Reads the reference at `text`, which starts with '&': a character reference or a predefined entity; Text
// for anything else, whose '&' stays as written, as an undeclared entity does.
Reference readReference(const char *text, size_t &length, uint32_t &point) {
    if (text[1] == '#')
        return readCharacterReference(text, length, point);
    const char value = predefinedEntity(text + 1, length);
    if (value == 0)
        return Reference::Text;
    point = static_cast<unsigned char>(value);
    length += 1;
    return Reference::Decoded;
}

// Decodes the references of a parsed text or attribute value. False for a reference to a character XML
// cannot hold.
bool decodeReferences(const char *text, std::string &out) {
    out.clear();
    for (size_t i = 0; text[i] != '\0';) {
        size_t length = 0;
        uint32_t point = 0;
        const Reference reference = text[i] == '&' ? readReference(text + i, length, point) : Reference::Text;
        if (reference == Reference::Invalid)
            return false;
        if (reference == Reference::Text) {
            out += text[i++];
        } else {
            appendUtf8(out, point);
            i += length;
        }
    }
    return true;
}

// Decodes the references of every text and attribute value of a parsed document in place (the parser's tree
// walk is iterative). Stops, returning false, at a reference to a character XML cannot hold.
class ReferenceDecoder : public pugi::xml_tree_walker {
  public:
    bool for_each(pugi::xml_node &node) override {
        if (node.type() == pugi::node_pcdata && !decodeInPlace(node))
            return false;
        for (pugi::xml_attribute attribute : node.attributes())
            if (!decodeInPlace(attribute))
                return false;
        return true;
    }

  private:
    // A node's text or an attribute's value, decoded when it holds an '&'.
    template <typename Item> bool decodeInPlace(Item &item) {
        return std::strchr(item.value(), '&') == nullptr ||
               (decodeReferences(item.value(), decoded_) && item.set_value(decoded_.c_str()));
    }
    std::string decoded_;
};

// True when a parsed document has exactly one top-level element and every reference in it was decoded to a
// character XML can hold.
bool isWellFormed(pugi::xml_document &doc) {
    int elements = 0;
    for (pugi::xml_node node = doc.first_child(); node; node = node.next_sibling())
        elements += node.type() == pugi::node_element ? 1 : 0;
    ReferenceDecoder decoder;
    return elements == 1 && doc.traverse(decoder);
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
    if (!parsed.load_buffer(utf8.data(), utf8.size(), PARSE_OPTIONS, pugi::encoding_utf8) ||
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
    // All plain text children in order (CDATA sections are kept apart): a comment between two runs of text
    // parts them into two nodes, and the document as written (without the comment) joins them again, so only
    // the whole reads the same both ways.
    std::string text;
    for (const pugi::xml_node child : impl_->current.children()) {
        if (child.type() == pugi::node_pcdata)
            text += child.value();
    }
    return toUtf16(text.c_str());
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
