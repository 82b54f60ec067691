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

namespace kestrine::platform::data::Metadata {

// The record at a dotted path from the root at offset 0, each name looked up among the
// children of the root, container or table the path has reached: unlike the finder, a name
// below a primitive finds nothing. The empty path is the root itself. BADOFF when a name is
// missing or the store holds no root.
unsigned resolvePath(core::storage::datastore::IDataStore* store, const wchar_t* path);

}  // namespace kestrine::platform::data::Metadata

#endif  // KPL_DATA_TREE_FINDER_H_
