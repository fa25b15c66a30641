// CMarkupSTL: building, printing, parsing and navigating a small XML document with 16-bit strings.
#include <gtest/gtest.h>

#include <string>

#include "CMarkupSTL.h"

namespace {

TEST(MarkupDocument, NewDocumentIsEmpty) {
    CMarkupSTL xml;
    EXPECT_EQ(u"", xml.GetDoc());
    EXPECT_FALSE(xml.FindElem());
    EXPECT_EQ(u"", xml.GetTagName());
    EXPECT_EQ(u"", xml.GetData());
    EXPECT_EQ(u"", xml.GetAttrib(u"a"));
}

TEST(MarkupDocument, BuildsOneElementWithAttributesInOrder) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.AddElem(u"PxImageContainer"));
    EXPECT_TRUE(xml.AddAttrib(u"Tile", 7));
    EXPECT_TRUE(xml.AddAttrib(u"Neg", -12));
    EXPECT_TRUE(xml.AddAttrib(u"Path", u"dir"));
    EXPECT_EQ(u"<PxImageContainer Tile=\"7\" Neg=\"-12\" Path=\"dir\"/>", xml.GetDoc());
    EXPECT_EQ(u"PxImageContainer", xml.GetTagName());
}

TEST(MarkupDocument, AddAttribReplacesAnExistingValue) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.AddElem(u"e"));
    ASSERT_TRUE(xml.AddAttrib(u"a", u"1"));
    ASSERT_TRUE(xml.AddAttrib(u"b", u"2"));
    ASSERT_TRUE(xml.AddAttrib(u"a", u"3"));
    EXPECT_EQ(u"<e a=\"3\" b=\"2\"/>", xml.GetDoc());
}

TEST(MarkupDocument, SpecialCharactersSurviveARoundTrip) {
    const std::u16string value = u"q\"uote & amp <lt> 'apos' \u00C4rger \u2713 \U0001D11E tab\tnew\nline\r";
    CMarkupSTL xml;
    ASSERT_TRUE(xml.AddElem(u"e", u"a < b & \"c\""));
    ASSERT_TRUE(xml.AddAttrib(u"v", value));
    const std::u16string text = xml.GetDoc();
    EXPECT_EQ(std::u16string::npos, text.find(u"<lt>"));

    CMarkupSTL back;
    ASSERT_TRUE(back.SetDoc(text));
    ASSERT_TRUE(back.FindElem(u"e"));
    EXPECT_EQ(value, back.GetAttrib(u"v"));
    EXPECT_EQ(u"a < b & \"c\"", back.GetData());
}

// Element text goes through the document text unchanged, whatever characters it holds.
void expectTextRoundTrip(const std::u16string &data) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.AddElem(u"e", data));
    CMarkupSTL back;
    ASSERT_TRUE(back.SetDoc(xml.GetDoc()));
    ASSERT_TRUE(back.FindElem(u"e"));
    EXPECT_EQ(data, back.GetData());
    EXPECT_EQ(xml.GetDoc(), back.GetDoc());
}

TEST(MarkupDocument, CarriageReturnsInTextAreWrittenAsReferences) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.AddElem(u"e", u"a\rb\r\nc\r"));
    EXPECT_EQ(u"<e>a&#13;b&#13;\nc&#13;</e>", xml.GetDoc());
    expectTextRoundTrip(u"a\rb\r\nc\r");
    expectTextRoundTrip(u"\r\n");
}

TEST(MarkupDocument, WhiteSpaceOnlyTextSurvivesARoundTrip) {
    for (const char16_t *data : {u" ", u"  ", u"\t", u"\n", u"\r", u" \r\n\t "})
        expectTextRoundTrip(data);
    CMarkupSTL xml;
    ASSERT_TRUE(xml.AddElem(u"e", u"  "));
    EXPECT_EQ(u"<e>  </e>", xml.GetDoc());
}

