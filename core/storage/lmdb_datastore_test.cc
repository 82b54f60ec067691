// What the LMDB store adds to the shared IDataStore contract (datastore_conformance_test.cc):
// persistence, atomic commits, several processes, growth, full disks, damaged files.
#include "kestrine/platform/core/lmdb_datastore.h"

#include <gtest/gtest.h>
#include <lmdb.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/storage/datastore_test_support.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {
namespace {

using Lock = std::unique_ptr<IDataStore::ILock>;

// Runs the helper program (lmdb_datastore_test_child.cc) to its end: what it printed, less the
// final line break, or how it failed.
std::string runChild(const std::string& arguments) {
  FILE* pipe = popen((std::string(KPL_LMDB_CHILD) + " " + arguments).c_str(), "r");
  std::string output;
  char buffer[256];
  while (pipe != nullptr && fgets(buffer, sizeof buffer, pipe) != nullptr)
    output += buffer;
  int status = pipe != nullptr ? pclose(pipe) : -1;
  if (!output.empty() && output.back() == '\n') output.pop_back();
  return status == 0 ? output : output + "(failed: " + std::to_string(status) + ")";
}

// What the committed state of a store file looks like to another process.
std::string summaryOf(const std::string& path) {
  return runChild("summary '" + path + "'");
}

class LmdbDataStoreTest : public ::testing::Test {
 protected:
  const std::string& path() const { return path_; }

 private:
  TemporaryDirectory directory_;
  std::string path_ = directory_.directory() + "/store";
};

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

// Catches: another process's commit that leaves the stamp's foreign part as it was, so that a
// cache over the records would outlive the records it describes; and this process's own
// commits counted as foreign, so that every commit would throw such caches away.
TEST_F(LmdbDataStoreTest, StampMovesForCommitsOfOtherProcesses) {
  LmdbDataStore store(path());
  createText(store, "mine");
  store.flush();
  IDataStore::tStamp before, after;
  store.stamp(before);
  createText(store, "mine too");
  store.flush();
  store.stamp(after);
  EXPECT_EQ(after.foreign, before.foreign);
  ASSERT_EQ(runChild("fill '" + path() + "' 3"), "");
  store.stamp(before);
  EXPECT_NE(before.foreign, after.foreign);
  EXPECT_EQ(before.own, after.own);
}

// Catches: a map too small for a transaction losing the transaction, a process failing on a
// file that another process has grown beyond its map, and a file larger than the map asked
// for opened at the smaller size.
TEST_F(LmdbDataStoreTest, MapGrowsWhileATransactionIsPending) {
  const std::size_t tiny = 64 << 10;
  auto store = std::make_unique<LmdbDataStore>(path(), tiny);
  EXPECT_EQ(store->used(), 0u);
  ASSERT_EQ(runChild("fill '" + path() + "' 3000"), "");  // on a map of 64 KiB too
  EXPECT_GT(std::filesystem::file_size(path()), 3000u * 1000u);
  for (int open = 0; open < 2; ++open) {
    SCOPED_TRACE(open == 0 ? "grown by another process" : "reopened");
    Lock lock(store->lock());
    ASSERT_EQ(store->records(), 3000u);
    for (unsigned offset = 0; offset < 3000; ++offset)
      ASSERT_EQ(readAll(*store, offset), std::string(1000, 'r') + std::to_string(offset));
    lock.reset();
    store.reset();
    store = std::make_unique<LmdbDataStore>(path(), tiny);
  }
}

// Catches: a full disk at commit losing the pending transaction, leaving a torn file, or
// killing the process. Needs a small tmpfs, mounted in a private mount namespace of a forked
// child; skipped where this process may not mount.
TEST_F(LmdbDataStoreTest, FullDiskKeepsThePendingTransactionForARetry) {
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    std::string disk = path() + ".disk", file = disk + "/store";
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mkdir(disk.c_str(), 0755) != 0 ||
        mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=1m") != 0) {
      _exit(77);
    }
    // The child tells what failed on standard error, which the test's output shows.
    int failures = 0;
    auto check = [&failures](bool ok, const std::string& what) {
      if (ok) return;
      ++failures;
      std::fprintf(stderr, "%s\n", what.c_str());
    };
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
        check(error.find(file + ": commit: disk full") == 0, "flush: " + error);
      }
      check(summaryOf(file) == "20 390 0", "committed state: " + summaryOf(file));
      check(store->records() == 70 && readAll(*store, 69) == std::string(4000, 'p') + "49",
            "the pending transaction was lost");
      std::filesystem::remove(disk + "/ballast");
      store->flush();
      store.reset();
      LmdbDataStore reopened(file);
      check(reopened.records() == 70 && readAll(reopened, 19) == "committed 19",
            "the retried commit is incomplete");
    } catch (const std::exception& error) {
      check(false, std::string("unexpected: ") + error.what());
    }
    _exit(failures == 0 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 77) GTEST_SKIP() << "cannot mount a tmpfs here";
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the child's report is above";
}

