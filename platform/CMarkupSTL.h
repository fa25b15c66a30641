// CMarkupSTL: a small XML document with a current position, for building and reading short XML forms with
// 16-bit (UTF-16) strings (C++ interface of the environment library).
//
// The document is a tree of elements. Navigation works on one level at a time: the "current element" is an
// element of the current level (or none, before the first), and the level's "parent" is the element whose
// children form the level (the document itself at the top). AddElem adds an element after the current one
// and makes it current; FindElem moves to the next element of the level with a given name; IntoElem and
// OutOfElem move down and up a level. Attribute values and element text may hold any character: quotes,
// ampersands, angle brackets, carriage returns, white space alone and non-ASCII text are escaped in the
// document text where a parser would change them, and come back unchanged.
#pragma once

#include <memory>
#include <string>

#include "pxEnv.h"

class PXENV_API CMarkupSTL {
  public:
    // An empty document, positioned at the top level before the first element. O(1).
    CMarkupSTL();
    ~CMarkupSTL();
    CMarkupSTL(const CMarkupSTL &) = delete;
    CMarkupSTL &operator=(const CMarkupSTL &) = delete;

    // Parses `doc` and, when it is well-formed XML, replaces the document with it and moves to the top level
    // before the first element. O(length). False for a malformed text, which changes nothing: unclosed or
    // mismatched tags, unquoted attributes, no or several top-level elements, a null character, an unpaired
    // surrogate, or a character reference to the null character, a surrogate or beyond U+10FFFF. The parser
    // does not validate further: duplicate attributes and undeclared entities or unfinished references (kept
    // as text) are accepted, text after the top-level element is dropped. Text that is only white space is
    // kept when it is the whole content of an element ("<a> </a>") and dropped between elements
    // (indentation); a line break in element text reads as a line feed.
    bool SetDoc(const std::u16string &doc);
    // The document as text, without an XML declaration and without added white space; empty for an empty
    // document. Characters a parser would change are written as character references (a carriage return as
    // "&#13;"; tabs and line feeds in attribute values; white-space-only text beside child elements), so
    // that SetDoc of the result gives back every value unchanged. O(size of the document).
    std::u16string GetDoc() const;

    // Adds an element `name` (with text content `data` when not empty) after the current element of the
    // level (at the end of the level when there is none) and makes it current. At the top level only one
    // element may exist. O(length). False, changing nothing, for an invalid XML name, a second top-level
    // element, or data with an unpaired surrogate or a null character.
    bool AddElem(const std::u16string &name, const std::u16string &data = std::u16string());
    // Sets an attribute of the current element (replacing the value of an attribute of the same name, else
    // appending it). O(attributes). False, changing nothing, without a current element, for an invalid
    // XML name, or for a value with an unpaired surrogate or a null character.
    bool AddAttrib(const std::u16string &name, const std::u16string &value);
    // As above with the number printed in decimal.
    bool AddAttrib(const std::u16string &name, int value);

    // Moves to the next element of the current level named `name` (any element when empty), after the
    // current one. O(elements of the level). False, position unchanged, when there is none.
    bool FindElem(const std::u16string &name = std::u16string());
    // The value of an attribute of the current element; empty when absent or without a current element.
    // O(attributes).
    std::u16string GetAttrib(const std::u16string &name) const;
    // The name of the current element; empty without one. O(length).
    std::u16string GetTagName() const;
    // The text content of the current element (its first text or CDATA child); empty without one.
    // O(length).
    std::u16string GetData() const;

    // Makes the current element the parent of the level and moves before its first child. O(1). False,
    // position unchanged, without a current element.
    bool IntoElem();
    // Moves up one level; the former parent becomes the current element. O(1). False at the top level.
    bool OutOfElem();
    // Moves to the top level, before the first element. O(1).
    void ResetPos();

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
