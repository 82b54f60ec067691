#include "data/record/base.h"

#include <gtest/gtest.h>

#include <string>

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::data::Record {
namespace {

using core::storage::datastore::MemoryDataStore;

// Counts the writes that reach the store, to prove that an operation wrote nothing.
class CountingStore : public MemoryDataStore {
 public:
  unsigned create(const void* data, unsigned size) override {
    ++creates;
    return MemoryDataStore::create(data, size);
  }
  void write(unsigned offset, const void* data, unsigned size, bool changed) override {
    ++writes;
    lastChanged = changed;
    MemoryDataStore::write(offset, data, size, changed);
  }
  int creates = 0;
  int writes = 0;
  bool lastChanged = false;
};

std::string bytesOf(const Base& record) {
  return std::string(reinterpret_cast<const char*>(record.data()), record.used());
}

TEST(RecordAllocator, MapsSizesToTheirClasses) {
  const unsigned cases[][2] = {{0, 0},       {1, 8},         {8, 8},         {9, 16},
                               {16, 16},     {17, 32},       {33, 48},       {49, 64},
                               {65, 96},     {97, 128},      {129, 256},     {257, 512},
                               {1025, 2048}, {4096, 4096},   {4097, 16384},  {8192, 16384},
                               {16384, 16384}, {16385, 16385}, {100000, 100000}};
  for (const auto& c : cases) EXPECT_EQ(allocator(c[0]), c[1]) << "size " << c[0];
}

TEST(RecordBase, FreshRecordReachesTheStoreOnlyAtUpdate) {
  CountingStore store;
  {
    Base fresh(&store, 10, kTable);
    EXPECT_EQ(fresh.offset(), IDataStore::BADOFF);
    EXPECT_EQ(fresh.id(), kTable);
    EXPECT_EQ(fresh.used(), 10u);
    EXPECT_EQ(fresh.capacity(), 16u);
  }
  EXPECT_EQ(store.creates, 0);
  EXPECT_EQ(store.used(), 0u);
}

TEST(RecordBase, SecondUpdateOverwritesInPlace) {
  CountingStore store;
  Base record(&store, 6, kOffsets);
  record.update(true);
  unsigned first = record.offset();
  record.data()[5] = 9;
  record.update(false);
  EXPECT_EQ(record.offset(), first);
  EXPECT_EQ(store.creates, 1);
  EXPECT_EQ(store.writes, 1);
  EXPECT_FALSE(store.lastChanged);
  Base loaded(&store, first);
  EXPECT_EQ(bytesOf(loaded), bytesOf(record));
}

TEST(RecordBase, LoadingAMissingRecordGivesAnEmptyBuffer) {
  MemoryDataStore store;
  Base missing(&store, IDataStore::BADOFF);
  EXPECT_EQ(missing.used(), 0u);
  EXPECT_EQ(missing.capacity(), 0u);
  EXPECT_EQ(peek(&store, IDataStore::BADOFF), kRoot);
}

TEST(RecordBase, PeekReadsTheKindByte) {
  MemoryDataStore store;
  Base root(&store, 4, kRoot), container(&store, 4, kContainer);
  root.update(true);
  container.update(true);
  EXPECT_EQ(peek(&store, root.offset()), kRoot);
  EXPECT_EQ(peek(&store, container.offset()), kContainer);
}

TEST(RecordBase, ShrinkRemovesAndZeroesTheTailKeepingCapacity) {
  MemoryDataStore store;
  Base record(&store, 12, kOffsets);
  for (unsigned i = 1; i < 12; ++i) record.data()[i] = static_cast<unsigned char>(i);
  record.shrink(4, 4);
  EXPECT_EQ(record.used(), 8u);
  EXPECT_EQ(record.capacity(), 16u);
  EXPECT_EQ(bytesOf(record), std::string("\x03\x01\x02\x03\x08\x09\x0a\x0b", 8));
  for (unsigned i = 8; i < 12; ++i) EXPECT_EQ(record.data()[i], 0) << i;
  record.shrink(6, 2);  // at + len = used: the tail goes
  EXPECT_EQ(bytesOf(record), std::string("\x03\x01\x02\x03\x08\x09", 6));
  EXPECT_EQ(record.capacity(), 16u);
  record.grow(4);  // within capacity: the exposed bytes are zero
  EXPECT_EQ(bytesOf(record), std::string("\x03\x01\x02\x03\x08\x09\0\0\0\0", 10));
}

TEST(RecordBase, GrowBeyondCapacityMovesToTheNextClass) {
  MemoryDataStore store;
  Base record(&store, 7, kOffsets);
  record.data()[6] = 0x7f;
  record.grow(2);
  EXPECT_EQ(record.used(), 9u);
  EXPECT_EQ(record.capacity(), 16u);
  EXPECT_EQ(record.data()[6], 0x7f);
  EXPECT_EQ(record.data()[7], 0);
  record.grow(0);
  EXPECT_EQ(record.used(), 9u);
}

TEST(RecordBase, InsertingGrowCopiesTheTailTheOldWay) {
  // grow(at, len) copies from at + len down to at, like shrink, then zeroes [at, at + len).
  MemoryDataStore store;
  Base record(&store, 6, kOffsets);
  for (unsigned i = 1; i < 6; ++i) record.data()[i] = static_cast<unsigned char>(0x10 + i);
  record.grow(4, 1);  // in place: 6 + 1 fits 8; byte 5 moves down to 4, then 4 is zeroed
  EXPECT_EQ(bytesOf(record), std::string("\x03\x11\x12\x13\0\0\0", 7));
  Base bigger(&store, 8, kOffsets);
  for (unsigned i = 1; i < 8; ++i) bigger.data()[i] = static_cast<unsigned char>(0x20 + i);
  bigger.grow(4, 4);  // reallocates to 16: the source runs past the old buffer, read as zero
  EXPECT_EQ(bigger.capacity(), 16u);
  EXPECT_EQ(bytesOf(bigger), std::string("\x03\x21\x22\x23\0\0\0\0\0\0\0\0", 12));
  bigger.grow(bigger.used(), 4);  // at the end: just zeros appended
  EXPECT_EQ(bigger.used(), 16u);
  EXPECT_EQ(bigger.data()[15], 0);
}

TEST(RecordBase, CloneCopiesTheBytesToANewOffset) {
  MemoryDataStore store, other;
  Base record(&store, 5, kLocale);
  record.data()[4] = 0x42;
  record.update(true);
  unsigned copy = record.clone(&store);
  EXPECT_NE(copy, record.offset());
  EXPECT_EQ(bytesOf(Base(&store, copy)), bytesOf(record));
  unsigned elsewhere = record.clone(&other);
  EXPECT_EQ(elsewhere, 0u);
  EXPECT_EQ(bytesOf(Base(&other, elsewhere)), bytesOf(record));
  EXPECT_EQ(record.store(), &store);
}

// A store whose creates fail, as a full disk would make them.
class FullStore : public MemoryDataStore {
 public:
  unsigned create(const void*, unsigned) override { throw core::Exception("disk full"); }
};

TEST(RecordBase, UpdateFailurePassesThroughAndLeavesTheRecordFresh) {
  FullStore store;
  Base record(&store, 20, kRoot);
  EXPECT_THROW(record.update(true), core::Exception);
  EXPECT_EQ(record.offset(), IDataStore::BADOFF);
}

}  // namespace
}  // namespace kestrine::platform::data::Record
