#ifndef KPL_DATA_API_DESIGN_PRIMITIVE_IMPL_H_
#define KPL_DATA_API_DESIGN_PRIMITIVE_IMPL_H_

#include "data/api/property_impl.h"
#include "data/tree/primitive.h"
#include "kestrine/platform/data/metadata/primitive.h"

namespace kestrine::platform::data::metadata {

// A primitive property: PropertyImpl with the IPrimitive view over the Design::Primitive it
// owns. Every operation forwards to the primitive under the store lock, but container() and
// the type and stride, which are fixed when a primitive is made and need nothing of the store.
//
// The primitive object keeps the value size, URI, schema and value locale it read when opened
// and what was written through it; the values themselves are read from the store at every
// get(). A change made through another handle is seen once this one is obtained afresh.
class DesignPrimitiveImpl : public PropertyImpl, public IPrimitive {
 public:
  // Takes ownership of an opened primitive logic object.
  explicit DesignPrimitiveImpl(Design::Primitive* logic) : PropertyImpl(logic) {}

  IProperty* container() const override { return const_cast<DesignPrimitiveImpl*>(this); }
  unsigned dimension() override;
  unsigned stride() const override;
  unsigned bytes() override;
  tValue valuetype() override;
  units::tUnit units() override;
  WideString schema() const override;
  WideString uri() const override;
  unsigned schema(WideString uri) override;
  unsigned uri(WideString uri) override;
  WideString valuelocale() override;
  unsigned valuelocale(WideString locale) override;
  // A successful write also shows the property (and its hidden ancestors) again: a value
  // set on an inherited member makes it the item's own.
  bool set(void const* data, unsigned first, unsigned count) override;
  unsigned reset(unsigned count) override;
  unsigned get(void* out, unsigned first, unsigned count) override;

 private:
  Design::Primitive* primitive() const { return static_cast<Design::Primitive*>(logic()); }
};

}  // namespace kestrine::platform::data::metadata

#endif  // KPL_DATA_API_DESIGN_PRIMITIVE_IMPL_H_
