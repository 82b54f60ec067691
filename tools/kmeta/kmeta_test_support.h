#ifndef KPL_TOOLS_KMETA_KMETA_TEST_SUPPORT_H_
#define KPL_TOOLS_KMETA_KMETA_TEST_SUPPORT_H_

// Helpers of the tests that run kmeta (its path in KPL_KMETA) as users do, as a separate
// process, on the persistent stores.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "core/storage/datastore_test_support.h"

extern char** environ;

namespace kmeta::testing {

using kestrine::platform::core::storage::datastore::scratchPostgres;
using kestrine::platform::core::storage::datastore::TemporaryDirectory;
using kestrine::platform::core::storage::datastore::testStoreName;

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

}  // namespace kmeta::testing

#endif  // KPL_TOOLS_KMETA_KMETA_TEST_SUPPORT_H_
