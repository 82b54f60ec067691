#include "data/api/design_primitive_impl.h"

#include "data/api/handles.h"
#include "data/tree/lock.h"

namespace kestrine::platform::data::metadata {

using Metadata::Lock;

IPrimitive::~IPrimitive() = default;

IPrimitive* IPrimitive::to(IProperty* property) {
  return Api::view<IPrimitive>(property, IProperty::kPrimitive);
}

unsigned DesignPrimitiveImpl::dimension() {
  Lock lock(store());
  return primitive()->dimension();
}

// A primitive's type is fixed when it is made and kept by its logic object: these two read
// nothing of the store and take no lock, though clients call them for every value they set.
unsigned DesignPrimitiveImpl::stride() const {
  return Design::Primitive::stride(primitive()->valuetype());
}

unsigned DesignPrimitiveImpl::bytes() {
  Lock lock(store());
  return primitive()->valuesize();
}

tValue DesignPrimitiveImpl::valuetype() {
  return primitive()->valuetype();
}

units::tUnit DesignPrimitiveImpl::units() {
  Lock lock(store());
  return primitive()->units();
}

WideString DesignPrimitiveImpl::schema() const {
  Lock lock(store());
  return primitive()->base();
}

WideString DesignPrimitiveImpl::uri() const {
  Lock lock(store());
  return primitive()->uri();
}

unsigned DesignPrimitiveImpl::schema(WideString uri) {
  Lock lock(store());
  return primitive()->base(uri.value());
}

unsigned DesignPrimitiveImpl::uri(WideString uri) {
  Lock lock(store());
  return primitive()->uri(uri.value());
}

WideString DesignPrimitiveImpl::valuelocale() {
  Lock lock(store());
  return primitive()->valuelocale();
}

unsigned DesignPrimitiveImpl::valuelocale(WideString locale) {
  Lock lock(store());
  return primitive()->valuelocale(locale.value());
}

bool DesignPrimitiveImpl::set(void const* data, unsigned first, unsigned count) {
  Lock lock(store());
  if (primitive()->set(static_cast<const char*>(data), first, count) == 0) return false;
  primitive()->show();
  return true;
}

unsigned DesignPrimitiveImpl::reset(unsigned count) {
  Lock lock(store());
  return primitive()->reset(count);
}

unsigned DesignPrimitiveImpl::get(void* out, unsigned first, unsigned count) {
  Lock lock(store());
  return primitive()->get(static_cast<char*>(out), first, count);
}

}  // namespace kestrine::platform::data::metadata
