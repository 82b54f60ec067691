// What the LMDB store adds to the shared IDataStore contract (datastore_conformance_test.cc):
// persistence, atomic commits, several processes, growth, full disks, damaged files.
#include "kestrine/platform/core/lmdb_datastore.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <lmdb.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "core/storage/datastore_test_support.h"
#include "core/storage/lmdb_process_test_support.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {
namespace {

using Lock = std::unique_ptr<IDataStore::ILock>;

std::string readAll(IDataStore& store, unsigned offset) {
  std::string bytes(store.size(offset), '\0');
  store.read(offset, bytes.data(), 0xFFFFFFFF);
  return bytes;
}

unsigned createText(IDataStore& store, const std::string& text) {
  return store.create(text.data(), static_cast<unsigned>(text.size()));
}

std::string message(const std::function<void()>& action) {
  try {
    action();
  } catch (const Exception& error) {
    return error.what();
  }
  return "(no exception)";
}

class LmdbDataStoreTest : public ::testing::Test {
 protected:
  const std::string& path() const { return path_; }

 private:
  TemporaryDirectory directory_;
  std::string path_ = directory_.directory() + "/store";
};

// Catches: state kept only in memory (free list, used(), version) and lost at a reopen.
TEST_F(LmdbDataStoreTest, ReopeningKeepsRecordsFreeListUsedAndVersion) {
  auto sequence = [](IDataStore& store) {
    for (int i = 0; i < 10; ++i)
      createText(store, "record " + std::to_string(i));
    for (unsigned offset : {3u, 7u, 5u})
      store.free(offset);
    store.append(2, "+tail", 5);
    store.version(5);
  };
  MemoryDataStore memory;
  sequence(memory);
  {
    LmdbDataStore store(path());
    sequence(store);
  }
  LmdbDataStore store(path());
  EXPECT_EQ(store.version(), 5u);
  EXPECT_EQ(store.records(), 7u);
  EXPECT_EQ(store.used(), memory.used());
  EXPECT_EQ(readAll(store, 2), "record 2+tail");
  EXPECT_EQ(readAll(store, 9), "record 9");
  EXPECT_EQ(store.size(7), 0u);
  // Freed offsets come back last-freed first, across the reopening.
  for (unsigned expected : {5u, 7u, 3u, 10u}) {
    EXPECT_EQ(createText(store, "again"), expected);
    EXPECT_EQ(createText(memory, "again"), expected);
  }
  EXPECT_EQ(store.used(), memory.used());
}

// Catches any divergence from MemoryDataStore (offsets, sizes, used(), refusals), also over
// commits and reopenings in the middle of the sequence.
TEST_F(LmdbDataStoreTest, GivesTheSameAnswersAsTheMemoryStore) {
  MemoryDataStore memory;
  auto lmdb = std::make_unique<LmdbDataStore>(path());
  std::mt19937 random(20240611);
  auto pick = [&random](unsigned bound) { return static_cast<unsigned>(random() % bound); };
  std::vector<Lock> locks;
  unsigned highest = 0;
  for (int step = 0; step < 20000; ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    unsigned offset = pick(highest + 3);
    std::string bytes(pick(300), '\0');
    for (char& byte : bytes)
      byte = static_cast<char>(pick(256));
    unsigned size = static_cast<unsigned>(bytes.size());
    switch (pick(14)) {
      case 0:
      case 1:
      case 2: {
        const void* data = pick(8) == 0 ? nullptr : bytes.data();
        unsigned made = memory.create(data, size);
        ASSERT_EQ(lmdb->create(data, size), made);
        highest = std::max(highest, made);
        break;
      }
      case 3:
      case 4: {
        bool refused = false;
        try {
          memory.write(offset, bytes.data(), size, pick(2) == 0);
        } catch (const Exception&) {
          refused = true;
        }
        if (refused) {
          EXPECT_THROW(lmdb->write(offset, bytes.data(), size, true), Exception);
        } else {
          lmdb->write(offset, bytes.data(), size, true);
        }
        break;
      }
      case 5: {
        unsigned part = pick(size + 1);
        bool refused = false;
        try {
          memory.append(offset, bytes.data(), part);
        } catch (const Exception&) {
          refused = true;
        }
        if (refused) {
          EXPECT_THROW(lmdb->append(offset, bytes.data(), part), Exception);
        } else {
          lmdb->append(offset, bytes.data(), part);
        }
        break;
      }
      case 6:
      case 7:
        memory.free(offset);
        lmdb->free(offset);
        break;
      case 8: {
        unsigned maximum = pick(4) == 0 ? 0xFFFFFFFF : pick(400);
        std::string a(std::max(400u, memory.size(offset)), 'a'), b = a;
        ASSERT_EQ(lmdb->read(offset, b.data(), maximum), memory.read(offset, a.data(), maximum));
        ASSERT_EQ(a, b);
        break;
      }
      case 9:
        ASSERT_EQ(lmdb->size(offset), memory.size(offset));
        ASSERT_EQ(lmdb->used(), memory.used());
        ASSERT_EQ(lmdb->records(), memory.records());
        break;
      case 10:
        if (locks.size() < 3 && pick(2) == 0) {
          locks.emplace_back(lmdb->lock());
        } else if (!locks.empty()) {
          locks.pop_back();
        }
        break;
      case 11:
        memory.version(step);
        lmdb->version(step);
        break;
      case 12:
        if (pick(3) == 0) lmdb->complete();
        ASSERT_EQ(lmdb->version(), memory.version());
        break;
      case 13:
        if (pick(40) == 0) {
          locks.clear();
          lmdb.reset();
          lmdb = std::make_unique<LmdbDataStore>(path());
        }
        break;
    }
  }
  locks.clear();
  lmdb.reset();
  LmdbDataStore reopened(path());
  EXPECT_EQ(reopened.used(), memory.used());
  EXPECT_EQ(reopened.records(), memory.records());
  for (unsigned offset = 0; offset <= highest; ++offset) {
    ASSERT_EQ(readAll(reopened, offset), readAll(memory, offset)) << "offset " << offset;
  }
}

// Catches: commits at the wrong moment, which would let another process see half of an
// operation (inner lock released) or miss finished work (outer lock, complete, flush, close).
TEST_F(LmdbDataStoreTest, ChangesReachOtherProcessesOnlyAtCommitPoints) {
  auto store = std::make_unique<LmdbDataStore>(path());
  EXPECT_EQ(summaryOf(path()), "0 0 0");
  {
    Lock outer(store->lock());
    createText(*store, "under the lock");
    {
      Lock inner(store->lock());
      createText(*store, "inner");
    }
    EXPECT_EQ(summaryOf(path()), "0 0 0") << "released an inner lock";
  }
  EXPECT_EQ(summaryOf(path()), "2 35 0") << "released the outer lock";

  createText(*store, "import");
  store->version(1);
  EXPECT_EQ(summaryOf(path()), "2 35 0") << "outside the lock";
  store->complete();
  EXPECT_EQ(summaryOf(path()), "3 49 1") << "complete()";

  store->free(0);
  store->flush();
  EXPECT_EQ(summaryOf(path()), "2 35 1") << "flush()";

  store->write(1, "x", 1, true);
  store.reset();
  EXPECT_EQ(summaryOf(path()), "2 31 1") << "closing";
}

// Catches: two processes giving out the same offsets, or one basing its changes on a state
// the other has replaced.
TEST_F(LmdbDataStoreTest, WritersInTwoProcessesTakeTurns) {
  LmdbDataStore store(path());
  ASSERT_EQ(waitChild(startChild({"generations", path(), "50", "0"})), 0);
  unsigned mine = createText(store, "pending here");  // holds the writer lock from now on
  pid_t other = startChild({"generations", path(), "50", "0"});
  ASSERT_GT(other, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  int status = 0;
  EXPECT_EQ(waitpid(other, &status, WNOHANG), 0) << "the other writer did not wait";
  store.flush();
  EXPECT_EQ(waitChild(other), 0);
  Lock lock(store.lock());
  EXPECT_EQ(observedGeneration(store, 1), 2u);
  EXPECT_EQ(readAll(store, mine), "pending here");
}

// Catches: a map too small for a transaction losing the transaction, and a process failing
// on a file that another process has grown beyond its map.
TEST_F(LmdbDataStoreTest, MapGrowsWhileATransactionIsPending) {
  const std::size_t tiny = 64 << 10;
  const std::string record(1000, 'r');
  {
    LmdbDataStore store(path(), tiny);
    for (int i = 0; i < 3000; ++i)
      createText(store, record + std::to_string(i));
    store.flush();
    EXPECT_EQ(store.records(), 3000u);
  }
  EXPECT_GT(std::filesystem::file_size(path()), 3000u * 1000u);
  LmdbDataStore store(path(), tiny);
  EXPECT_EQ(store.records(), 3000u);
  for (unsigned offset = 0; offset < 3000; ++offset) {
    ASSERT_EQ(readAll(store, offset), record + std::to_string(offset));
  }
}

TEST_F(LmdbDataStoreTest, AdoptsAMapGrownByAnotherProcess) {
  LmdbDataStore store(path(), 64 << 10);
  EXPECT_EQ(store.used(), 0u);
  ASSERT_EQ(waitChild(startChild({"generations", path(), "20000", "0"})), 0);
  Lock lock(store.lock());
  EXPECT_EQ(observedGeneration(store), 1u);
}

// Catches: a full disk at commit losing the pending transaction, leaving a torn file, or
// killing the process. Needs a small tmpfs, mounted in a private mount namespace of a forked
// child; skipped where this process may not mount.
TEST_F(LmdbDataStoreTest, FullDiskKeepsThePendingTransactionForARetry) {
  int report[2];
  ASSERT_EQ(pipe(report), 0);
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    close(report[0]);
    auto finish = [&](int code, const std::string& text) {
      ssize_t ignored = ::write(report[1], text.data(), text.size());
      (void)ignored;
      _exit(code);
    };
    std::string disk = path() + ".disk";
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mkdir(disk.c_str(), 0755) != 0 ||
        mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=1m") != 0) {
      finish(77, "cannot mount a tmpfs here");
    }
    std::string file = disk + "/store";
    std::string failures;
    try {
      auto store = std::make_unique<LmdbDataStore>(file);
      for (int i = 0; i < 20; ++i)
        createText(*store, "committed " + std::to_string(i));
      store->flush();
      {  // fill what is left of the disk
        std::ofstream ballast(disk + "/ballast", std::ios::binary);
        std::string block(4096, 'b');
        while (ballast.write(block.data(), block.size())) {
        }
      }
      for (int i = 0; i < 50; ++i)
        createText(*store, std::string(4000, 'p') + std::to_string(i));
      for (int attempt = 0; attempt < 2; ++attempt) {
        std::string error = message([&] { store->flush(); });
        if (error.find(file + ": commit: disk full") != 0) failures += "flush: " + error + "\n";
      }
      if (summaryOf(file) != "20 390 0") failures += "committed state: " + summaryOf(file) + "\n";
      if (store->records() != 70 || readAll(*store, 69) != std::string(4000, 'p') + "49") {
        failures += "the pending transaction was lost\n";
      }
      std::filesystem::remove(disk + "/ballast");
      store->flush();
      store.reset();
      LmdbDataStore reopened(file);
      if (reopened.records() != 70 || readAll(reopened, 19) != "committed 19") {
        failures += "the retried commit is incomplete\n";
      }
    } catch (const std::exception& error) {
      failures += std::string("unexpected: ") + error.what() + "\n";
    }
    finish(failures.empty() ? 0 : 1, failures);
  }
  close(report[1]);
  std::string text;
  char buffer[512];
  for (ssize_t n; (n = ::read(report[0], buffer, sizeof buffer)) > 0;)
    text.append(buffer, n);
  close(report[0]);
  int status = waitChild(pid);
  if (status == 77) GTEST_SKIP() << text;
  EXPECT_EQ(status, 0) << text;
}

