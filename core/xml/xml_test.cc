#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cwchar>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "kestrine/platform/core/io.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/core/xml.h"

namespace kestrine::platform::core::xml {
namespace {

using Events = std::vector<std::string>;
using Threading = XMLParser::Threading;

// Records events as lines of text; adjacent character data runs are joined, since how a
// text is split into runs depends on buffer boundaries. With `parser` set, each start tag
// carries the position that the parser gives for it.
class Recorder : public XMLCallback {
 public:
  Events events;
  const XMLParser* parser = nullptr;

  void notifyStartElement(const char* name, const char** attributes) override {
    std::string event = std::string("start ") + name;
    for (const char** a = attributes; *a != nullptr; a += 2)
      event += std::string(" ") + a[0] + "=" + a[1];
    if (parser != nullptr)
      event += " @" + std::to_string(parser->line()) + ":" + std::to_string(parser->column());
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

// Hands out a few bytes at a time when trickling (1 to 7, cycling), so that every token and
// every multi-byte character is split somewhere; throws once `failAt` bytes are out.
class Reader : public io::MemoryReader {
 public:
  Reader(const std::string& bytes, bool trickle, std::size_t failAt = std::string::npos)
      : MemoryReader(bytes), trickle_(trickle), failAt_(failAt) {
    open();
  }
  unsigned read(void* buffer, unsigned size) override {
    step_ = step_ % 7 + 1;
    if (trickle_) size = std::min(size, step_);
    if (failAt_ != std::string::npos) {
      if (given_ == failAt_) throw std::runtime_error("disk went away");
      size = static_cast<unsigned>(std::min<std::size_t>(size, failAt_ - given_));
    }
    const unsigned count = MemoryReader::read(buffer, size);
    given_ += count;
    return count;
  }

 private:
  bool trickle_;
  std::size_t failAt_;
  std::size_t given_ = 0;
  unsigned step_ = 0;
};

// A few megabytes of namespaced elements, attributes, entities and multi-byte characters
// over many lines: many chunks, and many batches of events.
std::string largeDocument() {
  std::string document = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<log xmlns:k=\"urn:k\">";
  for (int i = 0; i < 20000; ++i) {
    document +=
        "<k:entry id=\"" + std::to_string(i) + "\" note=\"caf\xC3\xA9 &amp; \xF0\x9F\x98\x80\">";
    document += "line " + std::to_string(i) + " \xE2\x82\xAC &lt;<e/></k:entry>\n";
  }
  return document + "</log>";
}

// Parses `document` into `recorder`, recording positions when asked.
void parse(const std::string& document, Recorder* recorder, Threading threading,
           bool trickle = false, bool positions = false) {
  Reader reader(document, trickle);
  XMLParser parser(recorder, threading);
  if (positions) recorder->parser = &parser;
  parser.parseDocument(&reader);
}

Events parse(const std::string& document, Threading threading = Threading::kCallingThread) {
  Recorder recorder;
  parse(document, &recorder, threading);
  return recorder.events;
}

// Every parser test runs with expat on the calling thread and on a second thread: the two
// must not be told apart by their events, positions or faults.
class XMLParserTest : public ::testing::TestWithParam<Threading> {
 protected:
  // The message of the XMLException that parsing `document` throws, after its line and
  // column, and the events that came before it.
  std::string syntaxError(const std::string& document, Events* events = nullptr) {
    Recorder recorder;
    try {
      parse(document, &recorder, GetParam());
    } catch (const XMLException& error) {
      if (events != nullptr) *events = recorder.events;
      return std::to_string(error.line()) + ":" + std::to_string(error.column()) + " " +
             error.what();
    }
    return "no error";
  }
};

INSTANTIATE_TEST_SUITE_P(Threads, XMLParserTest,
                         ::testing::Values(Threading::kCallingThread, Threading::kSecondThread),
                         [](const ::testing::TestParamInfo<Threading>& info) {
                           return info.param == Threading::kCallingThread ? "CallingThread"
                                                                          : "SecondThread";
                         });

// Catches: namespace declarations not reported, reported out of order, or prefixes resolved
// away from the names as written. (Decoding the declared encodings is expat's own.)
TEST_P(XMLParserTest, ReportsNamesAsWrittenAndNamespacesAsEvents) {
  EXPECT_EQ(parse("<p:root xmlns:p=\"urn:p\" xmlns=\"urn:d\" p:attr=\"1\" plain=\"2\">"
                  "<child xmlns=\"\"/><p:leaf/></p:root>",
                  GetParam()),
            (Events{"ns p=urn:p", "ns (default)=urn:d", "start p:root p:attr=1 plain=2",
                    "ns (default)=", "start child", "end child", "end ns (default)", "start p:leaf",
                    "end p:leaf", "end p:root", "end ns (default)", "end ns p"}));
}

// Catches: anything lost or doubled at chunk or batch boundaries, and positions that do not
// belong to their event: a document of a few megabytes read a few bytes at a time gives
// exactly the events of the same document read in one piece on the calling thread.
TEST_P(XMLParserTest, TinyReadsOfALargeDocumentGiveTheSameEventsAsOneRead) {
  const std::string document = largeDocument();
  Recorder whole;
  Reader reader(document, false);
  XMLParser parser(&whole, Threading::kCallingThread);
  whole.parser = &parser;
  parser.parseDocument(&reader);
  ASSERT_EQ(whole.events.size(), 20000u * 6 + 4);
  EXPECT_EQ(whole.events[20000 * 6 - 4],
            "start k:entry id=19999 note=caf\xC3\xA9 & \xF0\x9F\x98\x80 @20001:1");
  for (bool trickle : {false, true}) {
    Recorder recorder;
    parse(document, &recorder, GetParam(), trickle, true);
    EXPECT_TRUE(recorder.events == whole.events) << "trickle " << trickle;
  }
}

// Catches: a wrong line or column (expat counts columns from 0), a fault at the end of the
// input not reported, and the well-formed beginning's events held back, also when the fault
// lies many chunks into the document. Which documents are malformed is expat's to decide.
TEST_P(XMLParserTest, MalformedDocumentsThrowWithLineAndColumn) {
  EXPECT_EQ(syntaxError("<a>\n  <b></c>\n</a>"),
            "2:8 XML error at line 2, column 8: mismatched tag");
  EXPECT_EQ(syntaxError("<a>"), "1:4 XML error at line 1, column 4: no element found");
  Events events;
  EXPECT_EQ(syntaxError("<a><b>text</b><c></a>", &events),
            "1:20 XML error at line 1, column 20: mismatched tag");
  EXPECT_EQ(events, (Events{"start a", "start b", "text text", "end b", "start c"}));

  std::string document = largeDocument();
  document.insert(document.rfind("<k:entry id=\"19000\""), "</wrong>");
  EXPECT_EQ(syntaxError(document, &events),
            "19002:3 XML error at line 19002, column 3: mismatched tag");
  ASSERT_EQ(events.size(), 19000u * 6 + 2);
  EXPECT_EQ(events.back(), "text \n");
}

// Catches: positions given though not wanted, in either mode, a malformed document's
// position lost with them, and the choice not holding for the parser's next parse.
TEST_P(XMLParserTest, UnwantedPositionsSayZeroButFaultsKeepTheirs) {
  const std::string document = largeDocument();
  Recorder recorder;
  XMLParser parser(&recorder, GetParam());
  recorder.parser = &parser;
  parser.positions(false);
  for (int parse = 0; parse < 2; ++parse) {
    recorder.events.clear();
    Reader reader(document, false);
    parser.parseDocument(&reader);
    ASSERT_EQ(recorder.events.size(), 20000u * 6 + 4);
    EXPECT_EQ(recorder.events[20000 * 6 - 4],
              "start k:entry id=19999 note=caf\xC3\xA9 & \xF0\x9F\x98\x80 @0:0");
    EXPECT_EQ(std::count_if(recorder.events.begin(), recorder.events.end(),
                            [](const std::string& event) {
                              return event.rfind("start ", 0) == 0 &&
                                     event.substr(event.size() - 5) != " @0:0";
                            }),
              0);
  }
  Reader malformed("<a>\n  <b></c>\n</a>", false);
  try {
    parser.parseDocument(&malformed);
    ADD_FAILURE() << "no XMLException";
  } catch (const XMLException& error) {
    EXPECT_EQ(std::to_string(error.line()) + ":" + std::to_string(error.column()), "2:8");
  }
  parser.positions(true);
  recorder.events.clear();
  Reader again(document, false);
  parser.parseDocument(&again);
  EXPECT_EQ(recorder.events[20000 * 6 - 4],
            "start k:entry id=19999 note=caf\xC3\xA9 & \xF0\x9F\x98\x80 @20001:1");
}

struct CallbackFault : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Catches: an exception of the callback or of the reader swallowed, turned into another, or
// leaking the parser's state (ASan's leak check), events delivered after it or the events
// before it held back, a tokenizing thread left waiting, and a parser that cannot be used
// again afterwards.
TEST_P(XMLParserTest, ExceptionsFromTheCallbackOrTheReaderPassThroughAndStopTheParse) {
  // Throws from the `failAt`th start tag, once.
  class FailingCallback : public Recorder {
   public:
    void notifyStartElement(const char* name, const char** attributes) override {
      if (++starts == failAt) throw CallbackFault(std::string("refused ") + name);
      Recorder::notifyStartElement(name, attributes);
    }
    int failAt = 2;
    int starts = 0;
  } callback;
  XMLParser parser(&callback, GetParam());
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
  callback.events.clear();
  reader.open();
  parser.parseDocument(&reader);
  EXPECT_EQ(callback.events.size(), 8u);

  // Deep into a large document, with chunks and batches still on their way.
  const std::string document = largeDocument();
  callback.events.clear();
  callback.starts = 0;
  callback.failAt = 20000;
  Reader large(document, false);
  EXPECT_THROW(XMLParser(&callback, GetParam()).parseDocument(&large), CallbackFault);
  // The namespace, the root, and six events for each of the 9999 entries before the one
  // that is refused.
  EXPECT_EQ(callback.events.size(), 2u + 9999 * 6);

  // The reader fails mid-document: the events of every byte read before come first, as
  // when reading on the calling thread.
  for (std::size_t failAt : {std::size_t{2}, document.size() / 2}) {
    Recorder before, recorder;
    Reader reference(document, false, failAt), failing(document, false, failAt);
    EXPECT_THROW(XMLParser(&before, Threading::kCallingThread).parseDocument(&reference),
                 std::runtime_error);
    EXPECT_THROW(XMLParser(&recorder, GetParam()).parseDocument(&failing), std::runtime_error);
    EXPECT_EQ(recorder.events, before.events);
    EXPECT_EQ(recorder.events.size() > 1000, failAt > 2);
  }
}

// Catches: the callback or the reader called from the tokenizing thread.
TEST_P(XMLParserTest, CallbackAndReaderRunOnTheCallingThreadOnly) {
  class ThreadChecker : public Recorder {
   public:
    void notifyEndElement(const char* name) override {
      elsewhere = elsewhere || std::this_thread::get_id() != caller;
    }
    std::thread::id caller = std::this_thread::get_id();
    bool elsewhere = false;
  } callback;
  class CheckedReader : public Reader {
   public:
    using Reader::Reader;
    unsigned read(void* buffer, unsigned size) override {
      elsewhere = elsewhere || std::this_thread::get_id() != caller;
      return Reader::read(buffer, size);
    }
    std::thread::id caller = std::this_thread::get_id();
    bool elsewhere = false;
  } reader(largeDocument(), false);
  XMLParser(&callback, GetParam()).parseDocument(&reader);
  EXPECT_FALSE(callback.elsewhere);
  EXPECT_FALSE(reader.elsewhere);
}

// Catches an attachment delivered with another end tag than its own (shifted across a batch
// boundary, or left over from the tag before), seen outside its end tag, attachments on the
// calling thread, and a lookahead that misses events. The callback is held up at its first
// event, so that batches pile up and the lookahead is offered to attach.
TEST_P(XMLParserTest, LookaheadAttachesToItsOwnEndTagsOnlyOnASecondThread) {
  // Attaches "name|text since the last tag".
  class Lookahead : public XMLLookahead {
   public:
    void startElement(const char*) override {
      ++seen;
      text.clear();
    }
    void characterData(const char* data, int length) override { text.append(data, length); }
    void endElement(const char* name, std::string* attachment) override {
      ++seen;
      if (attachment != nullptr) *attachment = name + ("|" + text);
      text.clear();
    }
    std::string text;
    std::size_t seen = 0;
  } lookahead;
  class Checker : public XMLCallback {
   public:
    void notifyStartElement(const char*, const char**) override { tag(); }
    void notifyEndElement(const char* name) override {
      const std::string_view attached = parser->attached();
      if (!attached.empty()) {
        ++attachments;
        if (attached != name + ("|" + text)) ++wrong;
      }
      tag();
    }
    void notifyStartNamespace(const char*, const char*) override {}
    void notifyEndNamespace(const char*) override {}
    void notifyCharacterData(const char* data, int length) override {
      if (!parser->attached().empty()) ++wrong;
      text.append(data, length);
    }
    void tag() {
      if (tags++ == 0) std::this_thread::sleep_for(std::chrono::milliseconds(100));
      text.clear();
    }
    const XMLParser* parser = nullptr;
    std::string text;
    std::size_t tags = 0, attachments = 0, wrong = 0;
  } checker;
  std::string document = "<log xmlns:n=\"urn:n\">";
  for (int i = 0; i < 20000; ++i)
    document += "<n:v a=\"1\">text &amp; more <w/>tail " + std::to_string(i) + "</n:v>\n";
  document += "</log>";

  Reader reader(document, false);
  XMLParser parser(&checker, GetParam());
  parser.lookahead(&lookahead);
  checker.parser = &parser;
  parser.parseDocument(&reader);
  EXPECT_EQ(checker.wrong, 0u);
  EXPECT_TRUE(parser.attached().empty());
  if (GetParam() == Threading::kCallingThread) {
    EXPECT_EQ(lookahead.seen, 0u);
    EXPECT_EQ(checker.attachments, 0u);
  } else {
    EXPECT_EQ(lookahead.seen, checker.tags);
    EXPECT_GT(checker.attachments, 0u);
  }
}

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

// Catches: children not on lines of their own, wrong indentation, empty elements not closed
// as <x/>, whitespace added inside an element that has text, and an indentation already
// written for a child taken back when text follows it.
TEST(XMLSerializer, ChildrenGoOnTheirOwnLinesUnlessTheParentHasText) {
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
  // Indentation before a child is decided when the child starts: text that comes only after
  // it cannot take back the line break already written. Documented in the header.
  s.startElement(L"p");
  s.startElement(L"b");
  s.endElement();
  s.characters(L"tail");
  s.endElement();
  // No whitespace is added inside an element that has text: it would change the text.
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
  EXPECT_EQ(doc.text(),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<root a=\"1\">\n"
            "  <name>text</name>\n"
            "  <group>\n"
            "    <leaf/>\n"
            "    <leaf b=\"2\"/>\n"
            "  </group>\n"
            "  <empty/>\n"
            "  <p>\n"
            "    <b/>tail</p>\n"
            "  <p>Hello <b><i>bold</i><br/></b> world</p>\n"
            "</root>\n");
}

// Catches: names cut or run over where the writer copies short names as blocks of a fixed
// size (lengths on both sides of it, given as UTF-8 and wide), end tags that name another
// element, and indentation that does not stop growing at 64 levels.
TEST(XMLSerializer, NamesOfAnyLengthAndDeepNestingComeOutWhole) {
  const std::size_t lengths[] = {1, 15, 16, 63, 64, 65, 130};
  constexpr std::size_t kDepth = 70;
  Document doc;
  std::vector<std::string> names;
  std::string expected;
  for (std::size_t depth = 0; depth < kDepth; ++depth) {
    std::string name(lengths[depth % 7], static_cast<char>('a' + depth % 26));
    name.back() = static_cast<char>('0' + depth % 10);
    if (depth % 2 == 0) {
      doc.serializer.startElement(name.c_str());
      doc.serializer.addAttribute(name.c_str(), L"v", 1);
    } else {
      const std::wstring wide(name.begin(), name.end());
      doc.serializer.startElement(wide.c_str());
      doc.serializer.addAttribute(wide.c_str(), L"v");
    }
    if (depth != 0) expected += "\n" + std::string(2 * std::min<std::size_t>(depth, 64), ' ');
    expected += "<" + name + " " + name + "=\"v\">";
    names.push_back(name);
  }
  doc.serializer.characters(L"x");
  expected += "x";
  for (std::size_t depth = kDepth; depth-- > 0;) {
    doc.serializer.endElement();
    if (depth + 1 < kDepth)
      expected += "\n" + std::string(2 * std::min<std::size_t>(depth, 64), ' ');
    expected += "</" + names[depth] + ">";
  }
  EXPECT_EQ(doc.text(), expected + "\n");
}

// Catches: markup characters, line ends or characters past the BMP that do not come back
// from the parser as written, in attribute values and in text; text given as UTF-8 written
// otherwise than the same text given wide; and characters XML 1.0 cannot carry written as
// they are (U+FFFD instead), making a document no parser reads.
TEST(XMLSerializer, SpecialCharactersRoundTripThroughTheParser) {
  const wchar_t* samples[] = {
      L"&<>\"'",
      L"]]> and <![CDATA[",
      L"tab\there\nnewline\r\ncrlf\rcr",
      L"  leading and trailing  ",
      L"caf\u00E9 \u20AC \U0001F600 \uFFFD \U0010FFFF",
      L"&amp; is not unescaped twice",
      L"a plain run longer than sixteen bytes, then & and < and > and \u00E9 in it",
      // Characters whose low bits are plain ASCII: narrowing must not make them so.
      L"\U00010041bcd efg\U0001003C \u0126xyz",
  };
  for (const wchar_t* sample : samples) {
    Document doc;
    doc.serializer.startElement(L"v");
    doc.serializer.addAttribute(L"value", sample);
    doc.serializer.characters(sample);
    doc.serializer.endElement();
    std::string text = doc.text();
    std::string expected = string::StringAlgorithm::UTF8Encode(string::WideString(sample));
    EXPECT_EQ(parse(text), (Events{"start v value=" + expected, "text " + expected, "end v"}))
        << text;
    // Names and text given as UTF-8 come out the same.
    Document utf8;
    utf8.serializer.startElement("v");
    utf8.serializer.addAttribute("value", sample, std::wcslen(sample));
    utf8.serializer.characters(expected.data(), expected.size());
    utf8.serializer.endElement();
    EXPECT_EQ(utf8.text(), text);
  }
  // A special character at every place of runs as long as names are, where the blocks of
  // eight and four and the last four, read again, meet.
  for (std::size_t length = 1; length <= 20; ++length) {
    for (std::size_t at = 0; at < length; ++at) {
      for (wchar_t special : {L'&', L'"', L'\u00E9', L'\U0001F600'}) {
        std::wstring run(length, L'a');
        run[at] = special;
        Document doc;
        doc.serializer.startElement(L"v");
        doc.serializer.addAttribute(L"value", run.c_str());
        doc.serializer.characters(run.c_str());
        doc.serializer.endElement();
        const std::string expected =
            string::StringAlgorithm::UTF8Encode(string::WideString(run.c_str()));
        ASSERT_EQ(parse(doc.text()),
                  (Events{"start v value=" + expected, "text " + expected, "end v"}))
            << doc.text();
      }
    }
  }

  Document wideName, utf8Name;
  wideName.serializer.startElement(L"caf\u00E9");
  wideName.serializer.addAttribute(L"\u00E9t\u00E9", L"1");
  utf8Name.serializer.startElement("caf\xC3\xA9");
  utf8Name.serializer.addAttribute("\xC3\xA9t\xC3\xA9", L"1", 1);
  EXPECT_EQ(utf8Name.text(), wideName.text());
  EXPECT_NE(wideName.text().find("<caf\xC3\xA9 \xC3\xA9t\xC3\xA9=\"1\""), std::string::npos);

  const wchar_t bad[] = {L'a', 0x1, 0x0, 0xB, 0xD800, 0xFFFE, 0xFFFF, 0x110000, L'z'};
  Document doc;
  doc.serializer.startElement(L"v");
  doc.serializer.characters(bad, sizeof(bad) / sizeof(bad[0]));
  doc.serializer.endElement();
  std::string expected = "text a";
  for (int i = 0; i < 7; ++i)
    expected += "\xEF\xBF\xBD";
  EXPECT_EQ(parse(doc.text()), (Events{"start v", expected + "z", "end v"}));
}

// Catches: output held back past a flush, a detach or a full buffer (a large document would
// sit in memory), and a writer's failure not reaching the caller.
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

  io::FileWriter full("/dev/full");
  ASSERT_TRUE(full.open());
  XMLSerializer onFullDisk{KPLUUID()};
  onFullDisk.attach(&full);
  onFullDisk.startElement(L"root");
  // The serializer's own buffer and then the file's stream buffer fill; the disk refuses.
  EXPECT_THROW(
      {
        onFullDisk.characters(std::wstring(200000, L'y').c_str());
        onFullDisk.endElement();
        onFullDisk.detach();
        full.close();
      },
      Exception);
}

// Catches: misuse writing broken XML instead of throwing.
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
