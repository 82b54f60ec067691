#include "data/xml/markup_stream.h"

#include <pthread.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <utility>

namespace kestrine::platform::data::XML {

namespace {

constexpr std::size_t kBatchBytes = 64 * 1024;
// Batches recorded ahead of the thread before the calling thread waits for it.
constexpr std::size_t kBatchesAhead = 4;

// Elements of values are aligned for any number type, so that printing may read them in place.
constexpr std::size_t kValueAlignment = alignof(std::max_align_t);
static_assert(kValueAlignment <= __STDCPP_DEFAULT_NEW_ALIGNMENT__,
              "operator new[] aligns a batch for any number type");

// Moves `cursor` to the next multiple of `alignment`, as room() placed what comes next.
void align(const char*& cursor, std::size_t alignment) {
  cursor += -reinterpret_cast<std::uintptr_t>(cursor) & (alignment - 1);
}

template <class T>
T take(const char*& cursor) {
  align(cursor, alignof(T));
  T value;
  std::memcpy(&value, cursor, sizeof value);
  cursor += sizeof value;
  return value;
}

template <class Char>
std::basic_string_view<Char> takeText(const char*& cursor, std::size_t alignment = alignof(Char)) {
  const std::uint32_t length = take<std::uint32_t>(cursor);
  align(cursor, alignment);
  const Char* text = reinterpret_cast<const Char*>(cursor);
  cursor += length * sizeof(Char);
  return {text, length};
}

}  // namespace

MarkupStream::MarkupStream(core::io::IDataWriter* writer, bool secondThread)
    : writer_(writer),
      serializer_(core::KPLUUID()),
      recording_(secondThread),
      full_(kBatchesAhead) {
  serializer_.attach(writer);
}

MarkupStream::~MarkupStream() {
  if (!thread_.joinable()) return;
  // Its receive fails from now on, and `done_` was never set: it ends without a flush.
  full_.cancel();
  thread_.join();
}

char* MarkupStream::room(std::size_t size, std::size_t alignment) {
  // The batch's memory comes from operator new[], so offsets aligned are addresses aligned.
  // Alignments are powers of two.
  const std::size_t at = (batch_.size + alignment - 1) & ~(alignment - 1);
  if (batch_.capacity < at + size) {
    // A large block of values may take a batch far past kBatchBytes: it grows in steps.
    const std::size_t capacity = std::max({at + size, 2 * batch_.capacity, kBatchBytes * 2});
    std::unique_ptr<char[]> data(new char[capacity]);
    if (batch_.size != 0) std::memcpy(data.get(), batch_.data.get(), batch_.size);
    batch_.data = std::move(data);
    batch_.capacity = capacity;
  }
  batch_.size = at + size;
  return batch_.data.get() + at;
}

void MarkupStream::record(Kind kind) {
  *room(1) = static_cast<char>(kind);
}

void MarkupStream::recordName(const char* name) {
  std::memcpy(room(sizeof name, alignof(const char*)), &name, sizeof name);
}

template <class Char>
void MarkupStream::recordText(const Char* text, std::size_t length, std::size_t alignment) {
  const std::uint32_t count = static_cast<std::uint32_t>(length);
  std::memcpy(room(sizeof count, alignof(std::uint32_t)), &count, sizeof count);
  // Aligned as the replay passes it on, in place.
  std::memcpy(room(length * sizeof(Char), alignment), text, length * sizeof(Char));
}

void MarkupStream::header() {
  if (!recording_) return serializer_.emitXMLHeader();
  record(kHeader);
}

void MarkupStream::startElement(const char* name) {
  if (!recording_) return serializer_.startElement(name);
  record(kStart);
  recordName(name);
  handOverWhenFull();
}

void MarkupStream::addAttribute(const char* name, const wchar_t* value, std::size_t length) {
  if (!recording_) return serializer_.addAttribute(name, value, length);
  record(kAttribute);
  recordName(name);
  recordText(value, length);
}

void MarkupStream::characters(const wchar_t* text, std::size_t length) {
  if (!recording_) return serializer_.characters(text, length);
  record(kWide);
  recordText(text, length);
  handOverWhenFull();
}

void MarkupStream::characters(const char* text, std::size_t length) {
  if (!recording_) return serializer_.characters(text, length);
  record(kText);
  recordText(text, length);
  handOverWhenFull();
}

void MarkupStream::numbers(const PrimitiveText::tValues& values, Values::FloatDigits digits) {
  if (!recording_) return print(values, digits, serializer_);
  record(kNumbers);
  const std::uint32_t form[2] = {static_cast<std::uint32_t>(values.type),
                                 static_cast<std::uint32_t>(digits)};
  std::memcpy(room(sizeof form, alignof(std::uint32_t)), form, sizeof form);
  recordText(values.bytes.data(), values.bytes.size(), kValueAlignment);
  handOverWhenFull();
}

void MarkupStream::endElement() {
  if (!recording_) return serializer_.endElement(false);
  record(kEnd);
}

void MarkupStream::print(const PrimitiveText::tValues& values, Values::FloatDigits digits,
                         core::xml::XMLSerializer& serializer) {
  std::string_view text;
  if (text_.writeNumbers(values, digits, text)) serializer.characters(text.data(), text.size());
}

void MarkupStream::handOverWhenFull() {
  if (batch_.size < kBatchBytes) return;
  if (!thread_.joinable()) {
    try {
      thread_ = std::thread([this] { write(); });
    } catch (const std::system_error&) {
      // No thread to be had: this one writes, as it would have without asking for one.
      replay(batch_, serializer_);
      batch_.size = 0;
      recording_ = false;
      return;
    }
  }
  handOver();
}

void MarkupStream::handOver() {
  rethrowFailure();
  // The thread takes batches until the last one, so the queue is never cancelled here.
  full_.send(std::exchange(batch_, full_.reuse()));
  batch_.size = 0;
}

void MarkupStream::rethrowFailure() {
  if (failed_.load(std::memory_order_acquire)) std::rethrow_exception(failure_);
}

void MarkupStream::finish() {
  if (recording_ && thread_.joinable()) return end(true);
  if (recording_) replay(batch_, serializer_);
  batch_.size = 0;
  serializer_.detach();
}

void MarkupStream::abandon() {
  if (recording_ && thread_.joinable()) return end(false);
  if (recording_) replay(batch_, serializer_);
  batch_.size = 0;
}

void MarkupStream::end(bool done) {
  if (batch_.size != 0) handOver();
  done_ = done;
  full_.send(Batch());
  thread_.join();
  rethrowFailure();
}

void MarkupStream::write() {
  // For debuggers and profilers; a name that does not take changes nothing else.
  pthread_setname_np(pthread_self(), "kpl-export");
  core::xml::XMLSerializer serializer{core::KPLUUID()};
  serializer.attach(writer_);
  const auto fail = [this] {
    failure_ = std::current_exception();
    failed_.store(true, std::memory_order_release);
  };
  for (Batch batch; full_.receive(batch);) {
    if (batch.size == 0) break;
    if (!failed_.load(std::memory_order_relaxed)) {
      try {
        replay(batch, serializer);
      } catch (...) {
        fail();
      }
    }
    batch.size = 0;
    full_.recycle(std::move(batch));
  }
  // The last batch came after `done_` was set.
  if (!done_ || failed_.load(std::memory_order_relaxed)) return;
  try {
    serializer.detach();
  } catch (...) {
    fail();
  }
}

void MarkupStream::replay(const Batch& batch, core::xml::XMLSerializer& serializer) {
  const char* cursor = batch.data.get();
  const char* const end = cursor + batch.size;
  while (cursor != end) {
    switch (static_cast<Kind>(*cursor++)) {
      case kHeader:
        serializer.emitXMLHeader();
        break;
      case kStart:
        serializer.startElement(take<const char*>(cursor));
        break;
      case kAttribute: {
        const char* name = take<const char*>(cursor);
        const std::wstring_view value = takeText<wchar_t>(cursor);
        serializer.addAttribute(name, value.data(), value.size());
        break;
      }
      case kWide: {
        const std::wstring_view value = takeText<wchar_t>(cursor);
        serializer.characters(value.data(), value.size());
        break;
      }
      case kText: {
        const std::string_view value = takeText<char>(cursor);
        serializer.characters(value.data(), value.size());
        break;
      }
      case kNumbers: {
        const auto type = static_cast<metadata::tValue>(take<std::uint32_t>(cursor));
        const auto digits = static_cast<Values::FloatDigits>(take<std::uint32_t>(cursor));
        print({type, takeText<char>(cursor, kValueAlignment), {}}, digits, serializer);
        break;
      }
      case kEnd:
        serializer.endElement(false);
        break;
    }
  }
}

}  // namespace kestrine::platform::data::XML
