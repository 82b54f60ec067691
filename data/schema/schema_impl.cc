#include "data/schema/schema_impl.h"

#include <algorithm>

#include "data/schema/comparator.h"

namespace kestrine::platform::data::metadata {

ISchema::~ISchema() = default;

}  // namespace kestrine::platform::data::metadata

namespace kestrine::platform::data::Schema {

using core::string::WideString;

SchemaImpl::SchemaImpl() : empty_(true) {}

SchemaImpl::~SchemaImpl() = default;

std::vector<WideString> SchemaImpl::split(const wchar_t* uri) {
  std::vector<WideString> segments;
  const wchar_t* start = uri == nullptr ? L"" : uri;
  for (const wchar_t* end = start;; ++end) {
    if (*end != L';' && *end != L'\0') continue;
    segments.emplace_back(start, static_cast<unsigned>(end - start));
    if (*end == L'\0') return segments;
    start = end + 1;
  }
}

WideString SchemaImpl::path() const {
  return layouts_.empty() ? WideString() : WideString(layouts_.front()->path());
}

metadata::IStructLayout* SchemaImpl::layout() {
  return layouts_.empty() ? nullptr : layouts_.front();
}

unsigned SchemaImpl::links() const {
  return static_cast<unsigned>(layouts_.size());
}

const wchar_t* SchemaImpl::path(unsigned link) const {
  return layouts_[link]->path();
}

Metadata::Set* SchemaImpl::definition(unsigned link) const {
  return layouts_[link]->definition();
}

void SchemaImpl::append(Layout* layout) {
  layouts_.push_back(layout);
  if (layout->definition()->items() != 0) empty_ = false;
}

unsigned SchemaImpl::validate(Metadata::Set* set) {
  if (empty_) return 0;
  for (Layout* layout : layouts_) {
    Metadata::Set* definition = layout->definition();
    if (Comparator().compare(set->store(), set->offset(), definition->store(),
                             definition->offset()) == 0)
      return 0;
  }
  return 1;
}

unsigned SchemaImpl::prevalidate(const wchar_t* paths) {
  const std::vector<WideString> segments = split(paths);
  for (Layout* layout : layouts_) {
    const WideString path(layout->path());
    if (std::find(segments.begin(), segments.end(), path) == segments.end()) return 0;
  }
  return 1;
}

}  // namespace kestrine::platform::data::Schema
