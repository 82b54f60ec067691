#ifndef KPL_CORE_STORAGE_RECORD_CACHE_H_
#define KPL_CORE_STORAGE_RECORD_CACHE_H_

#include <cstddef>
#include <unordered_set>
#include <utility>
#include <vector>

#include "core/storage/pending_transaction.h"

namespace kestrine::platform::core::storage::datastore {

// Committed records that a client of a shared store has read or written, for one committed
// state: its owner empties it when another client commits. Offsets are loaded a block at a
// time, so that the cache also knows which offsets hold no record. It drops everything when
// it outgrows its capacity rather than tracking use: a client that needs more than that
// reads a block again now and then. Not thread-safe.
class RecordCache {
 public:
  // Offsets per block: records made together lie together, and a walk over a tree reads
  // them together, so one round trip brings many that are read next.
  static constexpr unsigned kBlock = 256;

  using Records = std::vector<std::pair<unsigned, std::vector<unsigned char>>>;

  explicit RecordCache(std::size_t capacity) : capacity_(capacity) {}

  // The record at `offset`, or (!live) the knowledge that it holds none; null when unknown
  // until the offset's block is loaded.
  const PendingTransaction::Change* find(unsigned offset) const;

  // Takes in the records of the block that starts at offset `block * kBlock`, first dropping
  // everything if they would not fit.
  void load(unsigned block, Records records);

  // Takes in the changes that this client has just committed.
  void absorb(PendingTransaction::Changes changes);

  void clear();

 private:
  PendingTransaction::Changes records_;
  std::unordered_set<unsigned> blocks_;
  std::size_t bytes_ = 0;
  std::size_t capacity_;
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_RECORD_CACHE_H_
