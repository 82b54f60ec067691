#include "kestrine/platform/data/type.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <vector>

namespace kestrine::platform::data::type {
namespace {

// The type identifiers the shared library exports, by symbol name, as nm lists them.
std::vector<std::string> exportedIdentifiers() {
  std::vector<std::string> symbols;
  FILE* pipe = popen("nm -D --defined-only '" KPL_UNITS_TEST_DATA_LIBRARY "'", "r");
  char line[1024];
  while (pipe != nullptr && std::fgets(line, sizeof line, pipe) != nullptr) {
    std::string symbol = std::strrchr(line, ' ') + 1;  // "address kind name\n"
    symbol.pop_back();
    const std::string prefix = "_ZN8kestrine8platform4data4type", suffix = "4_kIDE";
    if (symbol.rfind(prefix, 0) == 0 && symbol.size() > suffix.size() &&
        symbol.compare(symbol.size() - suffix.size(), suffix.size(), suffix) == 0)
      symbols.push_back(symbol);
  }
  if (pipe != nullptr) pclose(pipe);
  return symbols;
}

// Demangles `symbol`, so that a misspelt symbol cannot make a "hidden" check pass by accident.
std::string demangled(const std::string& symbol) {
  int status = 0;
  char* text = abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status);
  std::string result = status == 0 ? text : "(not a symbol)";
  std::free(text);
  return result;
}

// Whether `address` lies in a mapping of this process that cannot be written.
bool readOnly(const void* address) {
  const auto at = reinterpret_cast<std::uintptr_t>(address);
  std::ifstream maps("/proc/self/maps");
  std::string line;
  while (std::getline(maps, line)) {
    std::uintptr_t begin = 0, end = 0;
    char perms[5] = {};
    if (std::sscanf(line.c_str(), "%lx-%lx %4s", &begin, &end, perms) != 3) continue;
    if (begin <= at && at < end) return perms[1] != 'w';
  }
  return false;
}

// The shared library that clients link, loaded on its own: the rest of this test links the
// static archive, in which nothing is hidden.
class SharedDataLibrary : public ::testing::Test {
 protected:
  void SetUp() override {
    handle_ = dlopen(KPL_UNITS_TEST_DATA_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle_, nullptr) << dlerror();
  }
  void TearDown() override {
    if (handle_ != nullptr) dlclose(handle_);
  }
  void* symbol(const std::string& name) const { return dlsym(handle_, name.c_str()); }

  void* handle_ = nullptr;
};

// Catches: an identifier hidden from the shared library's clients or left writable there,
// which would break them at load time or let one client change another's view, and values
// that no longer run from 1 to 25, each once, as they are exchanged with other processes.
TEST_F(SharedDataLibrary, ExportsEveryTypeIdentifierReadOnlyAndOnce) {
  std::set<unsigned> values;
  for (const std::string& name : exportedIdentifiers()) {
    const void* exported = symbol(name);
    ASSERT_NE(exported, nullptr) << demangled(name);
    EXPECT_TRUE(readOnly(exported)) << demangled(name);
    values.insert(*static_cast<const unsigned int*>(exported));
  }
  ASSERT_EQ(values.size(), 25u);
  EXPECT_EQ(*values.begin(), 1u);
  EXPECT_EQ(*values.rbegin(), 25u);
  EXPECT_EQ(gfx::v1::IChoiceList::_kID, 25u);  // as the clients that link it see it
}

// Catches: the units dictionary exported, which would make its layout part of the ABI.
TEST_F(SharedDataLibrary, HidesTheUnitsDictionary) {
  const std::string constructor = "_ZN8kestrine8platform4data15UnitsDictionaryC1Ev";
  const std::string table = "_ZN8kestrine8platform4data9kpUnitLUTE";
  ASSERT_EQ(demangled(constructor), "kestrine::platform::data::UnitsDictionary::UnitsDictionary()");
  ASSERT_EQ(demangled(table), "kestrine::platform::data::kpUnitLUT");
  EXPECT_EQ(symbol(constructor), nullptr);
  EXPECT_EQ(symbol(table), nullptr);
}

}  // namespace
}  // namespace kestrine::platform::data::type
