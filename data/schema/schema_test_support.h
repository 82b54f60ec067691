#ifndef KPL_DATA_SCHEMA_SCHEMA_TEST_SUPPORT_H_
#define KPL_DATA_SCHEMA_SCHEMA_TEST_SUPPORT_H_

#include <stdexcept>

#include "data/record/offsets.h"
#include "data/tree/container.h"
#include "data/tree/logic.h"
#include "data/tree/primitive.h"
#include "data/tree/root.h"
#include "data/tree/table.h"
#include "kestrine/platform/core/datastore.h"

namespace kestrine::platform::data::Schema {

// Builds schema tables and candidates in a fresh store, under a root that it makes at offset
// 0, through the design logic, as the XML reader does. Each builder adds the new record to
// the set at `parent` (the root by default) and answers its offset.
class SchemaBuilder {
 public:
  explicit SchemaBuilder(core::storage::datastore::IDataStore* store) : store_(store) {
    Metadata::Root(store_, L"schemas");
  }

  core::storage::datastore::IDataStore* store() { return store_; }

  unsigned table(const wchar_t* name, unsigned parent = 0) {
    return attach(parent, Design::Table(store_, name).offset());
  }
  unsigned container(const wchar_t* name, unsigned parent = 0) {
    return attach(parent,
                  Structural::Container(store_, structure::IContainer::kNode, name).offset());
  }
  // `count` elements (bytes, for a struct) of `type`, with `base` as the struct's schema URI.
  unsigned primitive(unsigned parent, const wchar_t* name, metadata::tValue type,
                     unsigned count = 1, const wchar_t* base = nullptr) {
    unsigned offset;
    {
      Design::Primitive primitive(store_, type, name);
      if (base != nullptr) primitive.base(base);
      primitive.reset(count);
      offset = primitive.offset();
    }
    return attach(parent, offset);
  }
  // The tables "point" (double x, uint16 y[3]: 14 bytes) and "pair" (int32 id and a struct
  // "p" of two points: 32 bytes); answers the offset of "point".
  unsigned pointAndPair() {
    const unsigned point = table(L"point");
    primitive(point, L"x", metadata::kDouble);
    primitive(point, L"y", metadata::kUInt16, 3);
    const unsigned pair = table(L"pair");
    primitive(pair, L"id", metadata::kInt32);
    primitive(pair, L"p", metadata::kStruct, 28, L"point");
    return point;
  }
  // Appends `child` to the children list of `parent` behind the set's back, so that the list
  // can hold what the set itself refuses: a name twice, or a marker key as a name.
  void duplicate(unsigned parent, unsigned child) {
    Design::Logic set(store_, parent, true);
    Record::Offsets(store_, set.set()->children()).add(child);
  }

 private:
  unsigned attach(unsigned parent, unsigned child) {
    Design::Logic set(store_, parent, false);
    if (!set.set()->add(child)) throw std::logic_error("the set refused a test member");
    return child;
  }

  core::storage::datastore::IDataStore* store_;
};

// A memory store of its own with a builder on it.
struct OwnStore {
  core::storage::datastore::MemoryDataStore own;
};
class SchemaStore : private OwnStore, public SchemaBuilder {
 public:
  SchemaStore() : SchemaBuilder(&own) {}
};

}  // namespace kestrine::platform::data::Schema

#endif  // KPL_DATA_SCHEMA_SCHEMA_TEST_SUPPORT_H_
