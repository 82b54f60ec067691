#include "data/tree/set.h"

#include <gtest/gtest.h>

#include "core/storage/datastore_test_support.h"
#include "data/record/entity.h"
#include "data/record/offsets.h"
#include "data/tree/item_reader.h"
#include "data/tree/name_index.h"
#include "data/tree/root.h"
#include "data/tree/tree_test_support.h"

namespace kestrine::platform::data::Metadata {
namespace {

using core::storage::datastore::MemoryDataStore;
using core::storage::datastore::readAll;
using core::storage::datastore::snapshot;
using core::storage::datastore::u32;
using Design::Primitive;
using testing::Subtree;
const unsigned BAD = IDataStore::BADOFF;

// The entries of the set record at `offset` as a lister gives them to a walk that reads each.
std::vector<unsigned> listed(IDataStore& store, unsigned offset) {
  Set::Lister lister;
  lister.start(&store, offset);
  ItemReader reader(&store);
  std::vector<unsigned> entries;
  for (unsigned entry; lister.next(entry);) {
    Record::tType kind = Record::kNoRecord;
    try {
      kind = reader.read(entry);
    } catch (const core::Exception&) {
    }
    if (lister.listed(kind, reader)) entries.push_back(entry);
  }
  return entries;
}

// Catches a children list made per add, a parent field left unset, and an add of another
// kind or a taken name that changes anything.
TEST(Set, AddCreatesTheListOnceAndRefusesOtherKindsAndTakenNames) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Primitive a(&store, metadata::kInt8, L"a"), b(&store, metadata::kInt8, L"b");
  Primitive twin(&store, metadata::kInt8, L"a");
  ASSERT_TRUE(root.add(a.offset()));
  unsigned list = u32(store, 0, 14);
  EXPECT_EQ(store.size(list), 8u);
  ASSERT_TRUE(root.add(b.offset()));
  EXPECT_EQ(u32(store, 0, 14), list);
  EXPECT_EQ(root.at(1), b.offset());
  EXPECT_EQ(u32(store, b.offset(), 1), 0u);  // its parent field names the root

