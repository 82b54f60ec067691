#include "core/storage/postgres_library.h"

#include <dlfcn.h>

#include <string>

#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {

namespace {

// libpq's soname, the same across PostgreSQL's major versions.
constexpr const char* kLibpq = "libpq.so.5";

PostgresLibrary load() {
  // Kept for the life of the process: connections may outlive any one store.
  void* handle = dlopen(kLibpq, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) throw Exception(std::string("cannot load ") + kLibpq + ": " + dlerror());
  PostgresLibrary library;
#define KPL_POSTGRES_RESOLVE(name)                                          \
  library.name = reinterpret_cast<decltype(&::name)>(dlsym(handle, #name)); \
  if (library.name == nullptr)                                              \
    throw Exception(std::string(kLibpq) + " lacks " #name " (libpq 14 or later is needed)");
  KPL_POSTGRES_FUNCTIONS(KPL_POSTGRES_RESOLVE)
#undef KPL_POSTGRES_RESOLVE
  return library;
}

}  // namespace

const PostgresLibrary& PostgresLibrary::get() {
  // A failed load throws out of the initialisation, so the next call tries again.
  static const PostgresLibrary library = load();
  return library;
}

}  // namespace kestrine::platform::core::storage::datastore
