#include "core/storage/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {

namespace {

[[noreturn]] void fail(const std::string& path, const char* operation) {
  throw Exception(path + ": " + operation + ": " + std::strerror(errno));
}

}  // namespace

FileLock::FileLock(std::string path) : path_(std::move(path)) {
  fd_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd_ < 0) fail(path_, "open");
}

FileLock::~FileLock() {
  ::close(fd_);
}

void FileLock::lock() {
  while (::flock(fd_, LOCK_EX) != 0) {
    if (errno != EINTR) fail(path_, "lock");
  }
}

void FileLock::unlock() {
  ::flock(fd_, LOCK_UN);
}

}  // namespace kestrine::platform::core::storage::datastore
