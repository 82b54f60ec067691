#ifndef KESTRINE_PLATFORM_CORE_XML_H_
#define KESTRINE_PLATFORM_CORE_XML_H_

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "kestrine/platform/core/exception.h"
#include "kestrine/platform/core/export.h"
#include "kestrine/platform/core/io.h"
#include "kestrine/platform/core/uuid.h"

namespace kestrine::platform::core::xml {

// Receives the events of XMLParser. Names and texts are UTF-8 and valid only during the call.
class KPL_CORE_API XMLCallback {
 public:
  virtual ~XMLCallback();
  // `attributes` is a null-terminated array of alternating name and value pointers.
  virtual void notifyStartElement(const char* name, const char** attributes) = 0;
  virtual void notifyEndElement(const char* name) = 0;
  // Comes before the start tag that declares the namespace. `prefix` is null for a default
  // namespace declaration; `uri` is "" for xmlns="", which undeclares the default namespace.
  virtual void notifyStartNamespace(const char* prefix, const char* uri) = 0;
  // Comes after the end tag of the element that declared it.
  virtual void notifyEndNamespace(const char* prefix) = 0;
  // A run of character data; one text may arrive in several runs.
  virtual void notifyCharacterData(const char* data, int length) = 0;
};

// Work that a callback can have done ahead of it while XMLParser tokenizes on a second
// thread: the lookahead sees there every start tag, character data and end tag that is
// tokenized there, in document order and before the callback does, and may attach bytes to
// an end tag, which the callback then finds in XMLParser::attached() while that end tag is
// delivered. It is offered to attach only while the callback has events waiting, so that its
// work fills time the tokenizing thread would spend waiting and never delays the callback.
// What is tokenized on the calling thread it never sees (the whole document, or in automatic
// mode its first chunk), so that a callback must always be able to do without. It runs
// beside the callback and must share nothing with it. Its exceptions end the parse as the
// callback's do.
class KPL_CORE_API XMLLookahead {
 public:
  virtual ~XMLLookahead();
  virtual void startElement(const char* name) = 0;
  virtual void characterData(const char* data, int length) = 0;
  // `attachment` comes empty, or null when nothing is to be attached this time; what it
  // holds on return goes with the end tag.
  virtual void endElement(const char* name, std::string* attachment) = 0;
};

// Malformed XML: the tokenizer's message with the 1-based line and column of the fault.
// what() reads "XML error at line L, column C: <message>".
class KPL_CORE_API XMLException : public Exception {
 public:
  XMLException(const std::string& message, unsigned long line, unsigned long column);
  unsigned long line() const { return line_; }
  unsigned long column() const { return column_; }

 private:
  unsigned long line_;
  unsigned long column_;
};

// A streaming XML parser (expat underneath): the document is read in chunks of 64 KiB, so
// its size is bounded only by what the callback keeps. Element and attribute names are
// reported as written (a prefixed name keeps its prefix); namespace declarations are reported
// as events and not as attributes. Entity expansion is bounded (expat's protection against
// "billion laughs" documents), external entities are never loaded. A parser object parses one
// document at a time and serves one thread; it may parse again after a parse ends, even one
// that threw.
//
// Expat runs on the calling thread unless asked otherwise: on request it runs on a second
// thread while the calling thread delivers the events. The callback and the reader are still
// called on the calling thread only, and the events, their positions and the exceptions are
// the same. The reader is then read ahead: up to four chunks ahead of the tokenizer, which
// runs up to four batches of events (about 64 KiB each) ahead of the callback; and it is
// asked again whenever it hands out less than a whole chunk.
class KPL_CORE_API XMLParser {
 public:
  enum class Threading {
    kCallingThread,
    // A second thread once the reader has filled two whole chunks (a document of more than
    // 64 KiB, from a file or memory), if the calling thread may run on more than one
    // processor.
    kAuto,
    // A second thread for any document.
    kSecondThread,
  };

  explicit XMLParser(XMLCallback* callback, Threading threading = Threading::kCallingThread);
  ~XMLParser();
  XMLParser(const XMLParser&) = delete;
  XMLParser& operator=(const XMLParser&) = delete;

