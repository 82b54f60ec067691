#include "kestrine/platform/core/postgres_datastore.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "core/storage/pending_transaction.h"
#include "core/storage/postgres_database.h"
#include "core/storage/record_cache.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {

namespace {

// Bytes of committed records a client keeps in memory at most.
constexpr std::size_t kCacheBytes = std::size_t(256) << 20;

}  // namespace

// Threads. `mutex` guards everything below it, the connection included; every operation
// holds it throughout. The store lock handed out by lock() is the separate, re-entrant
// `storeLock`: it orders callers' sequences of operations and marks commit points.
//
// Holding. `holding` says that this client holds the store's advisory lock in the database.
// It does while the store lock is held or a transaction is pending, and then nobody else
// commits: `committed` and the cache stay true without asking the server, and a pending
// transaction's base is `committed`. Otherwise each operation first reads the store's state.
struct PostgresDataStore::Impl {
  Impl(const std::string& uri, bool create)
      : database(PostgresAddress(uri), create), cache(kCacheBytes) {}

  PostgresDatabase database;

  std::recursive_mutex storeLock;
  unsigned lockDepth = 0;  // touched only by the thread that holds storeLock

  std::mutex mutex;
  RecordCache cache;
  SharedState committed;  // what the cache belongs to
  bool known = false;     // false until `committed` was read once
  bool lockHeld = false;
  bool holding = false;
  bool pending = false;
  PendingTransaction transaction;
  // Changes dropped with a lost connection, for the next flush() to report.
  bool changesLost = false;
  unsigned long long ownChanges = 0;
  unsigned long long foreignChanges = 0;
  std::unique_ptr<IAttachment> attachment;

  class Handle final : public IDataStore::ILock {
   public:
    explicit Handle(Impl& impl) : impl_(impl) { impl_.acquire(); }
    ~Handle() override { impl_.release(); }

   private:
    Impl& impl_;
  };

  // Runs one operation; after a failure, puts the state right (see recover()).
  template <class Operation>
  auto run(Operation operation) {
    try {
      return operation();
    } catch (...) {
      recover();
      throw;
    }
  }

  // A lost connection took the advisory lock with it, so a pending transaction has lost its
  // base and goes. Otherwise a transaction that the failed operation began and left empty
  // ends, so that a refusal changes nothing.
  void recover() {
    try {
      if (database.connected()) return abandonIfEmpty();
      if (pending && !transaction.empty()) {
        ++ownChanges;
        changesLost = true;
      }
      transaction = PendingTransaction();
      pending = false;
      holding = false;
    } catch (...) {
      // Only unlocking can fail here, by losing the connection, which drops the lock too.
      holding = false;
    }
  }

  // Takes in the newest committed state; the cache goes when another client has committed.
  void adopt(const SharedState& newest) {
    if (known && newest.commits != committed.commits) {
      cache.clear();
      ++foreignChanges;
    }
    committed = newest;
    known = true;
  }

  void hold() {
    if (holding) return;
    adopt(database.lock());
    holding = true;
  }

  // Releases the advisory lock once neither the store lock nor a transaction needs it.
  void letGo() {
    if (!holding || lockHeld || pending) return;
    holding = false;
    database.unlock();
  }

  // Makes what the next reads see current (see the class comment).
  void refresh() {
    if (holding) return;
    if (lockHeld) return hold();  // the connection was lost under the lock
    adopt(database.state());
  }

  void beginChange() {
    if (pending) return;
    hold();
    transaction.start(committed.state);
    pending = true;
  }

  void abandonIfEmpty() {
    if (!pending || !transaction.empty()) return;
    pending = false;
    letGo();
  }

  // The record at `offset` as this client sees it; absent when it holds none. Call
  // refresh() or beginChange() first.
  std::optional<RecordBytes> current(unsigned offset) {
    const PendingTransaction::Change* change = pending ? transaction.find(offset) : nullptr;
    if (change == nullptr && offset < committed.state.nextOffset) {
      change = cache.find(offset);
      if (change == nullptr) {
        unsigned first = offset / RecordCache::kBlock * RecordCache::kBlock;
        cache.load(offset / RecordCache::kBlock,
                   database.records(first, first + (RecordCache::kBlock - 1)));
        change = cache.find(offset);
      }
    }
    if (change == nullptr || !change->live) return std::nullopt;
    return RecordBytes{change->bytes.data(), change->bytes.size()};
  }

  StoreState state() const { return pending ? transaction.state() : committed.state; }

  void commit() {
    if (!pending) return;
    if (transaction.empty()) {
      pending = false;
      return letGo();
    }
    bool release = !lockHeld;
    unsigned long long commits = database.commit(transaction, release);
    pending = false;
    holding = !release;
    committed = SharedState{transaction.state(), commits};
    cache.absorb(transaction.takeChanges());
  }

  // Refuses a change of an offset that holds no record; run() ends the transaction that
  // the refusal may have begun.
  [[noreturn]] void noRecord(const char* operation, unsigned offset) {
    throw Exception(database.name() + ": " + operation + " of offset " + std::to_string(offset) +
                    ", which holds no record");
  }

  void acquire() {
    storeLock.lock();
    if (lockDepth++ != 0) return;
    std::lock_guard<std::mutex> guard(mutex);
    try {
      run([this] { hold(); });
      lockHeld = true;
    } catch (...) {
      --lockDepth;
      storeLock.unlock();
      throw;
    }
  }

