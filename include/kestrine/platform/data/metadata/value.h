#ifndef KESTRINE_PLATFORM_DATA_METADATA_VALUE_H_
#define KESTRINE_PLATFORM_DATA_METADATA_VALUE_H_

#include <cstdint>

#include "kestrine/platform/data/export.h"

namespace kestrine::platform::data::metadata {

// The type of a primitive's values. A primitive's array is counted in elements of its type:
// the value itself for the numbers, 32-bit characters for the text types, 8-byte components
// for vectors and matrices, bytes for binary and structs (IPrimitive::stride() tells the size).
enum tValue : std::uint32_t {
  kNone = 0,  // no type; never stored
  kBinary = 1,
  kUUID = 2,
  kString = 3,
  kTime = 4,
  kURI = 5,
  kVersion = 6,
  kBool = 7,
  kInt8 = 8,
  kUInt8 = 9,
  kInt16 = 10,
  kUInt16 = 11,
  kInt32 = 12,
  kUInt32 = 13,
  kInt64 = 14,
  kUInt64 = 15,
  kScalar = 16,  // float
  kDouble = 17,
  kVector2 = 18,
  kVector3 = 19,
  kVector4 = 20,
  kMatrix2x2 = 21,
  kMatrix3x3 = 22,
  kMatrix4x4 = 23,
  kStruct = 24,  // a packed struct laid out by a schema
};

// The name of a value type as documents write it ("double", "matrix3x3"); null for kNone
// and for values past the enumeration.
KPL_DATA_API const char* valueTypeName(tValue type);

}  // namespace kestrine::platform::data::metadata

#endif  // KESTRINE_PLATFORM_DATA_METADATA_VALUE_H_
