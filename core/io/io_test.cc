#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "kestrine/platform/core/exception.h"
#include "kestrine/platform/core/io.h"

namespace kestrine::platform::core::io {
namespace {

std::string temporaryPath(const char* name) {
  return ::testing::TempDir() + "kpl_io_" + std::to_string(getpid()) + "_" + name;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// Runs `action` and returns the message of the core::Exception it throws ("" if none).
template <class Action>
std::string failure(Action action) {
  try {
    action();
  } catch (const Exception& error) {
    return error.what();
  }
  return "";
}

std::string drain(IDataReader& reader, unsigned chunk) {
  std::string all;
  std::string buffer(chunk, '\0');
  while (unsigned count = reader.read(buffer.data(), chunk))
    all.append(buffer.data(), count);
  return all;
}

// Catches: bytes lost or doubled between chunks, and an open() that does not start over
// (the reader from the beginning, the writer on an emptied file).
TEST(FileIO, WrittenBytesReadBackInAnyChunkSizeAndOpenStartsOver) {
  std::string path = temporaryPath("content");
  std::string bytes;
  for (int i = 0; i < 200000; ++i)
    bytes += static_cast<char>(i * 7);
  FileWriter writer(path);
  ASSERT_TRUE(writer.open());
  writer.write("head:", 5);
  writer.write(bytes.data(), static_cast<unsigned>(bytes.size()));
  writer.close();
  FileReader reader(path);
  ASSERT_TRUE(reader.open());
  EXPECT_EQ(drain(reader, 7), "head:" + bytes);
  ASSERT_TRUE(reader.open());
  EXPECT_EQ(drain(reader, 65536), "head:" + bytes);
  reader.close();
  ASSERT_TRUE(writer.open());
  writer.write("short", 5);
  writer.close();
  EXPECT_EQ(readFile(path), "short");
  std::remove(path.c_str());
}

// Catches: a path that cannot be opened reported as open or used without an error, and a
// failed read or write passing silently, or reported without the path and the system's
// reason.
TEST(FileIO, FailuresThrowWithPathAndReason) {
  FileReader missing(temporaryPath("does_not_exist"));
  EXPECT_FALSE(missing.open());
  char buffer[16];
  EXPECT_THROW(missing.read(buffer, sizeof(buffer)), Exception);
  EXPECT_FALSE(FileReader(::testing::TempDir()).open());
  missing.close();  // harmless when not open
  FileWriter unwritable(temporaryPath("no_such_directory") + "/file");
  EXPECT_FALSE(unwritable.open());
  EXPECT_THROW(unwritable.write("x", 1), Exception);
  unwritable.close();

  // The first page of a process's address space is unmapped: reading it fails with EIO.
  FileReader reader("/proc/self/mem");
  ASSERT_TRUE(reader.open());
  std::string message = failure([&] { reader.read(buffer, sizeof(buffer)); });
  EXPECT_NE(message.find("/proc/self/mem"), std::string::npos) << message;
  EXPECT_NE(message.find("error"), std::string::npos) << message;

  // A small write sits in the stream buffer: the fault shows when close() flushes it.
  FileWriter small("/dev/full");
  ASSERT_TRUE(small.open());
  small.write("x", 1);
  message = failure([&] { small.close(); });
  EXPECT_NE(message.find("/dev/full"), std::string::npos) << message;
  EXPECT_NE(message.find("No space left on device"), std::string::npos) << message;
  small.close();  // the failed close released the file

  // A large write goes past the buffer and fails at once.
  FileWriter large("/dev/full");
  ASSERT_TRUE(large.open());
  std::string block(1 << 20, 'z');
  message = failure([&] { large.write(block.data(), static_cast<unsigned>(block.size())); });
  EXPECT_NE(message.find("No space left on device"), std::string::npos) << message;
}

// Catches: the memory streams used while closed, losing bytes (zeros included) in chunks,
// or not starting over at open().
TEST(MemoryIO, ChunksCarryEveryByteAndOpenStartsOver) {
  const std::string bytes("with\0zero", 9);
  MemoryReader reader(bytes);
  char buffer[4];
  EXPECT_THROW(reader.read(buffer, 4), Exception);
  for (int pass = 0; pass < 2; ++pass) {
    ASSERT_TRUE(reader.open());
    EXPECT_EQ(drain(reader, 2), bytes);
  }
  reader.close();
  EXPECT_THROW(reader.read(buffer, 4), Exception);

  MemoryWriter writer;
  EXPECT_THROW(writer.write("x", 1), Exception);
  ASSERT_TRUE(writer.open());
  writer.write("ab", 2);
  writer.write(nullptr, 0);
  writer.write("\0c", 2);
  writer.close();
  EXPECT_EQ(writer.bytes(), std::string("ab\0c", 4));
  EXPECT_THROW(writer.write("x", 1), Exception);
  ASSERT_TRUE(writer.open());
  EXPECT_EQ(writer.bytes(), "");

  // Room reserved before open() is kept, and writes within it never move the bytes.
  MemoryWriter reserved;
  reserved.reserve(1 << 20);
  ASSERT_TRUE(reserved.open());
  const char* const start = reserved.bytes().data();
  const std::string piece(4096, 'x');
  for (int i = 0; i < 256; ++i)
    reserved.write(piece.data(), static_cast<unsigned>(piece.size()));
  EXPECT_EQ(reserved.bytes().data(), start);
  EXPECT_EQ(reserved.bytes().size(), std::size_t{1} << 20);
}

}  // namespace
}  // namespace kestrine::platform::core::io
