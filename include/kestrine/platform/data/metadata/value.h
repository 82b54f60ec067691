#ifndef KESTRINE_PLATFORM_DATA_METADATA_VALUE_H_
#define KESTRINE_PLATFORM_DATA_METADATA_VALUE_H_

#include <cstdint>

namespace kestrine::platform::data::metadata {

// The type of a primitive's values. The comment gives the element size in bytes, the unit in
// which a primitive's array is counted: text types count 32-bit characters, vectors and
// matrices count 8-byte components, structs count bytes.
enum tValue : std::uint32_t {
  kNone = 0,        // no type; never stored
  kBinary = 1,      // 1
  kUUID = 2,        // 4
  kString = 3,      // 4
  kTime = 4,        // 4
  kURI = 5,         // 4
  kVersion = 6,     // 4
  kBool = 7,        // 1
  kInt8 = 8,        // 1
  kUInt8 = 9,       // 1
  kInt16 = 10,      // 2
  kUInt16 = 11,     // 2
  kInt32 = 12,      // 4
  kUInt32 = 13,     // 4
  kInt64 = 14,      // 8
  kUInt64 = 15,     // 8
  kScalar = 16,     // 4 (float)
  kDouble = 17,     // 8
  kVector2 = 18,    // 8 per component
  kVector3 = 19,    // 8 per component
  kVector4 = 20,    // 8 per component
  kMatrix2x2 = 21,  // 8 per component
  kMatrix3x3 = 22,  // 8 per component
  kMatrix4x4 = 23,  // 8 per component
  kStruct = 24,     // 1: a packed struct laid out by a schema
};

}  // namespace kestrine::platform::data::metadata

#endif  // KESTRINE_PLATFORM_DATA_METADATA_VALUE_H_
