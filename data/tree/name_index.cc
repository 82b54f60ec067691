#include "data/tree/name_index.h"

#include <cstring>
#include <cwchar>

namespace kestrine::platform::data::Metadata {

const wchar_t* const kEmptyKey = L"$$$$$_____empty_key";
const wchar_t* const kDeletedKey = L"$$$$$_____deleted_key";

bool reserved(const wchar_t* name) {
  return name[0] == L'$' &&
         (std::wcscmp(name, kEmptyKey) == 0 || std::wcscmp(name, kDeletedKey) == 0);
}

bool reserved(const void* bytes, std::size_t length) {
  auto is = [&](const wchar_t* key) {
    return length == std::wcslen(key) * sizeof(wchar_t) && std::memcmp(bytes, key, length) == 0;
  };
  return is(kEmptyKey) || is(kDeletedKey);
}

}  // namespace kestrine::platform::data::Metadata
