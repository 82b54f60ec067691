#ifndef KPL_CORE_STORAGE_LMDB_PROCESS_TEST_SUPPORT_H_
#define KPL_CORE_STORAGE_LMDB_PROCESS_TEST_SUPPORT_H_

// Helpers of the tests that run a second process on the same store file: starting the
// helper program, and checking that a store holds exactly one whole generation.

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "core/storage/datastore_test_support.h"
#include "core/storage/generation_records.h"
#include "kestrine/platform/core/lmdb_datastore.h"

extern char** environ;

namespace kestrine::platform::core::storage::datastore {

// Starts the helper program (lmdb_datastore_child.cc) with `arguments`; returns its pid.
inline pid_t startChild(const std::vector<std::string>& arguments) {
  std::vector<std::string> words{KPL_LMDB_CHILD};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);
  pid_t pid = -1;
  if (posix_spawn(&pid, KPL_LMDB_CHILD, nullptr, nullptr, argv.data(), environ) != 0) return -1;
  return pid;
}

// Waits for the child and returns its exit status, or 128 + the signal that ended it.
inline int waitChild(pid_t pid) {
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// What the committed state of a store file looks like to another process.
inline std::string summaryOf(const std::string& path) {
  std::string command = std::string(KPL_LMDB_CHILD) + " summary '" + path + "'";
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::string output;
  char buffer[256];
  while (pipe && fgets(buffer, sizeof buffer, pipe.get()) != nullptr)
    output += buffer;
  if (!output.empty() && output.back() == '\n') output.pop_back();
  return output;
}

// The generation a store holds: 0 for a store without one. Adds a test failure when the
// store holds anything but one whole generation (plus `otherRecords` records of the test's
// own). Reads through the caller's view: hold the store lock for one consistent state.
inline unsigned long long observedGeneration(LmdbDataStore& store, unsigned otherRecords = 0) {
  auto readAll = [&store](unsigned offset) {
    std::vector<unsigned char> bytes(store.size(offset));
    store.read(offset, bytes.data(), 0xFFFFFFFF);
    return bytes;
  };
  generation::Header header;
  if (!generation::decode(readAll(0), &header)) {
    EXPECT_EQ(store.records(), otherRecords) << "records without a generation header";
    return 0;
  }
  EXPECT_EQ(store.records(), header.count + 2 + otherRecords) << "generation " << header.generation;
  std::vector<unsigned> offsets(header.count);
  EXPECT_EQ(store.read(header.index, offsets.data(), header.count * 4), header.count * 4);
  unsigned long long sum = generation::kChecksumSeed;
  for (unsigned i = 0; i < header.count; ++i) {
    std::vector<unsigned char> bytes = readAll(offsets[i]);
    if (bytes != generation::dataRecord(header.generation, i)) {
      ADD_FAILURE() << "record " << i << " at offset " << offsets[i] << " is not of generation "
                    << header.generation;
      break;
    }
    sum = generation::checksum(sum, bytes);
  }
  EXPECT_EQ(sum, header.checksum) << "generation " << header.generation;
  return header.generation;
}

// One process writes generations for `seconds` while this one reads whole generations under
// the store lock: no error on either side, and the generations seen only move forward.
inline void readWhileAnotherProcessWrites(int seconds) {
  TemporaryDirectory directory;
  std::string path = directory.directory() + "/store";
  LmdbDataStore store(path);
  pid_t writer = startChild({"generations", path, "300", std::to_string(seconds)});
  ASSERT_GT(writer, 0);
  unsigned long long last = 0, distinct = 0;
  int status = -1;
  while (!::testing::Test::HasFailure()) {
    int done = waitpid(writer, &status, WNOHANG);
    std::unique_ptr<IDataStore::ILock> lock(store.lock());
    unsigned long long seen = observedGeneration(store);
    EXPECT_GE(seen, last);
    distinct += seen != last;
    last = seen;
    if (done == writer) break;
  }
  if (::testing::Test::HasFailure()) {
    kill(writer, SIGKILL);
    waitpid(writer, &status, 0);
    return;
  }
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the writer failed";
  EXPECT_GT(distinct, 2u) << "the reader saw too few commits to prove anything";
}

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_LMDB_PROCESS_TEST_SUPPORT_H_
