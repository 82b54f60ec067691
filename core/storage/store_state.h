#ifndef KPL_CORE_STORAGE_STORE_STATE_H_
#define KPL_CORE_STORAGE_STORE_STATE_H_

#include <cstddef>
#include <string>

// What a pending transaction (pending_transaction.h) shares with the back ends that keep a
// store persistently: the store's state, and the two sides of a commit.

namespace kestrine::platform::core::storage::datastore {

// The allocator and accounting state of a store. A back end keeps it beside the records and
// writes it in the same transaction as they are, so it can never disagree with them.
struct StoreState {
  unsigned nextOffset = 0;   // offsets ever given out are 0 .. nextOffset - 1
  unsigned freeCount = 0;    // depth of the stack of freed offsets
  unsigned liveRecords = 0;  // records that exist
  unsigned version = 0;      // the format version of the data, set by the client
  unsigned long long liveBytes = 0;

  // What IDataStore::used() answers: the records' bytes and 8 bytes for each offset ever
  // given out, as MemoryDataStore counts them, so that every store answers alike.
  unsigned long long used() const { return liveBytes + 8ull * nextOffset; }
};

// Bytes of one record. They point into memory that the back end or a pending change owns
// and stay valid only until its next change, commit or read.
struct RecordBytes {
  const unsigned char* data;
  std::size_t size;
};

// What a pending transaction reads of its base besides records: the stack of freed offsets.
class CommittedStore {
 public:
  // How messages name the store: a file's path, a database store's address.
  virtual const std::string& name() const = 0;

  // The offset at `position` (0 is the bottom) of the committed stack of freed offsets.
  // Throws core::Exception when it cannot be read or is missing.
  virtual unsigned freeOffset(unsigned position) = 0;

 protected:
  ~CommittedStore() = default;
};

// Where a pending transaction's changes go at commit, all inside one back-end transaction.
class CommitWriter {
 public:
  virtual void putRecord(unsigned offset, const RecordBytes& bytes) = 0;
  virtual void deleteRecord(unsigned offset) = 0;
  // Removes the positions first .. end - 1 of the stack of freed offsets.
  virtual void dropFree(unsigned first, unsigned end) = 0;
  virtual void putFree(unsigned position, unsigned offset) = 0;
  virtual void putState(const StoreState& state) = 0;

 protected:
  ~CommitWriter() = default;
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_STORE_STATE_H_
