// The IDataStore contract, checked the same way against every store implementation.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "core/storage/datastore_test_support.h"
#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/exception.h"
#include "kestrine/platform/core/lmdb_datastore.h"
#include "kestrine/platform/core/postgres_datastore.h"

namespace kestrine::platform::core::storage::datastore {
namespace {

// The parameter names the implementation: "Memory"; "Lmdb" on a fresh file of its own;
// "Postgres", a store of its own on the process's scratch server.
class DataStoreConformance : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (GetParam() == "Memory") store_ = std::make_unique<MemoryDataStore>();
    reopen();
  }

  // Closes a persistent store and opens it again; a memory store stays as it is.
  void reopen() {
    if (GetParam() == "Memory") return;
    store_.reset();
    if (GetParam() == "Lmdb") {
      store_ = std::make_unique<LmdbDataStore>(directory_.directory() + "/store");
    } else {
      store_ = std::make_unique<PostgresDataStore>(scratchPostgres().uri(testStoreName()));
    }
  }

  unsigned records() {
    if (auto* memory = dynamic_cast<MemoryDataStore*>(store_.get())) return memory->records();
    if (auto* file = dynamic_cast<LmdbDataStore*>(store_.get())) return file->records();
    return static_cast<PostgresDataStore&>(*store_).records();
  }

  std::string readAll(unsigned offset) { return datastore::readAll(*store_, offset); }
  unsigned createText(const std::string& text) { return datastore::createText(*store_, text); }

  TemporaryDirectory directory_;  // outlives the store in it
  std::unique_ptr<IDataStore> store_;
};

// Catches: a fresh store that is not empty, a first record elsewhere than at 0 (where the
// root is looked for), used() back at 0 once records were freed, and a version not kept.
TEST_P(DataStoreConformance, FreshStoreIsEmptyAndFirstRecordIsAtZero) {
  EXPECT_EQ(store_->used(), 0u);
  EXPECT_EQ(store_->version(), 0u);
  EXPECT_EQ(store_->create("root", 4), 0u);
  EXPECT_GT(store_->used(), 0u);
  EXPECT_EQ(readAll(0), "root");
  store_->free(0);
  EXPECT_GT(store_->used(), 0u);
  store_->version(7);
  EXPECT_EQ(store_->version(), 7u);
  store_->complete();
  EXPECT_EQ(store_->version(), 7u);
}

// Catches: freed offsets handed out again in another order than last-freed first, and for a
// file, state kept only in memory (records, free list, used(), version) and lost at a reopen.
TEST_P(DataStoreConformance, ReopeningKeepsRecordsFreeListUsedAndVersion) {
  for (int i = 0; i < 10; ++i)
    createText("record " + std::to_string(i));
  for (unsigned offset : {3u, 7u, 5u})
    store_->free(offset);
  store_->append(2, "+tail", 5);
  store_->version(5);
  unsigned long long used = store_->used();
  reopen();
  EXPECT_EQ(store_->version(), 5u);
  EXPECT_EQ(records(), 7u);
  EXPECT_EQ(store_->used(), used);
  EXPECT_EQ(readAll(2), "record 2+tail");
  EXPECT_EQ(readAll(9), "record 9");
  EXPECT_EQ(store_->size(7), 0u);
  for (unsigned expected : {5u, 7u, 3u, 10u})
    EXPECT_EQ(createText("again"), expected);
}

