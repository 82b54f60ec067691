#include "kestrine/platform/core/lmdb_datastore.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "core/storage/file_lock.h"
#include "core/storage/lmdb_environment.h"
#include "core/storage/pending_transaction.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {

// Threads. `mutex` guards the pending transaction and the environment (LMDB handles are not
// for concurrent use); every operation holds it throughout, so each one is atomic towards
// the others. The store lock handed out by lock() is a separate, re-entrant mutex: it orders
// callers' sequences of operations and marks commit points.
//
// Processes. A pending transaction holds `writer` (flock on "<path>-writer") from its first
// change to its commit, and starts from the newest committed state, so two processes never
// give out the same offset and each transaction applies to the state it was begun on.
//
// The view. While a transaction is pending, or the store lock is held, the environment's
// read view stays open between operations: in the first case it shows the transaction's base
// (nobody else can commit meanwhile), in the second one committed state for the lock holder.
// Otherwise each operation opens it on the newest committed state and closes it again.
struct LmdbDataStore::Impl {
  Impl(const std::string& path, std::size_t mapSize)
      : environment(path, mapSize), writer(path + "-writer") {}

  LmdbEnvironment environment;
  FileLock writer;

  std::recursive_mutex storeLock;
  unsigned lockDepth = 0;  // touched only by the thread that holds storeLock

  std::mutex mutex;
  std::condition_variable writerTaken;
  bool takingWriter = false;
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

  // Opens the view for one operation, and closes it after unless something keeps it open.
  class View {
   public:
    explicit View(Impl& impl) : impl_(impl) { impl_.environment.openView(); }
    ~View() {
      if (!impl_.pending && !impl_.lockHeld) impl_.environment.closeView();
    }

   private:
    Impl& impl_;
  };

  // The record at `offset` as this process sees it; absent when it holds none.
  std::optional<RecordBytes> current(unsigned offset) {
    if (pending) {
      if (const PendingTransaction::Change* change = transaction.find(offset)) {
        if (!change->live) return std::nullopt;
        return RecordBytes{change->bytes.data(), change->bytes.size()};
      }
    }
    return environment.record(offset);
  }

  StoreState state() { return pending ? transaction.state() : environment.state(); }

  // Makes sure a transaction is pending, taking the writer lock if needed. The wait for
  // another process's commit happens without `mutex`, so that reads go on meanwhile; one
  // thread waits and the others of this process wait for it.
  void beginChange(std::unique_lock<std::mutex>& guard) {
    while (!pending) {
      if (takingWriter) {
        writerTaken.wait(guard);
        continue;
      }
      takingWriter = true;
      guard.unlock();
      std::exception_ptr failure;
      try {
        writer.lock();
      } catch (...) {
        failure = std::current_exception();
      }
      guard.lock();
      takingWriter = false;
      writerTaken.notify_all();
      if (failure) std::rethrow_exception(failure);
      try {
        environment.closeView();  // reopened on the newest state, the base
        View view(*this);
        transaction.start(environment.state());
      } catch (...) {
        writer.unlock();
        throw;
      }
      pending = true;
    }
  }

  // Drops the pending transaction: the records are again as last committed.
  void abandon() {
    if (!pending) return;
    if (!transaction.empty()) ++ownChanges;
    transaction = PendingTransaction();
    pending = false;
    writer.unlock();
    if (!lockHeld) environment.closeView();
  }

  // Ends a transaction that a refused operation began and nothing else used.
  void abandonIfEmpty() {
    if (pending && transaction.empty()) abandon();
  }

  void commit() {
    if (!pending) return;
    environment.commit([this](LmdbWriter& out) { transaction.apply(out); });
    pending = false;
    writer.unlock();
    environment.closeView();  // the next read sees this commit
  }

  // Refuses a change of an offset that holds no record; the refusal changes nothing.
  [[noreturn]] void noRecord(const char* operation, unsigned offset) {
    abandonIfEmpty();
    throw Exception(environment.path() + ": " + operation + " of offset " + std::to_string(offset) +
                    ", which holds no record");
  }

  void acquire() {
    storeLock.lock();
    if (lockDepth++ != 0) return;
    std::lock_guard<std::mutex> guard(mutex);
    lockHeld = true;
  }

  void release() {
    if (--lockDepth == 0) {
      std::lock_guard<std::mutex> guard(mutex);
      try {
        commit();
      } catch (...) {
        // Still pending; the next commit point retries, and flush() or complete() reports.
      }
      lockHeld = false;
      if (!pending) environment.closeView();
    }
    storeLock.unlock();
  }
};

