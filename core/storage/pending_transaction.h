#ifndef KPL_CORE_STORAGE_PENDING_TRANSACTION_H_
#define KPL_CORE_STORAGE_PENDING_TRANSACTION_H_

#include <optional>
#include <unordered_map>
#include <vector>

#include "core/storage/store_state.h"

namespace kestrine::platform::core::storage::datastore {

// The changes that this process has made since the last commit: the new bytes or the removal
// of each touched offset, and the allocator and accounting state they lead to. It lives in
// memory, not in an open back-end transaction: an LMDB write transaction holds LMDB's writer
// mutex, which must be released by the thread that took it, while the store's callers change
// threads between operations; a database transaction would cost a round trip per change.
// Not thread-safe.
class PendingTransaction {
 public:
  // A touched offset: its record's bytes, or, when !live, the fact that it was freed.
  struct Change {
    bool live;
    std::vector<unsigned char> bytes;

    // The record's bytes; absent when it was freed.
    std::optional<RecordBytes> record() const {
      if (!live) return std::nullopt;
      return RecordBytes{bytes.data(), bytes.size()};
    }
  };
  using Changes = std::unordered_map<unsigned, Change>;

  // The bytes of a new or rewritten record: `size` bytes from `data`, zeros when it is null.
  static std::vector<unsigned char> copy(const void* data, unsigned size);

  // Starts an empty transaction on the committed state `base`.
  void start(const StoreState& base);

  // True when nothing has changed since start().
  bool empty() const;

  const StoreState& state() const { return state_; }
  void version(unsigned version) { state_.version = version; }

  // The change of `offset`, or null when this transaction has not touched it.
  const Change* find(unsigned offset) const;

  // Gives a new record the offset freed last (the same order as MemoryDataStore), else the
  // next offset never given out; the free stack's committed part is read from `committed`,
  // which must show this transaction's base. Throws core::Exception when no offset is left.
  unsigned create(std::vector<unsigned char> bytes, CommittedStore& committed);

  // Changes the existing record at `offset`, whose bytes are now `current`.
  void replace(unsigned offset, std::vector<unsigned char> bytes, const RecordBytes& current);
  void append(unsigned offset, const RecordBytes& current, const unsigned char* data,
              unsigned size);
  void remove(unsigned offset, const RecordBytes& current);

  // Writes every change, the free stack and the state. Sorted by offset, the records go into
  // the back end's B-tree in order, which fills its pages best.
  void apply(CommitWriter& writer) const;

  // The touched offsets that were given out before this transaction began: the ones whose
  // committed records, where there are any, its changes replace or remove.
  std::vector<unsigned> touchedCommittedOffsets() const;

  // Hands the changes over (after a commit, to a cache of the committed records), leaving
  // the transaction empty of them until the next start().
  Changes takeChanges();

 private:
  Changes changes_;
  StoreState base_;
  StoreState state_;
  // The committed free stack holds positions 0 .. base_.freeCount - 1; this transaction has
  // popped it down to committedFree_ and pushed freed_ on top.
  unsigned committedFree_ = 0;
  std::vector<unsigned> freed_;
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_PENDING_TRANSACTION_H_
