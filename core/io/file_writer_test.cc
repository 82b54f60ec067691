#include <fcntl.h>
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
  return ::testing::TempDir() + "kpl_file_writer_" + std::to_string(getpid()) + "_" + name;
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

TEST(FileWriter, WritesWhatWasGivenAndOpenTruncates) {
  std::string path = temporaryPath("content");
  FileWriter writer(path);
  ASSERT_TRUE(writer.open());
  std::string big(200000, 'b');
  writer.write("head:", 5);
  writer.write(big.data(), static_cast<unsigned>(big.size()));
  writer.close();
  EXPECT_EQ(readFile(path), "head:" + big);
  ASSERT_TRUE(writer.open());
  writer.write("short", 5);
  writer.close();
  EXPECT_EQ(readFile(path), "short");
  std::remove(path.c_str());
}

TEST(FileWriter, UnwritablePathDoesNotOpenAndWritingUnopenedThrows) {
  FileWriter writer(temporaryPath("no_such_directory") + "/file");
  EXPECT_FALSE(writer.open());
  EXPECT_NE(failure([&] { writer.write("x", 1); }), "");
  writer.close();  // harmless when not open
}

TEST(FileWriter, FullDiskThrowsWithPathAndReason) {
  // A small write sits in the stream buffer: the fault shows when close() flushes it.
  FileWriter small("/dev/full");
  ASSERT_TRUE(small.open());
  small.write("x", 1);
  std::string message = failure([&] { small.close(); });
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

TEST(FileWriter, DashWritesStandardOutputAndFlushesItAtClose) {
  std::string path = temporaryPath("stdout");
  std::fflush(stdout);
  int saved = dup(STDOUT_FILENO);
  int target = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  ASSERT_GE(target, 0);
  dup2(target, STDOUT_FILENO);
  ::close(target);
  {
    FileWriter writer("-");
    ASSERT_TRUE(writer.open());
    writer.write("to standard output", 18);
    writer.close();
  }
  // Read before restoring: close() alone must have pushed the bytes out.
  std::string written = readFile(path);
  bool stillOpen = std::fputs("", stdout) >= 0 && !std::ferror(stdout);
  dup2(saved, STDOUT_FILENO);
  ::close(saved);
  EXPECT_EQ(written, "to standard output");
  EXPECT_TRUE(stillOpen);
  std::remove(path.c_str());
}

}  // namespace
}  // namespace kestrine::platform::core::io
