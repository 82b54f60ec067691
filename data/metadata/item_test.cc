#include "data/metadata/item.h"

#include <gtest/gtest.h>

#include <optional>

#include "data/design/container.h"
#include "data/design/primitive.h"
#include "data/metadata/root.h"
#include "data/record/container.h"
#include "data/record/locale.h"
#include "data/record/primitive.h"
#include "data/record/root.h"
#include "data/testing/store_bytes.h"

namespace kestrine::platform::data::Metadata {
namespace {

using core::storage::datastore::MemoryDataStore;
using Design::Primitive;
using Structural::Container;
using testing::bytes;
using testing::u32;
using testing::wide;

const unsigned kAbsent = 0xFFFFFFFF;
const std::uint8_t kLockedHidden = Record::kNameLocked | Record::kHidden;

// root -> a -> b -> c (a primitive), all created in one store.
struct Chain {
  MemoryDataStore store;
  Root root{&store, L"root"};
  Container a{&store, structure::IContainer::kNode, L"a"};
  Container b{&store, structure::IContainer::kNode, L"b"};
  Primitive c{&store, metadata::kInt32, L"c"};
  Chain() {
    root.add(a.offset());
    a.add(b.offset());
    b.add(c.offset());
  }
};

TEST(ItemFlags, OnAndOffTouchOnlyTheGivenBits) {
  Chain t;
  t.c.on(0x10 | Record::kOptional);
  EXPECT_EQ(t.c.flags(), 0x11);
  t.c.off(Record::kOptional);
  EXPECT_EQ(t.c.flags(), 0x10);
  EXPECT_EQ(bytes(t.store, t.c.offset())[13], 0x10);
}

TEST(ItemShow, ClearsHiddenAncestorsUpToTheFirstVisibleOneAndKeepsTheLock) {
  Chain t;
  Container x(&t.store, structure::IContainer::kNode, L"x");
  // root -> x (hidden) -> a (visible) -> b (hidden) -> c (visible)
  t.root.add(x.offset());
  ASSERT_TRUE(x.add(t.a.offset()));  // a's parent field now names x
  x.on(kLockedHidden);
  t.b.on(kLockedHidden);
  t.c.show();
  EXPECT_EQ(t.c.flags(), 0);
  EXPECT_EQ(t.b.flags(), Record::kNameLocked);
  EXPECT_EQ(t.a.flags(), 0);
  EXPECT_EQ(x.flags(), kLockedHidden);  // above the first visible ancestor: untouched
}

TEST(ItemShow, WalksThroughEveryHiddenAncestorBelowTheRoot) {
  Chain t;
  t.a.on(kLockedHidden);
  t.b.on(kLockedHidden);
  t.c.on(kLockedHidden);
  t.c.show();
  EXPECT_EQ(t.c.flags(), Record::kNameLocked);
  EXPECT_EQ(t.b.flags(), Record::kNameLocked);
  EXPECT_EQ(t.a.flags(), Record::kNameLocked);
}

TEST(ItemShow, NeverWritesTheRoot) {
  Chain t;
  {
    Record::Root root(&t.store, t.root.offset());
    root.flags(kLockedHidden);
    root.update(true);
  }
  t.a.on(kLockedHidden);
  std::string before = bytes(t.store, t.root.offset());
  t.a.show();
  EXPECT_EQ(t.a.flags(), Record::kNameLocked);
  EXPECT_EQ(bytes(t.store, t.root.offset()), before);
}

TEST(ItemPath, JoinsTheNamesBelowTheRootWithDots) {
  Chain t;
  WideString path(L"stale");
  t.c.path(path);
  EXPECT_EQ(path.wstring(), L"a.b.c");
  t.a.path(path);
  EXPECT_EQ(path.wstring(), L"a");
}

TEST(ItemPath, LeavesDotsInsideNamesAsTheyAre) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Container a(&store, structure::IContainer::kNode, L"x.y");
  Primitive b(&store, metadata::kBool, L"z");
  root.add(a.offset());
  a.add(b.offset());
  WideString path;
  b.path(path);
  EXPECT_EQ(path.wstring(), L"x.y.z");
}

// An item that has never had localized names.
TEST(ItemLocales, WithoutATableNothingIsReported) {
  MemoryDataStore store;
  Primitive item(&store, metadata::kInt8, L"p");
  WideString text(L"t"), locale(L"l");
  EXPECT_EQ(item.locales(), 0u);
  EXPECT_EQ(item.localize(L"en-us"), kAbsent);
  item.locale(0, text, locale);
  EXPECT_TRUE(text.empty());
  EXPECT_TRUE(locale.empty());
  EXPECT_EQ(item.duplicate(&store), IDataStore::BADOFF);
  unsigned records = store.records();
  item.cleanup();
  EXPECT_EQ(store.records(), records);
}

TEST(ItemLocales, NamesAreWrittenOnceAtDestructionAndSeenAfterReloading) {
  MemoryDataStore store;
  unsigned offset;
  {
    Primitive item(&store, metadata::kInt8, L"p");
    offset = item.offset();
    EXPECT_EQ(item.localize(L"Hello", L"en-us"), 0u);
    EXPECT_EQ(item.localize(L"Hallo", L"de"), 1u);
    // The queries look at the store, which has no table yet.
    EXPECT_EQ(item.locales(), 0u);
    EXPECT_EQ(item.localize(L"de"), kAbsent);
    EXPECT_EQ(u32(bytes(store, offset), 9), IDataStore::BADOFF);
  }
  unsigned table = u32(bytes(store, offset), 9);
  ASSERT_NE(table, IDataStore::BADOFF);
  std::string record = bytes(store, table);
  std::string payload = wide(L"en-us") + wide(L"Hello") + wide(L"de") + wide(L"Hallo");
  ASSERT_EQ(record.size(), 8 + payload.size());
  EXPECT_EQ(record[0], Record::kLocale);
  EXPECT_EQ(u32(record, 1), payload.size());
  EXPECT_EQ(record.substr(8), payload);

  Primitive item(&store, offset);
  EXPECT_EQ(item.locales(), 2u);
  EXPECT_EQ(item.localize(L"de"), 1u);
  WideString text, locale;
  item.locale(1, text, locale);
  EXPECT_EQ(text.wstring(), L"Hallo");
  EXPECT_EQ(locale.wstring(), L"de");
}

TEST(ItemLocales, ReplacingATextKeepsItsPosition) {
  MemoryDataStore store;
  Primitive first(&store, metadata::kInt8, L"p");
  {
    Primitive item(&store, first.offset());
    item.localize(L"one", L"en");
    item.localize(L"two", L"fr");
  }
  {
    Primitive item(&store, first.offset());
    EXPECT_EQ(item.localize(L"deux", L"fr"), 1u);
  }
  Primitive item(&store, first.offset());
  WideString text, locale;
  item.locale(1, text, locale);
  EXPECT_EQ(text.wstring(), L"deux");
  EXPECT_EQ(item.locales(), 2u);
}

TEST(ItemLocales, PositionsStayStaleAfterARemovalUntilReloaded) {
  MemoryDataStore store;
  Primitive first(&store, metadata::kInt8, L"p");
  {
    Primitive item(&store, first.offset());
    item.localize(L"A", L"a");
    item.localize(L"B", L"b");
    item.localize(L"C", L"c");
  }
  {
    Primitive item(&store, first.offset());
    EXPECT_EQ(item.localize(nullptr, L"a"), 0u);
    EXPECT_EQ(item.localize(L"a"), kAbsent);
    EXPECT_EQ(item.localize(L"c"), 2u);  // the list holds two entries now
    EXPECT_EQ(item.locales(), 2u);
    // A text set through a stale position still reaches its own entry.
    EXPECT_EQ(item.localize(L"C2", L"c"), 2u);
  }
  Primitive item(&store, first.offset());
  EXPECT_EQ(item.localize(L"b"), 0u);
  EXPECT_EQ(item.localize(L"c"), 1u);
  WideString text, locale;
  item.locale(1, text, locale);
  EXPECT_EQ(text.wstring(), L"C2");
}

TEST(ItemLocales, AnEmptiedListKeepsTheOldTable) {
  MemoryDataStore store;
  Primitive first(&store, metadata::kInt8, L"p");
  {
    Primitive item(&store, first.offset());
    item.localize(L"A", L"a");
  }
  unsigned table = u32(bytes(store, first.offset()), 9);
  std::string before = bytes(store, table);
  {
    Primitive item(&store, first.offset());
    EXPECT_EQ(item.localize(nullptr, L"a"), 0u);
  }
  EXPECT_EQ(bytes(store, table), before);
  Primitive item(&store, first.offset());
  EXPECT_EQ(item.localize(L"a"), 0u);
}

TEST(ItemLocales, RemovingAnAbsentLocaleChangesNothing) {
  MemoryDataStore store;
  Primitive first(&store, metadata::kInt8, L"p");
  unsigned records = store.records();
  {
    Primitive item(&store, first.offset());
    EXPECT_EQ(item.localize(nullptr, L"en"), kAbsent);
  }
  EXPECT_EQ(store.records(), records);
}

TEST(ItemLocales, LoadingKeepsTheFirstOfTwoEqualLocalesAndDropsAnUnpairedOne) {
  MemoryDataStore store;
  Primitive item(&store, metadata::kInt8, L"p");
  Record::Locale table(&store);
  std::string payload = wide(L"en") + wide(L"first") + wide(L"en") + wide(L"second") + wide(L"fr");
  table.payload(static_cast<unsigned>(payload.size()), payload.data());
  {
    Record::Primitive record(&store, item.offset());
    record.locale(table.offset());
    record.update(true);
  }
  Primitive reloaded(&store, item.offset());
  EXPECT_EQ(reloaded.locales(), 1u);
  EXPECT_EQ(reloaded.localize(L"en"), 0u);
  EXPECT_EQ(reloaded.localize(L"fr"), kAbsent);
  WideString text, locale;
  reloaded.locale(1, text, locale);  // listed, but not indexed
  EXPECT_EQ(text.wstring(), L"second");
}

TEST(ItemLocales, DuplicateCopiesTheTableAndCleanupFreesIt) {
  MemoryDataStore store, target;
  Primitive first(&store, metadata::kInt8, L"p");
  {
    Primitive item(&store, first.offset());
    item.localize(L"A", L"a");
  }
  Primitive item(&store, first.offset());
  unsigned table = u32(bytes(store, item.offset()), 9);
  unsigned copy = item.duplicate(&target);
  ASSERT_NE(copy, IDataStore::BADOFF);
  EXPECT_EQ(bytes(target, copy), bytes(store, table));

  unsigned records = store.records();
  EXPECT_EQ(item.localize(L"a"), 0u);
  item.cleanup();
  EXPECT_EQ(store.records(), records - 1);
  EXPECT_EQ(store.size(table), 0u);
  EXPECT_EQ(item.localize(L"a"), kAbsent);
  EXPECT_EQ(item.duplicate(&target), IDataStore::BADOFF);
}

TEST(ItemLocales, MarkerKeysAreNeverIndexed) {
  MemoryDataStore store;
  Primitive item(&store, metadata::kInt8, L"p");
  EXPECT_EQ(item.localize(L"x", L"$$$$$_____empty_key"), kAbsent);
  EXPECT_EQ(item.localize(L"x", L"$$$$$_____deleted_key"), kAbsent);
}

}  // namespace
}  // namespace kestrine::platform::data::Metadata
