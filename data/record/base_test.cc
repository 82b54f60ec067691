#include "data/record/base.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "core/storage/datastore_test_support.h"

namespace kestrine::platform::data::Record {
namespace {

using core::storage::datastore::InterceptingStore;
using core::storage::datastore::MemoryDataStore;

std::string bytesOf(const Base& record) {
  return std::string(reinterpret_cast<const char*>(record.data()), record.used());
}

// Catches: a fresh record reaching the store before update(), a second update() creating a
// second record, the `changed` flag lost, and a failed create taken for a stored record.
TEST(RecordBase, FirstUpdateCreatesAndLaterOnesOverwriteInPlace) {
  InterceptingStore store;
  {
    Base fresh(&store, 10, kTable);
    EXPECT_EQ(fresh.offset(), IDataStore::BADOFF);
    EXPECT_EQ(fresh.id(), kTable);
    EXPECT_EQ(fresh.used(), 10u);
    EXPECT_EQ(fresh.capacity(), 16u);
  }
  EXPECT_EQ(store.used(), 0u);

  Base record(&store, 6, kOffsets);
  record.update(true);
  unsigned first = record.offset();
  record.data()[5] = 9;
  record.update(false);
  EXPECT_EQ(record.offset(), first);
  EXPECT_EQ(store.records(), 1u);
  EXPECT_FALSE(store.lastChanged);
  EXPECT_EQ(bytesOf(Base(&store, first)), bytesOf(record));

  store.failAfter(0, true);
  Base unstored(&store, 20, kRoot);
  EXPECT_THROW(unstored.update(true), core::Exception);
  EXPECT_EQ(unstored.offset(), IDataStore::BADOFF);
  store.disarm();
}

// Catches: a missing record loaded as garbage or taken for a root, and peek() reading another
// byte than the kind.
TEST(RecordBase, MissingRecordsLoadEmptyAndPeekReadsTheKindByte) {
  MemoryDataStore store;
  Base missing(&store, IDataStore::BADOFF);
  EXPECT_EQ(missing.used(), 0u);
  EXPECT_EQ(missing.capacity(), 0u);
  EXPECT_EQ(peek(&store, IDataStore::BADOFF), kNoRecord);
  Base container(&store, 4, kContainer);
  container.update(true);
  EXPECT_EQ(peek(&store, container.offset()), kContainer);
}

// Catches: a shrink that leaves stale bytes behind the tail or gives back capacity, and a
// grow that exposes stale bytes or loses the record's bytes when it moves to a larger class.
TEST(RecordBase, ShrinkZeroesTheTailAndGrowExposesZeros) {
  MemoryDataStore store;
  Base record(&store, 12, kOffsets);
  for (unsigned i = 1; i < 12; ++i)
    record.data()[i] = static_cast<unsigned char>(i);
  record.shrink(4, 4);
  EXPECT_EQ(record.used(), 8u);
  EXPECT_EQ(record.capacity(), 16u);
  EXPECT_EQ(bytesOf(record), std::string("\x03\x01\x02\x03\x08\x09\x0a\x0b", 8));
  for (unsigned i = 8; i < 12; ++i)
    EXPECT_EQ(record.data()[i], 0) << i;
  record.shrink(6, 2);  // at + len = used: the tail goes
  EXPECT_EQ(bytesOf(record), std::string("\x03\x01\x02\x03\x08\x09", 6));
  EXPECT_EQ(record.capacity(), 16u);
  record.grow(4);  // within capacity: the exposed bytes are zero
  EXPECT_EQ(bytesOf(record), std::string("\x03\x01\x02\x03\x08\x09\0\0\0\0", 10));
  record.grow(7);  // beyond capacity: the next class
  EXPECT_EQ(record.capacity(), 32u);
  EXPECT_EQ(bytesOf(record), std::string("\x03\x01\x02\x03\x08\x09", 6) + std::string(11, '\0'));
  record.grow(0);
  EXPECT_EQ(record.used(), 17u);
}

// Catches: an inserting grow "fixed" to move the tail up, which records written by earlier
// versions do not expect: grow(at, len) copies from at + len down to at, like shrink, then
// zeroes [at, at + len).
TEST(RecordBase, InsertingGrowCopiesTheTailTheOldWay) {
  MemoryDataStore store;
  Base record(&store, 6, kOffsets);
  for (unsigned i = 1; i < 6; ++i)
    record.data()[i] = static_cast<unsigned char>(0x10 + i);
  record.grow(4, 1);  // in place: 6 + 1 fits 8; byte 5 moves down to 4, then 4 is zeroed
  EXPECT_EQ(bytesOf(record), std::string("\x03\x11\x12\x13\0\0\0", 7));
  Base bigger(&store, 8, kOffsets);
  for (unsigned i = 1; i < 8; ++i)
    bigger.data()[i] = static_cast<unsigned char>(0x20 + i);
  bigger.grow(4, 4);  // reallocates to 16: the source runs past the old buffer, read as zero
  EXPECT_EQ(bigger.capacity(), 16u);
  EXPECT_EQ(bytesOf(bigger), std::string("\x03\x21\x22\x23\0\0\0\0\0\0\0\0", 12));
  bigger.grow(bigger.used(), 4);  // at the end: just zeros appended
  EXPECT_EQ(bigger.used(), 16u);
  EXPECT_EQ(bigger.data()[15], 0);
}

// Catches: a record loaded in place that copies all the same, or points at other bytes; an
// in-place load without the lock, where another thread could change the bytes; and the
// store's bytes cleared or freed when the record lets go of them for a copy or at its end.
TEST(RecordBase, LoadsInPlaceOnlyUnderTheLock) {
  MemoryDataStore store;
  Base large(&store, 40, kOffsets);
  large.data()[39] = 7;
  large.update(true);
  Base small(&store, 5, kLocale);
  small.data()[4] = 9;
  small.update(true);
  const std::string largeBytes = bytesOf(large);

  Base reader(&store, large.offset(), Loading::kInPlace);
  EXPECT_EQ(bytesOf(reader), largeBytes);
  EXPECT_NE(reader.capacity(), 0u);  // a copy of its own
  {
    std::unique_ptr<IDataStore::ILock> held(store.lock());
    unsigned size = 0;
    reader.load(large.offset(), Loading::kInPlace);
    EXPECT_EQ(reader.data(), store.view(large.offset(), size));
    EXPECT_EQ(reader.capacity(), 0u);
    reader.load(IDataStore::BADOFF);
    EXPECT_EQ(reader.used(), 0u);
    reader.load(large.offset(), Loading::kInPlace);
    reader.load(small.offset());
    EXPECT_EQ(bytesOf(reader), bytesOf(small));
    Base{&store, large.offset(), Loading::kInPlace};
  }
  EXPECT_EQ(bytesOf(Base(&store, large.offset())), largeBytes);
}

// Catches: a clone that shares the original's offset or store, or copies other bytes.
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

}  // namespace
}  // namespace kestrine::platform::data::Record
