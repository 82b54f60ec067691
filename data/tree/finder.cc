#include "data/tree/finder.h"

#include <cwchar>

#include "data/record/base.h"
#include "data/tree/logic.h"

namespace kestrine::platform::data::Schema {

using core::storage::datastore::IDataStore;

Finder::Finder(IDataStore* store, unsigned offset, const wchar_t* path) : offset_(offset) {
  const wchar_t* segment = path != nullptr ? path : L"";
  for (;;) {
    const wchar_t* end = std::wcschr(segment, L'.');
    bool last = end == nullptr;
    if (last) end = segment + std::wcslen(segment);
    core::string::WideString name(segment, static_cast<unsigned>(end - segment));

    bool failed = true;
    Record::tType kind = Record::peek(store, offset_);
    // A path through a record that is not there leads nowhere, whatever step it is.
    if (kind == Record::kNoRecord) {
      offset_ = IDataStore::BADOFF;
      return;
    }
    if (kind == Record::kRoot || kind == Record::kTable || kind == Record::kContainer) {
      Design::Logic logic(store, offset_, false);
      offset_ = logic.set()->find(name.string());
      failed = offset_ == IDataStore::BADOFF;
    }
    // The end test comes first on purpose: a last step that fails on a record without
    // children (a primitive) leaves that record as the result, while a failed look-up has
    // already made it BADOFF.
    if (last) return;
    if (failed) {
      offset_ = IDataStore::BADOFF;
      return;
    }
    segment = end + 1;
  }
}

}  // namespace kestrine::platform::data::Schema

namespace kestrine::platform::data::Metadata {

unsigned resolvePath(core::storage::datastore::IDataStore* store, const wchar_t* path) {
  if (Record::peek(store, 0) != Record::kRoot) return IDataStore::BADOFF;
  unsigned offset = 0;
  const wchar_t* segment = path != nullptr ? path : L"";
  if (*segment == 0) return offset;
  for (;;) {
    const wchar_t* end = std::wcschr(segment, L'.');
    if (end == nullptr) end = segment + std::wcslen(segment);
    Design::Logic logic(store, offset, false);
    if (logic.set() == nullptr) return IDataStore::BADOFF;
    offset = logic.set()->find(core::string::WideString(segment, unsigned(end - segment)).string());
    if (offset == IDataStore::BADOFF || *end == 0) return offset;
    segment = end + 1;
  }
}

}  // namespace kestrine::platform::data::Metadata