LmdbDataStore::LmdbDataStore(std::string path, std::size_t mapSize)
    : impl_(new Impl(path, mapSize)) {}

LmdbDataStore::~LmdbDataStore() {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  try {
    impl_->commit();
  } catch (...) {
    // Nowhere to report it; the file keeps its last committed state.
  }
}

IDataStore::ILock* LmdbDataStore::lock() {
  return new Impl::Handle(*impl_);
}

unsigned LmdbDataStore::create(const void* data, unsigned size) {
  std::vector<unsigned char> bytes = PendingTransaction::copy(data, size);
  std::unique_lock<std::mutex> guard(impl_->mutex);
  impl_->beginChange(guard);
  Impl::View view(*impl_);
  unsigned offset = impl_->transaction.create(std::move(bytes), impl_->environment);
  ++impl_->ownChanges;
  return offset;
}

void LmdbDataStore::append(unsigned offset, const void* data, unsigned size) {
  std::unique_lock<std::mutex> guard(impl_->mutex);
  impl_->beginChange(guard);
  Impl::View view(*impl_);
  std::optional<RecordBytes> current = impl_->current(offset);
  if (!current) impl_->noRecord("append", offset);
  impl_->transaction.append(offset, *current, static_cast<const unsigned char*>(data), size);
  ++impl_->ownChanges;
}

void LmdbDataStore::write(unsigned offset, const void* data, unsigned size, bool) {
  std::vector<unsigned char> bytes = PendingTransaction::copy(data, size);
  std::unique_lock<std::mutex> guard(impl_->mutex);
  impl_->beginChange(guard);
  Impl::View view(*impl_);
  std::optional<RecordBytes> current = impl_->current(offset);
  if (!current) impl_->noRecord("write", offset);
  impl_->transaction.replace(offset, std::move(bytes), *current);
  ++impl_->ownChanges;
}

unsigned LmdbDataStore::size(unsigned offset) {
  if (offset == BADOFF) return 0;
  std::lock_guard<std::mutex> guard(impl_->mutex);
  Impl::View view(*impl_);
  std::optional<RecordBytes> current = impl_->current(offset);
  return current ? static_cast<unsigned>(current->size) : 0;
}

unsigned LmdbDataStore::read(unsigned offset, void* destination, unsigned maximum) {
  if (offset == BADOFF) return 0;
  std::lock_guard<std::mutex> guard(impl_->mutex);
  Impl::View view(*impl_);
  std::optional<RecordBytes> current = impl_->current(offset);
  if (!current) return 0;
  std::size_t count = std::min<std::size_t>(maximum, current->size);
  if (count != 0) std::memcpy(destination, current->data, count);
  return static_cast<unsigned>(count);
}

void LmdbDataStore::free(unsigned offset) {
  if (offset == BADOFF) return;
  std::unique_lock<std::mutex> guard(impl_->mutex);
  impl_->beginChange(guard);
  Impl::View view(*impl_);
  std::optional<RecordBytes> current = impl_->current(offset);
  if (!current) return impl_->abandonIfEmpty();
  impl_->transaction.remove(offset, *current);
  ++impl_->ownChanges;
}

unsigned long long LmdbDataStore::used() {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  Impl::View view(*impl_);
  return impl_->state().used();
}

void LmdbDataStore::version(unsigned version) {
  std::unique_lock<std::mutex> guard(impl_->mutex);
  impl_->beginChange(guard);
  impl_->transaction.version(version);
  ++impl_->ownChanges;
}

unsigned LmdbDataStore::version() {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  Impl::View view(*impl_);
  return impl_->state().version;
}

void LmdbDataStore::complete() {
  flush();
}

bool LmdbDataStore::abandon() {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  impl_->abandon();
  return true;
}

bool LmdbDataStore::stamp(tStamp& stamp) {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  Impl::View view(*impl_);  // under the store lock it stays open: the holder's state
  stamp.own = impl_->ownChanges;
  stamp.foreign = impl_->environment.foreignChanges();
  return true;
}

IDataStore::IAttachment* LmdbDataStore::attachment() {
  return impl_->attachment.get();
}

void LmdbDataStore::attach(std::unique_ptr<IAttachment> attachment) {
  impl_->attachment = std::move(attachment);
}

void LmdbDataStore::flush() {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  impl_->commit();
}

unsigned LmdbDataStore::records() {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  Impl::View view(*impl_);
  return impl_->state().liveRecords;
}

const std::string& LmdbDataStore::path() const {
  return impl_->environment.path();
}

}  // namespace kestrine::platform::core::storage::datastore
