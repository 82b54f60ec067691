#include "tools/kmeta/tree_path.h"

#include "data/record/base.h"
#include "data/tree/finder.h"
#include "data/tree/logic.h"
#include "kestrine/platform/core/string.h"
#include "tools/kmeta/failure.h"

namespace kmeta {

namespace data = kestrine::platform::data;
using kestrine::platform::core::string::StringAlgorithm;
using kestrine::platform::core::string::WideString;

namespace {

// peek answers "root" for an offset that holds nothing, so a set is recognised by its size
// as well as its kind.
bool isSet(IDataStore* store, unsigned offset) {
  if (offset == IDataStore::BADOFF || store->size(offset) == 0) return false;
  data::Record::tType kind = data::Record::peek(store, offset);
  return kind == data::Record::kRoot || kind == data::Record::kTable ||
         kind == data::Record::kContainer;
}

}  // namespace

bool holdsTree(IDataStore* store) {
  return isSet(store, 0) && data::Record::peek(store, 0) == data::Record::kRoot;
}

unsigned resolvePath(IDataStore* store, const std::string& path) {
  if (!holdsTree(store)) throw Failure("the store holds no tree");
  if (path.empty()) return 0;
  // The finder walks the parent's path; the last name is looked up in the parent itself,
  // since the finder would answer a primitive for a name below it.
  std::string::size_type dot = path.rfind('.');
  std::string last = dot == std::string::npos ? path : path.substr(dot + 1);
  unsigned parent = 0;
  if (dot != std::string::npos) {
    WideString prefix = StringAlgorithm::UTF8Decode(path.substr(0, dot).c_str());
    parent = data::Schema::Finder(store, 0, prefix.string()).offset();
  }
  unsigned offset = IDataStore::BADOFF;
  if (isSet(store, parent)) {
    data::Design::Logic logic(store, parent, false);
    offset = logic.set()->find(StringAlgorithm::UTF8Decode(last.c_str()).string());
  }
  if (offset == IDataStore::BADOFF) throw Failure("nothing at '" + path + "'");
  return offset;
}

}  // namespace kmeta
