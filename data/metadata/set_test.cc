#include "data/metadata/set.h"

#include <gtest/gtest.h>

#include "data/design/container.h"
#include "data/design/primitive.h"
#include "data/design/table.h"
#include "data/metadata/root.h"
#include "data/record/entity.h"
#include "data/record/locale.h"
#include "data/record/offsets.h"
#include "data/testing/store_bytes.h"
#include "data/testing/subtree.h"

namespace kestrine::platform::data::Metadata {
namespace {

using core::storage::datastore::MemoryDataStore;
using Design::Primitive;
using Design::Table;
using Structural::Container;
using testing::buildSubtree;
using testing::bytes;
using testing::snapshot;
using testing::Subtree;
using testing::u32;

const std::uint8_t kLockedHidden = Record::kNameLocked | Record::kHidden;

unsigned references(IDataStore& store, unsigned offset) {
  return u32(bytes(store, offset), 5);
}
unsigned parentOf(IDataStore& store, unsigned offset) {
  return u32(bytes(store, offset), 1);
}
std::uint8_t flagsOf(IDataStore& store, unsigned offset) {
  return bytes(store, offset)[13];
}

TEST(SetAdd, TheFirstChildCreatesTheListAndLaterOnesAppendToIt) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Primitive a(&store, metadata::kInt8, L"a"), b(&store, metadata::kInt8, L"b");
  ASSERT_TRUE(root.add(a.offset()));
  unsigned list = u32(bytes(store, root.offset()), 14);
  ASSERT_NE(list, IDataStore::BADOFF);
  EXPECT_EQ(root.children(), list);
  EXPECT_EQ(store.size(list), 8u);
  ASSERT_TRUE(root.add(b.offset()));
  EXPECT_EQ(u32(bytes(store, root.offset()), 14), list);
  EXPECT_EQ(store.size(list), 12u);
  EXPECT_EQ(root.at(1), b.offset());
  EXPECT_EQ(parentOf(store, b.offset()), root.offset());
  EXPECT_EQ(references(store, b.offset()), 1u);  // only b's own object counts
  EXPECT_EQ(root.items(), 2u);
}

TEST(SetAdd, RefusesOtherKindsAndTakenNamesChangingNothing) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Primitive a(&store, metadata::kInt8, L"a");
  Container twin(&store, structure::IContainer::kNode, L"a");
  Record::Locale table(&store);
  ASSERT_TRUE(root.add(a.offset()));
  auto before = snapshot(store);
  EXPECT_FALSE(root.add(twin.offset()));
  EXPECT_FALSE(root.add(root.children()));  // a list
  EXPECT_FALSE(root.add(table.offset()));
  EXPECT_FALSE(root.add(root.offset()));  // a root is nobody's child
  EXPECT_EQ(snapshot(store), before);
  EXPECT_EQ(root.items(), 1u);
  EXPECT_EQ(root.find(L"a"), a.offset());
}

TEST(SetIndex, AListWithTwoEqualNamesIndexesTheFirst) {
  MemoryDataStore store;
  unsigned first, second;
  {
    Root root(&store, L"root");
    Primitive a(&store, metadata::kInt8, L"x"), b(&store, metadata::kInt8, L"x");
    first = a.offset();
    second = b.offset();
    ASSERT_TRUE(root.add(first));
    store.append(root.children(), &second, 4);
  }
  Root root(&store, 0u);
  EXPECT_EQ(root.items(), 1u);
  EXPECT_EQ(root.find(L"x"), first);
  EXPECT_EQ(root.at(1), second);
}

TEST(SetIndex, LookupIsFindForANameAndAFinderWalkBelowTheFirstPart) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Subtree tree = buildSubtree(&store, L"g");
  root.add(tree.container);
  EXPECT_EQ(root.at(0), tree.container);
  EXPECT_EQ(root.lookup(L"g"), root.find(L"g"));
  EXPECT_EQ(root.lookup(L"g.t.p2"), tree.second);
  EXPECT_EQ(root.lookup(L"nope.t"), IDataStore::BADOFF);
  EXPECT_EQ(root.lookup(L"g.nope"), IDataStore::BADOFF);
  EXPECT_EQ(root.find(L"t"), IDataStore::BADOFF);  // find never looks below the children
}

TEST(SetIndex, AtWithoutChildrenIsBadoff) {
  MemoryDataStore store;
  Root root(&store, L"root");
  EXPECT_EQ(root.at(0), IDataStore::BADOFF);
  EXPECT_TRUE(root.unreferenced());
}

TEST(SetIndex, UpdateSeesWhatAnotherObjectAdded) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Primitive a(&store, metadata::kInt8, L"a");
  {
    Root other(&store, root.offset());
    other.add(a.offset());
  }
  EXPECT_EQ(root.find(L"a"), IDataStore::BADOFF);
  root.update();
  EXPECT_EQ(root.find(L"a"), a.offset());
  EXPECT_EQ(root.items(), 1u);
}