// Catches: a crash in the middle of a large transaction (or of its commit) leaving a mix of
// two states. The workload runs in another program, so this checker stays the same whatever
// writes the store. It frees and reuses offsets, which document imports never do; killed
// imports have their own test (lmdb_import_test.cc).
TEST_F(LmdbDataStoreTest, KilledWritersLeaveOneWholeGeneration) {
  std::mt19937 random(7);
  unsigned long long last = 0;
  for (int kill = 0; kill < 25; ++kill) {
    SCOPED_TRACE("kill " + std::to_string(kill));
    pid_t writer = startChild({"generations", path(), "2000", "3600"});
    ASSERT_GT(writer, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20 + random() % 300));
    ::kill(writer, SIGKILL);
    ASSERT_EQ(waitChild(writer), 128 + SIGKILL);
    LmdbDataStore store(path());
    Lock lock(store.lock());
    unsigned long long seen = observedGeneration(store);
    ASSERT_FALSE(HasFailure());
    EXPECT_GE(seen, last);
    last = seen;
  }
  EXPECT_GT(last, 2u) << "the writer never got far enough to prove anything";
}

TEST(LmdbDataStoreProcesses, ReaderSeesOnlyWholeGenerationsWhileAnotherProcessWrites) {
  readWhileAnotherProcessWrites(3);
}