  auto before = snapshot(store);
  for (unsigned refused : {twin.offset(), list, 0u})
    EXPECT_FALSE(root.add(refused));
  EXPECT_EQ(snapshot(store), before);
  EXPECT_EQ(root.items(), 2u);
  EXPECT_EQ(Root(&store, L"other").at(0), BAD);
}

// Catches an index built from the last of two equal names, and a list entry it does not
// name hidden from at().
TEST(Set, PopulateIndexesTheFirstOfTwoEqualNames) {
  MemoryDataStore store;
  unsigned first, second;
  {
    Root root(&store, L"root");
    first = Primitive(&store, metadata::kInt8, L"x").offset();
    second = Primitive(&store, metadata::kInt8, L"x").offset();
    root.add(first);
    store.append(root.children(), &second, 4);
  }
  Root root(&store, 0);
  EXPECT_EQ(root.items(), 1u);
  EXPECT_EQ(root.find(L"x"), first);
  EXPECT_EQ(root.at(1), second);
}

// Catches a count of a set's children, made without its index, that differs from the index's
// own: a name given twice, a reserved name, a list or a root among the children, a freed one.
TEST(Set, EntriesCountedWithoutTheIndexAreTheIndexedOnes) {
  MemoryDataStore store;
  unsigned list;
  {
    Root root(&store, L"root");
    root.add(Primitive(&store, metadata::kInt8, L"a").offset());
    list = root.children();
  }
  auto append = [&](unsigned offset) { store.append(list, &offset, 4); };
  auto make = [&store](const wchar_t* name) {
    return Primitive(&store, metadata::kInt8, name).offset();
  };
  const unsigned freed = make(L"gone"), reserved = make(kEmptyKey), b = make(L"b");
  const unsigned deleted = make(kDeletedKey), dollar = make(L"$$$$$_____empty_ke");
  const unsigned again = make(L"a"), c = make(L"c");
  store.free(freed);
  for (unsigned odd : {list, 0u, freed, reserved, b, deleted, dollar})
    append(odd);
  auto both = [&store] {
    std::vector<unsigned> indexed;
    Root(&store, 0).entries(indexed);
    EXPECT_EQ(listed(store, 0), indexed);
    return indexed.size();
  };
  EXPECT_EQ(both(), 3u);  // "a", "b" and the name that only starts as a reserved one
  append(again);
  append(c);
  EXPECT_EQ(both(), 4u);
}

// Catches a lister that gives an entry past those entries() gives, or stops short of them,
// when a name comes back after many distinct ones (more than it searches without a hash
// set); inside a scope, with the index at hand, it gives the same.
TEST(Set, ListerGivesTheEntriesOneAtATime) {
  for (const wchar_t* again : {L"x3", L"x30"}) {
    MemoryDataStore store;
    {
      Root root(&store, L"root");
      for (int i = 0; i < 40; ++i)
        root.add(Primitive(&store, metadata::kInt8, (L"x" + std::to_wstring(i)).c_str()).offset());
    }
    auto append = [&store](unsigned offset) { store.append(u32(store, 0, 14), &offset, 4); };
    append(Primitive(&store, metadata::kInt8, again).offset());  // listed, as the 41st name is
    append(Primitive(&store, metadata::kInt8, L"y").offset());   // not listed
    std::vector<unsigned> counted;
    Root(&store, 0).entries(counted);
    ASSERT_EQ(counted.size(), 41u);
    EXPECT_EQ(listed(store, 0), counted) << "again: " << again;
    IndexScope scope(&store);
    EXPECT_EQ(Root(&store, 0).items(), 41u);
    EXPECT_EQ(listed(store, 0), counted) << "again: " << again;
  }
}

// Catches records of the subtree left behind by a remove (live record counts).
TEST(Set, RemoveFreesTheWholeSubtree) {
  MemoryDataStore store;
  Root root(&store, L"root");
  root.add(Primitive(&store, metadata::kInt8, L"keep").offset());
  unsigned baseline = store.records();
  root.add(Subtree(&store, L"gone").group);
  ASSERT_EQ(store.records(), baseline + Subtree::kRecords);
  EXPECT_TRUE(root.remove(L"gone"));
  EXPECT_EQ(store.records(), baseline);
  EXPECT_EQ(root.find(L"gone"), BAD);
  EXPECT_EQ(store.size(root.children()), 8u);
}

// Catches a remove or rename of a child that is open elsewhere, name-locked or unknown, or
// onto a taken name, and a refusal that writes anything.
TEST(Set, RemoveAndRenameRefuseWhatIsOpenLockedOrUnknownChangingNothing) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Subtree open(&store, L"open"), locked(&store, L"locked");
  root.add(open.group);
  root.add(locked.group);
  root.hide(locked.group);
  {
    Primitive held(&store, open.second);
    auto before = snapshot(store);
    EXPECT_FALSE(root.remove(L"open"));
    EXPECT_FALSE(root.remove(L"locked"));
    EXPECT_FALSE(root.remove(L"unknown"));
    EXPECT_FALSE(root.rename(L"locked", L"x"));
    EXPECT_FALSE(root.rename(L"open", L"locked"));
    EXPECT_FALSE(root.rename(L"unknown", L"x"));
    EXPECT_EQ(snapshot(store), before);
    EXPECT_EQ(root.items(), 2u);
  }
  EXPECT_TRUE(root.remove(L"open"));
}

