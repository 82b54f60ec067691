// The store file under kmeta, the way users meet it: documents imported by one process,
// exported by another, imports killed at any moment.
#include <signal.h>

#include <chrono>
#include <cstdio>
#include <random>
#include <set>
#include <string>
#include <thread>

#include "core/storage/lmdb_import_test_support.h"

namespace kestrine::platform::core::storage::datastore {
namespace {

// Catches: a kill in the middle of an import (or of its commit) leaving part of the document
// in the file, a file that no longer opens, or an import that commits in pieces.
TEST(LmdbImport, KilledImportsLeaveTheStateBeforeOrAfter) {
  const unsigned kParts = 1000;
  TemporaryDirectory directory;
  std::string store = directory.directory() + "/store";
  // Generation 1 whole: the tree later imports merge into, and how long an import takes.
  auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(waitKmeta(startKmeta(
                {"import", "--store", store, writeGeneration(directory.directory(), 1, kParts)})),
            0);
  auto duration = std::chrono::steady_clock::now() - start;
  // Kills land anywhere from the start to half as long again as an import takes, so that
  // some land before the commit, some during, and some after it.
  auto window = std::chrono::duration_cast<std::chrono::microseconds>(duration * 3 / 2).count();

  std::mt19937 random(11);
  std::set<unsigned> committed{1};
  unsigned before = 0, after = 0;
  for (int kill = 0; kill < 24; ++kill) {
    unsigned generation = static_cast<unsigned>(committed.size()) + 1;
    SCOPED_TRACE("kill " + std::to_string(kill) + ", generation " + std::to_string(generation));
    std::string document = writeGeneration(directory.directory(), generation, kParts);
    pid_t importer = startKmeta({"import", "--store", store, document});
    ASSERT_GT(importer, 0);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % window));
    ::kill(importer, SIGKILL);
    int status = waitKmeta(importer);
    ASSERT_TRUE(status == 128 + SIGKILL || status == 0) << "the import failed: " << status;

    Outcome exported = runKmeta(directory.directory(), {"export", "--store", store});
    ASSERT_EQ(exported.status, 0) << exported.err;
    std::set<unsigned> seen = generationsIn(exported.out, kParts);
    ASSERT_FALSE(HasFailure());
    if (seen == committed) {
      ++before;
      continue;
    }
    committed.insert(generation);
    ASSERT_EQ(seen, committed) << "neither the state before the import nor the one after it";
    ++after;
  }
  std::printf("%u imports killed before their commit, %u after\n", before, after);
  // Both outcomes, or the kills were timed too early or too late to prove anything.
  EXPECT_GT(before, 0u);
  EXPECT_GT(after, 0u);
}

// Catches: an export that reads a half-committed import, records of two states, or a
// record written back from an older state by the reference counts of a reading process.
TEST(LmdbImport, ExportsSeeOnlyWholeImportsWhileAnotherProcessImports) {
  exportWhileAnotherProcessImports(4);
}

}  // namespace
}  // namespace kestrine::platform::core::storage::datastore
