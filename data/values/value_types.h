#ifndef KPL_DATA_VALUES_VALUE_TYPES_H_
#define KPL_DATA_VALUES_VALUE_TYPES_H_

#include "kestrine/platform/data/metadata/value.h"

// What the library knows of each value type, in one table: every layer that stores, counts,
// names or writes values asks it rather than keeping its own list.
namespace kestrine::platform::data::Values {

// How a type's values are written as text.
enum class tTextForm {
  kNone,     // no type
  kBase64,   // "binary": the bytes as one base64 block
  kStrings,  // the text types: terminated wide strings, one block each
  kNumbers,  // bool to matrix4x4: one decimal token per element, blank-separated
  kStruct,   // the components of every field of a schema's layout, each as its own type
};

struct tValueTraits {
  metadata::tValue type;
  // The element name in documents ("double"); null for no type.
  const char* name;
  // The unit an array is counted in, in bytes: 4-byte characters for the text types, 8-byte
  // components for vectors and matrices, bytes for structs. 0 for no type.
  unsigned elementSize;
  // The fixed element count of a vector or matrix; 0 where a document's "dim" gives it.
  unsigned components;
  tTextForm text;
  // The name a table's "default" gives the type ("vec2" for vector2); null where a default
  // cannot have the type.
  const char* defaultName;
  const wchar_t* wideDefaultName;
};

// The traits of `type`; those of no type (metadata::kNone) for a value past the enumeration.
const tValueTraits& traits(metadata::tValue type);
// The type a table's "default" names `name`; null for none.
const tValueTraits* byDefaultName(const char* name);
// The types that have values, metadata::kBinary to metadata::kStruct, in order.
const tValueTraits* begin();
const tValueTraits* end();

}  // namespace kestrine::platform::data::Values

#endif  // KPL_DATA_VALUES_VALUE_TYPES_H_
