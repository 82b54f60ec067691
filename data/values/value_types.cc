#include "data/values/value_types.h"

#include <cstring>
#include <iterator>

#include "kestrine/platform/data/export.h"

namespace kestrine::platform::data {

namespace Values {

namespace {

using metadata::tValue;

#define KPL_VALUE(type, name, size, components, text, defaultName) \
  { metadata::type, name, size, components, tTextForm::text, defaultName, L##defaultName }

// Indexed by metadata::tValue.
const tValueTraits kpValueTraits[] = {
    {metadata::kNone, nullptr, 0, 0, tTextForm::kNone, nullptr, nullptr},
    KPL_VALUE(kBinary, "binary", 1, 0, kBase64, "binary"),
    KPL_VALUE(kUUID, "uuid", 4, 0, kStrings, "uuid"),
    KPL_VALUE(kString, "string", 4, 0, kStrings, "string"),
    KPL_VALUE(kTime, "time", 4, 0, kStrings, "time"),
    KPL_VALUE(kURI, "uri", 4, 0, kStrings, "uri"),
    KPL_VALUE(kVersion, "version", 4, 0, kStrings, "version"),
    KPL_VALUE(kBool, "bool", 1, 0, kNumbers, "bool"),
    KPL_VALUE(kInt8, "int8", 1, 0, kNumbers, "int8"),
    KPL_VALUE(kUInt8, "uint8", 1, 0, kNumbers, "uint8"),
    KPL_VALUE(kInt16, "int16", 2, 0, kNumbers, "int16"),
    KPL_VALUE(kUInt16, "uint16", 2, 0, kNumbers, "uint16"),
    KPL_VALUE(kInt32, "int32", 4, 0, kNumbers, "int32"),
    KPL_VALUE(kUInt32, "uint32", 4, 0, kNumbers, "uint32"),
    KPL_VALUE(kInt64, "int64", 8, 0, kNumbers, "int64"),
    KPL_VALUE(kUInt64, "uint64", 8, 0, kNumbers, "uint64"),
    KPL_VALUE(kScalar, "scalar", 4, 0, kNumbers, "scalar"),
    KPL_VALUE(kDouble, "double", 8, 0, kNumbers, "double"),
    KPL_VALUE(kVector2, "vector2", 8, 2, kNumbers, "vec2"),
    KPL_VALUE(kVector3, "vector3", 8, 3, kNumbers, "vec3"),
    KPL_VALUE(kVector4, "vector4", 8, 4, kNumbers, "vec4"),
    KPL_VALUE(kMatrix2x2, "matrix2x2", 8, 4, kNumbers, "mtx2x2"),
    KPL_VALUE(kMatrix3x3, "matrix3x3", 8, 9, kNumbers, "mtx3x3"),
    KPL_VALUE(kMatrix4x4, "matrix4x4", 8, 16, kNumbers, "mtx4x4"),
    {metadata::kStruct, "struct", 1, 0, tTextForm::kStruct, nullptr, nullptr},
};
#undef KPL_VALUE

}  // namespace

const tValueTraits& traits(tValue type) {
  return type < std::size(kpValueTraits) ? kpValueTraits[type] : kpValueTraits[0];
}

const tValueTraits* byDefaultName(const char* name) {
  if (name == nullptr) return nullptr;
  for (const tValueTraits* entry = begin(); entry != end(); ++entry)
    if (entry->defaultName != nullptr && entry->defaultName[0] == name[0] &&
        std::strcmp(entry->defaultName, name) == 0)
      return entry;
  return nullptr;
}

const tValueTraits* begin() {
  return kpValueTraits + 1;
}

const tValueTraits* end() {
  return std::end(kpValueTraits);
}

}  // namespace Values

const char* metadata::valueTypeName(tValue type) {
  return Values::traits(type).name;
}

}  // namespace kestrine::platform::data
