#ifndef KPL_DATA_RECORD_PRIMITIVE_RECORD_H_
#define KPL_DATA_RECORD_PRIMITIVE_RECORD_H_

#include "data/record/entity.h"

namespace kestrine::platform::data::Record {

// A typed value (kind 1): property header, 4 reserved bytes at 14, units at 18, value type
// at 22, the lengths of its four arrays at 26 (value locale), 30 (name), 34 (base schema)
// and 38 (values, or a URI when flag kUri is set), 2 reserved bytes, the arrays from 44.
// 48 + 4k bytes fresh.
class Primitive : public Property {
 public:
  static const unsigned kValueLocale = 26;
  static const unsigned kName = 30;
  static const unsigned kBase = 34;
  static const unsigned kValues = 38;

  // What a new primitive record holds; a null string makes an empty array.
  struct tFresh {
    std::uint32_t type = 0;
    const wchar_t* name = nullptr;
    std::uint32_t units = 0;
    std::uint8_t flags = 0;
    unsigned references = 0;
    const wchar_t* valueLocale = nullptr;
    const wchar_t* base = nullptr;
    // The value array: `valueBytes` bytes of `values`, or zeros when it is null.
    const void* values = nullptr;
    unsigned valueBytes = 0;
  };

  Primitive(IDataStore* store, unsigned offset) : Property(store, offset) { expect(kPrimitive); }
  // Creates and writes a primitive of `type` named `name` with no values.
  Primitive(IDataStore* store, std::uint32_t type, const wchar_t* name)
      : Primitive(store, tFresh{type, name}) {}
  // Creates and writes a primitive holding `fresh`, in one write.
  Primitive(IDataStore* store, const tFresh& fresh)
      : Property(store,
                 44 + wideBytes(fresh.valueLocale) + wideBytes(fresh.name) + wideBytes(fresh.base) +
                     fresh.valueBytes,
                 kPrimitive) {
    valuetype(fresh.type);
    units(fresh.units);
    flags(fresh.flags);
    references(fresh.references);
    initArray(kValueLocale, fresh.valueLocale, wideBytes(fresh.valueLocale));
    initArray(kName, fresh.name, wideBytes(fresh.name));
    initArray(kBase, fresh.base, wideBytes(fresh.base));
    initArray(kValues, fresh.values, fresh.valueBytes);
    update(true);
  }

  // Where the value array of the primitive at `offset` begins, its byte length, and where the
  // record ends, from the fixed part alone: values are rewritten in place without reading the
  // record whole. Throws "damaged record at offset N: ..." when the record is no primitive or
  // the array does not end within it.
  struct tPlace {
    unsigned start;
    unsigned length;
    unsigned end;
  };
  static tPlace values(IDataStore* store, unsigned offset);

  std::uint32_t valuetype() const { return get32(22); }
  void valuetype(std::uint32_t type) { put32(22, type); }
};

}  // namespace kestrine::platform::data::Record

#endif  // KPL_DATA_RECORD_PRIMITIVE_RECORD_H_