  void release() {
    if (--lockDepth == 0) {
      std::lock_guard<std::mutex> guard(mutex);
      lockHeld = false;  // first, so that a commit releases the advisory lock with it
      try {
        run([this] {
          commit();
          letGo();
        });
      } catch (...) {
        // Still pending, or dropped with the connection; flush() and complete() report.
      }
    }
    storeLock.unlock();
  }
};

PostgresDataStore::PostgresDataStore(const std::string& uri, bool create)
    : impl_(new Impl(uri, create)) {}

PostgresDataStore::~PostgresDataStore() {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  try {
    impl_->commit();
  } catch (...) {
    // Nowhere to report it; the database keeps its last committed state.
  }
}

IDataStore::ILock* PostgresDataStore::lock() {
  return new Impl::Handle(*impl_);
}

unsigned PostgresDataStore::create(const void* data, unsigned size) {
  std::vector<unsigned char> bytes = PendingTransaction::copy(data, size);
  std::lock_guard<std::mutex> guard(impl_->mutex);
  return impl_->run([&] {
    impl_->beginChange();
    unsigned offset = impl_->transaction.create(std::move(bytes), impl_->database);
    ++impl_->ownChanges;
    return offset;
  });
}

void PostgresDataStore::append(unsigned offset, const void* data, unsigned size) {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  impl_->run([&] {
    impl_->beginChange();
    std::optional<RecordBytes> current = impl_->current(offset);
    if (!current) impl_->noRecord("append", offset);
    impl_->transaction.append(offset, *current, static_cast<const unsigned char*>(data), size);
    ++impl_->ownChanges;
  });
}

void PostgresDataStore::write(unsigned offset, const void* data, unsigned size, bool) {
  std::vector<unsigned char> bytes = PendingTransaction::copy(data, size);
  std::lock_guard<std::mutex> guard(impl_->mutex);
  impl_->run([&] {
    impl_->beginChange();
    std::optional<RecordBytes> current = impl_->current(offset);
    if (!current) impl_->noRecord("write", offset);
    impl_->transaction.replace(offset, std::move(bytes), *current);
    ++impl_->ownChanges;
  });
}

unsigned PostgresDataStore::size(unsigned offset) {
  if (offset == BADOFF) return 0;
  std::lock_guard<std::mutex> guard(impl_->mutex);
  return impl_->run([&] {
    impl_->refresh();
    std::optional<RecordBytes> current = impl_->current(offset);
    return current ? static_cast<unsigned>(current->size) : 0u;
  });
}

unsigned PostgresDataStore::read(unsigned offset, void* destination, unsigned maximum) {
  if (offset == BADOFF) return 0;
  std::lock_guard<std::mutex> guard(impl_->mutex);
  return impl_->run([&] {
    impl_->refresh();
    std::optional<RecordBytes> current = impl_->current(offset);
    if (!current) return 0u;
    std::size_t count = std::min<std::size_t>(maximum, current->size);
    if (count != 0) std::memcpy(destination, current->data, count);
    return static_cast<unsigned>(count);
  });
}

void PostgresDataStore::free(unsigned offset) {
  if (offset == BADOFF) return;
  std::lock_guard<std::mutex> guard(impl_->mutex);
  impl_->run([&] {
    impl_->beginChange();
    std::optional<RecordBytes> current = impl_->current(offset);
    if (!current) return impl_->abandonIfEmpty();
    impl_->transaction.remove(offset, *current);
    ++impl_->ownChanges;
  });
}

unsigned long long PostgresDataStore::used() {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  return impl_->run([&] {
    impl_->refresh();
    return impl_->state().used();
  });
}

void PostgresDataStore::version(unsigned version) {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  impl_->run([&] {
    impl_->beginChange();
    impl_->transaction.version(version);
    ++impl_->ownChanges;
  });
}

unsigned PostgresDataStore::version() {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  return impl_->run([&] {
    impl_->refresh();
    return impl_->state().version;
  });
}

void PostgresDataStore::complete() {
  flush();
}

bool PostgresDataStore::abandon() {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  impl_->run([&] {
    if (!impl_->pending) return;
    if (!impl_->transaction.empty()) ++impl_->ownChanges;
    impl_->transaction = PendingTransaction();
    impl_->pending = false;
    impl_->letGo();
  });
  return true;
}

bool PostgresDataStore::stamp(tStamp& stamp) {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  impl_->run([&] { impl_->refresh(); });
  stamp.own = impl_->ownChanges;
  stamp.foreign = impl_->foreignChanges;
  return true;
}

IDataStore::IAttachment* PostgresDataStore::attachment() {
  return impl_->attachment.get();
}

void PostgresDataStore::attach(std::unique_ptr<IAttachment> attachment) {
  impl_->attachment = std::move(attachment);
}

void PostgresDataStore::flush() {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  if (impl_->changesLost) {
    impl_->changesLost = false;
    throw Exception(impl_->database.name() +
                    ": the connection to the server was lost, and with it the changes made "
                    "since the last commit");
  }
  impl_->run([&] { impl_->commit(); });
}

unsigned PostgresDataStore::records() {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  return impl_->run([&] {
    impl_->refresh();
    return impl_->state().liveRecords;
  });
}

const std::string& PostgresDataStore::address() const {
  return impl_->database.name();
}

}  // namespace kestrine::platform::core::storage::datastore
