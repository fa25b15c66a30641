// The XML form of a container: the element, its attribute order, numbers, the path, and fromXMLString's
// lenient application.
#include <gtest/gtest.h>

#include <string>

#include "container/ContainerTestUtil.h"
#include "support/LogCapture.h"

namespace {

using pxtest::grab;
using pxtest::TestContainer;

TEST(ContainerXml, ElementWithAttributesInOrder) {
    TestContainer c;
    c.SetPrefix(7, grab(24), 9, 3, 0).SetDir(u"C:\\grabs");
    EXPECT_EQ(u"<PxImageContainer Tile=\"7\" ImgGrabType=\"24\" SetNum0=\"9\" SetNum1=\"3\" SetNum2=\"10\" "
              u"Path=\"C:\\grabs\"/>",
              c.toXMLString());
}

TEST(ContainerXml, NewContainer) {
    PxImageContainer c;
    EXPECT_EQ(u"<PxImageContainer Tile=\"0\" ImgGrabType=\"0\" SetNum0=\"0\" SetNum1=\"0\" SetNum2=\"0\" "
              u"Path=\"\"/>",
              c.toXMLString());
}

TEST(ContainerXml, ImagesAreNotPartOfIt) {
    PxImageContainer c;
    c.Add(pxtest::makeImage(SHORT, 2, 2, 0, [](int, int) { return 1; }));
    PxImageContainer empty;
    EXPECT_EQ(empty.toXMLString(), c.toXMLString());
    EXPECT_EQ(0, c.fromXMLString(empty.toXMLString()));
    EXPECT_EQ(1u, c.GetCount());
}

TEST(ContainerXml, RoundTrip) {
    TestContainer c;
    c.SetPrefix(4294967295u, grab(55), 4000000000u, 1, 2).SetDir(u"d\u00E4\"&<x>'\U0001D11E");
    TestContainer back;
    EXPECT_EQ(0, back.fromXMLString(c.toXMLString()));
    EXPECT_EQ(4294967295u, back.GetId());
    EXPECT_EQ(55, back.GetType());
    EXPECT_EQ(4000000000u, back.setNum(0));
    EXPECT_EQ(1u, back.setNum(1));
    EXPECT_EQ(2u, back.setNum(2));
    EXPECT_EQ(c.GetDir(), back.GetDir());
}

TEST(ContainerXml, PathsOfWhiteSpaceAndLineBreaksRoundTrip) {
    for (const char16_t *path : {u" ", u"\r", u"a\r\nb", u"\t\n", u"  x  "}) {
        TestContainer c;
        c.SetDir(path);
        TestContainer back;
        back.fromXMLString(c.toXMLString());
        EXPECT_EQ(c.GetDir(), back.GetDir()) << pxtest::narrow(path);
    }
}

// A path that XML cannot hold is reported and gives no XML form at all, rather than one without the path.
void expectUnencodablePath(const std::u16string &path) {
    TestContainer c;
    c.SetPrefix(7, grab(24), 9, 3, 0).SetDir(path);
    pxtest::LogCapture log;
    EXPECT_EQ(u"", c.toXMLString());
    ASSERT_EQ(1u, log.records().size());
    const pxtest::LogRecord &r = log.records()[0];
    EXPECT_EQ(PXENV_LOG_I, r.kind);
    EXPECT_EQ(5, r.level);
    EXPECT_EQ(0xC43D0003u, r.code);
    EXPECT_EQ("PxImageContainer", r.module);
    EXPECT_EQ(__DATE__, r.date);
    EXPECT_EQ("Path cannot be written as XML (null character or unpaired surrogate)", r.text);
}

TEST(ContainerXml, PathWithANullCharacterIsReported) {
    std::u16string path = u"dir";
    path += u'\0';
    path += u"x";
    expectUnencodablePath(path);
}

TEST(ContainerXml, PathWithAnUnpairedSurrogateIsReported) {
    expectUnencodablePath(std::u16string(1, char16_t(0xD800)));
    expectUnencodablePath(u"a" + std::u16string(1, char16_t(0xDC00)) + u"b");
    expectUnencodablePath(u"a" + std::u16string(1, char16_t(0xD83D)));
}

TEST(ContainerXml, SetNumbersGoThroughSetPrefix) {
    TestContainer c;
    EXPECT_EQ(0,
              c.fromXMLString(u"<PxImageContainer Tile=\"1\" ImgGrabType=\"24\" SetNum0=\"7\" SetNum1=\"9\" "
                              u"SetNum2=\"0\" Path=\"p\"/>"));
    EXPECT_EQ(8u, c.setNum(2)) << "triple exposure with SetNum2 0 gives SetNum0 + 1";
    EXPECT_EQ(0, c.fromXMLString(u"<PxImageContainer ImgGrabType=\"5\" SetNum0=\"7\" SetNum2=\"0\"/>"));
    EXPECT_EQ(0u, c.setNum(2));
}

TEST(ContainerXml, MissingAttributesReadAsZeroAndEmpty) {
    TestContainer c;
    c.SetPrefix(7, grab(24), 9, 3, 4).SetDir(u"old");
    EXPECT_EQ(0, c.fromXMLString(u"<PxImageContainer/>"));
    EXPECT_EQ(0u, c.GetId());
    EXPECT_EQ(0, c.GetType());
    EXPECT_EQ(0u, c.setNum(0));
    EXPECT_EQ(0u, c.setNum(1));
    EXPECT_EQ(0u, c.setNum(2));
    EXPECT_EQ(u"", c.GetDir());
}

TEST(ContainerXml, NumbersAreReadAsDecimalPrefixes) {
    TestContainer c;
    EXPECT_EQ(0, c.fromXMLString(u"<PxImageContainer Tile=\" 12abc\" ImgGrabType=\"+23\" SetNum0=\"-1\" "
                                 u"SetNum1=\"x5\" SetNum2=\"0x10\"/>"));
    EXPECT_EQ(12u, c.GetId());
    EXPECT_EQ(23, c.GetType());
    EXPECT_EQ(4294967295u, c.setNum(0));
    EXPECT_EQ(0u, c.setNum(1));
    EXPECT_EQ(0u, c.setNum(2)) << "0 for a triple exposure becomes SetNum0 + 1, wrapping to 0";
}

TEST(ContainerXml, MalformedOrMissingElementChangesNothing) {
    TestContainer c;
    c.SetPrefix(7, grab(24), 9, 3, 4).SetDir(u"keep");
    const std::u16string before = c.toXMLString();
    for (const char16_t *text : {u"", u"<PxImageContainer Tile=\"1\"", u"<PxImageContainer Tile=1/>",
                                 u"<Other Tile=\"1\"/>", u"<root><PxImageContainer Tile=\"1\"/></root>",
                                 u"<PxImageContainer Tile=\"1\" Path=\"a&#0;b\"/>"}) {
        EXPECT_EQ(0, c.fromXMLString(text));
        EXPECT_EQ(before, c.toXMLString()) << pxtest::narrow(text);
    }
}

TEST(ContainerXml, FirstMatchingElementAtTheTopLevelIsUsed) {
    TestContainer c;
    EXPECT_EQ(0, c.fromXMLString(
                     u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- grab -->\n"
                     u"<PxImageContainer Tile=\"3\" Path=\"\u00FC\">\n  <child/>\n</PxImageContainer>"));
    EXPECT_EQ(3u, c.GetId());
    EXPECT_EQ(u"\u00FC", c.GetDir());
}

} // namespace
