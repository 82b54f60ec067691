#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "kestrine/platform/core/exception.h"
#include "kestrine/platform/core/io.h"

namespace kestrine::platform::core::io {
namespace {

std::string temporaryPath(const char* name) {
  return ::testing::TempDir() + "kpl_file_reader_" + std::to_string(getpid()) + "_" + name;
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string drain(IDataReader& reader, unsigned chunk) {
  std::string all;
  std::string buffer(chunk, '\0');
  while (unsigned count = reader.read(buffer.data(), chunk))
    all.append(buffer.data(), count);
  return all;
}

TEST(FileReader, ReadsAFileWholeInAnyChunkSizeAndAgainAfterReopening) {
  std::string path = temporaryPath("whole");
  std::string bytes;
  for (int i = 0; i < 100000; ++i)
    bytes += static_cast<char>(i * 7);
  writeFile(path, bytes);
  FileReader reader(path);
  ASSERT_TRUE(reader.open());
  EXPECT_EQ(drain(reader, 7), bytes);
  ASSERT_TRUE(reader.open());
  EXPECT_EQ(drain(reader, 65536), bytes);
  reader.close();
  std::remove(path.c_str());
}

TEST(FileReader, MissingFileOrDirectoryDoesNotOpen) {
  FileReader missing(temporaryPath("does_not_exist"));
  EXPECT_FALSE(missing.open());
  char buffer[8];
  EXPECT_THROW(missing.read(buffer, sizeof(buffer)), Exception);
  FileReader directory(::testing::TempDir());
  EXPECT_FALSE(directory.open());
  missing.close();  // harmless when not open
}

TEST(FileReader, ReadErrorThrowsWithPathAndReason) {
  // The first page of a process's address space is unmapped: reading it fails with EIO.
  FileReader reader("/proc/self/mem");
  ASSERT_TRUE(reader.open());
  char buffer[16];
  try {
    reader.read(buffer, sizeof(buffer));
    FAIL() << "reading unmapped memory succeeded";
  } catch (const Exception& error) {
    EXPECT_NE(std::string(error.what()).find("/proc/self/mem"), std::string::npos) << error.what();
    EXPECT_NE(std::string(error.what()).find("error"), std::string::npos) << error.what();
  }
}

TEST(FileReader, DashReadsStandardInputAndLeavesItOpen) {
  std::string path = temporaryPath("stdin");
  writeFile(path, "from standard input");
  ASSERT_NE(std::freopen(path.c_str(), "rb", stdin), nullptr);
  FileReader reader("-");
  ASSERT_TRUE(reader.open());
  char buffer[5];
  ASSERT_EQ(reader.read(buffer, 5), 5u);
  EXPECT_EQ(std::string(buffer, 5), "from ");
  reader.close();
  // Closing the reader must not close the process's standard input.
  EXPECT_EQ(std::fgetc(stdin), 's');
  std::remove(path.c_str());
}

}  // namespace
}  // namespace kestrine::platform::core::io
