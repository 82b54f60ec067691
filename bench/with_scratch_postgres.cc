// Runs a command beside a scratch PostgreSQL server that libpq's environment (PGHOST and the
// rest) points at, so that the command may address stores as postgresql://?store=NAME. The
// server keeps fsync on, as a real one does, and goes when the command ends.
//   with_scratch_postgres COMMAND [ARGUMENTS...]
#include <spawn.h>
#include <sys/wait.h>

#include <cstdio>
#include <exception>

#include "core/storage/scratch_postgres_test_support.h"

extern char** environ;

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: with_scratch_postgres COMMAND [ARGUMENTS...]\n");
    return 2;
  }
  try {
    kestrine::platform::core::storage::datastore::ScratchPostgresServer server(true);
    server.exportEnvironment();
    pid_t pid;
    if (posix_spawnp(&pid, argv[1], nullptr, nullptr, argv + 1, environ) != 0) {
      std::fprintf(stderr, "with_scratch_postgres: cannot run %s\n", argv[1]);
      return 127;
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "with_scratch_postgres: %s\n", error.what());
    return 1;
  }
}
