#include "data/api/link_impl.h"

#include <optional>

#include "data/api/handles.h"
#include "data/record/container_record.h"
#include "data/tree/lock.h"

namespace kestrine::platform::data::structure {

namespace {

// The target as the record holds it now: another handle may have set it since this one was
// opened.
WideString recordTarget(const Structural::Container& link) {
  return Record::Container(link.store(), link.offset()).string(Record::Container::kInfo);
}

}  // namespace

ILink::~ILink() = default;

ILink* ILink::to(IContainer* container) {
  return Api::view<ILink>(container, IContainer::kLink);
}

SharedPtr<IContainer> LinkImpl::follow(IDataStore* store) {
  Metadata::Lock own(this->store());
  WideString path = recordTarget(*logic());
  if (path.value() == nullptr) return {};
  std::optional<Metadata::Lock> given;
  if (store != nullptr) given.emplace(store);
  return Api::resolveContainer(store != nullptr ? store : this->store(), path.value());
}

WideString LinkImpl::target() {
  Metadata::Lock lock(store());
  return recordTarget(*logic());
}

void LinkImpl::target(WideString path) {
  Metadata::Lock lock(store());
  logic()->info(path.value());
}

}  // namespace kestrine::platform::data::structure
