#ifndef KPL_DATA_TREE_FINDER_H_
#define KPL_DATA_TREE_FINDER_H_

#include "kestrine/platform/core/datastore.h"

namespace kestrine::platform::data::Schema {

// Resolves a dotted path ("a.b.c"; every segment counts, empty ones included) to a record
// offset, walking down from the record at `offset` through roots, tables and containers by
// child name. The result is BADOFF when a step fails before the last segment; a failing last
// step on a record that has no children (a primitive) leaves that record's own offset.
class Finder {
 public:
  Finder(core::storage::datastore::IDataStore* store, unsigned offset, const wchar_t* path);

  unsigned offset() const { return offset_; }

 private:
  unsigned offset_;
};

}  // namespace kestrine::platform::data::Schema

#endif  // KPL_DATA_TREE_FINDER_H_
