#ifndef KPL_DATA_API_PROPERTY_IMPL_H_
#define KPL_DATA_API_PROPERTY_IMPL_H_

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
class PropertyImpl : public IProperty {
 public:
  PropertyImpl(const PropertyImpl&) = delete;
  PropertyImpl& operator=(const PropertyImpl&) = delete;
  ~PropertyImpl() override;

  // The logic object, for the library's own layers.
  Metadata::Item* logic() const { return logic_; }

  WideString tag() const override;
  WideString path() const override;
  IDataStore* store() const override { return logic_->store(); }
  tType type() const override;
  bool rename(WideString name) override;
  // Only a table parent is handed out: the way from a property up to its container goes
  // through the container, which already holds it.
  SharedPtr<IProperty> parent() override;
  unsigned locales() override;
  WideString locale(unsigned int index) override;
  unsigned describe(WideString locale, WideString text) override;
  WideString localize(WideString locale) override;
  unsigned char flags() const override;
  void on(unsigned char bits) override;
  void off(unsigned char bits) override;

 protected:
  // Takes ownership of an opened property logic object.
  explicit PropertyImpl(Metadata::Item* logic) : logic_(logic) {}

 private:
  Metadata::Item* logic_;
};

}  // namespace kestrine::platform::data::metadata

#endif  // KPL_DATA_API_PROPERTY_IMPL_H_
