#include "core/storage/scratch_postgres_test_support.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>

namespace kestrine::platform::core::storage::datastore {

namespace {

// The role that initdb makes the superuser, whoever runs it.
const char kRole[] = "kpl";

// Where the server's programs are: pg_config knows; Debian also keeps them per version.
std::string findBinaries() {
  std::string directory;
  if (FILE* pipe = popen("pg_config --bindir 2>/dev/null", "r")) {
    char line[4096];
    if (fgets(line, sizeof line, pipe) != nullptr) directory = line;
    pclose(pipe);
  }
  while (!directory.empty() && (directory.back() == '\n' || directory.back() == ' '))
    directory.pop_back();
  if (std::filesystem::exists(directory + "/initdb")) return directory;
  std::error_code ignored;
  std::string newest;
  for (const auto& entry : std::filesystem::directory_iterator("/usr/lib/postgresql", ignored)) {
    std::string candidate = entry.path().string() + "/bin";
    if (std::filesystem::exists(candidate + "/initdb") && candidate > newest) newest = candidate;
  }
  if (newest.empty())
    throw std::runtime_error("no initdb: install the postgresql package (scripts/install-deps.sh)");
  return newest;
}

std::string percentEncoded(const std::string& text) {
  static const char hex[] = "0123456789ABCDEF";
  std::string encoded;
  for (unsigned char c : text) {
    if (std::isalnum(c) || c == '-' || c == '_' || c == '.') {
      encoded += static_cast<char>(c);
    } else {
      encoded += '%';
      encoded += hex[c >> 4];
      encoded += hex[c & 15];
    }
  }
  return encoded;
}

}  // namespace

ScratchPostgresServer::ScratchPostgresServer(bool durable)
    : binaries_(findBinaries()),
      port_(20000 + static_cast<int>(std::random_device()() % 20000)),
      root_(geteuid() == 0) {
  if (root_) {
    const passwd* user = getpwnam("postgres");
    if (user == nullptr)
      throw std::runtime_error("running as root, but there is no postgres user to run the server");
    serverUser_ = user->pw_uid;
    serverGroup_ = user->pw_gid;
  }
  std::string pattern = (std::filesystem::temp_directory_path() / "kpl-postgres-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp " + pattern);
  directory_ = pattern;
  if (root_ && chown(directory_.c_str(), serverUser_, serverGroup_) != 0)
    throw std::runtime_error("chown " + directory_);

  // The guard: it reads its standard input, a pipe whose other end only this process holds
  // (close-on-exec keeps it from every child), so that the read ends when this process
  // does, however it ends.
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  std::string pgCtl = binaries_ + "/pg_ctl", data = directory_ + "/data";
  guard_ = fork();
  if (guard_ == 0) {
    dup2(ends[0], 0);
    int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    dup2(null, 2);
    if (root_ &&
        (setgroups(0, nullptr) != 0 || setgid(serverGroup_) != 0 || setuid(serverUser_) != 0))
      _exit(1);
    execl("/bin/sh", "sh", "-c", "read line; \"$1\" -D \"$2\" -m immediate -w stop; rm -rf \"$3\"",
          "sh", pgCtl.c_str(), data.c_str(), directory_.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  close(ends[0]);
  guardPipe_ = ends[1];
  try {
    if (guard_ < 0) throw std::runtime_error("fork");
    run({binaries_ + "/initdb", "-D", data, "-U", kRole, "--auth=trust", "-N", "-E", "UTF8",
         "--locale=C"},
        true);
    std::ofstream(data + "/postgresql.conf", std::ios::app)
        << "listen_addresses = ''\n"
        << "unix_socket_directories = '" << directory_ << "'\n"
        << "port = " << port_ << "\n"
        << "fsync = " << (durable ? "on" : "off") << "\n";
    start();
  } catch (...) {
    dismiss();
    throw;
  }
}

ScratchPostgresServer::~ScratchPostgresServer() {
  dismiss();
}

// Lets the guard stop the server and remove the directory, and waits until it has.
void ScratchPostgresServer::dismiss() {
  close(guardPipe_);
  int status;
  if (guard_ > 0) waitpid(guard_, &status, 0);
}

std::string ScratchPostgresServer::uri(const std::string& store,
                                       const std::string& database) const {
  return "postgresql:///" + database + "?host=" + directory_ + "&port=" + std::to_string(port_) +
         "&user=" + kRole + "&store=" + percentEncoded(store);
}

void ScratchPostgresServer::exportEnvironment() const {
  setenv("PGHOST", directory_.c_str(), 1);
  setenv("PGPORT", std::to_string(port_).c_str(), 1);
  setenv("PGUSER", kRole, 1);
  setenv("PGDATABASE", "postgres", 1);
}

void ScratchPostgresServer::start() {
  run({binaries_ + "/pg_ctl", "-D", directory_ + "/data", "-l", directory_ + "/server.log", "-w",
       "-t", "120", "start"},
      true);
}

void ScratchPostgresServer::stop(bool immediately) {
  run({binaries_ + "/pg_ctl", "-D", directory_ + "/data", "-m", immediately ? "immediate" : "fast",
       "-w", "stop"},
      true);
}

std::string ScratchPostgresServer::sql(const std::string& statement, const std::string& database) {
  return run(
      {binaries_ + "/psql", "-X", "-q", "-A", "-t", "-v", "ON_ERROR_STOP=1", "-h", directory_, "-p",
       std::to_string(port_), "-U", kRole, "-d", database, "-c", statement},
      false);
}

// Runs a program to its end and answers what it wrote; throws with that when it fails.
std::string ScratchPostgresServer::run(std::vector<std::string> arguments, bool asServerUser) {
  std::vector<char*> argv;
  for (std::string& argument : arguments)
    argv.push_back(argument.data());
  argv.push_back(nullptr);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  pid_t pid = fork();
  if (pid == 0) {
    dup2(ends[1], 1);
    dup2(ends[1], 2);
    int null = open("/dev/null", O_RDONLY);
    dup2(null, 0);
    bool dropped =
        !root_ || !asServerUser ||
        (setgroups(0, nullptr) == 0 && setgid(serverGroup_) == 0 && setuid(serverUser_) == 0);
    // The server user may not enter the directory the tests run in.
    if (dropped && chdir(directory_.c_str()) == 0) execv(argv[0], argv.data());
    _exit(127);
  }
  close(ends[1]);
  std::string output;
  char buffer[4096];
  for (ssize_t count; (count = read(ends[0], buffer, sizeof buffer)) > 0;)
    output.append(buffer, static_cast<std::size_t>(count));
  close(ends[0]);
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status) ||
      WEXITSTATUS(status) != 0) {
    std::string log;
    std::ifstream in(directory_ + "/server.log");
    for (std::string line; std::getline(in, line);)
      log += "\n  " + line;
    throw std::runtime_error(arguments[0] + " failed: " + output + "\nserver log:" + log);
  }
  return output;
}

}  // namespace kestrine::platform::core::storage::datastore
