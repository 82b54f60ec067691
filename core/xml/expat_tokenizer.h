#ifndef KPL_CORE_XML_EXPAT_TOKENIZER_H_
#define KPL_CORE_XML_EXPAT_TOKENIZER_H_

#include <cstddef>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "kestrine/platform/core/xml.h"

struct XML_ParserStruct;

namespace kestrine::platform::core::xml {

// One document's expat parser, set up as XMLParser promises: names reported as written,
// namespace declarations as events. It is fed the document piece by piece, by one thread at a
// time, and reports the events of each piece to its callback on the feeding thread.
class ExpatTokenizer {
 public:
  // Bytes handed to expat at a time: large enough to amortise the calls, small enough that a
  // document of any size streams through a few fixed buffers.
  static constexpr std::size_t kChunk = 64 * 1024;

  // Throws std::bad_alloc when expat cannot be set up.
  explicit ExpatTokenizer(XMLCallback* callback);
  ~ExpatTokenizer();
  ExpatTokenizer(const ExpatTokenizer&) = delete;
  ExpatTokenizer& operator=(const ExpatTokenizer&) = delete;

  // Events from now on go to `callback`.
  void redirect(XMLCallback* callback) { callback_ = callback; }

  // Room for the next `size` bytes of the document inside expat, filled by the caller and
  // then tokenized by parseBuffer(): this saves copying them. std::bad_alloc without room.
  void* buffer(std::size_t size);
  // Tokenizes the next `size` bytes, from the room given by buffer() or from `bytes`;
  // `last` after the document's last byte. Throws XMLException for malformed XML (after the
  // events of the well-formed part), std::bad_alloc, or the callback's exception, after
  // which no event is reported.
  void parseBuffer(std::size_t size, bool last);
  void parse(const char* bytes, std::size_t size, bool last);

  // Where the event being reported begins: 1-based line and column.
  unsigned long line() const;
  unsigned long column() const;

 private:
  struct Handlers;

  [[noreturn]] void throwFailure();

  XML_ParserStruct* parser_;
  XMLCallback* callback_;
  // The first exception thrown by the callback; expat is stopped and it is rethrown once
  // expat has returned, since it must not unwind through expat's C frames.
  std::exception_ptr failure_;
  // Scratch for names rewritten as written; reused so that most events allocate nothing.
  std::string name_;
  std::vector<std::string> attributeText_;
  std::vector<const char*> attributes_;
};

}  // namespace kestrine::platform::core::xml

#endif  // KPL_CORE_XML_EXPAT_TOKENIZER_H_
