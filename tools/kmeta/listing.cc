#include "listing.h"

#include <kestrine/platform/data.h>

#include "tree_path.h"

namespace kmeta {

namespace data = kestrine::platform::data;
using data::metadata::IPrimitive;
using data::metadata::ITable;
using data::structure::IContainer;
using data::structure::IContainerFrontEnd;
using kestrine::platform::core::string::StringAlgorithm;
using kestrine::platform::core::string::WideString;

namespace {

const char* kpContainerKinds[] = {"node", "group", "link"};

struct tFlagName {
  unsigned char bit;
  const char* name;
};

const tFlagName kpFlags[] = {{0x01, "optional"}, {0x04, "hidden"}, {0x08, "uri"}};

std::string text(const WideString& wide) {
  return StringAlgorithm::UTF8Encode(wide);
}

std::string text(const char* narrow) {
  return narrow != nullptr ? narrow : "";
}

// One line: the fields after the kind and name.
struct tRow {
  std::string kind;
  std::string name;
  std::string schema;
  std::string unit;
  unsigned dimension = 0;
  unsigned char flags = 0;
};

unsigned countChildren(IDataStore* store, const WideString& path) {
  unsigned count = 0;
  IContainerFrontEnd::children(store, path, [&](const IContainerFrontEnd::tChild&) { ++count; });
  return count;
}

tRow describe(IDataStore* store, const IContainerFrontEnd::tChild& child) {
  tRow row;
  if (IContainer* container = child.container.get()) {
    unsigned type = container->type();
    row.kind = type < 3 ? kpContainerKinds[type] : "?";
    row.name = text(container->tag());
    row.schema = text(container->base());
    row.dimension = countChildren(store, container->path());
    row.flags = container->flags();
  } else if (IPrimitive* primitive = IPrimitive::to(child.property.get())) {
    const char* kind = data::metadata::valueTypeName(primitive->valuetype());
    row.kind = kind != nullptr ? kind : "?";
    row.schema = text(primitive->schema());
    row.unit = text(data::units::unitName(primitive->units()));
    row.dimension = primitive->dimension();
  } else if (ITable* table = ITable::to(child.property.get())) {
    row.kind = "table";
    row.schema = text(table->base());
    row.dimension = table->items();
  }
  if (child.property) {
    row.name = text(child.property->tag());
    row.flags = child.property->flags();
  }
  return row;
}

}  // namespace

std::string listChildren(IDataStore* store, const std::string& path) {
  std::string out = "kind\tname\tclass\tunit\tdimension\tflags\n";
  IContainerFrontEnd::children(store, wide(path), [&](const IContainerFrontEnd::tChild& child) {
    tRow row = describe(store, child);
    std::string flags;
    for (const tFlagName& flag : kpFlags) {
      if ((row.flags & flag.bit) == 0) continue;
      if (!flags.empty()) flags += ',';
      flags += flag.name;
    }
    out += row.kind + '\t' + row.name + '\t' + row.schema + '\t' + row.unit + '\t' +
           std::to_string(row.dimension) + '\t' + flags + '\n';
  });
  return out;
}

}  // namespace kmeta
