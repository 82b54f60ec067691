#ifndef KESTRINE_PLATFORM_CORE_XML_H_
#define KESTRINE_PLATFORM_CORE_XML_H_

#include <cstddef>
#include <memory>

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
  // `prefix` is null for a default namespace declaration.
  virtual void notifyStartNamespace(const char* prefix, const char* uri) = 0;
  virtual void notifyEndNamespace(const char* prefix) = 0;
  // A run of character data; one text may arrive in several runs.
  virtual void notifyCharacterData(const char* data, int length) = 0;
};

// Malformed XML: the tokenizer's message with the 1-based line and column of the fault.
class KPL_CORE_API XMLException : public Exception {
 public:
  XMLException(const std::string& message, unsigned long line, unsigned long column);
  unsigned long line() const { return line_; }
  unsigned long column() const { return column_; }

 private:
  unsigned long line_;
  unsigned long column_;
};

// A streaming XML parser (expat underneath): the document is read in chunks, so its size is
// bounded only by what the callback keeps. Element and attribute names are reported as
// written (a prefixed name keeps its prefix); namespace declarations are reported as events
// and not as attributes. A parser object parses one document and serves one thread.
class KPL_CORE_API XMLParser {
 public:
  explicit XMLParser(XMLCallback* callback);
  ~XMLParser();
  XMLParser(const XMLParser&) = delete;
  XMLParser& operator=(const XMLParser&) = delete;

  // Parses the whole document from an open reader. Throws XMLException for malformed XML
  // (after the events of the well-formed part were delivered); an exception thrown by the
  // callback or the reader stops the parse and passes through unchanged.
  void parseDocument(io::IDataReader* reader);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Writes an XML document as UTF-8 through an attached writer, buffered. Output is indented
// for reading: each child element starts on its own line, except inside an element that
// has received character data, where no whitespace is ever added (so that text round-trips
// exactly). Texts and attribute values are escaped; characters XML 1.0 cannot carry are
// written as U+FFFD.
class KPL_CORE_API XMLSerializer {
 public:
  // `id` names the document being written (kept, never written).
  explicit XMLSerializer(const KPLUUID& id);
  ~XMLSerializer();
  XMLSerializer(const XMLSerializer&) = delete;
  XMLSerializer& operator=(const XMLSerializer&) = delete;

  const KPLUUID& id() const;

  // Sends output to `writer` (not owned, already open) from now on.
  void attach(io::IDataWriter* writer);
  // Flushes the buffer to the writer and lets it go.
  void detach();

  // The XML declaration: <?xml version="1.0" encoding="UTF-8"?>
  void emitXMLHeader();
  void startElement(const wchar_t* name);
  // Adds an attribute to the element just started (before any content of it).
  void addAttribute(const wchar_t* name, const wchar_t* value);
  void characters(const wchar_t* text);
  void characters(const wchar_t* text, std::size_t length);
  // Closes the innermost open element; `flush` also pushes the buffer to the writer.
  void endElement(bool flush = false);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kestrine::platform::core::xml

#endif  // KESTRINE_PLATFORM_CORE_XML_H_
