#include <gtest/gtest.h>

#include <string>

#include "kestrine/platform/core/exception.h"
#include "kestrine/platform/core/io.h"

namespace kestrine::platform::core::io {
namespace {

// Reads everything in chunks of `chunk` bytes.
std::string drain(IDataReader& reader, unsigned chunk) {
  std::string all;
  char buffer[64];
  while (unsigned count = reader.read(buffer, chunk))
    all.append(buffer, count);
  return all;
}

TEST(MemoryReader, HandsOutItsBytesInChunksThenZero) {
  std::string bytes("with\0zero", 9);
  MemoryReader reader(bytes);
  ASSERT_TRUE(reader.open());
  EXPECT_EQ(drain(reader, 2), bytes);
  char buffer[4];
  EXPECT_EQ(reader.read(buffer, sizeof(buffer)), 0u);
  // Opening again starts over.
  ASSERT_TRUE(reader.open());
  EXPECT_EQ(drain(reader, 64), bytes);
}

TEST(MemoryReader, ReadingWhenNotOpenThrows) {
  MemoryReader reader("abc");
  char buffer[4];
  EXPECT_THROW(reader.read(buffer, 4), Exception);
  reader.open();
  reader.close();
  EXPECT_THROW(reader.read(buffer, 4), Exception);
  reader.close();  // harmless twice
}

TEST(MemoryWriter, CollectsWritesKeepsThemAfterCloseAndOpenTruncates) {
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
}

}  // namespace
}  // namespace kestrine::platform::core::io
