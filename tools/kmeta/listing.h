#ifndef KPL_TOOLS_KMETA_LISTING_H_
#define KPL_TOOLS_KMETA_LISTING_H_

#include <string>

#include <kestrine/platform/core.h>

namespace kmeta {

using kestrine::platform::core::storage::datastore::IDataStore;

// The children of the root (an empty path), or of the table or container at `path`, as
// tab-separated lines after a header line "kind name class unit dimension flags":
//   kind       the element an export writes: node, group, link, table, or the primitive's
//              value type (int32, string, struct, ...)
//   class      the schema a container or table derives from, or a struct's type
//   unit       the unit's name; empty for none
//   dimension  a primitive's elements as stored (characters with terminators for text,
//              bytes for a struct), a container's or table's number of children
//   flags      "optional", "hidden" (inherited and not yet set), "uri" (values elsewhere)
// UTF-8, in the order an export writes them. The caller has checked that `path` names one.
std::string listChildren(IDataStore* store, const std::string& path);

}  // namespace kmeta

#endif  // KPL_TOOLS_KMETA_LISTING_H_