// Catches any divergence from MemoryDataStore (offsets, sizes, used(), refusals), also over
// commits and reopenings in the middle of the sequence: records missing, freed or at BADOFF
// read as something or written to, freed twice, replaced in part, grown over, of no bytes,
// read past the maximum asked, or given out twice. Each fault of the memory store shows as
// well, as the other stores diverging from it.
TEST_P(DataStoreConformance, GivesTheSameAnswersAsTheMemoryStore) {
  if (GetParam() == "Memory") GTEST_SKIP() << "the memory store is the reference";
  MemoryDataStore memory;
  std::mt19937 random(20240611);
  auto pick = [&random](unsigned bound) { return static_cast<unsigned>(random() % bound); };
  auto refused = [](const std::function<void()>& action) {
    return message(action) != "(no exception)";
  };
  std::vector<std::unique_ptr<IDataStore::ILock>> locks;
  unsigned highest = 0;
  for (int step = 0; step < 20000; ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    unsigned offset = pick(16) == 0 ? IDataStore::BADOFF : pick(highest + 3);
    std::string bytes(pick(300), '\0');
    for (char& byte : bytes)
      byte = static_cast<char>(pick(256));
    const char* data = bytes.data();
    unsigned size = static_cast<unsigned>(bytes.size()), part = pick(size + 1);
    bool changed = pick(2) == 0;
    unsigned action = pick(14);
    if (action < 3) {
      if (pick(8) == 0) data = nullptr;
      unsigned made = memory.create(data, size);
      ASSERT_EQ(store_->create(data, size), made);
      highest = std::max(highest, made);
    } else if (action < 5) {
      ASSERT_EQ(refused([&] { store_->write(offset, data, size, changed); }),
                refused([&] { memory.write(offset, data, size, changed); }));
    } else if (action < 6) {
      ASSERT_EQ(refused([&] { store_->append(offset, data, part); }),
                refused([&] { memory.append(offset, data, part); }));
    } else if (action < 7) {
      unsigned at = pick(memory.size(offset) + 2);
      ASSERT_EQ(refused([&] { store_->patch(offset, at, data, part, changed); }),
                refused([&] { memory.patch(offset, at, data, part, changed); }));
    } else if (action < 8) {
      memory.free(offset);
      store_->free(offset);
    } else if (action < 9) {
      unsigned maximum = pick(4) == 0 ? 0xFFFFFFFF : pick(400);
      std::string a(std::max(400u, memory.size(offset)), 'a'), b = a;
      ASSERT_EQ(store_->read(offset, b.data(), maximum), memory.read(offset, a.data(), maximum));
      ASSERT_EQ(a, b);
    } else if (action < 10) {
      ASSERT_EQ(store_->size(offset), memory.size(offset));
      ASSERT_EQ(store_->used(), memory.used());
      ASSERT_EQ(records(), memory.records());
    } else if (action < 11) {
      if (locks.size() < 3 && pick(2) == 0) {
        locks.emplace_back(store_->lock());
      } else if (!locks.empty()) {
        locks.pop_back();
      }
    } else if (action < 12) {
      memory.version(step);
      store_->version(step);
    } else if (action < 13) {
      if (pick(3) == 0) store_->complete();
      ASSERT_EQ(store_->version(), memory.version());
    } else if (pick(40) == 0) {
      locks.clear();
      reopen();
    }
  }
  locks.clear();
  reopen();
  EXPECT_EQ(store_->used(), memory.used());
  EXPECT_EQ(records(), memory.records());
  for (unsigned offset = 0; offset <= highest; ++offset)
    ASSERT_EQ(readAll(offset), datastore::readAll(memory, offset)) << "offset " << offset;
}

// Catches: a view shown to a thread without the lock, whose record another thread could change
// under it; a view of other bytes or another size than a read gives; a view of no record. A
// store may show no views at all, but the memory store shows them to the lock's holder.
TEST_P(DataStoreConformance, ViewsShowWhatReadsGiveAndOnlyToTheLockHolder) {
  const unsigned offset = createText("abcdef");
  const unsigned freed = createText("gone");
  store_->free(freed);
  unsigned size = 99;
  EXPECT_EQ(store_->view(offset, size), nullptr);
  std::unique_ptr<IDataStore::ILock> held(store_->lock());
  const void* bytes = store_->view(offset, size);
  if (GetParam() == "Memory") {
    ASSERT_NE(bytes, nullptr);
  }
  if (bytes != nullptr) {
    EXPECT_EQ(std::string(static_cast<const char*>(bytes), size), "abcdef");
  }
  for (unsigned nothing : {freed, offset + 100, IDataStore::BADOFF})
    EXPECT_EQ(store_->view(nothing, size), nullptr) << nothing;
  std::thread other([&] {
    unsigned otherSize = 0;
    EXPECT_EQ(store_->view(offset, otherSize), nullptr);
  });
  other.join();
}

// Catches: a patch that moves or resizes the record, touches bytes beside its own, or goes
// past the end (or to no record) instead of being refused with nothing changed.
TEST_P(DataStoreConformance, PatchingChangesOnlyItsBytesWithinTheRecord) {
  unsigned offset = createText("abcdef");
  unsigned after = createText("next");
  store_->patch(offset, 2, "XY", 2, true);
  store_->patch(offset, 5, "F", 1, false);
  store_->patch(offset, 6, "", 0, true);
  EXPECT_EQ(readAll(offset), "abXYeF");
  EXPECT_NE(message([&] { store_->patch(offset, 5, "zz", 2, true); }), "(no exception)");
  EXPECT_NE(message([&] { store_->patch(offset, 7, "", 0, true); }), "(no exception)");
  EXPECT_NE(message([&] { store_->patch(after + 1, 0, "z", 1, true); }), "(no exception)");
  EXPECT_EQ(readAll(offset), "abXYeF");
  EXPECT_EQ(readAll(after), "next");
}