  // Parses the whole document from an open reader (not owned, not closed). Throws
  // XMLException for malformed XML (after the events of the well-formed part were
  // delivered); an exception thrown by the callback or the reader stops the parse, no event
  // follows it, and it passes through unchanged. std::bad_alloc when memory runs out.
  void parseDocument(io::IDataReader* reader);

  // Where the event being delivered begins in the document: its 1-based line and column.
  // Meaningful only inside a callback.
  unsigned long line() const;
  unsigned long column() const;

  // Whether line() and column() are wanted in callbacks: yes unless told otherwise, between
  // parses. Without them a parse that tokenizes on a second thread saves working out where
  // every event begins, and line() and column() say 0 in either mode. Malformed XML is
  // reported with its position all the same.
  void positions(bool wanted);

  // Has `lookahead` (not owned; null for none, the default) see the events of the parses
  // that tokenize on a second thread, from the next parse on.
  void lookahead(XMLLookahead* lookahead);
  // What the lookahead attached to the end tag being delivered; empty for any other event,
  // and outside a callback. Valid until the callback returns.
  std::string_view attached() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Writes an XML document as UTF-8 through an attached writer, buffered. Texts and attribute
// values are escaped (& < > always; " and tab, newline, carriage return in attribute values
// and carriage return in text as character references, so that they survive a parser's
// normalisation); characters XML 1.0 cannot carry are written as U+FFFD. Names are written as
// given and must be valid XML names.
//
// Indentation: each child element starts on its own line, indented by two spaces per level
// up to 64 levels (deeper ones are indented as the 64th), and an element that got children ends
// with its end tag on its own line; an element with no content is written <x/>. No whitespace is
// added while any open element has received character data: not before its children, not inside
// them, not before its end tag, so the text of an element with text round-trips exactly. The choice
// is made when each child starts, because output is streamed: in mixed content whose first text
// comes after a child
// (<p><b/>tail</p>), the line break and indentation already written before that child stay
// and become part of the text. Writers of mixed content start it with its text.
//
// Misuse (a null or empty name, an end tag or text with no element open, an attribute after
// content) throws core::Exception and writes nothing. A serializer object serves one thread.
class KPL_CORE_API XMLSerializer {
 public:
  // `id` names the document being written (kept, never written).
  explicit XMLSerializer(const KPLUUID& id);
  ~XMLSerializer();
  XMLSerializer(const XMLSerializer&) = delete;
  XMLSerializer& operator=(const XMLSerializer&) = delete;

  const KPLUUID& id() const;

  // Sends output to `writer` (not owned, already open) from now on, including what was
  // produced while none was attached. The writer's exceptions pass through every call that
  // writes to it (at the latest detach(); before, whenever 64 KiB are buffered).
  void attach(io::IDataWriter* writer);
  // Flushes the buffer to the writer and lets it go. Destroying a serializer also flushes,
  // but cannot report a failing writer.
  void detach();

  // The XML declaration <?xml version="1.0" encoding="UTF-8"?> and a line break.
  void emitXMLHeader();
  void startElement(const wchar_t* name);
  // Adds an attribute to the element just started (before any content of it).
  void addAttribute(const wchar_t* name, const wchar_t* value);
  // The same with a value of `length` characters, which need no terminator.
  void addAttribute(const wchar_t* name, const wchar_t* value, std::size_t length);
  // The same with the name in UTF-8: a program's own ASCII names go out without conversion.
  void startElement(const char* name);
  void addAttribute(const char* name, const wchar_t* value, std::size_t length);
  // Text of the innermost open element; an empty text adds nothing (<x/> stays empty).
  void characters(const wchar_t* text);
  void characters(const wchar_t* text, std::size_t length);
  // The same from UTF-8; printable ASCII, such as numbers, is written without conversion.
  void characters(const char* text, std::size_t length);
  // Closes the innermost open element (the document element with a final line break);
  // `flush` also pushes the buffer to the writer.
  void endElement(bool flush = false);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kestrine::platform::core::xml

#endif  // KESTRINE_PLATFORM_CORE_XML_H_
