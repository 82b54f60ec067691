#ifndef KPL_DATA_XML_MARKUP_STREAM_H_
#define KPL_DATA_XML_MARKUP_STREAM_H_

#include <atomic>
#include <cstddef>
#include <exception>
#include <memory>
#include <string_view>
#include <thread>

#include "core/xml/hand_off.h"
#include "data/values/number_text.h"
#include "data/xml/primitive_text.h"
#include "kestrine/platform/core/xml.h"
#include "kestrine/platform/data/metadata/value.h"

namespace kestrine::platform::data::XML {

// The markup of an export on its way through a serializer to a writer. Each call goes
// straight through, unless a second thread is asked for: then the calls are recorded in
// batches of about 64 KiB, and once the first batch is full a thread of its own replays them
// into a serializer of its own, blocks of numbers printed there too, while the calling thread
// reads the store on. The writer is then called on that thread alone, one call at a time,
// until finish() or abandon() returns. A document of one batch is written on the calling
// thread.
//
// Names are kept as pointers, not copied: they must outlive the stream, as literals and the
// value types' names do. Texts and values are copied.
class MarkupStream {
 public:
  // `writer` (not owned) is open.
  MarkupStream(core::io::IDataWriter* writer, bool secondThread);
  // A thread still running takes no further batch, and is waited for. What the
  // serializer holds goes to the writer, whose failure is lost then.
  ~MarkupStream();
  MarkupStream(const MarkupStream&) = delete;
  MarkupStream& operator=(const MarkupStream&) = delete;

  void header();
  void startElement(const char* name);
  void addAttribute(const char* name, const wchar_t* value, std::size_t length);
  void characters(const wchar_t* text, std::size_t length);
  void characters(const char* text, std::size_t length);
  // A block of numbers, as PrimitiveText::writeNumbers writes it.
  void numbers(const PrimitiveText::tValues& values, Values::FloatDigits digits);
  void endElement();

  // Writes all that is recorded and lets the writer go. An exception of the serializer or
  // the writer passes through the call that met it, or, on the second thread, the next call
  // that hands over a batch, at the latest this one; nothing is written after it.
  void finish();
  // For a document cut short by a fault: writes what is recorded, as finish() does, but
  // leaves the last of it to the serializer's destruction, as an unfinished document is
  // left. An exception of the writer passes through.
  void abandon();

 private:
  static constexpr std::size_t kCacheLine = 64;
  enum Kind : unsigned char { kHeader, kStart, kAttribute, kWide, kText, kNumbers, kEnd };
  // Recorded calls, one after another. Grown without filling, as every byte is written
  // before it is read.
  struct Batch {
    std::unique_ptr<char[]> data;
    std::size_t size = 0;
    std::size_t capacity = 0;
  };

  // Appends `size` bytes at an offset aligned to `alignment`; returns where they go.
  char* room(std::size_t size, std::size_t alignment = 1);
  void record(Kind kind);
  void recordName(const char* name);
  // A length and `length` units after it, aligned to `alignment`.
  template <class Char>
  void recordText(const Char* text, std::size_t length, std::size_t alignment = alignof(Char));
  // Hands the batch over once it is full, starting the thread with the first one.
  void handOverWhenFull();
  void handOver();
  void rethrowFailure();

  // Hands over what is recorded and waits for the thread, which lets the writer go when
  // `done`; then passes its failure on.
  void end(bool done);

  // Writes the calls of `batch` to `serializer`; on the second thread, or on this one for a
  // document that fits one batch.
  void replay(const Batch& batch, core::xml::XMLSerializer& serializer);
  void print(const PrimitiveText::tValues& values, Values::FloatDigits digits,
             core::xml::XMLSerializer& serializer);
  // The second thread's work.
  void write();

  core::io::IDataWriter* const writer_;
  // The calling thread's serializer; the second thread makes its own, so that what it changes
  // lies in memory of that thread's own.
  core::xml::XMLSerializer serializer_;
  bool recording_;
  // What each thread writes sits on cache lines of its own: sharing one would have every
  // call of either thread wait for the other's core to give the line back.
  alignas(kCacheLine) Batch batch_;
  // The second thread's while it runs.
  alignas(kCacheLine) PrimitiveText text_{nullptr};

  std::thread thread_;
  // Batches on their way to the thread, as the parser hands events over; one without calls
  // ends it. Spent ones come back.
  core::xml::HandOff<Batch> full_;
  // Set by the thread once the serializer failed, with `failure_` written before it; from
  // then on the thread takes batches without writing them.
  std::atomic<bool> failed_{false};
  // Told to the thread along with the last batch: whether to let the writer go.
  bool done_ = false;
  std::exception_ptr failure_;
};

}  // namespace kestrine::platform::data::XML

#endif  // KPL_DATA_XML_MARKUP_STREAM_H_
