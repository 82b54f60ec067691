#ifndef KPL_CORE_XML_TOKENIZING_THREAD_H_
#define KPL_CORE_XML_TOKENIZING_THREAD_H_

#include <cstddef>
#include <exception>
#include <memory>
#include <thread>

#include "core/xml/event_batch.h"
#include "core/xml/expat_tokenizer.h"
#include "core/xml/hand_off.h"
#include "kestrine/platform/core/io.h"

namespace kestrine::platform::core::xml {

// Runs a document's tokenizer on a thread of its own, so that expat's work overlaps the
// callback's. The calling thread keeps reading the document and calling the callback: it
// hands the tokenizer chunks of the document and replays the events that come back in
// batches, in their order.
class TokenizingThread {
 public:
  // Starts the thread, which first tokenizes the `pending` bytes that the caller put into
  // the tokenizer's buffer, and shows the events to `lookahead` (none when null) as it
  // records them, each with its position only when `positions`. Throws std::system_error
  // when no thread can be started; the tokenizer is then as it was.
  TokenizingThread(ExpatTokenizer& tokenizer, std::size_t pending, XMLLookahead* lookahead,
                   bool positions);
  // Stops the thread, wherever it is, and waits for it.
  ~TokenizingThread();
  TokenizingThread(const TokenizingThread&) = delete;
  TokenizingThread& operator=(const TokenizingThread&) = delete;

  // Reads the rest of the document and delivers its events to `callback`, with `now` telling
  // of the event being delivered. Ends as XMLParser::parseDocument does: every
  // event before a fault is delivered, then the fault (malformed XML, the reader's
  // exception, the callback's) is thrown. The reader is read up to kChunksAhead chunks ahead
  // of the tokenizer.
  void deliver(io::IDataReader* reader, XMLCallback* callback, Delivery* now);

  static constexpr std::size_t kChunksAhead = 4;

 private:
  // Read by as many reads as it takes to fill it, so that a reader that hands out a few
  // bytes at a time costs a hand-over per chunk, not per read.
  struct Chunk {
    std::unique_ptr<char[]> bytes;
    std::size_t size = 0;
    // No chunk follows: the document ended, or the reader threw.
    bool last = false;
    bool readFailed = false;
  };
  class Recorder;

  void tokenize(std::size_t pending);
  void readAhead(io::IDataReader* reader);

  ExpatTokenizer& tokenizer_;
  HandOff<Chunk> input_;
  HandOff<EventBatch> events_;
  std::unique_ptr<Recorder> recorder_;
  bool inputEnded_ = false;
  std::exception_ptr readFailure_;
  // Last, so that it starts once everything it uses is there.
  std::thread thread_;
};

}  // namespace kestrine::platform::core::xml

#endif  // KPL_CORE_XML_TOKENIZING_THREAD_H_
