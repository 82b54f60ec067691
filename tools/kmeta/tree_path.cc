#include "tree_path.h"

#include <kestrine/platform/data.h>

#include "failure.h"

namespace kmeta {

namespace data = kestrine::platform::data;
using data::structure::IContainerFrontEnd;

kestrine::platform::core::string::WideString wide(const std::string& path) {
  return kestrine::platform::core::string::StringAlgorithm::UTF8Decode(path.c_str());
}

Named require(IDataStore* store, const std::string& path, Named a, Named b, const char* what) {
  auto none = [](const IContainerFrontEnd::tChild&) {};
  if (!IContainerFrontEnd::children(store, L"", none)) throw Failure("the store holds no tree");
  Named named;
  if (path.empty()) {
    named = Named::kRoot;
  } else if (IContainerFrontEnd::find(store, wide(path))) {
    named = Named::kContainer;
  } else if (auto property = IContainerFrontEnd::property(store, wide(path))) {
    named =
        property->type() == data::metadata::IProperty::kTable ? Named::kTable : Named::kPrimitive;
  } else {
    throw Failure("nothing at '" + path + "'");
  }
  if (named != a && named != b) throw Failure(std::string("no ") + what + " at '" + path + "'");
  return named;
}

}  // namespace kmeta
