#ifndef KESTRINE_PLATFORM_DATA_METADATA_PRIMITIVE_H_
#define KESTRINE_PLATFORM_DATA_METADATA_PRIMITIVE_H_

#include "kestrine/platform/data/metadata/property.h"
#include "kestrine/platform/data/metadata/value.h"
#include "kestrine/platform/data/units.h"

namespace kestrine::platform::data::metadata {

// A primitive property: a named, typed array of values with an optional unit, struct
// schema, value locale, or a URI that stands in place of the values. Counts and indexes are
// in elements of the type (see tValue). Every operation but container() takes the store lock.
class KPL_DATA_API IPrimitive {
 public:
  virtual ~IPrimitive();
  // The same object seen as a property.
  virtual IProperty* container() const = 0;
  // Number of elements stored; 0 while a URI stands for them.
  virtual unsigned dimension() = 0;
  // Bytes of one element of the type.
  virtual unsigned stride() const = 0;
  // Bytes of all elements (or of the URI text with its terminator).
  virtual unsigned bytes() = 0;
  virtual tValue valuetype() = 0;
  virtual units::tUnit units() = 0;
  // The schema URI of a struct value; empty when none.
  virtual core::string::WideString schema() const = 0;
  // The URI that stands for the values; empty when none.
  virtual core::string::WideString uri() const = 0;
  // Sets the schema URI; 1, or 0 (nothing changed) when the type is not "struct".
  virtual unsigned schema(core::string::WideString uri) = 0;
  // Makes a URI stand for the values (discarding them), or with an empty URI goes back to
  // an empty array; 1.
  virtual unsigned uri(core::string::WideString uri) = 0;
  virtual core::string::WideString valuelocale() = 0;
  // Sets the locale of the values (empty: none); 1.
  virtual unsigned valuelocale(core::string::WideString locale) = 0;
  // Writes `count` elements from `data` at element `first`, growing the array (new
  // elements between the old end and `first` are zero) and making the property visible
  // again if it was hidden; false, changing nothing, for a count of 0 or in URI mode.
  virtual bool set(void const* data, unsigned first, unsigned count) = 0;
  // Replaces the values by `count` zero elements; 1, or 0 in URI mode.
  virtual unsigned reset(unsigned count) = 0;
  // Copies `count` elements from element `first` into `out`; the count, or 0 (nothing
  // copied) when the range is not wholly stored or in URI mode.
  virtual unsigned get(void* out, unsigned first, unsigned count) = 0;

  // The primitive view of a property, valid as long as the caller's handle to it; null for
  // null or a table.
  static IPrimitive* to(IProperty* property);
};

}  // namespace kestrine::platform::data::metadata

#endif  // KESTRINE_PLATFORM_DATA_METADATA_PRIMITIVE_H_
