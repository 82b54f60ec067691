#ifndef KPL_DATA_TREE_DESCENT_H_
#define KPL_DATA_TREE_DESCENT_H_

#include "kestrine/platform/core/datastore.h"

namespace kestrine::platform::data::Metadata {

// One level of a walk down a tree by recursion (hiding, removing, copying or comparing a
// subtree, laying out nested tables), counted per thread. A children list that leads back to
// an ancestor, which only a damaged store holds, would make such a walk recurse until the
// stack overflows; past kLimit levels the walk stops instead with core::Exception "damaged
// record at offset N: ...". No tree the library writes comes near the limit in practice;
// the walks that need no stack (the XML import and export) go much deeper.
class Descent {
 public:
  static constexpr unsigned kLimit = 10000;

  // Enters the level of the record at `offset`.
  explicit Descent(unsigned offset);
  ~Descent();
  Descent(const Descent&) = delete;
  Descent& operator=(const Descent&) = delete;

  // Throws "damaged record at offset N: ..." for a walk without recursion (down by a stack
  // of its own) that has gone `levels` deep, a million or more: past any tree that is not
  // damaged, so it loops.
  static void check(unsigned offset, unsigned long long levels);
};

}  // namespace kestrine::platform::data::Metadata

#endif  // KPL_DATA_TREE_DESCENT_H_
