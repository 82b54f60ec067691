#ifndef KPL_DATA_TESTING_SUBTREE_H_
#define KPL_DATA_TESTING_SUBTREE_H_

#include "data/design/container.h"
#include "data/design/primitive.h"
#include "data/design/table.h"

namespace kestrine::platform::data::testing {

// Offsets of a small subtree: a group holding a table holding two primitives.
struct Subtree {
  unsigned container, table, first, second;
  // Records: the four entities, two children lists, three locale tables, one defaults list.
  static const unsigned kRecords = 10;
};

// Builds the subtree in `store`, unattached, with every object closed again (all counts 0):
// localized names on the group, the table and the first primitive, defaults on the table,
// three int32 values in the first primitive.
inline Subtree buildSubtree(core::storage::datastore::IDataStore* store, const wchar_t* name) {
  Structural::Container group(store, structure::IContainer::kGroup, name);
  Design::Table table(store, L"t");
  Design::Primitive first(store, metadata::kInt32, L"p1");
  Design::Primitive second(store, metadata::kDouble, L"p2");
  table.add(first.offset());
  table.add(second.offset());
  group.add(table.offset());
  group.localize(L"Gruppe", L"de");
  table.localize(L"Tabelle", L"de");
  first.localize(L"eins", L"de");
  table.defaults(units::Meter, metadata::kDouble);
  const int values[] = {7, 8, 9};
  first.set(reinterpret_cast<const char*>(values), 0, 3);
  return {group.offset(), table.offset(), first.offset(), second.offset()};
}

}  // namespace kestrine::platform::data::testing

#endif  // KPL_DATA_TESTING_SUBTREE_H_
