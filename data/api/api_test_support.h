#ifndef KPL_DATA_API_API_TEST_SUPPORT_H_
#define KPL_DATA_API_API_TEST_SUPPORT_H_

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "core/storage/datastore_test_support.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/data/metadata/filter.h"
#include "kestrine/platform/data/metadata/primitive.h"
#include "kestrine/platform/data/metadata/table.h"
#include "kestrine/platform/data/structure/container.h"

// Helpers for the object model's tests. They use only the public interfaces, so what they
// report is what a client sees.
namespace kestrine::platform::data::api_test {

using core::memory::SharedPtr;
using core::storage::datastore::InterceptingStore;
using core::storage::datastore::MemoryDataStore;
using core::string::WideString;
using metadata::IPrimitive;
using metadata::IProperty;
using metadata::ITable;
using structure::IContainer;
using structure::IContainerFrontEnd;
using Names = std::vector<std::string>;

// A store with a top-level group "top"; every call a test makes must touch the store under
// its lock only.
class ApiTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(store_.unguarded(), 0u); }
  SharedPtr<ITable> table(const wchar_t* name) {
    return top_->create(name, static_cast<metadata::ISchema*>(nullptr));
  }

  InterceptingStore store_;
  SharedPtr<IContainer> top_ = IContainerFrontEnd::toplevel(&store_, L"top");
};

inline std::string utf8(const WideString& text) {
  return core::string::StringAlgorithm::UTF8Encode(text);
}

// The names a container or property filter stands on, from where it stands to the end.
template <class Filter>
Names walk(Filter& filter) {
  Names names;
  for (auto child = filter.current(); child; child = filter.current()) {
    names.push_back(utf8(child->tag()));
    if (!filter.next()) break;
  }
  return names;
}

// One line per member below a table: kind, name, value type, unit, dimension and the value
// bytes in hex, indented by depth.
inline void render(IProperty* property, int depth, std::string& out) {
  out.append(2 * depth, ' ');
  if (IPrimitive* primitive = IPrimitive::to(property)) {
    char head[64];
    std::snprintf(head, sizeof head, "primitive %u %x %u ",
                  static_cast<unsigned>(primitive->valuetype()),
                  static_cast<unsigned>(primitive->units()), primitive->dimension());
    out += head + utf8(property->tag());
    std::vector<unsigned char> bytes(primitive->bytes());
    if (!bytes.empty() && primitive->get(bytes.data(), 0, primitive->dimension()) == 0)
      out += " <unreadable>";
    for (unsigned char byte : bytes) {
      char hex[4];
      std::snprintf(hex, sizeof hex, " %02x", byte);
      out += hex;
    }
    out += "\n";
    return;
  }
  ITable* table = ITable::to(property);
  out += "table " + utf8(property->tag()) + "\n";
  for (unsigned i = 0; i < table->items(); ++i)
    render(table->at(i).get(), depth + 1, out);
}

// The subtree of a container as its filters enumerate it: kinds, names, properties with their
// values, then the child containers, indented by depth. Two equal renderings mean two equal
// trees as far as the interface can tell.
inline void render(IContainer* container, int depth, std::string& out) {
  out.append(2 * depth, ' ');
  out += "container " + std::to_string(container->type()) + " " + utf8(container->tag()) + "\n";
  auto properties = container->properties();
  for (auto property = properties->current(); property; property = properties->current()) {
    render(property.get(), depth + 1, out);
    if (!properties->next()) break;
  }
  auto children = container->containers();
  for (auto child = children->current(); child; child = children->current()) {
    render(child.get(), depth + 1, out);
    if (!children->next()) break;
  }
}

// The rendering of a subtree with its own top line dropped, so that copies under other names
// compare equal.
inline std::string below(const SharedPtr<IContainer>& container) {
  std::string out;
  render(container.get(), 0, out);
  return out.substr(out.find('\n') + 1);
}

// A schema store whose top-level container "schemas" holds one table per schema, so that
// the schema "schemas.NAME" resolves to it; members are added through the returned table.
inline SharedPtr<ITable> defineSchema(core::storage::datastore::IDataStore* store,
                                      const wchar_t* name) {
  return IContainerFrontEnd::toplevel(store, L"schemas")->create(name, nullptr);
}

}  // namespace kestrine::platform::data::api_test

#endif  // KPL_DATA_API_API_TEST_SUPPORT_H_
