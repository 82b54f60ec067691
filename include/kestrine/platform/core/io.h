#ifndef KESTRINE_PLATFORM_CORE_IO_H_
#define KESTRINE_PLATFORM_CORE_IO_H_

#include <cstddef>
#include <cstdio>
#include <string>

#include "kestrine/platform/core/export.h"

namespace kestrine::platform::core::io {

// A source of bytes read front to back. One reader serves one thread.
class KPL_CORE_API IDataReader {
 public:
  virtual ~IDataReader();
  // Prepares reading from the start; false when the source cannot be opened.
  virtual bool open() = 0;
  // Copies up to `size` bytes into `buffer`; returns how many, 0 at the end. Throws
  // core::Exception on an I/O error or when the reader is not open.
  virtual unsigned read(void* buffer, unsigned size) = 0;
  // Ends reading; harmless when not open.
  virtual void close() = 0;
};

// A sink of bytes. One writer serves one thread.
class KPL_CORE_API IDataWriter {
 public:
  virtual ~IDataWriter();
  // Prepares writing from the start, truncating what was there; false when it cannot.
  virtual bool open() = 0;
  // Writes all `size` bytes; throws core::Exception on an I/O error (a full disk among them)
  // or when the writer is not open.
  virtual void write(const void* data, unsigned size) = 0;
  // Flushes and ends writing; throws core::Exception when the flush fails. Harmless when
  // not open.
  virtual void close() = 0;
};

// Reads from an owned byte string.
class KPL_CORE_API MemoryReader : public IDataReader {
 public:
  explicit MemoryReader(std::string bytes);
  bool open() override;
  unsigned read(void* buffer, unsigned size) override;
  void close() override;

 private:
  std::string bytes_;
  std::size_t position_ = 0;
  bool open_ = false;
};

// Reads a file; the path "-" reads standard input, which open() cannot rewind and close()
// leaves open. open() is false for a missing or unreadable file and for a directory; read
// errors throw core::Exception naming the path and the system's reason.
class KPL_CORE_API FileReader : public IDataReader {
 public:
  explicit FileReader(std::string path);
  ~FileReader() override;
  FileReader(const FileReader&) = delete;
  FileReader& operator=(const FileReader&) = delete;
  bool open() override;
  unsigned read(void* buffer, unsigned size) override;
  void close() override;

 private:
  std::string path_;
  std::FILE* file_ = nullptr;
};

// Collects what is written in memory; open() empties it, the bytes stay after close(). The
// string grows fourfold, so its capacity may be up to four times its size.
class KPL_CORE_API MemoryWriter : public IDataWriter {
 public:
  // Room for at least `bytes` bytes, which open() keeps: a caller that knows about how much
  // will be written saves the string's growing, each step of which copies what it holds.
  void reserve(std::size_t bytes) { bytes_.reserve(bytes); }
  bool open() override;
  void write(const void* data, unsigned size) override;
  void close() override;
  const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
  bool open_ = false;
};

// Writes a file, created or truncated at open; the path "-" writes standard output, which
// close() flushes but leaves open. Errors throw core::Exception naming the path and the
// system's reason ("cannot write /dev/full: No space left on device"); since writes are
// buffered, a full disk may show only at close(). Destroying an open writer closes it and
// loses any error of that last flush: call close() to learn about it.
class KPL_CORE_API FileWriter : public IDataWriter {
 public:
  explicit FileWriter(std::string path);
  ~FileWriter() override;
  FileWriter(const FileWriter&) = delete;
  FileWriter& operator=(const FileWriter&) = delete;
  bool open() override;
  void write(const void* data, unsigned size) override;
  void close() override;

 private:
  std::string path_;
  std::FILE* file_ = nullptr;
};

}  // namespace kestrine::platform::core::io

#endif  // KESTRINE_PLATFORM_CORE_IO_H_
