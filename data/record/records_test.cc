#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/storage/datastore_test_support.h"
#include "data/record/container_record.h"
#include "data/record/locale.h"
#include "data/record/offsets.h"
#include "data/record/primitive_record.h"
#include "data/record/root_record.h"
#include "data/record/table_record.h"
#include "kestrine/platform/core/exception.h"
#include "kestrine/platform/data/metadata/value.h"

namespace kestrine::platform::data::Record {
namespace {

using core::storage::datastore::MemoryDataStore;
using core::storage::datastore::readAll;
using core::storage::datastore::u32;
using core::storage::datastore::wide;

// The stored bytes of a record in hex, for comparing a whole layout at once.
std::string hex(IDataStore& store, unsigned offset) {
  std::string text;
  char digits[3];
  for (unsigned char byte : readAll(store, offset)) {
    std::snprintf(digits, sizeof digits, "%02x", byte);
    text += digits;
  }
  return text;
}

// `fields` without the blanks that set the fields apart for the reader.
std::string packed(std::string fields) {
  fields.erase(std::remove(fields.begin(), fields.end(), ' '), fields.end());
  return fields;
}

// Catches: any change to the stored layouts of the fresh records, which files written by
// earlier versions hold. Fields: kind; parent, reference count and locale table (the entity
// header); flags; then each kind's own fields, the array lengths, reserved bytes and the name
// in UTF-32 with its terminator.
TEST(RecordLayout, FreshRecordsAreStoredByteForByte) {
  MemoryDataStore store;
  Root root(&store, L"root");
  EXPECT_EQ(store.size(root.offset()), 44u);
  EXPECT_EQ(hex(store, root.offset()),
            packed("00 ffffffff 00000000 ffffffff 00 ffffffff 14000000 0000"
                   "72000000 6f000000 6f000000 74000000 00000000"));
  EXPECT_EQ(root.name().wstring(), L"root");

  // reserved, units, value type, value locale, name, base and values lengths, 2 reserved.
  Primitive primitive(&store, 12, L"a");
  EXPECT_EQ(store.size(primitive.offset()), 52u);
  EXPECT_EQ(hex(store, primitive.offset()),
            packed("01 ffffffff 00000000 ffffffff 00 00000000 00000000 0c000000 00000000"
                   "08000000 00000000 00000000 0000 61000000 00000000"));

  // children, units, defaults, name and base lengths, 2 reserved.
  Table table(&store, L"tab");
  EXPECT_EQ(hex(store, table.offset()),
            packed("02 ffffffff 00000000 ffffffff 00 ffffffff 00000000 ffffffff 10000000"
                   "00000000 0000 74000000 61000000 62000000 00000000"));

  // children, container kind, name, base and info lengths, 1 reserved.
  Container container(&store, L"node");
  EXPECT_EQ(hex(store, container.offset()),
            packed("04 ffffffff 00000000 ffffffff 00 ffffffff 00 14000000 00000000 00000000"
                   "00 6e000000 6f000000 64000000 65000000 00000000"));
}

// Catches: arrays after a replaced or cleared one left in place (and so read from the wrong
// offset), the record not shortened, a name stored with room to spare read past its
// terminator, and a text cut anywhere but at its first terminator or its array's end.
TEST(RecordArrays, ReplacingAnArrayMovesTheLaterOnes) {
  MemoryDataStore store;
  Primitive primitive(&store, 3, L"a");
  primitive.string(Primitive::kBase, L"schema");
  const unsigned char values[] = {1, 2, 3};
  primitive.arrays(Primitive::kValues, values, 3);
  primitive.string(Primitive::kValueLocale, L"de");
  std::string bytes = readAll(store, primitive.offset());
  ASSERT_EQ(bytes.size(), 44u + 12 + 8 + 28 + 3);
  EXPECT_EQ(bytes.substr(44, 12), wide(L"de"));
  EXPECT_EQ(bytes.substr(56, 8), wide(L"a"));  // 12 bytes further than before
  EXPECT_EQ(bytes.substr(64, 28), wide(L"schema"));
  EXPECT_EQ(bytes.substr(92), std::string("\1\2\3"));
  EXPECT_EQ(primitive.name().wstring(), L"a");
  EXPECT_EQ(primitive.string(Primitive::kBase).wstring(), L"schema");

  Container container(&store, L"c");
  container.string(Container::kInfo, L"some info");
  unsigned before = store.size(container.offset());
  container.arrays(Container::kInfo, nullptr, 0);
  EXPECT_EQ(store.size(container.offset()), before - 40);
  EXPECT_TRUE(container.string(Container::kInfo).empty());
  EXPECT_EQ(container.name().wstring(), L"c");
  // A text ends at its first terminator, wherever it lies, or with its array.
  for (unsigned end = 0; end <= 10; ++end) {
    std::wstring text = L"abcdefghij";
    if (end < text.size()) text[end] = L'\0';
    container.arrays(Container::kInfo, text.data(), 40);
    EXPECT_EQ(container.string(Container::kInfo).wstring(), text.substr(0, end)) << end;
  }

  // A name stored with room to spare (as renaming does) is read up to its terminator.
  Table table(&store, L"t");
  table.string(Table::kBase, L"base");
  table.name(L"renamed", 64);
  Table loaded(&store, table.offset());
  EXPECT_EQ(loaded.length(Table::kName), 64u);
  EXPECT_EQ(loaded.name().wstring(), L"renamed");
  EXPECT_EQ(loaded.string(Table::kBase).wstring(), L"base");
}

// Catches: a reference count kept in memory only, or guarded against underflow, which
// the stored files never were.
TEST(RecordEntity, ReferenceCountsAreWrittenAtOnce) {
  MemoryDataStore store;
  Root root(&store, L"r");
  root.ref();
  root.ref();
  EXPECT_EQ(u32(store, root.offset(), 5), 2u);
  root.unref();
  root.unref();
  root.unref();  // no underflow check: the count wraps
  EXPECT_EQ(u32(store, root.offset(), 5), 0xFFFFFFFFu);
}

// Catches: a reloaded buffer that keeps bytes of the record before (past the new one's end,
// where in-place growth would expose them), a missing or non-entity record read as one, and a
// damaged entity let through on reload.
TEST(RecordEntity, LoadingAgainReusesTheBufferAndChecksEachRecord) {
  MemoryDataStore store;
  Primitive::tFresh fresh;
  fresh.type = metadata::kUInt8;
  fresh.name = L"p";
  fresh.valueBytes = 600;
  const unsigned large = Primitive(&store, fresh).offset();
  const unsigned small = Root(&store, L"r").offset();
  const unsigned list = Offsets(&store).offset();
  Entity record(&store, large);
  const unsigned capacity = record.capacity();
  ASSERT_TRUE(record.load(small));
  EXPECT_EQ(record.capacity(), capacity);
  EXPECT_EQ(record.id(), kRoot);
  EXPECT_EQ(record.name().wstring(), L"r");
  EXPECT_TRUE(std::all_of(record.data() + record.used(), record.data() + capacity,
                          [](unsigned char byte) { return byte == 0; }));
  EXPECT_FALSE(record.load(list));
  EXPECT_FALSE(record.load(IDataStore::BADOFF));
  EXPECT_EQ(record.used(), 0u);
  ASSERT_TRUE(record.load(large));
  EXPECT_EQ(record.length(Primitive::kValues), 600u);
  // A name array that runs past the record's end.
  std::string bytes = readAll(store, small);
  bytes[18] = 200;
  store.write(small, bytes.data(), static_cast<unsigned>(bytes.size()), true);
  EXPECT_THROW(record.load(small), core::Exception);
}

// Catches: a wrong list layout, set() past the end not filling with zeros, removals taking
// more than the first match or writing when they find nothing, and a list read from BADOFF
// that is not empty.
TEST(RecordOffsets, EditsAreStoredAtOnceWithTheirEdgeCases) {
  MemoryDataStore store;
  Offsets list(&store);
  EXPECT_EQ(readAll(store, list.offset()), std::string("\x03\0\0\0", 4));
  list.add(7);
  list.add(9);
  EXPECT_EQ(readAll(store, list.offset()), std::string("\x03\0\0\0\x07\0\0\0\x09\0\0\0", 12));

  Offsets sparse(&store);
  sparse.set(5, 42);
  Offsets loaded(&store, sparse.offset());
  ASSERT_EQ(loaded.items(), 6u);
  for (unsigned i = 0; i < 5; ++i)
    EXPECT_EQ(loaded.get(i), 0u);
  EXPECT_EQ(loaded.get(5), 42u);
  sparse.set(2, 8);
  EXPECT_EQ(Offsets(&store, sparse.offset()).get(2), 8u);

  for (unsigned v : {2u, 3u, 2u})
    list.add(v);  // 7 9 2 3 2
  EXPECT_TRUE(list.removeVal(2));
  EXPECT_EQ(readAll(store, list.offset()).substr(4),
            std::string("\x07\0\0\0\x09\0\0\0\x03\0\0\0\x02\0\0\0", 16));
  EXPECT_FALSE(list.removeVal(5));
  std::string before = readAll(store, list.offset());
  EXPECT_FALSE(list.removeIndex(4));
  EXPECT_EQ(readAll(store, list.offset()), before);
  EXPECT_TRUE(list.removeIndex(0));
  EXPECT_EQ(Offsets(&store, list.offset()).get(0), 9u);
  EXPECT_EQ(Offsets(&store, list.offset()).items(), 3u);

  Offsets missing(&store, IDataStore::BADOFF);
  EXPECT_EQ(missing.items(), 0u);
  EXPECT_FALSE(missing.removeVal(0));
}

// Catches: a payload not replaced whole, a wrong length field, and an emptied table that
// keeps bytes.
TEST(RecordLocale, PayloadReplacement) {
  MemoryDataStore store;
  Locale table(&store);
  EXPECT_EQ(readAll(store, table.offset()), std::string("\x05\0\0\0\0\0\0\0", 8));
  std::string payload = wide(L"en-us") + wide(L"hello");
  table.payload(static_cast<unsigned>(payload.size()), payload.data());
  std::string bytes = readAll(store, table.offset());
  ASSERT_EQ(bytes.size(), 8 + payload.size());
  EXPECT_EQ(bytes[0], kLocale);
  EXPECT_EQ(u32(store, table.offset(), 1), payload.size());
  EXPECT_EQ(bytes.substr(8), payload);
  table.payload(0, nullptr);
  EXPECT_EQ(store.size(table.offset()), 8u);
  EXPECT_EQ(Locale(&store, table.offset()).length(), 0u);
}

}  // namespace
}  // namespace kestrine::platform::data::Record
