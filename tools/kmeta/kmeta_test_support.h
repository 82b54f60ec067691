#ifndef KPL_TOOLS_KMETA_KMETA_TEST_SUPPORT_H_
#define KPL_TOOLS_KMETA_KMETA_TEST_SUPPORT_H_

// Helpers of the tests that run kmeta (its path in KPL_KMETA) as users do, as a separate
// process, and that import documents into a persistent store in one process and look at the
// store from another: the stores, reading back which generations of generated documents an
// export holds, and the two scenarios that every persistent store goes through.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core/storage/datastore_test_support.h"
#include "data/xml/xml_test_support.h"

extern char** environ;

namespace kmeta::testing {

using kestrine::platform::core::storage::datastore::scratchPostgres;
using kestrine::platform::core::storage::datastore::TemporaryDirectory;
using kestrine::platform::core::storage::datastore::testStoreName;
using kestrine::platform::data::XML::testing::SampleDocument;

// Starts kmeta with `arguments`, standard input from `input` and the outputs to the files
// `out` and `err` (each "/dev/null" when empty). Returns the pid, or -1.
inline pid_t startKmeta(const std::vector<std::string>& arguments, const std::string& input = "",
                        const std::string& out = "", const std::string& err = "") {
  std::vector<std::string> words{KPL_KMETA};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);
  auto orNull = [](const std::string& path) { return path.empty() ? "/dev/null" : path.c_str(); };
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, orNull(input), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, orNull(out), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, orNull(err), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid = -1;
  if (posix_spawn(&pid, KPL_KMETA, &actions, nullptr, argv.data(), environ) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

// Waits for a process and returns its exit status, or 128 + the signal that ended it; with
// `peakKb`, also its peak resident memory.
inline int waitKmeta(pid_t pid, long* peakKb = nullptr) {
  int status = 0;
  struct rusage usage {};
  if (pid <= 0 || wait4(pid, &status, 0, &usage) != pid) return -1;
  if (peakKb != nullptr) *peakKb = usage.ru_maxrss;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// What one run of kmeta did.
struct Outcome {
  int status;
  std::string out;
  std::string err;
  long peakKb;
};

// Runs kmeta to its end; `scratch` is a directory for the captured outputs.
inline Outcome runKmeta(const std::string& scratch, const std::vector<std::string>& arguments,
                        const std::string& input = "") {
  std::string out = scratch + "/kmeta.out", err = scratch + "/kmeta.err";
  long peakKb = 0;
  int status = waitKmeta(startKmeta(arguments, input, out, err), &peakKb);
  return Outcome{status, readFile(out), readFile(err), peakKb};
}

// A test that runs kmeta in a scratch directory of its own.
class KmetaTest : public ::testing::Test {
 protected:
  // Writes `text` to a file of the scratch directory and returns its path.
  std::string file(const std::string& name, const std::string& text) {
    std::string path = scratch() + "/" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  Outcome kmeta(const std::vector<std::string>& arguments, const std::string& input = "") {
    return runKmeta(scratch(), arguments, input);
  }
  const std::string& scratch() const { return directory_.directory(); }
  std::string store() const { return scratch() + "/store"; }

 private:
  TemporaryDirectory directory_;
};

// Expects a failure of status 1 told in one line on standard error, starting with `start`.
inline void expectFailure(const Outcome& run, const std::string& start) {
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err.rfind("kmeta: " + start, 0), 0u) << run.err;
  EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << "not one line: " << run.err;
}

// The --store argument of the running test's own store of the kind `kind`: "File", a store
// file in `scratch`, or "Postgres", a store of the process's scratch server, spelt
// postgres:// (kmeta takes postgresql:// too).
inline std::string storeArgument(const std::string& kind, const std::string& scratch) {
  if (kind == "File") return scratch + "/store";
  std::string uri = scratchPostgres().uri(testStoreName());
  return uri.replace(0, std::string("postgresql").size(), "postgres");
}

inline std::string storeKindName(const ::testing::TestParamInfo<std::string>& info) {
  return info.param;
}

// Runs a test once for each kind of persistent store.
class PersistentStoreTest : public ::testing::TestWithParam<std::string> {
 protected:
  const std::string& scratch() const { return directory_.directory(); }
  std::string store() const { return storeArgument(GetParam(), scratch()); }

 private:
  TemporaryDirectory directory_;
};

// Writes the document of one generation (SampleDocument::generation) and returns its path.
inline std::string writeGeneration(const std::string& directory, unsigned generation,
                                   unsigned parts) {
  std::string path = directory + "/gen_" + std::to_string(generation) + ".xml";
  std::ofstream(path, std::ios::binary) << SampleDocument::generation(generation, parts);
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

// Imports generation after generation into `store` and cuts each import short `times`
// times with `interrupt`, given the importer's pid, at a random moment up to `reach` times
// as long as an import takes. Every time, the importer ends with success or with
// `cutStatus`, and an export shows either the state before the import or the one after it,
// whole. Answers how many imports were cut before their commit and how many after.
struct Cuts {
  unsigned before = 0;
  unsigned after = 0;
};
inline Cuts cutImports(const std::string& store, const std::string& directory, int times,
                       double reach, int cutStatus, const std::function<void(pid_t)>& interrupt) {
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

// One process imports generation after generation with kmeta for `seconds` while this one
// exports the store again and again: no run fails, and every export holds the generations
// imported before it started, perhaps the one being imported, whole, and nothing else.
inline void exportWhileAnotherProcessImports(const std::string& store, const std::string& directory,
                                             int seconds) {
  const unsigned kParts = 200;
  ASSERT_EQ(
      waitKmeta(startKmeta({"import", "--store", store, writeGeneration(directory, 1, kParts)})),
      0);

  std::atomic<unsigned> imported{1};
  std::atomic<bool> importFailed{false};
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
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

}  // namespace kmeta::testing

#endif  // KPL_TOOLS_KMETA_KMETA_TEST_SUPPORT_H_
