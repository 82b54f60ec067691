#ifndef KPL_CORE_STORAGE_LMDB_IMPORT_TEST_SUPPORT_H_
#define KPL_CORE_STORAGE_LMDB_IMPORT_TEST_SUPPORT_H_

// Helpers of the tests that import documents into a store file with kmeta in one process and
// look at the file from another: the generated documents, and reading back which generations
// an export holds.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <thread>

#include "core/storage/datastore_test_support.h"
#include "kestrine/platform/core/io.h"
#include "kestrine/platform/core/xml.h"
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
  // Counts, per "gen_<k>" group, the parts and the stamps that name k.
  class Counter : public xml::XMLCallback {
   public:
    std::map<unsigned, unsigned> parts, stamps;

    void notifyStartElement(const char* name, const char** attributes) override {
      ++depth_;
      const char* id =
          attributes[0] != nullptr && std::strcmp(attributes[0], "name") == 0 ? attributes[1] : "";
      if (depth_ == 2 && std::strncmp(id, "gen_", 4) == 0) {
        group_ = static_cast<unsigned>(std::strtoul(id + 4, nullptr, 10));
        parts[group_] += 0;
      }
      if (depth_ == 3) ++parts[group_];
      inStamp_ = depth_ == 4 && std::strcmp(id, "stamp") == 0;
      text_.clear();
    }
    void notifyEndElement(const char*) override {
      if (inStamp_ && std::strtoul(text_.c_str(), nullptr, 10) == group_) ++stamps[group_];
      inStamp_ = false;
      --depth_;
    }
    void notifyStartNamespace(const char*, const char*) override {}
    void notifyEndNamespace(const char*) override {}
    void notifyCharacterData(const char* data, int length) override { text_.append(data, length); }

   private:
    int depth_ = 0;
    unsigned group_ = 0;
    bool inStamp_ = false;
    std::string text_;
  };

  Counter counter;
  io::MemoryReader reader(exported);
  reader.open();
  try {
    xml::XMLParser(&counter).parseDocument(&reader);
  } catch (const std::exception& error) {
    ADD_FAILURE() << "the export is not a document: " << error.what();
  }
  std::set<unsigned> generations;
  for (const auto& [generation, count] : counter.parts) {
    EXPECT_EQ(count, parts) << "generation " << generation << " holds another number of parts";
    EXPECT_EQ(counter.stamps[generation], parts) << "generation " << generation << " is mixed";
    generations.insert(generation);
  }
  return generations;
}

// {1, ..., last}.
inline std::set<unsigned> firstGenerations(unsigned last) {
  std::set<unsigned> generations;
  for (unsigned g = 1; g <= last; ++g)
    generations.insert(g);
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
    EXPECT_EQ(seen, firstGenerations(newest)) << "export " << exports;
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