// Catches a name array that does not grow to 8k + 8 bytes, or later arrays (the values)
// moved wrongly behind it.
TEST(Set, RenameDoublesTheNameArrayAndKeepsTheLaterArrays) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Primitive p(&store, metadata::kInt16, L"ab");
  const short values[] = {1, 2, 3};
  p.set(reinterpret_cast<const char*>(values), 0, 3);
  root.add(p.offset());
  unsigned size = store.size(p.offset());
  ASSERT_TRUE(root.rename(L"ab", L"xyz"));
  EXPECT_EQ(store.size(p.offset()), size + (8 * 3 + 8) - (4 * 2 + 4));
  EXPECT_EQ(Record::Entity(&store, p.offset()).name().wstring(), L"xyz");
  EXPECT_EQ(root.find(L"xyz"), p.offset());
  EXPECT_EQ(root.find(L"ab"), BAD);
  EXPECT_EQ(Root(&store, 0).find(L"xyz"), p.offset());
  short read[3];
  EXPECT_EQ(Primitive(&store, p.offset()).get(reinterpret_cast<char*>(read), 2, 1), 1u);
  EXPECT_EQ(read[0], 3);
}

// Catches a hide that misses part of the subtree, and a show that unhides siblings.
TEST(Set, HideMarksTheSubtreeAndShowUnhidesOnlyTheWayUp) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Subtree tree(&store, L"g");
  root.add(tree.group);
  root.hide(tree.group);
  for (unsigned offset : {tree.group, tree.table, tree.first, tree.second})
    EXPECT_EQ(Record::Entity(&store, offset).flags(), 0x06);
  Primitive(&store, tree.first).show();
  for (unsigned offset : {tree.group, tree.table, tree.first})
    EXPECT_EQ(Record::Entity(&store, offset).flags(), Record::kNameLocked);
  EXPECT_EQ(Record::Entity(&store, tree.second).flags(), 0x06);
}

// Catches a clone across stores that misses records, names or defaults, copies reference
// counts, or leaves parent fields pointing into the source.
TEST(Set, CloneCopiesASubtreeIntoAnotherStore) {
  MemoryDataStore source, target;
  Subtree tree(&source, L"g");
  Root root(&target, L"root");
  ASSERT_TRUE(root.add(Structural::Container(&source, tree.group, true).clone(&target)));
  EXPECT_EQ(target.records(), 2 + Subtree::kRecords);
  unsigned group = root.find(L"g"), table = root.lookup(L"g.t"), first = root.lookup(L"g.t.p1");
  for (unsigned offset : {group, table, first})
    EXPECT_EQ(u32(target, offset, 5), 0u);
  EXPECT_EQ(u32(target, table, 1), group);
  EXPECT_EQ(u32(target, first, 1), table);
  EXPECT_EQ(Design::Table(&target, table, true).units(units::group::Length), units::Meter);
  Primitive copy(&target, first);
  WideString text, locale;
  copy.locale(0, text, locale);
  EXPECT_EQ(text.wstring(), L"eins");
  EXPECT_EQ(copy.dimension(), 3u);
}

// Catches a count that ignores a second holder, a root that can be cloned, and a clear that
// keeps children, names or the list, or drops the counts.
TEST(Root, IsCountedWhileOpenClearedInPlaceAndNeverCloned) {
  MemoryDataStore store;
  {
    Root root(&store, L"root");
    root.add(Subtree(&store, L"g").group);
    root.localize(L"Wurzel", L"de");
  }
  EXPECT_EQ(u32(store, 0, 5), 0u);
  Root root(&store, 0), again(&store, 0);
  EXPECT_EQ(u32(store, 0, 5), 2u);
  EXPECT_FALSE(root.unreferenced());
  auto before = snapshot(store);
  EXPECT_EQ(root.clone(&store), BAD);
  EXPECT_EQ(snapshot(store), before);
  root.clear();  // frees every child, the list and the names
  EXPECT_EQ(store.records(), 1u);
  EXPECT_EQ(readAll(store, 0).size(), 44u);
  EXPECT_EQ(u32(store, 0, 9), BAD);
  EXPECT_EQ(u32(store, 0, 14), BAD);
  EXPECT_EQ(u32(store, 0, 5), 2u);
}

}  // namespace
}  // namespace kestrine::platform::data::Metadata
