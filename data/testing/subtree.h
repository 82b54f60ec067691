#ifndef KPL_DATA_TESTING_SUBTREE_H_
#define KPL_DATA_TESTING_SUBTREE_H_

#include "data/tree/container.h"
#include "data/tree/primitive.h"
#include "data/tree/table.h"

namespace kestrine::platform::data::testing {

// A group holding a table "t" holding primitives "p1" (int32 7, 8, 9) and "p2", with
// localized names on the group, the table and p1, and defaults on the table: ten records,
// built unattached in `store` with every object closed again (all counts 0).
struct Subtree {
  static const unsigned kRecords = 10;
  unsigned group, table, first, second;

  Subtree(core::storage::datastore::IDataStore* store, const wchar_t* name) {
    Structural::Container g(store, structure::IContainer::kGroup, name);
    Design::Table t(store, L"t");
    Design::Primitive p1(store, metadata::kInt32, L"p1"), p2(store, metadata::kDouble, L"p2");
    t.add(p1.offset());
    t.add(p2.offset());
    g.add(t.offset());
    g.localize(L"Gruppe", L"de");
    t.localize(L"Tabelle", L"de");
    p1.localize(L"eins", L"de");
    t.defaults(units::Meter, metadata::kDouble);
    const int values[] = {7, 8, 9};
    p1.set(reinterpret_cast<const char*>(values), 0, 3);
    group = g.offset(), table = t.offset(), first = p1.offset(), second = p2.offset();
  }
};

}  // namespace kestrine::platform::data::testing

#endif  // KPL_DATA_TESTING_SUBTREE_H_
