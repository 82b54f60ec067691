#ifndef KPL_CORE_STORAGE_LMDB_IMPORT_TEST_SUPPORT_H_
#define KPL_CORE_STORAGE_LMDB_IMPORT_TEST_SUPPORT_H_

// Helpers of the tests that import documents into a store file with kmeta in one process and
// look at the file from another: the generated documents, and reading back which generations
// an export holds.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <set>
#include <string>
#include <thread>

#include "core/storage/datastore_test_support.h"
#include "tools/kmeta/generated_document.h"
#include "tools/kmeta/kmeta_process.h"

namespace kestrine::platform::core::storage::datastore {

using kmeta::testing::Outcome;
using kmeta::testing::runKmeta;
using kmeta::testing::startKmeta;
using kmeta::testing::waitKmeta;

// Writes the document of one generation (kmeta::testing::generationDocument) and returns its
// path.
inline std::string writeGeneration(const std::string& directory, unsigned generation,
                                   unsigned parts) {
  std::string path = directory + "/gen_" + std::to_string(generation) + ".xml";
  std::ofstream(path, std::ios::binary) << kmeta::testing::generationDocument(generation, parts);
  return path;
}

// The generations an exported document holds. Adds a test failure for a generation that is
// not whole: fewer or more than `parts` parts, or a part stamped with another generation.
inline std::set<unsigned> generationsIn(const std::string& exported, unsigned parts) {
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

// One process imports generation after generation with kmeta for `seconds` while this one
// exports the store again and again: no run fails, and every export holds the generations
// imported before it started, perhaps the one being imported, whole, and nothing else.
inline void exportWhileAnotherProcessImports(int seconds) {
  const unsigned kParts = 200;
  TemporaryDirectory directory;
  std::string store = directory.directory() + "/store";
  ASSERT_EQ(waitKmeta(startKmeta(
                {"import", "--store", store, writeGeneration(directory.directory(), 1, kParts)})),
            0);

  std::atomic<unsigned> imported{1};
  std::atomic<bool> importFailed{false};
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  std::thread importer([&] {
    for (unsigned g = 2; std::chrono::steady_clock::now() < end && !importFailed; ++g) {
      std::string document = writeGeneration(directory.directory(), g, kParts);
      if (waitKmeta(startKmeta({"import", "--store", store, document})) != 0) importFailed = true;
      imported = g;
    }
  });
  unsigned exports = 0, last = 1;
  while (std::chrono::steady_clock::now() < end && !::testing::Test::HasFailure()) {
    unsigned before = imported;
    Outcome run = runKmeta(directory.directory(), {"export", "--store", store});
    unsigned after = imported;
    ASSERT_EQ(run.status, 0) << run.err;
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

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_LMDB_IMPORT_TEST_SUPPORT_H_
