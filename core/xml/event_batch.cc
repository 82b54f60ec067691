#include "core/xml/event_batch.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace kestrine::platform::core::xml {

namespace {

// Takes the string that `put(const char*)` wrote at `cursor` and moves past it.
const char* takeString(const char*& cursor) {
  std::uint32_t length;
  std::memcpy(&length, cursor, sizeof length);
  const char* text = cursor + sizeof length;
  cursor = text + length + 1;
  return text;
}

}  // namespace

EventBatch& EventBatch::operator=(EventBatch&& other) noexcept {
  data_ = std::move(other.data_);
  size_ = std::exchange(other.size_, 0);
  capacity_ = std::exchange(other.capacity_, 0);
  last_ = std::exchange(other.last_, false);
  failure_ = std::exchange(other.failure_, nullptr);
  attributes_ = std::move(other.attributes_);
  return *this;
}

char* EventBatch::extend(std::size_t size) {
  if (capacity_ - size_ < size) {
    std::size_t capacity = std::max(size_ + size, 2 * capacity_);
    std::unique_ptr<char[]> data(new char[capacity]);
    if (size_ != 0) std::memcpy(data.get(), data_.get(), size_);
    data_ = std::move(data);
    capacity_ = capacity;
  }
  char* at = data_.get() + size_;
  size_ += size;
  return at;
}

void EventBatch::put(const Position& at, Kind kind, unsigned count) {
  const Header header{at, kind, count};
  std::memcpy(extend(sizeof header), &header, sizeof header);
}

// A string goes with its length, for replay to step over, and its terminating zero, for the
// callback to read it in place.
void EventBatch::put(const char* text) {
  const std::uint32_t length = static_cast<std::uint32_t>(std::strlen(text));
  char* at = extend(sizeof length + length + 1);
  std::memcpy(at, &length, sizeof length);
  std::memcpy(at + sizeof length, text, length + 1);
}

void EventBatch::startElement(const Position& at, const char* name, const char** attributes) {
  unsigned count = 0;
  while (attributes[2 * count] != nullptr)
    ++count;
  put(at, kStart, count);
  put(name);
  for (unsigned i = 0; i < 2 * count; ++i)
    put(attributes[i]);
}

void EventBatch::endElement(const Position& at, const char* name, std::string_view attachment) {
  put(at, kEnd, static_cast<unsigned>(attachment.size()));
  put(name);
  if (!attachment.empty())
    std::memcpy(extend(attachment.size()), attachment.data(), attachment.size());
}

void EventBatch::characterData(const Position& at, const char* data, int length) {
  put(at, kText, static_cast<unsigned>(length));
  std::memcpy(extend(static_cast<std::size_t>(length)), data, static_cast<std::size_t>(length));
}

void EventBatch::startNamespace(const Position& at, const char* prefix, const char* uri) {
  put(at, kStartNamespace, prefix != nullptr);
  if (prefix != nullptr) put(prefix);
  put(uri);
}

void EventBatch::endNamespace(const Position& at, const char* prefix) {
  put(at, kEndNamespace, prefix != nullptr);
  if (prefix != nullptr) put(prefix);
}

void EventBatch::end(std::exception_ptr failure) {
  last_ = true;
  failure_ = std::move(failure);
}

void EventBatch::clear() {
  size_ = 0;
  last_ = false;
  failure_ = nullptr;
}

void EventBatch::replay(XMLCallback* callback, Delivery* now) {
  const char* cursor = data_.get();
  const char* const end = cursor + size_;
  while (cursor != end) {
    Header header;
    std::memcpy(&header, cursor, sizeof header);
    cursor += sizeof header;
    now->at = header.at;
    now->attached = {};
    switch (header.kind) {
      case kStart: {
        const char* name = takeString(cursor);
        attributes_.clear();
        for (unsigned i = 0; i < 2 * header.count; ++i)
          attributes_.push_back(takeString(cursor));
        attributes_.push_back(nullptr);
        callback->notifyStartElement(name, attributes_.data());
        break;
      }
      case kEnd: {
        const char* name = takeString(cursor);
        now->attached = {cursor, header.count};
        cursor += header.count;
        callback->notifyEndElement(name);
        break;
      }
      case kText:
        callback->notifyCharacterData(cursor, static_cast<int>(header.count));
        cursor += header.count;
        break;
      case kStartNamespace: {
        const char* prefix = header.count != 0 ? takeString(cursor) : nullptr;
        callback->notifyStartNamespace(prefix, takeString(cursor));
        break;
      }
      case kEndNamespace:
        callback->notifyEndNamespace(header.count != 0 ? takeString(cursor) : nullptr);
        break;
    }
  }
}

}  // namespace kestrine::platform::core::xml