TEST(SetRemove, FreesEveryRecordOfTheSubtree) {
  MemoryDataStore store;
  Root root(&store, L"root");
  {
    Primitive keep(&store, metadata::kInt8, L"keep");
    root.add(keep.offset());
  }
  unsigned baseline = store.records();
  Subtree tree = buildSubtree(&store, L"gone");
  ASSERT_EQ(store.records(), baseline + Subtree::kRecords);
  root.add(tree.container);
  ASSERT_TRUE(root.remove(L"gone"));
  EXPECT_EQ(store.records(), baseline);
  EXPECT_EQ(store.size(tree.first), 0u);
  EXPECT_EQ(root.find(L"gone"), IDataStore::BADOFF);
  EXPECT_EQ(root.items(), 1u);
  EXPECT_EQ(store.size(root.children()), 8u);  // only "keep" is listed
}

TEST(SetRemove, RefusesASubtreeThatIsStillOpenChangingNothing) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Subtree tree = buildSubtree(&store, L"gone");
  root.add(tree.container);
  {
    Primitive held(&store, tree.second);
    auto before = snapshot(store);
    EXPECT_FALSE(root.remove(L"gone"));
    EXPECT_EQ(snapshot(store), before);
    EXPECT_EQ(root.find(L"gone"), tree.container);
    Container group(&store, tree.container, false);
    EXPECT_FALSE(group.unreferenced());
  }
  EXPECT_TRUE(root.remove(L"gone"));
}

TEST(SetRemove, RefusesAnUnknownOrNameLockedChild) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Subtree tree = buildSubtree(&store, L"g");
  root.add(tree.container);
  root.hide(tree.container);
  auto before = snapshot(store);
  EXPECT_FALSE(root.remove(L"g"));
  EXPECT_FALSE(root.remove(L"nope"));
  EXPECT_FALSE(root.rename(L"g", L"h"));
  EXPECT_EQ(snapshot(store), before);
  EXPECT_EQ(root.find(L"g"), tree.container);
}

TEST(SetReferences, EveryOpenObjectCountsOnce) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Primitive p(&store, metadata::kInt8, L"p");
  root.add(p.offset());
  EXPECT_EQ(references(store, p.offset()), 1u);
  EXPECT_TRUE(p.unreferenced());
  {
    Primitive again(&store, p.offset());
    EXPECT_EQ(references(store, p.offset()), 2u);
    EXPECT_FALSE(p.unreferenced());
    EXPECT_FALSE(root.unreferenced());
  }
  EXPECT_EQ(references(store, p.offset()), 1u);
}

TEST(SetRename, GrowsTheNameArrayToTwiceItsSizeAndKeepsTheLaterArrays) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Primitive p(&store, metadata::kInt16, L"ab");
  p.valuelocale(L"en");
  const short values[] = {1, 2, 3};
  p.set(reinterpret_cast<const char*>(values), 0, 3);
  root.add(p.offset());
  unsigned before = store.size(p.offset());

  ASSERT_TRUE(root.rename(L"ab", L"xyz"));
  std::string record = bytes(store, p.offset());
  EXPECT_EQ(record.size(), before + (8 * 3 + 8) - (4 * 2 + 4));
  EXPECT_EQ(u32(record, 30), 8u * 3 + 8);
  EXPECT_EQ(Record::Entity(&store, p.offset()).name().wstring(), L"xyz");
  EXPECT_EQ(root.find(L"xyz"), p.offset());
  EXPECT_EQ(root.find(L"ab"), IDataStore::BADOFF);

  Primitive reopened(&store, p.offset());
  short read[3] = {};
  EXPECT_EQ(reopened.get(reinterpret_cast<char*>(read), 0, 3), 3u);
  EXPECT_EQ(read[2], 3);
  EXPECT_EQ(std::wstring(reopened.valuelocale()), L"en");
  Root again(&store, root.offset());
  EXPECT_EQ(again.find(L"xyz"), p.offset());
}

TEST(SetRename, RefusesATakenNewNameOrAnUnknownOldOneChangingNothing) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Primitive a(&store, metadata::kInt8, L"a"), b(&store, metadata::kInt8, L"b");
  root.add(a.offset());
  root.add(b.offset());
  auto before = snapshot(store);
  EXPECT_FALSE(root.rename(L"a", L"b"));
  EXPECT_FALSE(root.rename(L"c", L"d"));
  EXPECT_FALSE(root.rename(L"a", L"a"));
  EXPECT_EQ(snapshot(store), before);
  EXPECT_EQ(root.find(L"a"), a.offset());
}

