#ifndef KPL_DATA_TREE_ROOT_H_
#define KPL_DATA_TREE_ROOT_H_

#include "data/tree/set.h"

namespace kestrine::platform::data::Metadata {

// The top of one metadata tree: a set over a Record::Root. Each live Root object holds one
// reference count on the record, so the count says whether another object has the tree
// open. The record is never freed by this library.
class Root : public Set {
 public:
  // Opens the root at `offset` (0 in every store the front end prepared).
  Root(IDataStore* store, unsigned offset);
  // Root(store, 0) would otherwise be ambiguous between the offset and a null name.
  Root(IDataStore* store, int offset) : Root(store, static_cast<unsigned>(offset)) {}
  // Creates a new root record named `name`.
  Root(IDataStore* store, const wchar_t* name);
  ~Root() override;

  // False while another Root object holds the record; else whether all children are.
  bool unreferenced() override;
  // Frees the localized names and every child, keeping the root's record and name.
  void clear() override;
  // Always BADOFF: a root is never copied.
  unsigned clone(IDataStore* target) override;
};

}  // namespace kestrine::platform::data::Metadata

#endif  // KPL_DATA_TREE_ROOT_H_
