#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "kestrine/platform/core/io.h"
#include "kestrine/platform/core/xml.h"

namespace kestrine::platform::core::xml {
namespace {

// Records events as lines of text; adjacent character data runs are joined, since how a
// text is split into runs depends on buffer boundaries.
class Recorder : public XMLCallback {
 public:
  std::vector<std::string> events;

  void notifyStartElement(const char* name, const char** attributes) override {
    std::string event = std::string("start ") + name;
    for (const char** a = attributes; *a != nullptr; a += 2)
      event += std::string(" ") + a[0] + "=" + a[1];
    events.push_back(event);
  }
  void notifyEndElement(const char* name) override { events.push_back(std::string("end ") + name); }
  void notifyStartNamespace(const char* prefix, const char* uri) override {
    events.push_back(std::string("ns ") + (prefix ? prefix : "(default)") + "=" + uri);
  }
  void notifyEndNamespace(const char* prefix) override {
    events.push_back(std::string("end ns ") + (prefix ? prefix : "(default)"));
  }
  void notifyCharacterData(const char* data, int length) override {
    if (events.empty() || events.back().rfind("text ", 0) != 0) events.push_back("text ");
    events.back().append(data, length);
  }
};

std::vector<std::string> parse(const std::string& document) {
  Recorder recorder;
  XMLParser parser(&recorder);
  io::MemoryReader reader(document);
  reader.open();
  parser.parseDocument(&reader);
  return recorder.events;
}

// Hands out the document a few bytes at a time (1 to 7, cycling), so that every token and
// every multi-byte character is split across reads somewhere.
class TrickleReader : public io::MemoryReader {
 public:
  using MemoryReader::MemoryReader;
  unsigned read(void* buffer, unsigned size) override {
    step_ = step_ % 7 + 1;
    return MemoryReader::read(buffer, std::min(size, step_));
  }

