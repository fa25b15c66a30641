// libFuzzer target: any text as a container's XML form. fromXMLString must apply a document that holds the
// element and leave the container untouched otherwise; an applied form must come back unchanged through
// toXMLString and fromXMLString (grab type, tile, set numbers, path), and every document the markup class
// accepts must print as a text that it reads back to the same elements, text and printed form.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "CMarkupSTL.h"
#include "PxImageContainer.h"
#include "pxEnv.h"

namespace {

void quietSink(void *, int, int, int, const char *, const char *, uint32_t, const char *) {}

void check(bool condition) {
    if (!condition)
        abort();
}

// A container whose set numbers the target can compare.
class Container : public PxImageContainer {
  public:
    bool sameForm(const Container &other) const {
        return GetId() == other.GetId() && GetType() == other.GetType() && SetNum0 == other.SetNum0 &&
               SetNum1 == other.SetNum1 && SetNum2 == other.SetNum2 && GetDir() == other.GetDir();
    }
};

bool isContinuation(const uint8_t *data, size_t size, size_t at) {
    return at < size && (data[at] & 0xC0) == 0x80;
}

// The input as 16-bit text. A first byte 0xFF takes the rest as raw UTF-16 (little-endian), so that every
// sequence of code units is reachable; otherwise the bytes are decoded leniently as UTF-8, so that the corpus
// stays readable: three-byte sequences may encode lone surrogates, four-byte ones give surrogate pairs, and
// any other byte that does not start a complete sequence stands for the character of its own value.
std::u16string decode(const uint8_t *data, size_t size) {
    std::u16string text;
    if (size > 0 && data[0] == 0xFF) {
        for (size_t i = 1; i + 1 < size; i += 2)
            text += static_cast<char16_t>(data[i] | data[i + 1] << 8);
        return text;
    }
    for (size_t i = 0; i < size;) {
        const uint8_t c = data[i];
        if (c >= 0xC0 && c < 0xE0 && isContinuation(data, size, i + 1)) {
            text += static_cast<char16_t>((c & 0x1F) << 6 | (data[i + 1] & 0x3F));
            i += 2;
        } else if (c >= 0xE0 && c < 0xF0 && isContinuation(data, size, i + 1) &&
                   isContinuation(data, size, i + 2)) {
            text +=
                static_cast<char16_t>((c & 0x0F) << 12 | (data[i + 1] & 0x3F) << 6 | (data[i + 2] & 0x3F));
            i += 3;
        } else if (c >= 0xF0 && c < 0xF5 && isContinuation(data, size, i + 1) &&
                   isContinuation(data, size, i + 2) && isContinuation(data, size, i + 3)) {
            const uint32_t point = ((c & 0x07u) << 18 | (data[i + 1] & 0x3Fu) << 12 |
                                    (data[i + 2] & 0x3Fu) << 6 | (data[i + 3] & 0x3Fu)) %
                                       0x100000u +
                                   0x10000u;
            text += static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
            text += static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
            i += 4;
        } else {
            text += static_cast<char16_t>(c);
            ++i;
        }
    }
    return text;
}

// Walks both documents in step, without recursion: the same elements, names and text in the same order.
void checkSameElements(CMarkupSTL &a, CMarkupSTL &b) {
    a.ResetPos();
    b.ResetPos();
    size_t depth = 0;
    for (;;) {
        const bool found = a.FindElem();
        check(found == b.FindElem());
        if (found) {
            check(a.GetTagName() == b.GetTagName() && a.GetData() == b.GetData());
            check(a.IntoElem() && b.IntoElem());
            ++depth;
        } else if (depth-- > 0) {
            check(a.OutOfElem() && b.OutOfElem());
        } else {
            return;
        }
    }
}

// Every accepted document prints as a text that reads back to the same document.
void checkMarkupRoundTrip(CMarkupSTL &parsed) {
    const std::u16string printed = parsed.GetDoc();
    CMarkupSTL back;
    check(back.SetDoc(printed));
    check(back.GetDoc() == printed);
    checkSameElements(parsed, back);
    parsed.ResetPos();
    back.ResetPos();
    if (parsed.FindElem(u"PxImageContainer")) {
        check(back.FindElem(u"PxImageContainer"));
        check(parsed.GetAttrib(u"Path") == back.GetAttrib(u"Path"));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    pxEnvSetLogSink(&quietSink, nullptr);
    const std::u16string text = decode(data, size);

    CMarkupSTL markup;
    const bool accepted = markup.SetDoc(text);
    const bool applies = accepted && markup.FindElem(u"PxImageContainer");
    if (accepted)
        checkMarkupRoundTrip(markup);

    Container before;
    before.SetPrefix(7, static_cast<PxGrabType>(24), 9, 3, 4).SetDir(u"unchanged");
    Container c;
    c.SetPrefix(7, static_cast<PxGrabType>(24), 9, 3, 4).SetDir(u"unchanged");
    check(c.fromXMLString(text) == 0);
    if (!applies) {
        check(c.sameForm(before));
        return 0;
    }
    // A path read from a document never holds a character the form cannot write.
    const std::u16string form = c.toXMLString();
    check(!form.empty());
    Container back;
    check(back.fromXMLString(form) == 0);
    check(back.sameForm(c));
    check(back.toXMLString() == form);
    return 0;
}
