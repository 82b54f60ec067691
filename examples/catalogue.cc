// A product catalogue kept in a datastore: the object model in one short walk.
//
//   catalogue
//     products (group)
//       pump (node)            described in English and German
//         name: string         "P-100"
//         dimensions (table)   defaults: lengths in millimetres as doubles
//           length: double mm  (unit from the table's defaults)
//           weight: double kg
//           ports: uint16
//     featured (link)          -> catalogue.products.pump
//
// A schema is a table in a store of its own, found by path through a schema locator.
#include <kestrine/platform/core.h>
#include <kestrine/platform/data.h>

#include <cstdint>
#include <cstdio>

using namespace kestrine::platform;
using core::storage::datastore::MemoryDataStore;
using core::string::StringAlgorithm;
using data::metadata::IPrimitive;
using data::metadata::ISchemaLocator;
using data::metadata::ITable;
using data::structure::IContainer;
using data::structure::IContainerFrontEnd;
using data::structure::ILink;
namespace metadata = data::metadata;
namespace units = data::units;

static std::string text(const core::string::WideString& wide) {
  return StringAlgorithm::UTF8Encode(wide);
}

int main() {
  // 1. The schema every product's dimensions must follow: a table "dimensions" (length,
  //    weight) kept below the root of a schema store, known to the locator as
  //    "schemas.dimensions".
  MemoryDataStore schemaStore;
  auto dimensionsSchema =
      IContainerFrontEnd::toplevel(&schemaStore, L"schemas")->create(L"dimensions", nullptr);
  dimensionsSchema->create(L"length", metadata::kDouble, units::MilliMeter);
  dimensionsSchema->create(L"weight", metadata::kDouble, units::Kilogram);
  auto locator = ISchemaLocator::make(&schemaStore);
  auto schema = locator->resolve(L"schemas.dimensions");

  // 2. The catalogue: a top-level container and child containers of each kind.
  MemoryDataStore store;
  auto catalogue = IContainerFrontEnd::toplevel(&store, L"catalogue");
  auto products = catalogue->create(IContainer::kGroup, L"products", nullptr);
  products->create(IContainer::kNode, L"pump", nullptr);
  auto pump = products->container(L"pump");  // looked up, it carries its node view
  pump->describe(L"en-us", L"Centrifugal pump");
  pump->describe(L"de-de", L"Kreiselpumpe");

  // 3. Primitives: typed arrays of values. Text is stored with its terminator.
  pump->create(L"name", metadata::kString)->set(L"P-100", 0, 6);

  // 4. A table whose defaults give new members of a unit group their type and unit.
  auto dimensions = pump->create(L"dimensions", nullptr);
  dimensions->defaults(units::MilliMeter, metadata::kDouble);
  const double length = 420.0, weight = 18.5;
  dimensions->create(L"length", units::group::Length)->set(&length, 0, 1);
  dimensions->create(L"weight", metadata::kDouble, units::Kilogram)->set(&weight, 0, 1);
  const std::uint16_t ports[2] = {2, 3};
  dimensions->create(L"ports", metadata::kUInt16, units::tUnit(0))->set(ports, 0, 2);

  // 5. A link names another container by its path from the root; follow() resolves it.
  auto featured = catalogue->create(IContainer::kLink, L"featured", nullptr);
  ILink::to(featured.get())->target(L"catalogue.products.pump");
  auto target = ILink::to(featured.get())->follow(nullptr);

  // 6. Validation: the dimensions table has the schema's members, in its order, with its types.
  bool conforms = dimensions->validates(schema.get());

  // Print what the store now holds. Descriptions are written when the last handle on the
  // container goes, so the pump is reopened to read them back.
  pump.reset();
  auto reopened = IContainerFrontEnd::find(&store, L"catalogue.products.pump");
  std::printf("%s: %s / %s\n", text(reopened->path()).c_str(),
              text(reopened->localize(L"en-us")).c_str(),
              text(reopened->localize(L"de-de")).c_str());
  auto members = dimensions->properties();
  for (auto member = members->current(); member; member = members->current()) {
    IPrimitive* value = IPrimitive::to(member.get());
    std::printf("  %-7s type %2u, unit 0x%05x, %u value(s)\n", text(member->tag()).c_str(),
                unsigned(value->valuetype()), unsigned(value->units()), value->dimension());
    if (!members->next()) break;
  }
  std::printf("featured -> %s\n", target ? text(target->path()).c_str() : "(nothing)");
  std::printf("dimensions conform to %s: %s\n", text(schema->path()).c_str(),
              conforms ? "yes" : "no");
  return target && conforms ? 0 : 1;
}
