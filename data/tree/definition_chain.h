#ifndef KPL_DATA_TREE_DEFINITION_CHAIN_H_
#define KPL_DATA_TREE_DEFINITION_CHAIN_H_

#include "data/tree/set.h"

namespace kestrine::platform::data::Metadata {

// What a table or container inherits from when it is made from a schema: a chain of
// definitions, in order, each with its schema path and the set (a fully loaded table) that
// defines its members. The schema layer's schemas implement it; the tree layer asks no more
// of a schema, so that it never reaches up into the layer that builds on it. A schema that
// does not implement it has nothing to inherit.
class DefinitionChain {
 public:
  virtual ~DefinitionChain() = default;
  virtual unsigned links() const = 0;
  virtual const wchar_t* path(unsigned link) const = 0;
  virtual Set* definition(unsigned link) const = 0;
};

}  // namespace kestrine::platform::data::Metadata

#endif  // KPL_DATA_TREE_DEFINITION_CHAIN_H_
