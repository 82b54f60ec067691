#ifndef KPL_TOOLS_KMETA_VALUE_TEXT_H_
#define KPL_TOOLS_KMETA_VALUE_TEXT_H_

#include <string>

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/data/metadata/schema.h"

namespace kmeta {

using kestrine::platform::core::storage::datastore::IDataStore;

// The values of the primitive at `offset` as an export writes them, UTF-8, ending with a
// line break: numbers separated by blanks, base64 for binary, one line per string when
// there are several. Empty when an export writes no values (none stored, a URI in their
// place, or a struct without a `locator` that resolves its type). Hidden primitives are
// written all the same. The caller holds the store lock and has checked the kind.
std::string valueText(IDataStore* store, unsigned offset,
                      kestrine::platform::data::metadata::ISchemaLocator* locator);

}  // namespace kmeta

#endif  // KPL_TOOLS_KMETA_VALUE_TEXT_H_
