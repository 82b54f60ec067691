#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "data/record/container.h"
#include "data/record/locale.h"
#include "data/record/offsets.h"
#include "data/record/primitive.h"
#include "data/record/root.h"
#include "data/record/table.h"
#include "kestrine/platform/core/datastore.h"

namespace kestrine::platform::data::Record {
namespace {

using core::storage::datastore::MemoryDataStore;

// Reads the stored bytes of a record, independently of the record classes.
std::string stored(IDataStore& store, unsigned offset) {
  std::string bytes(store.size(offset), '\0');
  store.read(offset, bytes.data(), 0xFFFFFFFF);
  return bytes;
}

std::uint32_t u32(const std::string& bytes, unsigned at) {
  return std::uint32_t(std::uint8_t(bytes[at])) | std::uint32_t(std::uint8_t(bytes[at + 1])) << 8 |
         std::uint32_t(std::uint8_t(bytes[at + 2])) << 16 |
         std::uint32_t(std::uint8_t(bytes[at + 3])) << 24;
}

std::string wide(const wchar_t* text) {
  return std::string(reinterpret_cast<const char*>(text), (std::wcslen(text) + 1) * 4);
}

TEST(RecordLayout, RootNamedRootIs44Bytes) {
  MemoryDataStore store;
  Root root(&store, L"root");
  std::string bytes = stored(store, root.offset());
  ASSERT_EQ(bytes.size(), 44u);
  EXPECT_EQ(bytes[0], kRoot);
  EXPECT_EQ(u32(bytes, 1), IDataStore::BADOFF);  // parent
  EXPECT_EQ(u32(bytes, 5), 0u);                  // reference count
  EXPECT_EQ(u32(bytes, 9), IDataStore::BADOFF);  // locale table
  EXPECT_EQ(bytes[13], 0);                       // flags
  EXPECT_EQ(u32(bytes, 14), IDataStore::BADOFF);  // children
  EXPECT_EQ(u32(bytes, 18), 20u);                 // name length 4k + 4
  EXPECT_EQ(bytes.substr(22, 2), std::string(2, '\0'));
  EXPECT_EQ(bytes.substr(24), wide(L"root"));
  EXPECT_EQ(root.name().wstring(), L"root");
}

TEST(RecordLayout, FreshPrimitiveNamedAIs52BytesWithItsNameAt44) {
  MemoryDataStore store;
  Primitive primitive(&store, 12, L"a");
  std::string bytes = stored(store, primitive.offset());
  ASSERT_EQ(bytes.size(), 52u);
  EXPECT_EQ(bytes[0], kPrimitive);
  EXPECT_EQ(u32(bytes, 14), 0u);  // reserved
  EXPECT_EQ(u32(bytes, 18), 0u);  // units
  EXPECT_EQ(u32(bytes, 22), 12u);  // value type
  EXPECT_EQ(u32(bytes, 26), 0u);   // value locale
  EXPECT_EQ(u32(bytes, 30), 8u);   // name
  EXPECT_EQ(u32(bytes, 34), 0u);   // base
  EXPECT_EQ(u32(bytes, 38), 0u);   // values
  EXPECT_EQ(bytes.substr(44), wide(L"a"));
}

TEST(RecordLayout, TableAndContainerFixedParts) {
  MemoryDataStore store;
  Table table(&store, L"tab");
  std::string t = stored(store, table.offset());
  ASSERT_EQ(t.size(), 40u + 12u);
  EXPECT_EQ(t[0], kTable);
  EXPECT_EQ(u32(t, 14), IDataStore::BADOFF);  // children
  EXPECT_EQ(u32(t, 18), 0u);                  // units
  EXPECT_EQ(u32(t, 22), IDataStore::BADOFF);  // defaults
  EXPECT_EQ(u32(t, 26), 16u);
  EXPECT_EQ(u32(t, 30), 0u);
  EXPECT_EQ(t.substr(36), wide(L"tab"));

  Container container(&store, L"node");
  std::string c = stored(store, container.offset());
  ASSERT_EQ(c.size(), 36u + 16u);
  EXPECT_EQ(c[0], kContainer);
  EXPECT_EQ(u32(c, 14), IDataStore::BADOFF);
  EXPECT_EQ(c[18], 0);  // container kind
  EXPECT_EQ(u32(c, 19), 20u);
  EXPECT_EQ(u32(c, 23), 0u);
  EXPECT_EQ(u32(c, 27), 0u);
  EXPECT_EQ(c[31], 0);
  EXPECT_EQ(c.substr(32), wide(L"node"));
}

TEST(RecordArrays, ReplacingTheValueLocaleMovesTheLaterArrays) {
  MemoryDataStore store;
  Primitive primitive(&store, 3, L"a");
  primitive.string(Primitive::kBase, L"schema");
  const unsigned char values[] = {1, 2, 3};
  primitive.arrays(Primitive::kValues, values, 3);
  primitive.string(Primitive::kValueLocale, L"de");
  std::string bytes = stored(store, primitive.offset());
  ASSERT_EQ(bytes.size(), 44u + 12 + 8 + 28 + 3);
  EXPECT_EQ(bytes.substr(44, 12), wide(L"de"));
  EXPECT_EQ(bytes.substr(56, 8), wide(L"a"));  // 12 bytes further than before
  EXPECT_EQ(bytes.substr(64, 28), wide(L"schema"));
  EXPECT_EQ(bytes.substr(92), std::string("\1\2\3"));
  EXPECT_EQ(primitive.name().wstring(), L"a");
  EXPECT_EQ(primitive.string(Primitive::kBase).wstring(), L"schema");
}

TEST(RecordArrays, ClearingAnArrayShortensTheRecordByItsLength) {
  MemoryDataStore store;
  Container container(&store, L"c");
  container.string(Container::kInfo, L"some info");
  unsigned before = store.size(container.offset());
  container.arrays(Container::kInfo, nullptr, 0);
  EXPECT_EQ(store.size(container.offset()), before - 40);
  EXPECT_TRUE(container.string(Container::kInfo).empty());
  EXPECT_EQ(container.name().wstring(), L"c");
}

TEST(RecordArrays, LongerNameArraysKeepLaterArraysInPlace) {
  // A name stored with room to spare (as renaming does) is read up to its terminator.
  MemoryDataStore store;
  Table table(&store, L"t");
  table.string(Table::kBase, L"base");
  table.name(L"renamed", 64);
  Table loaded(&store, table.offset());
  EXPECT_EQ(loaded.length(Table::kName), 64u);
  EXPECT_EQ(loaded.name().wstring(), L"renamed");
  EXPECT_EQ(loaded.string(Table::kBase).wstring(), L"base");
}

TEST(RecordEntity, ReferenceCountsAreWrittenAtOnce) {
  MemoryDataStore store;
  Root root(&store, L"r");
  root.ref();
  root.ref();
  EXPECT_EQ(u32(stored(store, root.offset()), 5), 2u);
  root.unref();
  root.unref();
  root.unref();  // no underflow check: the count wraps
  EXPECT_EQ(u32(stored(store, root.offset()), 5), 0xFFFFFFFFu);
}

TEST(RecordOffsets, FreshListAndAdd) {
  MemoryDataStore store;
  Offsets list(&store);
  EXPECT_EQ(store.size(list.offset()), 4u);
  EXPECT_EQ(list.items(), 0u);
  list.add(7);
  list.add(9);
  std::string bytes = stored(store, list.offset());
  EXPECT_EQ(bytes, std::string("\x03\0\0\0\x07\0\0\0\x09\0\0\0", 12));
}

TEST(RecordOffsets, SetPastTheEndFillsWithZeros) {
  MemoryDataStore store;
  Offsets list(&store);
  list.set(5, 42);
  Offsets loaded(&store, list.offset());
  ASSERT_EQ(loaded.items(), 6u);
  for (unsigned i = 0; i < 5; ++i) EXPECT_EQ(loaded.get(i), 0u);
  EXPECT_EQ(loaded.get(5), 42u);
  list.set(2, 8);
  EXPECT_EQ(Offsets(&store, list.offset()).get(2), 8u);
}

TEST(RecordOffsets, RemovalsTakeOnlyTheFirstMatch) {
  MemoryDataStore store;
  Offsets list(&store);
  for (unsigned v : {1u, 2u, 3u, 2u}) list.add(v);
  EXPECT_TRUE(list.removeVal(2));
  Offsets loaded(&store, list.offset());
  ASSERT_EQ(loaded.items(), 3u);
  EXPECT_EQ(loaded.get(0), 1u);
  EXPECT_EQ(loaded.get(1), 3u);
  EXPECT_EQ(loaded.get(2), 2u);
  EXPECT_FALSE(list.removeVal(5));
  std::string before = stored(store, list.offset());
  EXPECT_FALSE(list.removeIndex(3));
  EXPECT_EQ(stored(store, list.offset()), before);
  EXPECT_TRUE(list.removeIndex(0));
  EXPECT_EQ(Offsets(&store, list.offset()).get(0), 3u);
}

TEST(RecordOffsets, ListLoadedFromBadoffIsEmpty) {
  MemoryDataStore store;
  Offsets missing(&store, IDataStore::BADOFF);
  EXPECT_EQ(missing.items(), 0u);
  EXPECT_FALSE(missing.removeVal(0));
}

TEST(RecordLocale, PayloadReplacement) {
  MemoryDataStore store;
  Locale table(&store);
  EXPECT_EQ(stored(store, table.offset()), std::string("\x05\0\0\0\0\0\0\0", 8));
  std::string payload = wide(L"en-us") + wide(L"hello");
  table.payload(static_cast<unsigned>(payload.size()), payload.data());
  std::string bytes = stored(store, table.offset());
  ASSERT_EQ(bytes.size(), 8 + payload.size());
  EXPECT_EQ(bytes[0], kLocale);
  EXPECT_EQ(u32(bytes, 1), payload.size());
  EXPECT_EQ(bytes.substr(8), payload);
  table.payload(0, nullptr);
  EXPECT_EQ(store.size(table.offset()), 8u);
  EXPECT_EQ(Locale(&store, table.offset()).length(), 0u);
}

}  // namespace
}  // namespace kestrine::platform::data::Record
