#include "kestrine/platform/core/transactional_datastore.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <mutex>
#include <optional>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "core/storage/pending_transaction.h"
#include "core/storage/store_back_end.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {

// Threads. `mutex` guards the pending transaction and the back end (neither an LMDB
// environment nor a database connection is for concurrent use); every operation holds it
// throughout, so each one is atomic towards the others. The store lock handed out by lock()
// is the separate, re-entrant `storeLock`: it orders callers' sequences of operations and
// marks commit points.
//
// Holding. While the store lock is held or a transaction is pending, the back end keeps the
// committed state that this process reads fixed (see StoreBackEnd); every operation that
// leaves neither lets it go.
//
// Read-only. Nothing is ever pending; `counts` holds the records whose reference counts the
// object model rewrote, for the committed state that `countsSeen` names.
struct TransactionalDataStore::Impl {
  Impl(std::unique_ptr<StoreBackEnd> store, StoreAccess access)
      : backEnd(std::move(store)), readOnly(access == StoreAccess::kReadOnly) {}

  std::unique_ptr<StoreBackEnd> backEnd;
  const bool readOnly;
  std::unordered_map<unsigned, std::vector<unsigned char>> counts;
  unsigned long long countsSeen = 0;

  std::recursive_mutex storeLock;
  unsigned lockDepth = 0;  // touched only by the thread that holds storeLock

  std::mutex mutex;
  std::condition_variable turnTaken;
  bool awaitingTurn = false;
  bool lockHeld = false;
  bool pending = false;
  PendingTransaction transaction;
  // Moves with every change made through this store object, for the stamp.
  unsigned long long ownChanges = 0;
  std::unique_ptr<IAttachment> attachment;

  // A held store lock.
  class Handle final : public IDataStore::ILock {
   public:
    explicit Handle(Impl& impl) : impl_(impl) { impl_.acquire(); }
    ~Handle() override { impl_.release(); }

   private:
    Impl& impl_;
  };

  bool held() const { return lockHeld || pending; }

  // Runs one operation with `mutex` held. Afterwards the back end lets go of what the store
  // no longer holds; after a failure, recover() puts the state right first.
  template <class Operation>
  auto run(Operation operation) {
    try {
      if constexpr (std::is_void_v<decltype(operation())>) {
        operation();
        settle();
      } else {
        auto result = operation();
        settle();
        return result;
      }
    } catch (...) {
      recover();
      throw;
    }
  }

  // An operation that reads what this process sees.
  template <class Operation>
  auto reading(Operation operation) {
    std::lock_guard<std::mutex> guard(mutex);
    return run([&] {
      backEnd->startReading(held());
      if (readOnly) dropStaleCounts();
      return operation();
    });
  }

  // An operation that changes the store, in the pending transaction.
  template <class Operation>
  auto changing(Operation operation) {
    if (readOnly) {
      throw Exception(backEnd->committed().name() + ": the store is open read-only");
    }
    std::unique_lock<std::mutex> guard(mutex);
    return run([&] {
      beginChange(guard);
      backEnd->startReading(held());
      return operation();
    });
  }

  // Reference counts written on a committed state that is no longer the one read go with it.
  void dropStaleCounts() {
    unsigned long long seen = backEnd->foreignChanges();
    if (seen == countsSeen) return;
    counts.clear();
    countsSeen = seen;
  }

  // Once neither the store lock nor a pending transaction holds the store, nothing need stay
  // fixed for it.
  void settle() {
    if (!held()) backEnd->letGo();
  }

  // When the failure took what the back end held with it, a pending transaction has lost its
  // base and goes. Otherwise a transaction that the failed operation began and left empty
  // ends, so that a refusal changes nothing.
  void recover() {
    try {
      bool changesDropped = pending && !transaction.empty();
      if (!backEnd->lostHold(changesDropped)) {
        abandonIfEmpty();
      } else if (pending) {
        if (changesDropped) ++ownChanges;
        endTransaction();
      }
      settle();
    } catch (...) {
      // Only letting go can fail here (a database that loses its connection, and the lock
      // with it). The operation's own failure is the one to report.
    }
  }

