#ifndef KPL_DATA_SCHEMA_LAYOUT_CHAIN_H_
#define KPL_DATA_SCHEMA_LAYOUT_CHAIN_H_

#include "data/metadata/set.h"

namespace kestrine::platform::data::Schema {

// What inheriting from a schema needs of it: the layouts of its chain, in order, each with
// its schema path and the set (a fully loaded table) that defines its members. Schemas made
// by the locator implement it; a schema that does not has nothing to inherit.
class LayoutChain {
 public:
  virtual ~LayoutChain() = default;
  virtual unsigned links() const = 0;
  virtual const wchar_t* path(unsigned link) const = 0;
  virtual Metadata::Set* definition(unsigned link) const = 0;
};

}  // namespace kestrine::platform::data::Schema

#endif  // KPL_DATA_SCHEMA_LAYOUT_CHAIN_H_
