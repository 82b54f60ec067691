#include "data/tree/name_index.h"

#include <cstring>
#include <cwchar>
#include <string_view>

namespace kestrine::platform::data::Metadata {

const wchar_t* const kEmptyKey = L"$$$$$_____empty_key";
const wchar_t* const kDeletedKey = L"$$$$$_____deleted_key";

bool reserved(const wchar_t* name) {
  return name[0] == L'$' &&
         (std::wcscmp(name, kEmptyKey) == 0 || std::wcscmp(name, kDeletedKey) == 0);
}

bool reserved(const void* bytes, std::size_t length) {
  // Asked for every name a walk meets: the first character settles it for nearly all.
  wchar_t first;
  if (length < sizeof first) return false;
  std::memcpy(&first, bytes, sizeof first);
  if (first != L'$') return false;
  auto is = [&](std::wstring_view key) {
    return length == key.size() * sizeof(wchar_t) && std::memcmp(bytes, key.data(), length) == 0;
  };
  return is(kEmptyKey) || is(kDeletedKey);
}

}  // namespace kestrine::platform::data::Metadata
