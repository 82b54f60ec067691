#ifndef KPL_DATA_TESTING_FAULTY_STORE_H_
#define KPL_DATA_TESTING_FAULTY_STORE_H_

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::data::testing {

// A memory store that fails like a broken disk: after failAfter(n), operation n + 1 (create,
// append, write, read or free) throws core::Exception and changes nothing; with `sticky`
// every later one fails too, until disarm(). It counts the lock handles taken and held.
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
  int locksTaken = 0, locksHeld = 0;

  ILock* lock() override {
    struct Counted : ILock {
      Counted(FaultyStore* s) : store(s), inner(s->MemoryDataStore::lock()) { ++store->locksHeld; }
      ~Counted() override { delete inner, --store->locksHeld; }
      FaultyStore* store;
      ILock* inner;
    };
    ++locksTaken;
    return new Counted(this);
  }
  unsigned create(const void* data, unsigned size) override {
    return check(), MemoryDataStore::create(data, size);
  }
  void append(unsigned offset, const void* data, unsigned size) override {
    check(), MemoryDataStore::append(offset, data, size);
  }
  void write(unsigned offset, const void* data, unsigned size, bool changed) override {
    check(), MemoryDataStore::write(offset, data, size, changed);
  }
  unsigned read(unsigned offset, void* destination, unsigned maximum) override {
    return check(), MemoryDataStore::read(offset, destination, maximum);
  }
  void free(unsigned offset) override { check(), MemoryDataStore::free(offset); }

 private:
  void check() {
    if (!armed_ || countdown_-- != 0) return;
    armed_ = sticky_;
    countdown_ = 0;
    fired_ = true;
    throw core::Exception("injected store fault");
  }

  bool armed_ = false, sticky_ = false, fired_ = false;
  unsigned countdown_ = 0;
};

}  // namespace kestrine::platform::data::testing

#endif  // KPL_DATA_TESTING_FAULTY_STORE_H_