// Catches: races between threads inside the store (run it under ThreadSanitizer too), and
// work of threads without the lock getting lost or torn at commits made by others.
TEST_F(LmdbDataStoreTest, ThreadsWithAndWithoutTheLockLeaveAConsistentFile) {
  constexpr int kThreads = 4;
  std::vector<std::map<unsigned, std::string>> kept(kThreads);
  {
    LmdbDataStore store(path());
    std::atomic<bool> done{false};
    std::thread flusher([&] {
      while (!done) {
        store.flush();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
    });
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        std::map<unsigned, std::string>& mine = kept[t];
        for (int i = 0; i < 400; ++i) {
          Lock lock(i % 2 == t % 2 ? store.lock() : nullptr);
          std::string text = std::to_string(t) + "/" + std::to_string(i);
          unsigned offset = createText(store, text);
          EXPECT_TRUE(mine.emplace(offset, text).second) << "offset given twice";
          if (i % 3 == 0) {
            store.append(offset, "+", 1);
            mine[offset] += "+";
          }
          if (i % 4 == 0 && mine.size() > 1) {
            store.free(mine.begin()->first);
            mine.erase(mine.begin());
          }
          auto other = mine.rbegin();
          EXPECT_EQ(readAll(store, other->first), other->second);
        }
      });
    }
    for (std::thread& thread : threads)
      thread.join();
    done = true;
    flusher.join();
  }
  LmdbDataStore store(path());
  unsigned count = 0;
  for (const auto& mine : kept) {
    count += static_cast<unsigned>(mine.size());
    for (const auto& [offset, text] : mine)
      ASSERT_EQ(readAll(store, offset), text);
  }
  EXPECT_EQ(store.records(), count);
}