TEST(MarkupDocument, TextAroundACommentIsOneTextBothWays) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.SetDoc(u"<e>ab<!-- note -->cd<?pi x?>ef</e>"));
    ASSERT_TRUE(xml.FindElem(u"e"));
    EXPECT_EQ(u"abcdef", xml.GetData());
    EXPECT_EQ(u"<e>abcdef</e>", xml.GetDoc());
    CMarkupSTL back;
    ASSERT_TRUE(back.SetDoc(xml.GetDoc()));
    ASSERT_TRUE(back.FindElem(u"e"));
    EXPECT_EQ(u"abcdef", back.GetData());
}

TEST(MarkupDocument, EveryCharacterOfTextSurvivesARoundTrip) {
    std::u16string data;
    for (char16_t c = 1; c < 0x80; ++c)
        data += c;
    data += u"\u00E4\u2713\U0001D11E\uFFFD\uFFFF";
    expectTextRoundTrip(data);
    expectTextRoundTrip(u" leading and trailing ");
}

TEST(MarkupDocument, WhiteSpaceTextBesideChildElementsSurvivesARoundTrip) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.AddElem(u"r", u" \n "));
    ASSERT_TRUE(xml.IntoElem());
    ASSERT_TRUE(xml.AddElem(u"c", u"\t"));
    CMarkupSTL back;
    ASSERT_TRUE(back.SetDoc(xml.GetDoc()));
    ASSERT_TRUE(back.FindElem(u"r"));
    EXPECT_EQ(u" \n ", back.GetData());
    ASSERT_TRUE(back.IntoElem());
    ASSERT_TRUE(back.FindElem(u"c"));
    EXPECT_EQ(u"\t", back.GetData());
}

TEST(MarkupDocument, IndentationBetweenElementsIsNotText) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.SetDoc(u"\n<r>\n  <a> </a>\n  <b>\r\n</b>\n  <c>&#32;<d/></c>\n</r>\n"));
    EXPECT_EQ(u"<r><a> </a><b>\n</b><c>&#32;<d/></c></r>", xml.GetDoc());
    ASSERT_TRUE(xml.FindElem(u"r"));
    EXPECT_EQ(u"", xml.GetData());
    ASSERT_TRUE(xml.IntoElem());
    ASSERT_TRUE(xml.FindElem(u"a"));
    EXPECT_EQ(u" ", xml.GetData());
    ASSERT_TRUE(xml.FindElem(u"b"));
    EXPECT_EQ(u"\n", xml.GetData()) << "a line break in the document text is read as a line feed";
    ASSERT_TRUE(xml.FindElem(u"c"));
    EXPECT_EQ(u" ", xml.GetData());
}

TEST(MarkupDocument, CDataSectionsAreKept) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.SetDoc(u"<r>x<![CDATA[ <&> ]]></r>"));
    EXPECT_EQ(u"<r>x<![CDATA[ <&> ]]></r>", xml.GetDoc());
    ASSERT_TRUE(xml.FindElem(u"r"));
    EXPECT_EQ(u"x", xml.GetData());
}

TEST(MarkupDocument, DeepDocumentsAreWrittenWithoutRecursion) {
    const int depth = 200000;
    std::u16string text;
    for (int i = 0; i < depth; ++i)
        text += u"<a>";
    text += u"x";
    for (int i = 0; i < depth; ++i)
        text += u"</a>";
    CMarkupSTL xml;
    ASSERT_TRUE(xml.SetDoc(text));
    EXPECT_EQ(text, xml.GetDoc());
}

TEST(MarkupDocument, MalformedDocumentChangesNothing) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.SetDoc(u"<root a=\"1\"><child b=\"2\"/></root>"));
    ASSERT_TRUE(xml.FindElem(u"root"));
    const std::u16string before = xml.GetDoc();
    const char16_t unpaired[] = {u'<', u'a', u' ', u'b', u'=', u'"', 0xD800, u'"', u'/', u'>', 0};
    for (const std::u16string &bad :
         {std::u16string(u"<root a=\"1\">"), std::u16string(u"<a></b>"), std::u16string(u"<a b=1/>"),
          std::u16string(u""), std::u16string(u"just text"), std::u16string(unpaired)}) {
        EXPECT_FALSE(xml.SetDoc(bad));
        EXPECT_EQ(before, xml.GetDoc());
        EXPECT_EQ(u"root", xml.GetTagName());
        EXPECT_EQ(u"1", xml.GetAttrib(u"a"));
    }
}

