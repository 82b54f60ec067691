#ifndef KPL_TOOLS_KMETA_TREE_PATH_H_
#define KPL_TOOLS_KMETA_TREE_PATH_H_

#include <string>

#include "kestrine/platform/core/datastore.h"

namespace kmeta {

using kestrine::platform::core::storage::datastore::IDataStore;

// True when the store holds a tree: a root record at offset 0.
bool holdsTree(IDataStore* store);

// The offset of the record at `path`: names joined by "." from below the root, UTF-8; the
// empty path is the root itself. Every name must name a child of the record before it, so
// unlike the schema finder alone, a name below a primitive never resolves to the primitive.
// Throws Failure when the store holds no tree or the path names nothing.
unsigned resolvePath(IDataStore* store, const std::string& path);

}  // namespace kmeta

#endif  // KPL_TOOLS_KMETA_TREE_PATH_H_
