#include <cerrno>
#include <utility>

#include "core/io/io_error.h"
#include "kestrine/platform/core/io.h"

namespace kestrine::platform::core::io {

namespace {

bool isStandardOutput(const std::string& path) {
  return path == "-";
}

// Flushes and, unless it is standard output, closes `file`; the errno of a failure, else 0.
int finish(std::FILE* file) {
  errno = 0;
  int result = file == stdout ? std::fflush(file) : std::fclose(file);
  if (result == 0) return 0;
  return errno != 0 ? errno : EIO;
}

}  // namespace

FileWriter::FileWriter(std::string path) : path_(std::move(path)) {}

// A destructor must not throw: errors of this last flush are lost. Callers that need to know
// call close() first.
FileWriter::~FileWriter() {
  if (file_ != nullptr) finish(file_);
}

bool FileWriter::open() {
  if (file_ != nullptr) finish(file_);
  file_ = nullptr;
  if (isStandardOutput(path_)) {
    file_ = stdout;
    return true;
  }
  file_ = std::fopen(path_.c_str(), "wb");
  return file_ != nullptr;
}

void FileWriter::write(const void* data, unsigned size) {
  if (file_ == nullptr) throwNotOpen("write to", path_);
  if (size == 0) return;
  errno = 0;
  if (std::fwrite(data, 1, size, file_) == size) return;
  int error = errno != 0 ? errno : EIO;
  std::clearerr(file_);
  throwIOError("cannot write", isStandardOutput(path_) ? "standard output" : path_, error);
}

void FileWriter::close() {
  if (file_ == nullptr) return;
  std::FILE* file = file_;
  file_ = nullptr;  // released even when the flush fails
  int error = finish(file);
  if (error != 0)
    throwIOError("cannot write", isStandardOutput(path_) ? "standard output" : path_, error);
}

}  // namespace kestrine::platform::core::io