// Catches: crashes or silent misreads when the path is not a store file; each refusal
// names the path.
TEST_F(LmdbDataStoreTest, OpeningRefusesWhatIsNotAStoreFile) {
  std::string directory = path() + ".d";
  std::filesystem::create_directory(directory);
  EXPECT_NE(
      message([&] { LmdbDataStore store(directory); }).find(directory + ": open: Is a directory"),
      std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(directory + "-lock"));

  std::string missing = path() + ".missing/store";
  EXPECT_NE(message([&] { LmdbDataStore store(missing); }).find(missing + ": open: "),
            std::string::npos);

  std::string text = path() + ".txt";
  std::ofstream(text) << std::string(20000, 'x');
  EXPECT_NE(message([&] { LmdbDataStore store(text); }).find(text + ": open: "), std::string::npos);
  std::ofstream(text, std::ios::trunc) << "short";
  EXPECT_NE(message([&] { LmdbDataStore store(text); }).find(text + ": open: "), std::string::npos);

  std::string foreign = path() + ".foreign";
  {
    MDB_env* env = nullptr;
    MDB_txn* txn = nullptr;
    MDB_dbi dbi;
    ASSERT_EQ(mdb_env_create(&env), 0);
    ASSERT_EQ(mdb_env_open(env, foreign.c_str(), MDB_NOSUBDIR, 0644), 0);
    ASSERT_EQ(mdb_txn_begin(env, nullptr, 0, &txn), 0);
    ASSERT_EQ(mdb_dbi_open(txn, nullptr, 0, &dbi), 0);
    MDB_val key{3, const_cast<char*>("key")}, value{5, const_cast<char*>("value")};
    ASSERT_EQ(mdb_put(txn, dbi, &key, &value, 0), 0);
    ASSERT_EQ(mdb_txn_commit(txn), 0);
    mdb_env_close(env);
  }
  EXPECT_NE(
      message([&] { LmdbDataStore store(foreign); }).find(foreign + ": not a kestrine datastore"),
      std::string::npos);

  LmdbDataStore open(path());
  EXPECT_NE(message([&] { LmdbDataStore again(path()); }).find("already open in this process"),
            std::string::npos);
  EXPECT_EQ(createText(open, "still usable"), 0u);
}

TEST_F(LmdbDataStoreTest, OpeningRefusesAnUnreadableFile) {
  { LmdbDataStore store(path()); }
  ASSERT_EQ(chmod(path().c_str(), 0), 0);
  auto refused = [&] {
    return message([&] {
             LmdbDataStore store(path());
           }).find(path() + ": open: Permission denied") != std::string::npos;
  };
  if (geteuid() != 0) {
    EXPECT_TRUE(refused());
    return;
  }
  // Root reads any file: try as an ordinary user.
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) _exit(setgid(65534) == 0 && setuid(65534) == 0 && refused() ? 0 : 1);
  EXPECT_EQ(waitChild(pid), 0);
}

// Catches: a store file cut short (an interrupted copy, a copy onto a full disk) killing the
// process with SIGBUS when LMDB touches a page past its end.
TEST_F(LmdbDataStoreTest, TruncatedFileFailsWithAnExceptionNotACrash) {
  {
    LmdbDataStore store(path());
    for (int i = 0; i < 3000; ++i)
      createText(store, std::string(100, 'd') + std::to_string(i));
  }
  std::filesystem::resize_file(path(), std::filesystem::file_size(path()) / 2);
  EXPECT_NE(message([&] {
              LmdbDataStore store(path());
            }).find(path() + ": damaged store file: the file is truncated"),
            std::string::npos);
}

}  // namespace
}  // namespace kestrine::platform::core::storage::datastore
