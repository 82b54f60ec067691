#include "core/xml/tokenizing_thread.h"

#include <pthread.h>

#include <string>
#include <utility>

namespace kestrine::platform::core::xml {

namespace {

// A batch goes to the calling thread once its events take this many bytes: enough to make
// the hand-over cheap, little enough to stay in the processor's cache until it is replayed.
constexpr std::size_t kBatchBytes = 64 * 1024;
constexpr std::size_t kBatchesAhead = 4;

// Thrown on the tokenizing thread, through the tokenizer, when the calling thread has gone.
struct Cancelled {};

}  // namespace

// The tokenizer's callback on the tokenizing thread: records each event with its position,
// after the lookahead has seen it.
class TokenizingThread::Recorder : public XMLCallback {
 public:
  // `positions` is the tokenizer to ask where each event begins, or null for no positions.
  Recorder(HandOff<EventBatch>& out, const ExpatTokenizer* positions, XMLLookahead* lookahead)
      : out_(out), positions_(positions), lookahead_(lookahead) {}

  void notifyStartElement(const char* name, const char** attributes) override {
    if (lookahead_ != nullptr) lookahead_->startElement(name);
    batch_.startElement(here(), name, attributes);
    sendWhenFull();
  }
  void notifyEndElement(const char* name) override {
    attachment_.clear();
    if (lookahead_ != nullptr) lookahead_->endElement(name, ahead_ ? &attachment_ : nullptr);
    batch_.endElement(here(), name, attachment_);
    sendWhenFull();
  }
  void notifyCharacterData(const char* data, int length) override {
    if (lookahead_ != nullptr) lookahead_->characterData(data, length);
    batch_.characterData(here(), data, length);
    sendWhenFull();
  }
  void notifyStartNamespace(const char* prefix, const char* uri) override {
    batch_.startNamespace(here(), prefix, uri);
    sendWhenFull();
  }
  void notifyEndNamespace(const char* prefix) override {
    batch_.endNamespace(here(), prefix);
    sendWhenFull();
  }

  // Sends the events so far, even none. Throws Cancelled when the calling thread has gone.
  void flush() {
    if (!out_.send(std::move(batch_))) throw Cancelled();
    ahead_ = out_.waiting() >= kBatchesAhead / 2;
    batch_ = out_.reuse();
    batch_.clear();
  }

  // Sends the last batch, with the exception that ended the tokenizing, if any.
  void finish(std::exception_ptr failure) {
    batch_.end(std::move(failure));
    out_.send(std::move(batch_));
  }

 private:
  // Expat works a position out by scanning every byte since the last one asked for.
  Position here() const {
    return positions_ != nullptr ? Position{positions_->line(), positions_->column()} : Position{};
  }
  void sendWhenFull() {
    if (batch_.bytes() >= kBatchBytes) flush();
  }

  HandOff<EventBatch>& out_;
  const ExpatTokenizer* const positions_;
  XMLLookahead* const lookahead_;
  // Whether the calling thread had events enough waiting at the last batch sent: then the
  // lookahead's work is done while that thread is busy anyway, and saves it its own.
  bool ahead_ = false;
  std::string attachment_;
  EventBatch batch_;
};

TokenizingThread::TokenizingThread(ExpatTokenizer& tokenizer, std::size_t pending,
                                   XMLLookahead* lookahead, bool positions)
    : tokenizer_(tokenizer),
      input_(kChunksAhead),
      events_(kBatchesAhead),
      recorder_(new Recorder(events_, positions ? &tokenizer : nullptr, lookahead)),
      thread_([this, pending] { tokenize(pending); }) {}

TokenizingThread::~TokenizingThread() {
  input_.cancel();
  events_.cancel();
  thread_.join();
}

void TokenizingThread::tokenize(std::size_t pending) {
  // For debuggers and profilers; a name that does not take changes nothing else.
  pthread_setname_np(pthread_self(), "kpl-tokenizer");
  std::exception_ptr failure;
  try {
    tokenizer_.redirect(recorder_.get());
    tokenizer_.parseBuffer(pending, false);
    for (Chunk chunk;;) {
      if (!input_.tryReceive(chunk)) {
        // Out of input. The calling thread reads only between batches, so what is recorded
        // goes now, lest both threads wait for each other.
        recorder_->flush();
        if (!input_.receive(chunk)) return;
      }
      if (chunk.size != 0 || !chunk.readFailed)
        tokenizer_.parse(chunk.bytes.get(), chunk.size, chunk.last && !chunk.readFailed);
      if (chunk.last) break;
      input_.recycle(std::move(chunk));
    }
  } catch (...) {
    failure = std::current_exception();
  }
  recorder_->finish(std::move(failure));
}

void TokenizingThread::readAhead(io::IDataReader* reader) {
  while (!inputEnded_ && !input_.full()) {
    Chunk chunk = input_.reuse();
    if (!chunk.bytes) chunk.bytes.reset(new char[ExpatTokenizer::kChunk]);
    chunk.size = 0;
    try {
      while (chunk.size < ExpatTokenizer::kChunk && !chunk.last) {
        const unsigned count =
            reader->read(chunk.bytes.get() + chunk.size,
                         static_cast<unsigned>(ExpatTokenizer::kChunk - chunk.size));
        chunk.size += count;
        chunk.last = count == 0;
      }
    } catch (...) {
      // Thrown once the events of what was read before are delivered, as when the
      // tokenizer runs on the calling thread.
      readFailure_ = std::current_exception();
      chunk.readFailed = chunk.last = true;
    }
    inputEnded_ = chunk.last;
    input_.send(std::move(chunk));
  }
}

void TokenizingThread::deliver(io::IDataReader* reader, XMLCallback* callback, Delivery* now) {
  for (EventBatch batch;;) {
    readAhead(reader);
    if (!events_.receive(batch)) return;
    batch.replay(callback, now);
    if (batch.last()) {
      if (batch.failure()) std::rethrow_exception(batch.failure());
      if (readFailure_) std::rethrow_exception(readFailure_);
      return;
    }
    events_.recycle(std::move(batch));
  }
}

}  // namespace kestrine::platform::core::xml
