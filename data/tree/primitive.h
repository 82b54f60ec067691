#ifndef KPL_DATA_TREE_PRIMITIVE_H_
#define KPL_DATA_TREE_PRIMITIVE_H_

#include "data/tree/item.h"
#include "kestrine/platform/data/metadata/value.h"
#include "kestrine/platform/data/units.h"

namespace kestrine::platform::data::Design {

using Metadata::IDataStore;
using Metadata::WideString;

// The logic over one primitive record: a named, typed array of elements, or a URI in their
// place, with a unit, a value locale and (for structs) the schema URI in "base". It caches
// the type, the value size, base, uri and value locale, and writes every change through to
// the record at once; the cache changes only after the record write succeeded. The object
// holds one reference count on the record from construction to destruction.
//
// Element counts and indexes are in elements of stride(type) bytes. Type 0 has no elements:
// dimension, set and get must not be reached with it.
class Primitive : public Metadata::Item {
 public:
  // What a new primitive holds from the start, besides its type and name.
  struct tStart {
    const wchar_t* uri = nullptr;  // URI mode, with this URI in place of values
    const wchar_t* valuelocale = nullptr;
    units::tUnit units = units::tUnit(0);
    const wchar_t* base = nullptr;  // the schema of a struct
    unsigned elements = 0;          // zero elements, outside URI mode; none when too many
  };

  // Creates a new record of `type` named `name`, holding `start` (nothing else), with a single
  // write.
  Primitive(IDataStore* store, metadata::tValue type, const wchar_t* name);
  Primitive(IDataStore* store, metadata::tValue type, const wchar_t* name, const tStart& start);
  // Opens the record at `offset`.
  Primitive(IDataStore* store, unsigned offset);
  ~Primitive() override;

  // The element size of a type: 1, 4, 4, 4, 4, 4, 1, 1, 1, 2, 2, 4, 4, 8, 8, 4, 8 and 8
  // for the vector and matrix components, 1 for "struct"; 0 for type 0.
  static unsigned stride(metadata::tValue type);

  metadata::tValue valuetype() const { return valuetype_; }
  // Bytes of the value array (in URI mode: of the URI with its terminator).
  unsigned valuesize() const { return valuesize_; }
  // Number of elements stored; 0 in URI mode.
  unsigned dimension() const;

  // The struct schema URI; null when empty. Setting it answers 1, or 0 (nothing changed)
  // when the type is not "struct".
  const wchar_t* base() const;
  unsigned base(const wchar_t* uri);
  // The URI standing for the values; null unless in URI mode. Setting one discards the
  // values and enters URI mode; null leaves it with an empty array. Answers 1.
  const wchar_t* uri() const;
  unsigned uri(const wchar_t* uri);
  // The locale of the values; null when empty. Null clears it. Answers 1.
  const wchar_t* valuelocale() const;
  unsigned valuelocale(const wchar_t* locale);
  units::tUnit units() const;
  void units(units::tUnit unit);

  // Writes `count` elements at element `index`; 0 (nothing changed) for a count of 0 or in
  // URI mode, else 1. Growing an empty array from an index above 0 takes the elements from
  // `data` at byte index x stride, as if `data` were laid out like the whole array.
  unsigned set(const char* data, unsigned index, unsigned count);
  // Copies `count` elements from element `index`; the count, or 0 (nothing copied) when
  // the range is not wholly stored, the array is empty, or in URI mode.
  unsigned get(char* data, unsigned index, unsigned count) const;
  // Replaces the array by `count` zero elements (none for 0); 0 in URI mode, else 1.
  unsigned reset(unsigned count);

  // Same name and same type; nothing else is compared.
  bool equivalent(const Primitive& other) const;

  // True when this object holds the only reference count.
  bool unreferenced() override;
  // Frees the localized names and clears the record's locale field.
  void clear() override;
  // Copies the record (with its localized names) into `target`, count 0.
  unsigned clone(IDataStore* target) override;
  Primitive* asPrimitive() override { return this; }

 private:
  WideString base_;
  WideString uri_;
  bool uriMode_;
  metadata::tValue valuetype_;
  unsigned valuesize_;
  WideString valuelocale_;
};

}  // namespace kestrine::platform::data::Design

#endif  // KPL_DATA_TREE_PRIMITIVE_H_
