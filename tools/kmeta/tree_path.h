#ifndef KPL_TOOLS_KMETA_TREE_PATH_H_
#define KPL_TOOLS_KMETA_TREE_PATH_H_

#include <string>

#include <kestrine/platform/core.h>

namespace kmeta {

using kestrine::platform::core::storage::datastore::IDataStore;

// What a dotted path names in a store's tree; the empty path names the root.
enum class Named { kRoot, kContainer, kTable, kPrimitive };

// The kind of what `path` (UTF-8) names. Throws Failure "the store holds no tree" when there
// is no tree, "nothing at 'PATH'" when it names nothing, and "no WHAT at 'PATH'" when it names
// something other than `a` or `b`.
Named require(IDataStore* store, const std::string& path, Named a, Named b, const char* what);

// The path as the library takes it.
kestrine::platform::core::string::WideString wide(const std::string& path);

}  // namespace kmeta

#endif  // KPL_TOOLS_KMETA_TREE_PATH_H_