 private:
  unsigned step_ = 0;
};

// The message of the XMLException that parsing `document` throws, with its position.
std::string syntaxError(const std::string& document) {
  try {
    parse(document);
  } catch (const XMLException& error) {
    return error.what();
  }
  return "no error";
}

using Events = std::vector<std::string>;

TEST(XMLParser, ReportsElementsAttributesAndTextWithEntitiesResolved) {
  EXPECT_EQ(parse("<?xml version=\"1.0\"?>\n"
                  "<root a=\"1 &amp; 2\" b='&lt;&#x20AC;&gt;'>x &lt;y&gt; <![CDATA[<raw>&]]>"
                  "<empty/>\xC3\xA9</root>"),
            (Events{"start root a=1 & 2 b=<\xE2\x82\xAC>", "text x <y> <raw>&", "start empty",
                    "end empty", "text \xC3\xA9", "end root"}));
}

TEST(XMLParser, NamesAreReportedAsWrittenAndNamespaceDeclarationsAsEvents) {
  EXPECT_EQ(parse("<p:root xmlns:p=\"urn:p\" xmlns=\"urn:d\" p:attr=\"1\" plain=\"2\">"
                  "<child xmlns=\"\"/><p:leaf/></p:root>"),
            (Events{"ns p=urn:p", "ns (default)=urn:d", "start p:root p:attr=1 plain=2",
                    "ns (default)=", "start child", "end child", "end ns (default)", "start p:leaf",
                    "end p:leaf", "end p:root", "end ns (default)", "end ns p"}));
}

TEST(XMLParser, OtherEncodingsAreDeliveredAsUTF8) {
  EXPECT_EQ(parse("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a v=\"\xE9\">\xFC</a>"),
            (Events{"start a v=\xC3\xA9", "text \xC3\xBC", "end a"}));
  std::string utf16("\xFF\xFE<\0a\0/\0>\0", 10);
  EXPECT_EQ(parse(utf16), (Events{"start a", "end a"}));
}

// A document of a few megabytes, read a few bytes at a time, gives exactly the events of the
// same document handed over in one piece: nothing is lost or doubled at chunk boundaries.
TEST(XMLParser, TinyReadsOfALargeDocumentGiveTheSameEventsAsOneRead) {
  std::string document = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<log xmlns:k=\"urn:k\">";
  for (int i = 0; i < 20000; ++i) {
    document +=
        "<k:entry id=\"" + std::to_string(i) + "\" note=\"caf\xC3\xA9 &amp; \xF0\x9F\x98\x80\">";
    document += "line " + std::to_string(i) + " \xE2\x82\xAC &lt;<![CDATA[&]]></k:entry>\n";
  }
  document += "</log>";
  Events whole = parse(document);
  ASSERT_EQ(whole.size(), 20000u * 4 + 4);

  Recorder recorder;
  XMLParser parser(&recorder);
  TrickleReader reader(document);
  reader.open();
  parser.parseDocument(&reader);
  EXPECT_TRUE(recorder.events == whole);
}

TEST(XMLParser, MalformedDocumentsThrowWithLineAndColumn) {
  EXPECT_EQ(syntaxError("<a>\n  <b></c>\n</a>"), "XML error at line 2, column 8: mismatched tag");
  EXPECT_EQ(syntaxError(""), "XML error at line 1, column 1: no element found");
  EXPECT_EQ(syntaxError("<a>\n<b>"), "XML error at line 2, column 4: no element found");
  EXPECT_EQ(syntaxError("<a>&nope;</a>"), "XML error at line 1, column 4: undefined entity");
  EXPECT_EQ(syntaxError("<a>\xFF</a>"),
            "XML error at line 1, column 4: not well-formed (invalid token)");
  EXPECT_EQ(syntaxError("<a>&#1;</a>"),
            "XML error at line 1, column 4: reference to invalid character number");
  EXPECT_EQ(syntaxError("<q:a/>"), "XML error at line 1, column 1: unbound prefix");
  EXPECT_EQ(syntaxError("<a/><b/>"), "XML error at line 1, column 5: junk after document element");

  try {
    parse("<a>\n\n   <");
    FAIL();
  } catch (const XMLException& error) {
    EXPECT_EQ(error.line(), 3u);
    EXPECT_EQ(error.column(), 4u);
  }
}

TEST(XMLParser, EventsBeforeAFaultAreDelivered) {
  Recorder recorder;
  XMLParser parser(&recorder);
  io::MemoryReader reader("<a><b>text</b><c></a>");
  reader.open();
  EXPECT_THROW(parser.parseDocument(&reader), XMLException);
  EXPECT_EQ(recorder.events, (Events{"start a", "start b", "text text", "end b", "start c"}));
}

TEST(XMLParser, EntityExpansionBombIsRefused) {
  std::string bomb = "<?xml version=\"1.0\"?><!DOCTYPE b [<!ENTITY l0 \"lol\">";
  for (int i = 1; i < 10; ++i) {
    bomb += "<!ENTITY l" + std::to_string(i) + " \"";
    for (int j = 0; j < 10; ++j)
      bomb += "&l" + std::to_string(i - 1) + ";";
    bomb += "\">";
  }
  bomb += "]><b>&l9;</b>";
  EXPECT_NE(syntaxError(bomb).find("amplification"), std::string::npos) << syntaxError(bomb);
}

struct CallbackFault : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Throws from the n-th start tag.
class FailingCallback : public Recorder {
 public:
  explicit FailingCallback(int failAt) : failAt_(failAt) {}
  void notifyStartElement(const char* name, const char** attributes) override {
    if (--failAt_ == 0) throw CallbackFault(std::string("refused ") + name);
    Recorder::notifyStartElement(name, attributes);
  }

 private:
  int failAt_;
};

TEST(XMLParser, ExceptionFromTheCallbackPassesThroughAndStopsTheParse) {
  FailingCallback callback(2);
  XMLParser parser(&callback);
  io::MemoryReader reader("<a><b/><c/><d/></a>");
  reader.open();
  try {
    parser.parseDocument(&reader);
    FAIL() << "no exception";
  } catch (const CallbackFault& fault) {
    EXPECT_STREQ(fault.what(), "refused b");
  }
  // Expat delivers the end of the self-closing <b/> after the stop; it must not arrive.
  EXPECT_EQ(callback.events, (Events{"start a"}));

  // The same parser object parses the document afterwards (the callback now accepts all).
  callback.events.clear();
  reader.open();
  parser.parseDocument(&reader);
  EXPECT_EQ(callback.events.size(), 8u);
}

class FailingReader : public io::MemoryReader {
 public:
  using MemoryReader::MemoryReader;
  unsigned read(void* buffer, unsigned size) override {
    if (reads_++ == 1) throw std::runtime_error("disk went away");
    return MemoryReader::read(buffer, std::min(size, 4u));
  }

 private:
  int reads_ = 0;
};

TEST(XMLParser, ExceptionFromTheReaderPassesThrough) {
  Recorder recorder;
  XMLParser parser(&recorder);
  FailingReader reader("<a><b/></a>");
  reader.open();
  EXPECT_THROW(parser.parseDocument(&reader), std::runtime_error);
}

}  // namespace
}  // namespace kestrine::platform::core::xml