TEST(MarkupDocument, SeveralRootsNullCharactersAndBadReferencesAreMalformed) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.SetDoc(u"<root a=\"1\"/>"));
    std::u16string withNull = u"<a/>";
    withNull += u'\0';
    withNull += u"<<<";
    for (const std::u16string &bad :
         {std::u16string(u"<a/><b/>"), withNull, std::u16string(u"<a b=\"&#xD800;\"/>"),
          std::u16string(u"<a>&#x110000;</a>")}) {
        EXPECT_FALSE(xml.SetDoc(bad));
        EXPECT_EQ(u"<root a=\"1\"/>", xml.GetDoc());
    }
}

TEST(MarkupDocument, ReferencesToANullCharacterAreMalformed) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.SetDoc(u"<root a=\"1\"/>"));
    for (const char16_t *bad : {u"<a>&#0;x</a>", u"<a>x&#x0;</a>", u"<a b=\"a&#0;b\"/>", u"<a b=\"&#x00;\"/>",
                                u"<a>&#4294967296;</a>", u"<a>&#x100000000;</a>"}) {
        EXPECT_FALSE(xml.SetDoc(bad)) << std::string(bad, bad + std::char_traits<char16_t>::length(bad));
        EXPECT_EQ(u"<root a=\"1\"/>", xml.GetDoc());
    }
}

TEST(MarkupDocument, ReferencesBeyondUnicodeAreMalformedHoweverLong) {
    CMarkupSTL xml;
    for (const char16_t *bad : {u"<a>&#1114112;</a>", u"<a>&#4294967361;</a>", u"<a b=\"&#x100000041;\"/>",
                                u"<a>&#99999999999999999999999999;</a>", u"<a>&#xDFFF;</a>"})
        EXPECT_FALSE(xml.SetDoc(bad)) << std::string(bad, bad + std::char_traits<char16_t>::length(bad));
}

TEST(MarkupDocument, ReferencesAreDecodedInTextAndAttributes) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.SetDoc(u"<a b=\"&lt;&gt;&amp;&apos;&quot;&#65;&#x42;&#X43;&#x1D11E;&#1114111;\">"
                           u"&lt;&gt;&amp;&apos;&quot;&#65;&#x42;&#x1d11e;</a>"));
    ASSERT_TRUE(xml.FindElem(u"a"));
    EXPECT_EQ(u"<>&'\"AB&#X43;\U0001D11E\U0010FFFF", xml.GetAttrib(u"b"));
    EXPECT_EQ(u"<>&'\"AB\U0001D11E", xml.GetData());
}

TEST(MarkupDocument, UnknownEntitiesAndUnfinishedReferencesStayText) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.SetDoc(u"<a b=\"&foo;&#65&#;&#x;&#x4G;&\">&bar;&#66 &lt&amp</a>"));
    ASSERT_TRUE(xml.FindElem(u"a"));
    EXPECT_EQ(u"&foo;&#65&#;&#x;&#x4G;&", xml.GetAttrib(u"b"));
    EXPECT_EQ(u"&bar;&#66 &lt&amp", xml.GetData());
    CMarkupSTL back;
    ASSERT_TRUE(back.SetDoc(xml.GetDoc()));
    ASSERT_TRUE(back.FindElem(u"a"));
    EXPECT_EQ(xml.GetAttrib(u"b"), back.GetAttrib(u"b"));
    EXPECT_EQ(xml.GetData(), back.GetData());
}

TEST(MarkupBuild, NullCharactersAreRefusedNotCut) {
    CMarkupSTL xml;
    std::u16string withNull = u"ab";
    withNull += u'\0';
    withNull += u"cd";
    EXPECT_FALSE(xml.AddElem(u"e", withNull));
    ASSERT_TRUE(xml.AddElem(u"e"));
    EXPECT_FALSE(xml.AddAttrib(u"v", withNull));
    EXPECT_FALSE(xml.AddAttrib(u"v" + withNull, u"1"));
    EXPECT_EQ(u"<e/>", xml.GetDoc());
}

