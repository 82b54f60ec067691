#ifndef KPL_DATA_API_ITEM_OPERATIONS_H_
#define KPL_DATA_API_ITEM_OPERATIONS_H_

#include "data/api/handles.h"
#include "data/tree/item.h"
#include "data/tree/set.h"
#include "data/values/value_types.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/data/metadata/value.h"

// The operations that containers and properties offer alike over their item. Each takes the
// item's store lock for its whole length.
namespace kestrine::platform::data::Api {

using core::string::WideString;

// The item's name as its record holds it now. The item's own copy is the name it was opened
// with, which a rename through its parent's index does not change.
WideString name(const Metadata::Item& item);
// The dotted path from below the root, ending in the item's current name.
WideString path(const Metadata::Item& item);

// Renames the item within its parent's index: a container parent always, a table parent only
// when `tableParent` allows it; false for any other parent (the root among them).
bool rename(const Metadata::Item& item, const WideString& name, bool tableParent);

// Localized descriptions. An empty locale names none: the queries find nothing for it and
// describe() answers 0xFFFFFFFF; an empty text removes the locale's description.
unsigned locales(Metadata::Item& item);
WideString locale(Metadata::Item& item, unsigned index);
unsigned describe(Metadata::Item& item, const WideString& locale, const WideString& text);
WideString localize(Metadata::Item& item, const WideString& locale);

// Links a new child into `set`: builds it with its creating constructor (which writes the
// record) and adds it to the set's index. Answers the creating object, open, for the caller's
// handle: the caller owns it, and has checked the name. Null, with the new record freed again,
// when the set refuses it after all: a name no index may hold, or one that another process's
// commit, taken in at this call's first change, has just taken.
template <class Logic, class... Arguments>
Logic* createChild(Metadata::Set& set, Arguments... arguments) {
  Pending<Logic> created(new Logic(set.store(), arguments...));
  const unsigned offset = created->offset();
  if (set.add(offset, created->tag())) {
    created->adopted(set.offset());
    return created.release();
  }
  delete created.release();  // closed before the free: it holds a count on the record
  set.store()->free(offset);
  return nullptr;
}

// Whether `name` can name a new child: a name is required, since the empty one would never
// be found again (container(L"") means the container itself).
inline bool nameable(const WideString& name) {
  return name.value() != nullptr;
}

// Whether primitives of `type` can be made: type 0 has no element size to count values in,
// and no value past the enumeration names a type.
inline bool storable(metadata::tValue type) {
  return Values::traits(type).elementSize != 0;
}

}  // namespace kestrine::platform::data::Api

#endif  // KPL_DATA_API_ITEM_OPERATIONS_H_
