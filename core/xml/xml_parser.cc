#include <sched.h>

#include <optional>
#include <system_error>

#include "core/xml/event_batch.h"
#include "core/xml/expat_tokenizer.h"
#include "core/xml/tokenizing_thread.h"
#include "kestrine/platform/core/xml.h"

namespace kestrine::platform::core::xml {

XMLCallback::~XMLCallback() = default;
XMLLookahead::~XMLLookahead() = default;

namespace {

// Whether this thread may run on more than one processor: a process pinned to one (taskset,
// a container's cpuset) would only switch between the two threads.
bool severalProcessors() {
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) return false;
  return CPU_COUNT(&allowed) > 1;
}

}  // namespace

struct XMLParser::Impl {
  XMLCallback* callback;
  Threading threading;
  XMLLookahead* lookahead = nullptr;
  bool positions = true;
  // The parse under way, for line() and column(): its tokenizer while that calls back on
  // this thread, and the replayed event once a tokenizing thread has taken over.
  const ExpatTokenizer* tokenizer = nullptr;
  bool replaying = false;
  Delivery replayed;

  // Whether the tokenizer moves to a thread of its own before the `chunk`th chunk (from 0),
  // `whole` when every read so far filled its chunk. In automatic mode the first chunk is
  // always tokenized here, since a document that fits in it would only pay for starting the
  // thread; and a reader that hands out less than asked is taken for a stream that may wait
  // on what its events cause, which reading ahead would block.
  bool secondThreadFor(unsigned chunk, bool whole) const {
    switch (threading) {
      case Threading::kAuto:
        return chunk == 1 && whole && severalProcessors();
      case Threading::kSecondThread:
        return chunk == 0;
      case Threading::kCallingThread:
        break;
    }
    return false;
  }
};

XMLParser::XMLParser(XMLCallback* callback, Threading threading) : impl_(new Impl) {
  impl_->callback = callback;
  impl_->threading = threading;
}

XMLParser::~XMLParser() = default;

void XMLParser::parseDocument(io::IDataReader* reader) {
  // A fresh expat parser per document: nothing of an earlier (maybe failed) parse remains.
  ExpatTokenizer tokenizer(impl_->callback);
  Impl& impl = *impl_;
  impl.tokenizer = &tokenizer;
  // The tokenizer goes with this call, however it ends; line() and column() then say 0.
  struct Forget {
    Impl& impl;
    ~Forget() {
      impl.tokenizer = nullptr;
      impl.replaying = false;
      impl.replayed = Delivery();
    }
  } forget{impl};

  bool whole = true;
  for (unsigned chunk = 0;; ++chunk) {
    // The reader runs here, outside expat, so its exceptions pass straight through.
    const unsigned count =
        reader->read(tokenizer.buffer(ExpatTokenizer::kChunk), ExpatTokenizer::kChunk);
    whole = whole && count == ExpatTokenizer::kChunk;
    if (count != 0 && impl.secondThreadFor(chunk, whole)) {
      std::optional<TokenizingThread> thread;
      try {
        thread.emplace(tokenizer, count, impl.lookahead, impl.positions);
      } catch (const std::system_error&) {
        // No thread to be had: the tokenizer carries on here.
      }
      if (thread) {
        impl.replaying = true;
        thread->deliver(reader, impl.callback, &impl.replayed);
        return;
      }
    }
    tokenizer.parseBuffer(count, count == 0);
    if (count == 0) return;
  }
}

unsigned long XMLParser::line() const {
  if (!impl_->positions) return 0;
  if (impl_->replaying) return impl_->replayed.at.line;
  return impl_->tokenizer != nullptr ? impl_->tokenizer->line() : 0;
}

unsigned long XMLParser::column() const {
  if (!impl_->positions) return 0;
  if (impl_->replaying) return impl_->replayed.at.column;
  return impl_->tokenizer != nullptr ? impl_->tokenizer->column() : 0;
}

void XMLParser::positions(bool wanted) {
  impl_->positions = wanted;
}

void XMLParser::lookahead(XMLLookahead* lookahead) {
  impl_->lookahead = lookahead;
}

std::string_view XMLParser::attached() const {
  return impl_->replayed.attached;
}

}  // namespace kestrine::platform::core::xml
