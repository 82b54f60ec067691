#include "data/api/property_impl.h"

#include "data/api/handles.h"
#include "data/api/item_operations.h"
#include "data/record/base.h"
#include "data/tree/lock.h"

namespace kestrine::platform::data::metadata {

using Metadata::Lock;

IProperty::~IProperty() = default;

PropertyImpl::~PropertyImpl() {
  Api::close(logic_);
}

WideString PropertyImpl::tag() const {
  return Api::name(*logic_);
}

WideString PropertyImpl::path() const {
  return Api::path(*logic_);
}

IProperty::tType PropertyImpl::type() const {
  Lock lock(store());
  return Record::peek(store(), logic_->offset()) == Record::kPrimitive ? kPrimitive : kTable;
}

bool PropertyImpl::rename(WideString name) {
  return Api::rename(*logic_, name, true);
}

SharedPtr<IProperty> PropertyImpl::parent() {
  Lock lock(store());
  if (Record::peek(store(), logic_->parent()) != Record::kTable) return {};
  return Api::wrapProperty(store(), logic_->parent());
}

unsigned PropertyImpl::locales() {
  return Api::locales(*logic_);
}

WideString PropertyImpl::locale(unsigned int index) {
  return Api::locale(*logic_, index);
}

unsigned PropertyImpl::describe(WideString locale, WideString text) {
  return Api::describe(*logic_, locale, text);
}

WideString PropertyImpl::localize(WideString locale) {
  return Api::localize(*logic_, locale);
}

unsigned char PropertyImpl::flags() const {
  Lock lock(store());
  return logic_->flags();
}

void PropertyImpl::on(unsigned char bits) {
  Lock lock(store());
  logic_->on(bits);
}

void PropertyImpl::off(unsigned char bits) {
  Lock lock(store());
  logic_->off(bits);
}

}  // namespace kestrine::platform::data::metadata
