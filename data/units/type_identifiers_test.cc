#include "kestrine/platform/data/type.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

namespace kestrine::platform::data::type {
namespace {

struct Identifier {
  std::string family;
  std::string interface;
  const unsigned int* linked;
  unsigned int value;
};

// Written out rather than derived from the definitions: these values are exchanged with
// other processes, so a renumbering must fail here.
const Identifier kIdentifiers[] = {
    {"asset", "IAsset", &asset::v1::IAsset::_kID, 1},
    {"asset", "IResource", &asset::v1::IResource::_kID, 2},
    {"xref", "IXRef", &xref::v1::IXRef::_kID, 3},
    {"xref", "IXRefTarget", &xref::v1::IXRefTarget::_kID, 4},
    {"xref", "IXRefProduct", &xref::v1::IXRefProduct::_kID, 5},
    {"xref", "IXRefTargetResolution", &xref::v1::IXRefTargetResolution::_kID, 6},
    {"gfx", "IMesh", &gfx::v1::IMesh::_kID, 7},
    {"gfx", "IVertexSet", &gfx::v1::IVertexSet::_kID, 8},
    {"gfx", "IScene", &gfx::v1::IScene::_kID, 9},
    {"gfx", "IRenderingSet", &gfx::v1::IRenderingSet::_kID, 10},
    {"gfx", "IRenderingNode", &gfx::v1::IRenderingNode::_kID, 11},
    {"gfx", "IRenderingMesh", &gfx::v1::IRenderingMesh::_kID, 12},
    {"gfx", "ISubMesh", &gfx::v1::ISubMesh::_kID, 13},
    {"gfx", "ILight", &gfx::v1::ILight::_kID, 14},
    {"gfx", "ICamera", &gfx::v1::ICamera::_kID, 15},
    {"gfx", "IMaterial", &gfx::v1::IMaterial::_kID, 16},
    {"gfx", "IAspect", &gfx::v1::IAspect::_kID, 17},
    {"gfx", "ITexture", &gfx::v1::ITexture::_kID, 18},
    {"gfx", "ITextureSource", &gfx::v1::ITextureSource::_kID, 19},
    {"gfx", "IEnvironment", &gfx::v1::IEnvironment::_kID, 20},
    {"gfx", "IProceduralGeometry", &gfx::v1::IProceduralGeometry::_kID, 21},
    {"gfx", "ISceneEffect", &gfx::v1::ISceneEffect::_kID, 22},
    {"gfx", "IBounds", &gfx::v1::IBounds::_kID, 23},
    {"gfx", "IChoice", &gfx::v1::IChoice::_kID, 24},
    {"gfx", "IChoiceList", &gfx::v1::IChoiceList::_kID, 25},
};

std::string lengthPrefixed(const std::string& name) {
  return std::to_string(name.size()) + name;
}

// The Itanium ABI name of kestrine::platform::data::type::<family>::v1::<interface>::_kID.
std::string mangledIdentifier(const Identifier& id) {
  return "_ZN8kestrine8platform4data4type" + lengthPrefixed(id.family) + "2v1" +
         lengthPrefixed(id.interface) + "4_kIDE";
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

// Catches: a renumbered identifier, and one hidden from the shared library's clients or
// left writable there, which would break them at load time or let one client change
// another's view.
TEST_F(SharedDataLibrary, ExportsEveryTypeIdentifierReadOnlyInTheExchangedOrder) {
  for (const auto& id : kIdentifiers) {
    EXPECT_EQ(*id.linked, id.value) << id.interface;
    const void* exported = symbol(mangledIdentifier(id));
    ASSERT_NE(exported, nullptr) << id.interface;
    EXPECT_EQ(*static_cast<const unsigned int*>(exported), id.value) << id.interface;
    EXPECT_TRUE(readOnly(exported)) << id.interface;
  }
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
