// The persistent stores under kmeta, the way users meet them: documents imported by one
// process, exported by another, imports killed at any moment, servers stopped under them.
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <random>
#include <set>
#include <thread>

#include "data/xml/xml_test_support.h"
#include "tools/kmeta/kmeta_test_support.h"

namespace kmeta::testing {
namespace {

using kestrine::platform::data::XML::testing::SampleDocument;

// Runs a test once for each kind of persistent store, with a scratch directory of its own.
class StoreImport : public ::testing::TestWithParam<std::string> {
 protected:
  const std::string& scratch() const { return directory_.directory(); }
  std::string store() const { return storeArgument(GetParam(), scratch()); }

 private:
  TemporaryDirectory directory_;
};

// Writes the document of one generation (SampleDocument::generation) and returns its path.
std::string writeGeneration(const std::string& directory, unsigned generation, unsigned parts) {
  std::string path = directory + "/gen_" + std::to_string(generation) + ".xml";
  std::ofstream(path, std::ios::binary) << SampleDocument::generation(generation, parts);
  return path;
}

// The generations an exported document holds. Adds a test failure for a generation that is
// not whole: fewer or more than `parts` parts, or a part stamped with another generation.
std::set<unsigned> generationsIn(const std::string& exported, unsigned parts) {
  const std::string group = "<group name=\"gen_", stamp = "<int32 name=\"stamp\">";
  std::set<unsigned> generations;
  for (auto at = exported.find(group); at != std::string::npos; at = exported.find(group, at + 1)) {
    unsigned generation = std::stoul(exported.substr(at + group.size(), 12));
    std::string body = exported.substr(at, exported.find("</group>", at) - at);
    unsigned nodes = 0, stamps = 0;
    for (auto node = body.find("<node "); node != std::string::npos;
         node = body.find("<node ", node + 1))
      ++nodes;
    for (auto s = body.find(stamp); s != std::string::npos; s = body.find(stamp, s + 1), ++stamps)
      EXPECT_EQ(std::stoul(body.substr(s + stamp.size(), 12)), generation) << "a mixed generation";
    EXPECT_EQ(nodes, parts) << "generation " << generation << " holds another number of parts";
    EXPECT_EQ(stamps, parts) << "generation " << generation << " holds another number of stamps";
    generations.insert(generation);
  }
  return generations;
}

// Imports generation after generation into `store` and cuts each import short `times`
// times with `interrupt`, given the importer's pid, at a random moment up to `reach` times
// as long as an import takes. Every time, the importer ends with success or with
// `cutStatus`, and an export shows either the state before the import or the one after it,
// whole. Answers how many imports were cut before their commit and how many after.
struct Cuts {
  unsigned before = 0;
  unsigned after = 0;
};
Cuts cutImports(const std::string& store, const std::string& directory, int times, double reach,
                int cutStatus, const std::function<void(pid_t)>& interrupt) {
  const unsigned kParts = 1000;
  Cuts cuts;
  // Generation 1 whole: the tree later imports merge into, and how long an import takes.
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(
      waitKmeta(startKmeta({"import", "--store", store, writeGeneration(directory, 1, kParts)})),
      0);
  auto window = std::chrono::duration_cast<std::chrono::microseconds>(
                    (std::chrono::steady_clock::now() - start) * reach)
                    .count();
  std::mt19937 random(11);
  std::set<unsigned> committed{1};
  for (int cut = 0; cut < times && !::testing::Test::HasFailure(); ++cut) {
    unsigned generation = static_cast<unsigned>(committed.size()) + 1;
    SCOPED_TRACE("cut " + std::to_string(cut) + ", generation " + std::to_string(generation));
    pid_t importer =
        startKmeta({"import", "--store", store, writeGeneration(directory, generation, kParts)});
    std::this_thread::sleep_for(std::chrono::microseconds(random() % window));
    interrupt(importer);
    int status = waitKmeta(importer);
    EXPECT_TRUE(status == cutStatus || status == 0) << "the import failed: " << status;

    Outcome exported = runKmeta(directory, {"export", "--store", store});
    EXPECT_EQ(exported.status, 0) << exported.err;
    std::set<unsigned> seen = generationsIn(exported.out, kParts);
    if (seen == committed) {
      ++cuts.before;
      continue;
    }
    committed.insert(generation);
    EXPECT_EQ(seen, committed) << "neither the state before the import nor the one after it";
    ++cuts.after;
  }
  std::printf("%u imports cut before their commit, %u after\n", cuts.before, cuts.after);
  return cuts;
}

// Catches: a kill in the middle of an import (or of its commit) leaving part of the document
// in the store, a store that no longer opens, or an import that commits in pieces.
TEST_P(StoreImport, KilledImportsLeaveTheStateBeforeOrAfter) {
  // Kills land up to half as long again as an import takes, so that some land before the
  // commit, some during, and some after it.
  Cuts cuts = cutImports(store(), scratch(), 24, 1.5, 128 + SIGKILL,
                         [](pid_t importer) { ::kill(importer, SIGKILL); });
  // Both outcomes, or the kills were timed too early or too late to prove anything.
  EXPECT_GT(cuts.before, 0u);
  EXPECT_GT(cuts.after, 0u);
}

// Catches: an export that reads a half-committed import, records of two states, or a
// record written back from an older state by the reference counts of a reading process. One
// process imports generation after generation with kmeta for a few seconds while this one
// exports the store again and again: no run fails, and every export holds the generations
// imported before it started, perhaps the one being imported, whole, and nothing else. It
// runs for KPL_IMPORT_SECONDS (4 unless set).
TEST_P(StoreImport, ExportsSeeOnlyWholeImportsWhileAnotherProcessImports) {
  const std::string directory = scratch(), store = this->store();
  const unsigned kParts = 200;
  ASSERT_EQ(
      waitKmeta(startKmeta({"import", "--store", store, writeGeneration(directory, 1, kParts)})),
      0);

  std::atomic<unsigned> imported{1};
  std::atomic<bool> importFailed{false};
  const char* seconds = std::getenv("KPL_IMPORT_SECONDS");
  auto end =
      std::chrono::steady_clock::now() + std::chrono::seconds(seconds ? std::atoi(seconds) : 4);
  std::thread importer([&] {
    for (unsigned g = 2; std::chrono::steady_clock::now() < end && !importFailed; ++g) {
      std::string document = writeGeneration(directory, g, kParts);
      if (waitKmeta(startKmeta({"import", "--store", store, document})) != 0) importFailed = true;
      imported = g;
    }
  });
  unsigned exports = 0, last = 1;
  while (std::chrono::steady_clock::now() < end && !::testing::Test::HasFailure()) {
    unsigned before = imported;
    Outcome run = runKmeta(directory, {"export", "--store", store});
    unsigned after = imported;
    EXPECT_EQ(run.status, 0) << run.err;
    if (run.status != 0) break;
    std::set<unsigned> seen = generationsIn(run.out, kParts);
    unsigned newest = seen.empty() ? 0 : *seen.rbegin();
    EXPECT_TRUE(seen.empty() || (*seen.begin() == 1 && seen.size() == newest))
        << "export " << exports << " misses a generation";
    EXPECT_GE(newest, before) << "an export missed a finished import";
    EXPECT_LE(newest, after + 1) << "an export saw an import that had not begun";
    EXPECT_GE(newest, last) << "an export went back in time";
    last = newest;
    ++exports;
  }
  importer.join();
  EXPECT_FALSE(importFailed) << "an import failed";
  EXPECT_GT(imported.load(), 3u) << "too few imports to prove anything";
  EXPECT_GT(exports, 3u) << "too few exports to prove anything";
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreImport, ::testing::Values("File", "Postgres"), storeKindName);

// Catches: a server crash in the middle of an import leaving part of it committed, a store
// that no longer opens after recovery, and kmeta hanging when the server goes away.
TEST(DatabaseImport, ServerStoppedMidImportLeavesTheStateBeforeOrAfter) {
  TemporaryDirectory directory;
  std::string store = storeArgument("Postgres", directory.directory());
  // The first import, which times the others, makes the tables too: later ones run faster.
  Cuts cuts = cutImports(store, directory.directory(), 5, 0.5, 1, [](pid_t) {
    scratchPostgres().stop(true);
    scratchPostgres().start();
  });
  EXPECT_GT(cuts.before, 0u) << "no stop landed before a commit";
}

}  // namespace
}  // namespace kmeta::testing
