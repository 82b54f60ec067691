#include "data/api/conformance.h"

#include "data/schema/schema_impl.h"

namespace kestrine::platform::data::Api {

bool conforms(Metadata::Set& set, const wchar_t* base, metadata::ISchema* schema, bool quick) {
  auto* chain = dynamic_cast<Schema::SchemaImpl*>(schema);
  if (chain == nullptr) return false;
  if (base != nullptr && chain->prevalidate(base) != 0) return true;
  if (quick) return false;
  return chain->validate(&set) != 0;
}

}  // namespace kestrine::platform::data::Api
