#ifndef KPL_DATA_API_CONFORMANCE_H_
#define KPL_DATA_API_CONFORMANCE_H_

#include "data/tree/set.h"
#include "kestrine/platform/data/metadata/schema.h"

namespace kestrine::platform::data::Api {

// Whether a container or table conforms to `schema`: at once when its `base` (the schema
// paths it was made from) covers the schema's chain; otherwise, unless `quick`, when its
// members match the schema's member by member. A schema that the locator did not make
// validates nothing. The caller holds the store lock.
bool conforms(Metadata::Set& set, const wchar_t* base, metadata::ISchema* schema, bool quick);

}  // namespace kestrine::platform::data::Api

#endif  // KPL_DATA_API_CONFORMANCE_H_
