#ifndef KPL_DATA_TESTING_FAULTY_STORE_H_
#define KPL_DATA_TESTING_FAULTY_STORE_H_

#include <string>

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::data::testing {

// A memory store that fails on demand, as a store on a full or broken disk would: after
// failAfter(n), the operation n + 1 from then on (create, append, write, size, read or free)
// throws core::Exception and changes nothing. The store then works again, or, when the
// failure is `sticky`, keeps failing every operation until disarm(). It also counts the lock
// handles it has given out and those still held.
class FaultyStore : public core::storage::datastore::MemoryDataStore {
 public:
  void failAfter(unsigned operations, bool sticky = false) {
    countdown_ = operations;
    sticky_ = sticky;
    armed_ = true;
    fired_ = false;
  }
  void disarm() { armed_ = false; }
  bool fired() const { return fired_; }
  int locksHeld() const { return locksHeld_; }
  int locksTaken() const { return locksTaken_; }

  ILock* lock() override { return new CountedLock(this, MemoryDataStore::lock()); }
  unsigned create(const void* data, unsigned size) override {
    check("create");
    return MemoryDataStore::create(data, size);
  }
  void append(unsigned offset, const void* data, unsigned size) override {
    check("append");
    MemoryDataStore::append(offset, data, size);
  }
  void write(unsigned offset, const void* data, unsigned size, bool changed) override {
    check("write");
    MemoryDataStore::write(offset, data, size, changed);
  }
  unsigned size(unsigned offset) override {
    check("size");
    return MemoryDataStore::size(offset);
  }
  unsigned read(unsigned offset, void* destination, unsigned maximum) override {
    check("read");
    return MemoryDataStore::read(offset, destination, maximum);
  }
  void free(unsigned offset) override {
    check("free");
    MemoryDataStore::free(offset);
  }

 private:
  class CountedLock : public ILock {
   public:
    CountedLock(FaultyStore* store, ILock* inner) : store_(store), inner_(inner) {
      ++store_->locksHeld_;
      ++store_->locksTaken_;
    }
    ~CountedLock() override {
      delete inner_;
      --store_->locksHeld_;
    }

   private:
    FaultyStore* store_;
    ILock* inner_;
  };

  void check(const char* operation) {
    if (!armed_) return;
    if (countdown_ != 0) {
      --countdown_;
      return;
    }
    armed_ = sticky_;
    fired_ = true;
    throw core::Exception(std::string("injected fault in ") + operation);
  }

  bool armed_ = false;
  bool sticky_ = false;
  bool fired_ = false;
  unsigned countdown_ = 0;
  int locksHeld_ = 0;
  int locksTaken_ = 0;
};

}  // namespace kestrine::platform::data::testing

#endif  // KPL_DATA_TESTING_FAULTY_STORE_H_