  // Makes sure a transaction is pending. The back end's wait for its turn happens without
  // `mutex`, so that reads go on meanwhile; one thread waits and the others wait for it.
  void beginChange(std::unique_lock<std::mutex>& guard) {
    while (!pending) {
      if (awaitingTurn) {
        turnTaken.wait(guard);
        continue;
      }
      awaitingTurn = true;
      guard.unlock();
      std::exception_ptr failure;
      try {
        backEnd->awaitTurn();
      } catch (...) {
        failure = std::current_exception();
      }
      guard.lock();
      awaitingTurn = false;
      turnTaken.notify_all();
      if (failure) std::rethrow_exception(failure);
      StoreState base;
      try {
        base = backEnd->startChange();
      } catch (...) {
        backEnd->endChange();
        throw;
      }
      transaction.start(base);
      pending = true;
    }
  }

  void endTransaction() {
    transaction = PendingTransaction();
    pending = false;
    backEnd->endChange();
  }

  // Drops the pending transaction: the records are again as last committed.
  void abandon() {
    if (!pending) return;
    if (!transaction.empty()) ++ownChanges;
    endTransaction();
  }

  // Ends a transaction that a refused operation began and nothing else used.
  void abandonIfEmpty() {
    if (pending && transaction.empty()) abandon();
  }

  void commit() {
    if (!pending) return;
    backEnd->commit(transaction, lockHeld);
    pending = false;
    backEnd->endChange();
  }

  // The record at `offset` as this process sees it; absent when it holds none.
  std::optional<RecordBytes> current(unsigned offset) {
    if (!counts.empty()) {
      auto count = counts.find(offset);
      if (count != counts.end()) return RecordBytes{count->second.data(), count->second.size()};
    }
    if (pending) {
      if (const PendingTransaction::Change* change = transaction.find(offset))
        return change->record();
    }
    return backEnd->record(offset);
  }

  StoreState state() { return pending ? transaction.state() : backEnd->state(); }

  // Refuses a change of an offset that holds no record; run() ends the transaction that the
  // refusal may have begun.
  [[noreturn]] void noRecord(const char* operation, unsigned offset) {
    throw Exception(backEnd->committed().name() + ": " + operation + " of offset " +
                    std::to_string(offset) + ", which holds no record");
  }

  void acquire() {
    std::unique_lock<std::recursive_mutex> taken(storeLock);
    if (lockDepth == 0) {
      std::lock_guard<std::mutex> guard(mutex);
      run([this] {
        backEnd->lockStore();
        lockHeld = true;
      });
    }
    ++lockDepth;
    taken.release();  // the handle's to release
  }

  void release() {
    std::unique_lock<std::recursive_mutex> taken(storeLock, std::adopt_lock);
    if (--lockDepth != 0) return;
    std::lock_guard<std::mutex> guard(mutex);
    lockHeld = false;  // first, so that the commit lets go of the back end's hold with it
    try {
      run([this] { commit(); });
    } catch (...) {
      // Still pending, or dropped with what the back end held; flush() and complete() report.
    }
  }
};

TransactionalDataStore::TransactionalDataStore(std::unique_ptr<StoreBackEnd> backEnd,
                                               StoreAccess access)
    : impl_(new Impl(std::move(backEnd), access)) {}

TransactionalDataStore::~TransactionalDataStore() {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  try {
    impl_->run([this] { impl_->commit(); });
  } catch (...) {
    // Nowhere to report it; the store keeps its last committed state.
  }
}

IDataStore::ILock* TransactionalDataStore::lock() {
  return new Impl::Handle(*impl_);
}

unsigned TransactionalDataStore::create(const void* data, unsigned size) {
  std::vector<unsigned char> bytes = PendingTransaction::copy(data, size);
  return impl_->changing([&] {
    unsigned offset = impl_->transaction.create(std::move(bytes), impl_->backEnd->committed());
    ++impl_->ownChanges;
    return offset;
  });
}

void TransactionalDataStore::append(unsigned offset, const void* data, unsigned size) {
  impl_->changing([&] {
    std::optional<RecordBytes> current = impl_->current(offset);
    if (!current) impl_->noRecord("append", offset);
    impl_->transaction.append(offset, *current, static_cast<const unsigned char*>(data), size);
    ++impl_->ownChanges;
  });
}

void TransactionalDataStore::write(unsigned offset, const void* data, unsigned size, bool changed) {
  std::vector<unsigned char> bytes = PendingTransaction::copy(data, size);
  if (impl_->readOnly && !changed) {
    return impl_->reading([&] {
      if (!impl_->current(offset)) impl_->noRecord("write", offset);
      impl_->counts[offset] = std::move(bytes);
      ++impl_->ownChanges;
    });
  }
  impl_->changing([&] {
    std::optional<RecordBytes> current = impl_->current(offset);
    if (!current) impl_->noRecord("write", offset);
    impl_->transaction.replace(offset, std::move(bytes), *current);
    ++impl_->ownChanges;
  });
}

