#include "data/api/member_filter.h"

#include "data/api/handles.h"
#include "data/tree/lock.h"

namespace kestrine::platform::data::metadata {

DesignTableImpl::DesignFilter::DesignFilter(IDataStore* store, unsigned table)
    : Api::Cursor(store, Api::kProperties), table_(new Design::Table(store, table, false)) {
  try {
    start(table_->items());
  } catch (...) {
    Api::close(table_);
    throw;
  }
}

DesignTableImpl::DesignFilter::~DesignFilter() {
  Api::close(table_);
}

SharedPtr<IProperty> DesignTableImpl::DesignFilter::current() {
  Metadata::Lock lock(store());
  return Api::wrapProperty(store(), offset());
}

}  // namespace kestrine::platform::data::metadata
