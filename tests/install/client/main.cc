// Stores a record in a memory datastore through the installed headers and library only.
#include <kestrine/platform/core.h>

#include <cstdio>
#include <cstring>

int main() {
  kestrine::platform::core::storage::datastore::MemoryDataStore store;
  const char bytes[] = "installed record";
  unsigned offset = store.create(bytes, sizeof(bytes));
  char back[sizeof(bytes)] = {};
  bool same = store.read(offset, back, 0xFFFFFFFF) == sizeof(bytes) &&
              std::memcmp(back, bytes, sizeof(bytes)) == 0;
  store.free(offset);
  if (!same || store.size(offset) != 0) return std::puts("record did not round-trip"), 1;
  return 0;
}
