#include "data/tree/name_index.h"

#include <cwchar>

namespace kestrine::platform::data::Metadata {

const wchar_t* const kEmptyKey = L"$$$$$_____empty_key";
const wchar_t* const kDeletedKey = L"$$$$$_____deleted_key";

bool reserved(const wchar_t* name) {
  return name[0] == L'$' && (std::wcscmp(name, kEmptyKey) == 0 || std::wcscmp(name, kDeletedKey) == 0);
}

}  // namespace kestrine::platform::data::Metadata
