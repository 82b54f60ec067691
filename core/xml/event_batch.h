#ifndef KPL_CORE_XML_EVENT_BATCH_H_
#define KPL_CORE_XML_EVENT_BATCH_H_

#include <cstddef>
#include <exception>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "kestrine/platform/core/xml.h"

namespace kestrine::platform::core::xml {

// Where an event begins in the document: 1-based line and column.
struct Position {
  unsigned long line = 0;
  unsigned long column = 0;
};

// What the parser tells of the event being delivered: where it begins, and for an end tag
// what the lookahead attached to it.
struct Delivery {
  Position at;
  std::string_view attached;
};

// Tokenizer events recorded on one thread and replayed on another. Expat's names and texts
// change with its next event, so they are copied, packed one event after another, into one
// buffer that is kept for the next batch.
class EventBatch {
 public:
  EventBatch() = default;
  // A moved-from batch is empty.
  EventBatch(EventBatch&& other) noexcept { *this = std::move(other); }
  EventBatch& operator=(EventBatch&& other) noexcept;

  void startElement(const Position& at, const char* name, const char** attributes);
  void endElement(const Position& at, const char* name, std::string_view attachment);
  void characterData(const Position& at, const char* data, int length);
  void startNamespace(const Position& at, const char* prefix, const char* uri);
  void endNamespace(const Position& at, const char* prefix);
  // Marks the batch as the document's last, with the exception that ended it, if any.
  void end(std::exception_ptr failure);
  // Forgets the events and the end; keeps the memory.
  void clear();

  std::size_t bytes() const { return size_; }
  bool last() const { return last_; }
  const std::exception_ptr& failure() const { return failure_; }

  // Delivers the events in their order, with `now` set to each one's position and
  // attachment while it is delivered. An exception of the callback passes through and ends
  // the replay.
  void replay(XMLCallback* callback, Delivery* now);

 private:
  enum Kind : unsigned { kStart, kEnd, kText, kStartNamespace, kEndNamespace };
  // Opens every event. `count` is the number of attributes, the length of a text or of an
  // end tag's attachment, or whether a namespace event has a prefix.
  struct Header {
    Position at;
    Kind kind;
    unsigned count;
  };

  void put(const Position& at, Kind kind, unsigned count);
  void put(const char* text);
  char* extend(std::size_t size);

  std::unique_ptr<char[]> data_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  bool last_ = false;
  std::exception_ptr failure_;
  // Scratch for a start tag's attribute array while replaying.
  std::vector<const char*> attributes_;
};

}  // namespace kestrine::platform::core::xml

#endif  // KPL_CORE_XML_EVENT_BATCH_H_