// Catches: a change that leaves the stamp where it was, so that a cache over the records
// would go stale unnoticed, or a read that moves it, so that caches would never be trusted.
TEST_P(DataStoreConformance, StampMovesWithEveryChangeAndOnlyWithChanges) {
  IDataStore::tStamp last;
  ASSERT_TRUE(store_->stamp(last));
  auto moved = [&] {
    IDataStore::tStamp now;
    store_->stamp(now);
    bool result = now != last;
    last = now;
    return result;
  };
  unsigned offset = createText("abc");
  EXPECT_TRUE(moved());
  store_->append(offset, "d", 1);
  EXPECT_TRUE(moved());
  store_->write(offset, "xy", 2, false);
  EXPECT_TRUE(moved());
  store_->patch(offset, 1, "z", 1, false);
  EXPECT_TRUE(moved());
  store_->version(3);
  EXPECT_TRUE(moved());
  readAll(offset);
  store_->used();
  store_->version();
  store_->complete();
  EXPECT_FALSE(moved());
  store_->free(offset);
  EXPECT_TRUE(moved());
}

// Catches: abandoning that keeps part of the pending changes, or that a store applying changes
// at once claims to do.
TEST_P(DataStoreConformance, AbandoningDropsExactlyThePendingChanges) {
  unsigned kept = createText("kept");
  store_->complete();
  std::unique_ptr<IDataStore::ILock> lock(store_->lock());
  store_->write(kept, "changed", 7, true);
  unsigned added = createText("added");
  if (GetParam() == "Memory") {
    EXPECT_FALSE(store_->abandon());
    EXPECT_EQ(readAll(kept), "changed");
    return;
  }
  IDataStore::tStamp before, after;
  store_->stamp(before);
  EXPECT_TRUE(store_->abandon());
  store_->stamp(after);
  EXPECT_NE(before, after);
  EXPECT_EQ(readAll(kept), "kept");
  EXPECT_EQ(store_->size(added), 0u);
  EXPECT_EQ(createText("again"), added);
  lock.reset();
  reopen();
  EXPECT_EQ(readAll(added), "again");
}

// Catches: a lock that deadlocks its own thread when taken again, or lets another thread in
// before the outermost hold is released.
TEST_P(DataStoreConformance, LockIsReentrantForOneThreadAndExcludesOthers) {
  std::unique_ptr<IDataStore::ILock> outer(store_->lock());
  std::unique_ptr<IDataStore::ILock> inner(store_->lock());
  std::atomic<bool> acquired{false};
  std::thread other([&] {
    std::unique_ptr<IDataStore::ILock> held(store_->lock());
    acquired = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(acquired.load());
  inner.reset();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(acquired.load());
  outer.reset();
  other.join();
  EXPECT_TRUE(acquired.load());
}

// Catches: races between threads inside the store (run it under ThreadSanitizer too): records
// torn, lost or given to two threads, whether or not they hold the lock; and for a file,
// work of threads without the lock getting lost or torn at commits made by others.
TEST_P(DataStoreConformance, ThreadsWithAndWithoutTheLockKeepTheirRecords) {
  constexpr int kThreads = 4;
  std::vector<std::map<unsigned, std::string>> kept(kThreads);
  std::atomic<bool> done{false};
  std::thread committer([&] {
    while (!done) {
      store_->complete();
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  });
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::map<unsigned, std::string>& mine = kept[t];
      for (int i = 0; i < 400; ++i) {
        std::unique_ptr<IDataStore::ILock> lock(i % 2 == t % 2 ? store_->lock() : nullptr);
        std::string text = std::to_string(t) + "/" + std::to_string(i);
        unsigned offset = createText(text);
        EXPECT_TRUE(mine.emplace(offset, text).second) << "offset given twice";
        if (i % 3 == 0) {
          store_->append(offset, "+", 1);
          mine[offset] += "+";
        }
        if (i % 4 == 0 && mine.size() > 1) {
          store_->free(mine.begin()->first);
          mine.erase(mine.begin());
        }
        auto other = mine.rbegin();
        EXPECT_EQ(readAll(other->first), other->second);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  done = true;
  committer.join();
  reopen();
  unsigned count = 0;
  for (const auto& mine : kept) {
    count += static_cast<unsigned>(mine.size());
    for (const auto& [offset, text] : mine)
      ASSERT_EQ(readAll(offset), text);
  }
  EXPECT_EQ(records(), count);
}

INSTANTIATE_TEST_SUITE_P(Stores, DataStoreConformance,
                         ::testing::Values("Memory", "Lmdb", "Postgres"),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                           return info.param;
                         });

}  // namespace
}  // namespace kestrine::platform::core::storage::datastore
