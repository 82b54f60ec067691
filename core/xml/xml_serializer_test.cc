#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kestrine/platform/core/io.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/core/xml.h"

namespace kestrine::platform::core::xml {
namespace {

using string::StringAlgorithm;

// A serializer writing into memory; text() detaches and returns what was written.
class Document {
 public:
  Document() : serializer(KPLUUID()) {
    writer.open();
    serializer.attach(&writer);
  }
  std::string text() {
    serializer.detach();
    return writer.bytes();
  }

  io::MemoryWriter writer;
  XMLSerializer serializer;
};

// The first element's attributes and its text (descendants' text included), as parsed back.
class Reading : public XMLCallback {
 public:
  std::vector<std::string> attributes;
  std::string text;

  void notifyStartElement(const char*, const char** pairs) override {
    if (started_++ != 0) return;
    for (const char** a = pairs; *a != nullptr; ++a)
      attributes.push_back(*a);
  }
  void notifyEndElement(const char*) override {}
  void notifyStartNamespace(const char*, const char*) override {}
  void notifyEndNamespace(const char*) override {}
  void notifyCharacterData(const char* data, int length) override { text.append(data, length); }

 private:
  int started_ = 0;
};

Reading readBack(const std::string& document) {
  Reading reading;
  XMLParser parser(&reading);
  io::MemoryReader reader(document);
  reader.open();
  parser.parseDocument(&reader);
  return reading;
}

TEST(XMLSerializer, ChildrenGoOnTheirOwnLinesAndEmptyElementsClose) {
  Document doc;
  XMLSerializer& s = doc.serializer;
  s.emitXMLHeader();
  s.startElement(L"root");
  s.addAttribute(L"a", L"1");
  s.startElement(L"name");
  s.characters(L"text");
  s.endElement();
  s.startElement(L"group");
  s.startElement(L"leaf");
  s.endElement();
  s.startElement(L"leaf");
  s.addAttribute(L"b", L"2");
  s.endElement();
  s.endElement();
  s.startElement(L"empty");
  s.characters(L"");  // no text: still empty
  s.endElement();
  s.endElement();
  EXPECT_EQ(doc.text(),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<root a=\"1\">\n"
            "  <name>text</name>\n"
            "  <group>\n"
            "    <leaf/>\n"
            "    <leaf b=\"2\"/>\n"
            "  </group>\n"
            "  <empty/>\n"
            "</root>\n");
}

TEST(XMLSerializer, NoWhitespaceIsAddedInsideAnElementThatHasText) {
  Document doc;
  XMLSerializer& s = doc.serializer;
  s.startElement(L"doc");
  s.startElement(L"p");
  s.characters(L"Hello ");
  s.startElement(L"b");
  s.startElement(L"i");
  s.characters(L"bold");
  s.endElement();
  s.startElement(L"br");
  s.endElement();
  s.endElement();
  s.characters(L" world");
  s.endElement();
  s.endElement();
  std::string text = doc.text();
  EXPECT_EQ(text, "<doc>\n  <p>Hello <b><i>bold</i><br/></b> world</p>\n</doc>\n");
  // The only whitespace added is outside <p>.
  EXPECT_EQ(readBack(text).text, "\n  Hello bold world\n");
}

// Indentation before a child is decided when the child starts: text that comes only after
// it cannot take back the line break already written. Documented in the header.
TEST(XMLSerializer, TextAfterAChildKeepsTheIndentationWrittenBeforeIt) {
  Document doc;
  XMLSerializer& s = doc.serializer;
  s.startElement(L"p");
  s.startElement(L"b");
  s.endElement();
  s.characters(L"tail");
  s.endElement();
  EXPECT_EQ(doc.text(), "<p>\n  <b/>tail</p>\n");
}

TEST(XMLSerializer, SpecialCharactersRoundTripThroughTheParser) {
  const wchar_t* samples[] = {
      L"&<>\"'",
      L"]]> and <![CDATA[",
      L"tab\there\nnewline\r\ncrlf\rcr",
      L"  leading and trailing  ",
      L"caf\u00E9 \u20AC \U0001F600 \uFFFD \U0010FFFF",
      L"&amp; is not unescaped twice",
  };
  for (const wchar_t* sample : samples) {
    Document doc;
    doc.serializer.startElement(L"v");
    doc.serializer.addAttribute(L"value", sample);
    doc.serializer.characters(sample);
    doc.serializer.endElement();
    std::string text = doc.text();
    Reading back = readBack(text);
    std::string expected = StringAlgorithm::UTF8Encode(string::WideString(sample));
    ASSERT_EQ(back.attributes.size(), 2u) << text;
    EXPECT_EQ(back.attributes[1], expected) << "attribute in " << text;
    EXPECT_EQ(back.text, expected) << "text in " << text;
  }
}

TEST(XMLSerializer, CharactersXMLCannotCarryBecomeReplacement) {
  const wchar_t bad[] = {L'a', 0x1, 0x0, 0xB, 0xD800, 0xFFFE, 0xFFFF, 0x110000, L'z'};
  Document doc;
  doc.serializer.startElement(L"v");
  doc.serializer.characters(bad, sizeof(bad) / sizeof(bad[0]));
  doc.serializer.endElement();
  std::string replacement = "\xEF\xBF\xBD";
  std::string expected = "a";
  for (int i = 0; i < 7; ++i)
    expected += replacement;
  expected += "z";
  EXPECT_EQ(readBack(doc.text()).text, expected);
}

TEST(XMLSerializer, OutputReachesTheWriterAtFlushDetachOrWhenTheBufferIsLarge) {
  io::MemoryWriter writer;
  writer.open();
  XMLSerializer s{KPLUUID()};
  s.attach(&writer);
  s.startElement(L"root");
  s.startElement(L"a");
  s.endElement();
  EXPECT_EQ(writer.bytes(), "");  // buffered
  s.startElement(L"b");
  s.endElement(true);
  EXPECT_EQ(writer.bytes(), "<root>\n  <a/>\n  <b/>");

  std::wstring large(100000, L'x');
  s.startElement(L"big");
  s.characters(large.c_str());
  EXPECT_GE(writer.bytes().size(), 100000u);  // pushed out without waiting for detach
  s.endElement();
  s.endElement();
  s.detach();
  EXPECT_EQ(writer.bytes().substr(writer.bytes().size() - 15), "</big>\n</root>\n");
}

TEST(XMLSerializer, WriterFailureReachesTheCaller) {
  io::FileWriter full("/dev/full");
  ASSERT_TRUE(full.open());
  XMLSerializer s{KPLUUID()};
  s.attach(&full);
  s.startElement(L"root");
  std::wstring large(200000, L'y');
  // The serializer's own buffer and then the file's stream buffer fill; the disk refuses.
  EXPECT_THROW(
      {
        s.characters(large.c_str());
        s.endElement();
        s.detach();
        full.close();
      },
      Exception);
}

TEST(XMLSerializer, MisuseThrowsInsteadOfWritingBrokenXML) {
  Document doc;
  XMLSerializer& s = doc.serializer;
  EXPECT_THROW(s.endElement(), Exception);
  EXPECT_THROW(s.characters(L"loose text"), Exception);
  EXPECT_THROW(s.addAttribute(L"a", L"1"), Exception);
  EXPECT_THROW(s.startElement(L""), Exception);
  s.startElement(L"e");
  EXPECT_THROW(s.addAttribute(nullptr, L"1"), Exception);
  s.characters(L"content");
  EXPECT_THROW(s.addAttribute(L"late", L"1"), Exception);
  s.endElement();
  EXPECT_EQ(doc.text(), "<e>content</e>\n");
}

}  // namespace
}  // namespace kestrine::platform::core::xml
