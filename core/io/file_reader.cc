#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "core/io/io_error.h"
#include "kestrine/platform/core/io.h"

namespace kestrine::platform::core::io {

namespace {

bool isStandardInput(const std::string& path) {
  return path == "-";
}

}  // namespace

FileReader::FileReader(std::string path) : path_(std::move(path)) {}

FileReader::~FileReader() {
  close();
}

bool FileReader::open() {
  close();
  if (isStandardInput(path_)) {
    file_ = stdin;
    return true;
  }
  std::FILE* file = std::fopen(path_.c_str(), "rb");
  if (file == nullptr) return false;
  // A directory opens for reading on Linux and fails only at the first read; refuse it here,
  // where the caller expects to learn that the source cannot be read.
  struct stat status;
  if (fstat(fileno(file), &status) != 0 || S_ISDIR(status.st_mode)) {
    std::fclose(file);
    return false;
  }
  file_ = file;
  return true;
}

unsigned FileReader::read(void* buffer, unsigned size) {
  if (file_ == nullptr) throwNotOpen("read from", path_);
  if (size == 0) return 0;
  errno = 0;
  std::size_t count = std::fread(buffer, 1, size, file_);
  if (count < size && std::ferror(file_)) {
    int error = errno != 0 ? errno : EIO;
    std::clearerr(file_);
    throwIOError("cannot read", isStandardInput(path_) ? "standard input" : path_, error);
  }
  return static_cast<unsigned>(count);
}

void FileReader::close() {
  if (file_ != nullptr && file_ != stdin) std::fclose(file_);
  file_ = nullptr;
}

}  // namespace kestrine::platform::core::io