TEST(MarkupDocument, SetDocMovesToTheTopLevel) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.SetDoc(u"<?xml version=\"1.0\"?><!-- c --><root><x/></root>"));
    EXPECT_EQ(u"", xml.GetTagName());
    EXPECT_FALSE(xml.FindElem(u"x"));
    EXPECT_TRUE(xml.FindElem(u"root"));
}

TEST(MarkupNavigation, FindElemWalksTheLevelByName) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.SetDoc(u"<r><a n=\"1\"/><b n=\"2\"/><a n=\"3\">text</a></r>"));
    ASSERT_TRUE(xml.FindElem());
    EXPECT_EQ(u"r", xml.GetTagName());
    ASSERT_TRUE(xml.IntoElem());
    ASSERT_TRUE(xml.FindElem(u"a"));
    EXPECT_EQ(u"1", xml.GetAttrib(u"n"));
    ASSERT_TRUE(xml.FindElem(u"a"));
    EXPECT_EQ(u"3", xml.GetAttrib(u"n"));
    EXPECT_EQ(u"text", xml.GetData());
    EXPECT_FALSE(xml.FindElem(u"a"));
    EXPECT_EQ(u"3", xml.GetAttrib(u"n"));
    EXPECT_EQ(u"", xml.GetAttrib(u"missing"));
    ASSERT_TRUE(xml.OutOfElem());
    EXPECT_EQ(u"r", xml.GetTagName());
    EXPECT_FALSE(xml.OutOfElem());
    xml.ResetPos();
    EXPECT_EQ(u"", xml.GetTagName());
    ASSERT_TRUE(xml.FindElem(u"r"));
}

TEST(MarkupNavigation, IntoElemNeedsACurrentElement) {
    CMarkupSTL xml;
    EXPECT_FALSE(xml.IntoElem());
    ASSERT_TRUE(xml.AddElem(u"r"));
    ASSERT_TRUE(xml.IntoElem());
    EXPECT_FALSE(xml.IntoElem());
}

TEST(MarkupBuild, ChildrenAreAddedAfterTheCurrentElement) {
    CMarkupSTL xml;
    ASSERT_TRUE(xml.AddElem(u"r"));
    ASSERT_TRUE(xml.IntoElem());
    ASSERT_TRUE(xml.AddElem(u"a"));
    ASSERT_TRUE(xml.AddElem(u"c", u"data"));
    xml.ResetPos();
    ASSERT_TRUE(xml.FindElem(u"r"));
    ASSERT_TRUE(xml.IntoElem());
    ASSERT_TRUE(xml.FindElem(u"a"));
    ASSERT_TRUE(xml.AddElem(u"b"));
    EXPECT_EQ(u"<r><a/><b/><c>data</c></r>", xml.GetDoc());
}

TEST(MarkupBuild, RefusesASecondRootAndInvalidNames) {
    CMarkupSTL xml;
    EXPECT_FALSE(xml.AddAttrib(u"a", u"1"));
    EXPECT_FALSE(xml.AddElem(u""));
    EXPECT_FALSE(xml.AddElem(u"1st"));
    EXPECT_FALSE(xml.AddElem(u"a b"));
    EXPECT_FALSE(xml.AddElem(u"a<b"));
    ASSERT_TRUE(xml.AddElem(u"ns:name-1.x_\u00E9"));
    EXPECT_FALSE(xml.AddElem(u"second"));
    EXPECT_FALSE(xml.AddAttrib(u"a=b", u"1"));
    EXPECT_FALSE(xml.AddAttrib(u"", u"1"));
    const char16_t unpaired[] = {u'x', 0xDC00, 0};
    EXPECT_FALSE(xml.AddAttrib(u"a", unpaired));
    EXPECT_EQ(u"<ns:name-1.x_\u00E9/>", xml.GetDoc());
}

} // namespace
