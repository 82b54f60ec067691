#ifndef KPL_DATA_API_PROPERTY_IMPL_H_
#define KPL_DATA_API_PROPERTY_IMPL_H_

#include "data/api/item_handle.h"
#include "data/tree/item.h"
#include "kestrine/platform/data/metadata/property.h"

namespace kestrine::platform::data::metadata {

using core::memory::SharedPtr;
using core::storage::datastore::IDataStore;
using core::string::WideString;

// IProperty, once for both kinds of property, over the logic object it owns (a
// Design::Primitive or a Design::Table). DesignPrimitiveImpl and DesignTableImpl derive from
// it and add their views. Every operation but store() takes the store's lock for its whole
// length; destroying the handle closes the logic object under the lock.
class PropertyImpl : public Api::ItemHandle<IProperty, Metadata::Item> {
 public:
  tType type() const override;
  bool rename(WideString name) override;
  // Only a table parent is handed out: the way from a property up to its container goes
  // through the container, which already holds it.
  SharedPtr<IProperty> parent() override;
  void on(unsigned char bits) override;
  void off(unsigned char bits) override;

 protected:
  // Takes ownership of an opened property logic object.
  explicit PropertyImpl(Metadata::Item* logic) : ItemHandle(logic) {}
};

}  // namespace kestrine::platform::data::metadata

#endif  // KPL_DATA_API_PROPERTY_IMPL_H_
