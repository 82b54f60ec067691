#ifndef KESTRINE_PLATFORM_DATA_METADATA_SCHEMA_H_
#define KESTRINE_PLATFORM_DATA_METADATA_SCHEMA_H_

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/memory.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/data/export.h"
#include "kestrine/platform/data/metadata/value.h"

namespace kestrine::platform::data::metadata {

// Resolves URIs that primitives refer to. The library passes it through and never calls it.
class KPL_DATA_API IURIResolver {
 public:
  virtual ~IURIResolver();
};

// A struct schema flattened into packed fields: no alignment, no padding, fields back to
// back in definition order. Owned by the locator that built it; valid until the locator is
// destroyed or the store that defines it is popped.
class KPL_DATA_API IStructLayout {
 public:
  struct tField {
    const wchar_t* name;  // flattened name, members joined by "." and repeats numbered "[%d]"
    tValue type;
    unsigned count;   // number of elements (the member's dimension)
    unsigned offset;  // byte offset within one struct value
    unsigned size;    // bytes
  };

  virtual ~IStructLayout();
  virtual unsigned fields() const = 0;
  // Bytes of one struct value: the sum of the field sizes.
  virtual unsigned stride() const = 0;
  // Elements of one struct value: the sum of the field counts.
  virtual unsigned values() const = 0;
  // The first field of that exact name; null when there is none.
  virtual const tField* get(core::string::WideString name) = 0;
  // Field `index`, unchecked: the caller keeps it below fields().
  virtual const tField* get(unsigned index) = 0;
};

// A schema resolved from a URI: the chain of struct layouts its ";"-separated paths name.
class KPL_DATA_API ISchema {
 public:
  virtual ~ISchema();
  // The path of the first layout of the chain.
  virtual core::string::WideString path() const = 0;
  // The first layout of the chain.
  virtual IStructLayout* layout() = 0;
};

// Finds schemas (tables kept below the root of a datastore) by path in the datastores pushed
// to it, and caches their layouts for its lifetime. Safe to share between threads without
// any store lock: resolve, push and pop may run concurrently.
class KPL_DATA_API ISchemaLocator {
 public:
  virtual ~ISchemaLocator();
  // A schema for every path of `uri` that some pushed store defines (unknown paths are
  // skipped); empty when the URI is empty or none of its paths is found. The schema must
  // not outlive the locator nor a pop() of a store it came from.
  virtual core::memory::SharedPtr<ISchema> resolve(core::string::WideString uri) = 0;
  // Adds a store to search; pushing twice has no further effect.
  virtual void push(core::storage::datastore::IDataStore* store) = 0;
  // Removes a store and evicts every layout defined in it; false when it was not pushed.
  virtual bool pop(core::storage::datastore::IDataStore* store) = 0;
  // Forgets every pushed store; cached layouts stay.
  virtual void reset() = 0;
  // The field limit the locator was made with; 0 for none.
  virtual unsigned fieldLimit() const = 0;
  // Whether `path` failed to resolve because its layout would exceed fieldLimit(). Forgotten
  // when a store is pushed or popped.
  virtual bool tooLarge(core::string::WideString path) = 0;

  // A new locator, with `store` pushed when it is not null.
  static core::memory::SharedPtr<ISchemaLocator> make(core::storage::datastore::IDataStore* store);
  // The same, for schemas of unknown origin: a schema whose layout would hold more than
  // `fieldLimit` fields once its struct members are expanded (each a copy of its type's
  // fields per element, so that a few nested types can ask for millions) does not resolve.
  // Nested tables count as fields, and every 64 characters of a name as one more. 0 sets no
  // limit.
  static core::memory::SharedPtr<ISchemaLocator> make(core::storage::datastore::IDataStore* store,
                                                      unsigned fieldLimit);
};

}  // namespace kestrine::platform::data::metadata

#endif  // KESTRINE_PLATFORM_DATA_METADATA_SCHEMA_H_
