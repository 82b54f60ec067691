#ifndef KPL_CORE_STORAGE_DATASTORE_TEST_SUPPORT_H_
#define KPL_CORE_STORAGE_DATASTORE_TEST_SUPPORT_H_

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include "core/storage/scratch_postgres_test_support.h"
#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/exception.h"

// Helpers of the tests of the stores and of the layers above them: records read
// independently of the record classes, scratch stores, and a store that fails on demand.
namespace kestrine::platform::core::storage::datastore {

// The whole record at `offset`; "" when it holds none.
inline std::string readAll(IDataStore& store, unsigned offset) {
  std::string bytes(store.size(offset), '\0');
  EXPECT_EQ(store.read(offset, bytes.data(), 0xFFFFFFFF), bytes.size());
  return bytes;
}

inline unsigned createText(IDataStore& store, const std::string& text) {
  return store.create(text.data(), static_cast<unsigned>(text.size()));
}

// The little-endian u32 at `at` of the record at `offset`.
inline std::uint32_t u32(IDataStore& store, unsigned offset, unsigned at) {
  const std::string record = readAll(store, offset);
  std::uint32_t value = 0;
  for (unsigned i = 4; i-- > 0;)
    value = value << 8 | std::uint8_t(record.at(at + i));
  return value;
}

// `text` as records hold it: UTF-32 with its terminator.
inline std::string wide(const wchar_t* text) {
  return std::string(reinterpret_cast<const char*>(text), (std::wcslen(text) + 1) * 4);
}

// Every live record by offset (a memory store hands offsets out densely from 0), to prove
// that an operation changed nothing.
inline std::map<unsigned, std::string> snapshot(MemoryDataStore& store) {
  std::map<unsigned, std::string> records;
  for (unsigned offset = 0; records.size() < store.records(); ++offset)
    if (store.size(offset) != 0) records[offset] = readAll(store, offset);
  return records;
}

// What `action` threw as core::Exception, or "(no exception)".
inline std::string message(const std::function<void()>& action) {
  try {
    action();
  } catch (const Exception& error) {
    return error.what();
  }
  return "(no exception)";
}

// A memory store that watches and breaks what passes through it, for the tests of the layers
// above. It counts the lock handles taken and held, the completions, and the operations made
// by a thread that does not hold its lock: every call of the object model takes the lock for
// its whole length, so a count above zero is a call that touched records unguarded. After
// failAfter(n), its operation n + 1 (create, append, write, size, read, view or free) throws
// core::Exception and changes nothing, as a broken disk would; with `sticky` every later one
// fails too, until disarm(). The counts change under the store's lock only, so threads may
// share the store as long as none arms it.
class InterceptingStore : public MemoryDataStore {
 public:
  void failAfter(unsigned operations, bool sticky = false) {
    countdown_ = operations;
    sticky_ = sticky;
    armed_ = true;
    fired_ = false;
  }
  void disarm() { armed_ = false; }
  bool fired() const { return fired_; }
  unsigned unguarded() const { return unguarded_.load(); }

  int locksTaken = 0, locksHeld = 0, completions = 0;
  bool lastChanged = false;  // what the last write or patch said of its record

  ILock* lock() override { return new Held(this, MemoryDataStore::lock()); }
  unsigned create(const void* data, unsigned size) override {
    return check(), MemoryDataStore::create(data, size);
  }
  void append(unsigned offset, const void* data, unsigned size) override {
    check(), MemoryDataStore::append(offset, data, size);
  }
  void write(unsigned offset, const void* data, unsigned size, bool changed) override {
    check(), lastChanged = changed, MemoryDataStore::write(offset, data, size, changed);
  }
  void patch(unsigned offset, unsigned at, const void* data, unsigned size, bool changed) override {
    check(), lastChanged = changed, MemoryDataStore::patch(offset, at, data, size, changed);
  }
  unsigned size(unsigned offset) override { return check(), MemoryDataStore::size(offset); }
  unsigned read(unsigned offset, void* destination, unsigned maximum) override {
    return check(), MemoryDataStore::read(offset, destination, maximum);
  }
  const void* view(unsigned offset, unsigned& size) override {
    return check(), MemoryDataStore::view(offset, size);
  }
  void free(unsigned offset) override { check(), MemoryDataStore::free(offset); }
  void complete() override { ++completions, MemoryDataStore::complete(); }

 private:
  // Counts the handle, and records the holder while the store's own (re-entrant) lock is held.
  struct Held : ILock {
    Held(InterceptingStore* s, ILock* i) : store(s), inner(i) {
      ++store->locksTaken, ++store->locksHeld;
      if (store->depth_++ == 0) store->holder_ = std::this_thread::get_id();
    }
    ~Held() override {
      --store->locksHeld;
      if (--store->depth_ == 0) store->holder_ = std::thread::id();
      delete inner;
    }
    InterceptingStore* store;
    ILock* inner;
  };

  void check() {
    if (holder_.load() != std::this_thread::get_id()) ++unguarded_;
    if (!armed_ || countdown_-- != 0) return;
    armed_ = sticky_;
    countdown_ = 0;
    fired_ = true;
    throw Exception("injected store fault");
  }

  bool armed_ = false, sticky_ = false, fired_ = false;
  unsigned countdown_ = 0;
  std::atomic<std::thread::id> holder_{};
  unsigned depth_ = 0;  // changed only by the holder
  std::atomic<unsigned> unguarded_{0};
};

// A fresh directory under the system's temporary directory, removed with its contents.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kpl-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp " + pattern);
    directory_ = pattern;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& directory() const { return directory_; }

 private:
  std::string directory_;
};

// The process's scratch PostgreSQL server, started at the first call. A server that cannot
// start throws from every call, so that each test that needs it fails saying why.
inline ScratchPostgresServer& scratchPostgres() {
  static ScratchPostgresServer server;
  return server;
}

// A store name of the running test's own, for a store in the scratch server's database.
inline std::string testStoreName() {
  const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
  return std::string(test->test_suite_name()) + "." + test->name();
}

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_DATASTORE_TEST_SUPPORT_H_
