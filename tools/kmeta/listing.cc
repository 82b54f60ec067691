#include "tools/kmeta/listing.h"

#include "data/tree/container.h"
#include "data/tree/logic.h"
#include "data/tree/primitive.h"
#include "data/tree/table.h"
#include "data/xml/element.h"
#include "data/xml/xml_primitive.h"
#include "kestrine/platform/core/string.h"

namespace kmeta {

namespace data = kestrine::platform::data;
using kestrine::platform::core::string::StringAlgorithm;

namespace {

const char* kpContainerKinds[] = {"node", "group", "link"};

struct tFlagName {
  unsigned char bit;
  const char* name;
};

const tFlagName kpFlags[] = {{0x01, "optional"}, {0x04, "hidden"}, {0x08, "uri"}};

std::string text(const wchar_t* wide) {
  return wide != nullptr ? StringAlgorithm::UTF8Encode(wide, std::wcslen(wide)) : std::string();
}

// One line: the fields after the kind and name.
struct tRow {
  std::string kind;
  std::string schema;
  std::string unit;
  unsigned dimension = 0;
};

tRow describe(data::Design::Logic& child) {
  tRow row;
  if (auto* primitive = dynamic_cast<data::Design::Primitive*>(child.operator->())) {
    const char* kind = data::metadata::valueTypeName(primitive->valuetype());
    row.kind = kind != nullptr ? kind : "?";
    row.schema = text(primitive->base());
    const char* unit = data::XML::Element::_oUnits.unit(primitive->units());
    row.unit = unit != nullptr ? unit : "";
    row.dimension = primitive->dimension();
  } else if (auto* table = dynamic_cast<data::Design::Table*>(child.operator->())) {
    row.kind = "table";
    row.schema = text(table->base());
    row.dimension = table->items();
  } else if (auto* container = dynamic_cast<data::Structural::Container*>(child.operator->())) {
    unsigned type = container->type();
    row.kind = type < 3 ? kpContainerKinds[type] : "?";
    row.schema = text(container->base());
    row.dimension = container->items();
  }
  return row;
}

}  // namespace

std::string listChildren(IDataStore* store, unsigned offset) {
  std::string out = "kind\tname\tclass\tunit\tdimension\tflags\n";
  data::Design::Logic parent(store, offset, false);
  data::Metadata::Set* set = parent.set();
  // As an export does: the first items() entries of the children list.
  for (unsigned i = 0; set != nullptr && i < set->items(); ++i) {
    data::Design::Logic child(store, set->at(i), false);
    if (!child) continue;
    tRow row = describe(child);
    std::string flags;
    for (const tFlagName& flag : kpFlags) {
      if ((child->flags() & flag.bit) == 0) continue;
      if (!flags.empty()) flags += ',';
      flags += flag.name;
    }
    out += row.kind + '\t' + text(child->tag()) + '\t' + row.schema + '\t' + row.unit + '\t' +
           std::to_string(row.dimension) + '\t' + flags + '\n';
  }
  return out;
}

}  // namespace kmeta