// Catches: crashes (SIGBUS past the end of a cut file) or silent misreads when the path is
// not a whole store file of this application; each refusal names the path.
TEST_F(LmdbDataStoreTest, OpeningRefusesWhatIsNotAStoreFile) {
  auto refusal = [](const std::string& path) {
    return message([&] { LmdbDataStore store(path); });
  };
  std::string directory = path() + ".d";
  std::filesystem::create_directory(directory);
  EXPECT_NE(refusal(directory).find(directory + ": open: Is a directory"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(directory + "-lock"));
  std::string missing = path() + ".missing/store";
  EXPECT_NE(refusal(missing).find(missing + ": open: "), std::string::npos);
  std::string text = path() + ".txt";
  for (std::string content : {std::string(20000, 'x'), std::string("short")}) {
    std::ofstream(text, std::ios::trunc) << content;
    EXPECT_NE(refusal(text).find(text + ": open: "), std::string::npos) << content.size();
  }

  std::string foreign = path() + ".foreign";
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
  EXPECT_NE(refusal(foreign).find(foreign + ": not a kestrine datastore"), std::string::npos);

  std::string cut = path() + ".cut";
  {
    LmdbDataStore store(cut);
    for (int i = 0; i < 3000; ++i)
      createText(store, std::string(100, 'd') + std::to_string(i));
  }
  std::filesystem::resize_file(cut, std::filesystem::file_size(cut) / 2);
  EXPECT_NE(refusal(cut).find(cut + ": damaged store file: the file is truncated"),
            std::string::npos);

  LmdbDataStore open(path());
  EXPECT_NE(refusal(path()).find("already open in this process"), std::string::npos);
  EXPECT_EQ(createText(open, "still usable"), 0u);
}

// Puts `records` (offset -> value as stored) beside the format marker `format` into the file
// at `path` with LMDB itself, as an older or a damaged writer would have left them.
void putRaw(const std::string& path, const char* format,
            const std::vector<std::pair<unsigned, std::string>>& records) {
  MDB_env* env = nullptr;
  MDB_txn* txn = nullptr;
  MDB_dbi meta, data, free;
  ASSERT_EQ(mdb_env_create(&env), 0);
  ASSERT_EQ(mdb_env_set_maxdbs(env, 3), 0);
  ASSERT_EQ(mdb_env_open(env, path.c_str(), MDB_NOSUBDIR, 0644), 0);
  ASSERT_EQ(mdb_txn_begin(env, nullptr, 0, &txn), 0);
  ASSERT_EQ(mdb_dbi_open(txn, "meta", MDB_CREATE, &meta), 0);
  ASSERT_EQ(mdb_dbi_open(txn, "records", MDB_CREATE | MDB_INTEGERKEY, &data), 0);
  ASSERT_EQ(mdb_dbi_open(txn, "free", MDB_CREATE | MDB_INTEGERKEY, &free), 0);
  MDB_val key{6, const_cast<char*>("format")}, value{std::strlen(format), (void*)format};
  ASSERT_EQ(mdb_put(txn, meta, &key, &value, 0), 0);
  char empty[24] = {};  // the state of a new store, unless the file has one
  MDB_val state{5, const_cast<char*>("state")}, zeros{sizeof empty, empty};
  EXPECT_NE(mdb_put(txn, meta, &state, &zeros, MDB_NOOVERWRITE), EINVAL);
  for (auto [offset, bytes] : records) {
    MDB_val at{sizeof offset, &offset}, record{bytes.size(), bytes.data()};
    ASSERT_EQ(mdb_put(txn, data, &at, &record, 0), 0);
  }
  ASSERT_EQ(mdb_txn_commit(txn), 0);
  mdb_env_close(env);
}

// Catches: a read-only store that writes its file, refuses the reference counts that reading
// writes, keeps them past another process's commit, or lets a change through.
TEST_F(LmdbDataStoreTest, ReadOnlyStoresKeepCountsInMemoryAndRefuseChanges) {
  EXPECT_NE(message([&] {
              LmdbDataStore store(path(), StoreAccess::kReadOnly);
            }).find(path() + ": open: "),
            std::string::npos);
  {
    LmdbDataStore store(path());
    createText(store, "count 1");
  }
  std::ifstream file(path(), std::ios::binary);
  const std::string before{std::istreambuf_iterator<char>(file), {}};
  LmdbDataStore store(path(), StoreAccess::kReadOnly);
  store.write(0, "count 2", 7, false);
  EXPECT_EQ(readAll(store, 0), "count 2");
  const std::string refusal = path() + ": the store is open read-only";
  EXPECT_EQ(message([&] { createText(store, "new"); }), refusal);
  EXPECT_EQ(message([&] { store.write(0, "changed", 7, true); }), refusal);
  EXPECT_EQ(message([&] { store.free(0); }), refusal);
  EXPECT_EQ(message([&] { store.version(3); }), refusal);
  store.flush();
  std::ifstream again(path(), std::ios::binary);
  EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(again), {}) == before);

  ASSERT_EQ(runChild("fill '" + path() + "' 1"), "");
  EXPECT_EQ(readAll(store, 0), "count 1");
  EXPECT_EQ(store.records(), 2u);
}

// Catches: files of the first format, without checksums, read as damaged or written with
// checksums they cannot hold; damage that checkRecords() passes over.
TEST_F(LmdbDataStoreTest, ChecksumsFindDamageAndOlderFilesKeepWorking) {
  std::string older = path() + ".v1";
  putRaw(older, "kestrine datastore 1", {});
  {
    LmdbDataStore store(older);
    createText(store, "first");
  }
  LmdbDataStore reopened(older);
  EXPECT_EQ(readAll(reopened, 0), "first");
  std::vector<std::string> damaged;
  reopened.checkRecords(damaged);
  EXPECT_TRUE(damaged.empty()) << damaged.front();

  {
    LmdbDataStore store(path());
    for (const char* text : {"zero", "one", "two"})
      createText(store, text);
  }
  putRaw(path(), "kestrine datastore 2", {{1, std::string(8, '\0') + "one"}});
  LmdbDataStore store(path());
  EXPECT_EQ(readAll(store, 2), "two");
  const std::string record = path() + ": damaged record at offset 1: ";
  EXPECT_EQ(message([&] { readAll(store, 1); }), record + "its bytes do not match their checksum");
  store.checkRecords(damaged);
  EXPECT_EQ(damaged, std::vector<std::string>{record + "its bytes do not match their checksum"});
}

}  // namespace
}  // namespace kestrine::platform::core::storage::datastore
