#ifndef KPL_TOOLS_KMETA_KMETA_PROCESS_H_
#define KPL_TOOLS_KMETA_KMETA_PROCESS_H_

// Runs the kmeta binary (its path in KPL_KMETA) as a separate process, for the tests of the
// tool and of the store file it works on.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace kmeta::testing {

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

// Waits for a process and returns its exit status, or 128 + the signal that ended it.
inline int waitKmeta(pid_t pid) {
  int status = 0;
  if (pid <= 0 || waitpid(pid, &status, 0) != pid) return -1;
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
};

// Runs kmeta to its end; `scratch` is a directory for the captured outputs.
inline Outcome runKmeta(const std::string& scratch, const std::vector<std::string>& arguments,
                        const std::string& input = "") {
  std::string out = scratch + "/kmeta.out", err = scratch + "/kmeta.err";
  int status = waitKmeta(startKmeta(arguments, input, out, err));
  return Outcome{status, readFile(out), readFile(err)};
}

}  // namespace kmeta::testing

#endif  // KPL_TOOLS_KMETA_KMETA_PROCESS_H_
