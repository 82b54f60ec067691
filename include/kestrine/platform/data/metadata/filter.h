#ifndef KESTRINE_PLATFORM_DATA_METADATA_FILTER_H_
#define KESTRINE_PLATFORM_DATA_METADATA_FILTER_H_

#include "kestrine/platform/data/metadata/property.h"

namespace kestrine::platform::data::metadata {

// A cursor over the properties of a container or the members of a table. It starts on the
// first property (or past the end when there is none). next() past the last leaves it past
// the end; prev() before the first leaves it where it was. Each call takes the store lock.
class KPL_DATA_API IPropertyFilter {
 public:
  virtual ~IPropertyFilter();
  virtual bool next() = 0;
  virtual bool prev() = 0;
  // The property under the cursor; empty past the end.
  virtual core::memory::SharedPtr<IProperty> current() = 0;
};

}  // namespace kestrine::platform::data::metadata

#endif  // KESTRINE_PLATFORM_DATA_METADATA_FILTER_H_
