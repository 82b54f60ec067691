#include "data/tree/item.h"

#include <gtest/gtest.h>

#include "core/storage/datastore_test_support.h"
#include "data/record/entity.h"
#include "data/tree/container.h"
#include "data/tree/primitive.h"
#include "data/tree/root.h"

namespace kestrine::platform::data::Metadata {
namespace {

using core::storage::datastore::MemoryDataStore;
using core::storage::datastore::readAll;
using core::storage::datastore::snapshot;
using core::storage::datastore::u32;
using core::storage::datastore::wide;
const unsigned kAbsent = 0xFFFFFFFF;
const std::uint8_t kLocked = Record::kNameLocked, kLockedHidden = 0x06;

// root -> x -> a -> b -> c (c a primitive); the test hides some of them.
struct Chain {
  MemoryDataStore store;
  Root root{&store, L"root"};
  Structural::Container x{&store, structure::IContainer::kNode, L"x"};
  Structural::Container a{&store, structure::IContainer::kNode, L"a"};
  Structural::Container b{&store, structure::IContainer::kNode, L"b"};
  Design::Primitive c{&store, metadata::kInt32, L"c"};
  Chain() { root.add(x.offset()), x.add(a.offset()), a.add(b.offset()), b.add(c.offset()); }
};

// Catches a show that stops at the item, goes on past the first visible ancestor, clears
// the name lock, or writes the root.
TEST(Item, ShowClearsHiddenAncestorsUpToTheFirstVisibleOne) {
  Chain t;
  t.root.on(kLockedHidden), t.x.on(kLockedHidden), t.b.on(kLockedHidden);
  auto root = readAll(t.store, 0);
  t.c.show();  // clears b, stops at the visible a: x stays hidden
  EXPECT_EQ(t.b.flags(), kLocked);
  EXPECT_EQ(t.x.flags(), kLockedHidden);
  t.x.show();  // the root is never written
  EXPECT_EQ(t.x.flags(), kLocked);
  EXPECT_EQ(readAll(t.store, 0), root);
}

// Catches names written before the destructor, written twice or in another layout, queries
// that see the memory before the store, and a replacement that moves its entry.
TEST(ItemLocales, AreWrittenOnceAtDestructionAndSeenAfterReloading) {
  MemoryDataStore store;
  unsigned p = Design::Primitive(&store, metadata::kInt8, L"p").offset();
  {
    Design::Primitive item(&store, p);
    auto before = snapshot(store);
    EXPECT_EQ(item.localize(L"Hello", L"en-us"), 0u);
    EXPECT_EQ(item.localize(L"Hallo", L"de"), 1u);
    EXPECT_EQ(item.localize(nullptr, L"fr"), kAbsent);
    EXPECT_EQ(item.locales(), 0u);  // the queries look at the store, which has no table yet
    EXPECT_EQ(item.localize(L"de"), kAbsent);
    EXPECT_EQ(snapshot(store), before);
  }
  unsigned table = u32(store, p, 9);
  std::string payload = wide(L"en-us") + wide(L"Hello") + wide(L"de") + wide(L"Hallo");
  EXPECT_EQ(readAll(store, table).substr(8), payload);
  EXPECT_EQ(u32(store, table, 1), payload.size());

  Design::Primitive item(&store, p);
  EXPECT_EQ(item.locales(), 2u);
  EXPECT_EQ(item.localize(L"Hi", L"en-us"), 0u);  // replacing keeps the position
  WideString text, locale;
  item.locale(1, text, locale);
  EXPECT_EQ(text.wstring() + locale.wstring(), L"Hallode");
}

// Catches positions renumbered before a reload, a stale position that picks another entry,
// and names lost when a list is emptied and filled again.
TEST(ItemLocales, PositionsStayStaleAfterARemovalAndAnEmptiedListKeepsTheTable) {
  MemoryDataStore store;
  unsigned p = Design::Primitive(&store, metadata::kInt8, L"p").offset();
  {
    Design::Primitive item(&store, p);
    for (const wchar_t* id : {L"a", L"b", L"c"})
      item.localize(id, id);
  }
  {
    Design::Primitive item(&store, p);
    EXPECT_EQ(item.localize(nullptr, L"a"), 0u);
    EXPECT_EQ(item.localize(L"c"), 2u);  // one too high until reloaded
    EXPECT_EQ(item.localize(L"C", L"c"), 2u);
  }
  {
    Design::Primitive item(&store, p);
    EXPECT_EQ(item.localize(L"c"), 1u);
    item.localize(nullptr, L"b");
    item.localize(nullptr, L"c");
  }
  Design::Primitive item(&store, p);
  EXPECT_EQ(item.locales(), 2u);
  WideString text, locale;
  item.locale(1, text, locale);
  EXPECT_EQ(text.wstring(), L"C");
}

}  // namespace
}  // namespace kestrine::platform::data::Metadata
