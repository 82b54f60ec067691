#include "data/api/string_array_impl.h"

#include "data/values/value_types.h"
#include "kestrine/platform/data/metadata/primitive.h"

namespace kestrine::platform::data::metadata {

IStringArray::~IStringArray() = default;

IStringArray* IStringArray::to(wchar_t const* buffer, unsigned int count) {
  return new StringArrayImpl(buffer, buffer != nullptr ? count : 0);
}

StringArrayImpl::StringArrayImpl(const wchar_t* packed, unsigned count) {
  unsigned begin = 0;
  for (unsigned i = 0; i < count; ++i) {
    if (packed[i] != 0) continue;
    strings_.emplace_back(packed + begin, i - begin);
    begin = i + 1;
  }
}

bool StringArrayImpl::write(IPrimitive* target) {
  if (target == nullptr || Values::traits(target->valuetype()).text != Values::tTextForm::kStrings)
    return false;
  std::vector<wchar_t> packed;
  for (const WideString& text : strings_) {
    packed.insert(packed.end(), text.string(), text.string() + text.length());
    packed.push_back(0);
  }
  // Emptied first, so that a shorter list leaves nothing of the old values behind it.
  if (target->reset(0) == 0) return false;
  return packed.empty() || target->set(packed.data(), 0, static_cast<unsigned>(packed.size()));
}

}  // namespace kestrine::platform::data::metadata