unsigned TransactionalDataStore::size(unsigned offset) {
  if (offset == BADOFF) return 0;
  return impl_->reading([&] {
    std::optional<RecordBytes> current = impl_->current(offset);
    return current ? static_cast<unsigned>(current->size) : 0u;
  });
}

unsigned TransactionalDataStore::read(unsigned offset, void* destination, unsigned maximum) {
  if (offset == BADOFF) return 0;
  return impl_->reading([&] {
    std::optional<RecordBytes> current = impl_->current(offset);
    if (!current) return 0u;
    std::size_t count = std::min<std::size_t>(maximum, current->size);
    if (count != 0) std::memcpy(destination, current->data, count);
    return static_cast<unsigned>(count);
  });
}

void TransactionalDataStore::free(unsigned offset) {
  if (offset == BADOFF) return;
  impl_->changing([&] {
    std::optional<RecordBytes> current = impl_->current(offset);
    if (!current) return impl_->abandonIfEmpty();
    impl_->transaction.remove(offset, *current);
    ++impl_->ownChanges;
  });
}

unsigned long long TransactionalDataStore::used() {
  return impl_->reading([&] { return impl_->state().used(); });
}

void TransactionalDataStore::version(unsigned version) {
  impl_->changing([&] {
    impl_->transaction.version(version);
    ++impl_->ownChanges;
  });
}

unsigned TransactionalDataStore::version() {
  return impl_->reading([&] { return impl_->state().version; });
}

void TransactionalDataStore::complete() {
  flush();
}

bool TransactionalDataStore::abandon() {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  impl_->run([&] { impl_->abandon(); });
  return true;
}

bool TransactionalDataStore::stamp(tStamp& stamp) {
  // Under the store lock, what the back end reads stays fixed: the holder's state.
  impl_->reading([&] {
    stamp.own = impl_->ownChanges;
    stamp.foreign = impl_->backEnd->foreignChanges();
  });
  return true;
}

IDataStore::IAttachment* TransactionalDataStore::attachment() {
  return impl_->attachment.get();
}

void TransactionalDataStore::attach(std::unique_ptr<IAttachment> attachment) {
  impl_->attachment = std::move(attachment);
}

void TransactionalDataStore::flush() {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  impl_->backEnd->reportLostChanges();
  impl_->run([&] { impl_->commit(); });
}

unsigned TransactionalDataStore::records() {
  return impl_->reading([&] { return impl_->state().liveRecords; });
}

void TransactionalDataStore::checkRecords(std::vector<std::string>& damaged) {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  impl_->run([&] {
    StoreBackEnd& backEnd = *impl_->backEnd;
    backEnd.startReading(impl_->held());
    const StoreState state = backEnd.state();
    const std::string& name = backEnd.committed().name();
    std::size_t faults = damaged.size();
    unsigned live = 0;
    unsigned long long bytes = 0;
    std::vector<bool> held(state.nextOffset);
    for (unsigned offset = 0; offset < state.nextOffset; ++offset) {
      try {
        std::optional<RecordBytes> record = backEnd.record(offset);
        if (!record) continue;
        held[offset] = true;
        ++live;
        bytes += record->size;
      } catch (const Exception& failure) {
        damaged.push_back(failure.what());
      }
    }
    for (unsigned position = 0; position < state.freeCount; ++position) {
      try {
        unsigned offset = backEnd.committed().freeOffset(position);
        if (offset >= state.nextOffset || held[offset]) {
          damaged.push_back(name + ": damaged free list: entry " + std::to_string(position) +
                            " names offset " + std::to_string(offset) + ", which is not free");
        }
      } catch (const Exception& failure) {
        damaged.push_back(failure.what());
      }
    }
    // Counts cannot be compared past a record that could not be read.
    if (damaged.size() == faults && (live != state.liveRecords || bytes != state.liveBytes)) {
      damaged.push_back(name + ": damaged store state: it counts " +
                        std::to_string(state.liveRecords) + " records of " +
                        std::to_string(state.liveBytes) + " bytes, the store holds " +
                        std::to_string(live) + " of " + std::to_string(bytes));
    }
  });
}

const std::string& TransactionalDataStore::name() const {
  return impl_->backEnd->committed().name();
}

}  // namespace kestrine::platform::core::storage::datastore
