#ifndef KPL_CORE_STORAGE_SCRATCH_POSTGRES_TEST_SUPPORT_H_
#define KPL_CORE_STORAGE_SCRATCH_POSTGRES_TEST_SUPPORT_H_

#include <sys/types.h>

#include <string>
#include <vector>

namespace kestrine::platform::core::storage::datastore {

// A throwaway PostgreSQL server for the tests and benchmarks of PostgresDataStore: a cluster
// made by initdb in a fresh temporary directory, listening only on a Unix socket in that
// directory, so that servers of runs side by side never meet. It goes, directory and all,
// with this object, and also when the process that made it dies in any way: a guard process
// waits for that and stops the server.
//
// initdb refuses to run as root; a root process runs the server as the `postgres` system
// user, which Debian's postgresql package creates. Not thread-safe.
class ScratchPostgresServer {
 public:
  // Makes and starts the cluster; `durable` keeps fsync on, as a real server has it (tests
  // kill processes, not machines, and go faster without). Throws std::runtime_error telling
  // what failed, with the tool's output.
  explicit ScratchPostgresServer(bool durable = false);
  ~ScratchPostgresServer();
  ScratchPostgresServer(const ScratchPostgresServer&) = delete;
  ScratchPostgresServer& operator=(const ScratchPostgresServer&) = delete;

  // The address of the store `store` in the database `database`, its name percent-encoded.
  std::string uri(const std::string& store, const std::string& database = "postgres") const;

  // Points libpq's environment (PGHOST, PGPORT, PGUSER, PGDATABASE) at this server, for the
  // programs that this process starts: an address may then leave all of that out.
  void exportEnvironment() const;

  // Stops the server, at once (as a crash would) or after a clean shutdown, and starts it
  // again. Throw std::runtime_error.
  void stop(bool immediately);
  void start();

  // Runs SQL with psql and answers its output, unaligned and without headers.
  std::string sql(const std::string& statement, const std::string& database = "postgres");

 private:
  void dismiss();
  std::string run(std::vector<std::string> arguments, bool asServerUser);

  std::string directory_;
  std::string binaries_;
  int port_;
  bool root_;
  uid_t serverUser_ = 0;
  gid_t serverGroup_ = 0;
  pid_t guard_ = -1;
  int guardPipe_ = -1;
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_SCRATCH_POSTGRES_TEST_SUPPORT_H_