TEST(SetHide, HidesTheWholeSubtreeAndShowUnhidesOnlyTheChain) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Subtree tree = buildSubtree(&store, L"g");
  root.add(tree.container);
  root.hide(tree.container);
  for (unsigned offset : {tree.container, tree.table, tree.first, tree.second})
    EXPECT_EQ(flagsOf(store, offset), kLockedHidden) << offset;
  EXPECT_EQ(flagsOf(store, root.offset()), 0);

  Primitive first(&store, tree.first);
  first.show();
  for (unsigned offset : {tree.container, tree.table, tree.first})
    EXPECT_EQ(flagsOf(store, offset), Record::kNameLocked) << offset;
  EXPECT_EQ(flagsOf(store, tree.second), kLockedHidden);
}

TEST(SetHide, LeavesRecordsThatAreNotEntitiesAlone) {
  MemoryDataStore store;
  Root root(&store, L"root");
  Record::Offsets list(&store);
  auto before = snapshot(store);
  root.hide(list.offset());
  root.hide(root.offset());
  EXPECT_EQ(snapshot(store), before);
}

TEST(SetInherit, ClonesAMissingMemberFromAnotherStoreAndHidesIt) {
  MemoryDataStore schemas, store;
  Root schemaRoot(&schemas, L"schemas");
  Subtree member = buildSubtree(&schemas, L"m");
  schemaRoot.add(member.container);
  auto schemasBefore = snapshot(schemas);

  Root root(&store, L"root");
  root.inherit(&schemas, member.container);
  unsigned copy = root.find(L"m");
  ASSERT_NE(copy, IDataStore::BADOFF);
  EXPECT_EQ(parentOf(store, copy), root.offset());
  EXPECT_EQ(flagsOf(store, copy), kLockedHidden);
  ASSERT_NE(root.lookup(L"m.t.p1"), IDataStore::BADOFF);
  EXPECT_EQ(flagsOf(store, root.lookup(L"m.t.p1")), kLockedHidden);
  EXPECT_EQ(snapshot(schemas), schemasBefore);

  // A second inherit of the same name takes nothing over.
  auto before = snapshot(store);
  root.inherit(&schemas, member.container);
  EXPECT_EQ(snapshot(store), before);
}

TEST(SetCopy, CloneCopiesAWholeSubtreeIntoAnotherStore) {
  MemoryDataStore source, target;
  Subtree tree = buildSubtree(&source, L"g");
  Root root(&target, L"root");
  unsigned copy;
  {
    Container group(&source, tree.container, true);
    copy = group.clone(&target);
  }
  ASSERT_TRUE(root.add(copy));
  EXPECT_EQ(target.records(), 1 + 1 + Subtree::kRecords);  // root, its list, the copies
  EXPECT_EQ(references(target, copy), 0u);

  unsigned table = root.lookup(L"g.t");
  unsigned first = root.lookup(L"g.t.p1");
  ASSERT_NE(table, IDataStore::BADOFF);
  ASSERT_NE(first, IDataStore::BADOFF);
  EXPECT_EQ(parentOf(target, table), copy);
  EXPECT_EQ(parentOf(target, first), table);
  EXPECT_EQ(references(target, table), 0u);
  EXPECT_EQ(references(target, first), 0u);

  Container group(&target, copy, false);
  EXPECT_EQ(group.localize(L"de"), 0u);
  Table copiedTable(&target, table, false);
  EXPECT_EQ(copiedTable.units(units::group::Length), units::Meter);
  Primitive copiedFirst(&target, first);
  WideString text, locale;
  copiedFirst.locale(0, text, locale);
  EXPECT_EQ(text.wstring(), L"eins");
  int values[3] = {};
  EXPECT_EQ(copiedFirst.get(reinterpret_cast<char*>(values), 0, 3), 3u);
  EXPECT_EQ(values[1], 8);
}

TEST(SetCopy, DuplicateCopiesEntriesOfOtherKindsAsTheyAre) {
  MemoryDataStore source, target;
  Root root(&source, L"root");
  EXPECT_EQ(root.duplicate(&target, 0), IDataStore::BADOFF);
  Primitive p(&source, metadata::kInt8, L"p");
  root.add(p.offset());
  Record::Locale stray(&source);
  unsigned strayOffset = stray.offset();
  source.append(root.children(), &strayOffset, 4);

  Root other(&target, L"other");
  unsigned list = root.duplicate(&target, other.offset());
  Record::Offsets copies(&target, list);
  ASSERT_EQ(copies.items(), 2u);
  EXPECT_EQ(parentOf(target, copies.get(0)), other.offset());
  EXPECT_EQ(copies.get(1), strayOffset);
}

}  // namespace
}  // namespace kestrine::platform::data::Metadata
