#include "commands.h"

#include <sys/resource.h>

#include <cstdio>
#include <string>

#include "document.h"
#include "failure.h"
#include "listing.h"
#include "tree_path.h"

namespace kmeta {

namespace core = kestrine::platform::core;
namespace data = kestrine::platform::data;
using data::format::xml::IXMLFrontEnd;
using data::structure::IContainerFrontEnd;

namespace {

// Writes to standard output; write errors (a full disk) throw.
void print(const std::string& text) {
  core::io::FileWriter out("-");
  out.open();
  out.write(text.data(), static_cast<unsigned>(text.size()));
  out.close();
}

void serialize(Session& session, const std::string& path) {
  core::io::FileWriter out("-");
  IXMLFrontEnd::serialize(session.store(), &out, session.locator(), wide(path));
}

int roundtrip(const Options& options, Session& session) {
  session.open(":memory:", options.schemas, true);
  importDocument(options.operands[0], session.store(), session.locator(), session.reporter());
  require(session.store(), "", Named::kRoot, Named::kRoot, "tree");
  serialize(session, "");
  return 0;
}

int import(const Options& options, Session& session) {
  session.open(options.store, options.schemas, true);
  importDocument(options.operands[0], session.store(), session.locator(), session.reporter());
  session.commit();
  if (options.given & kStatsOption) {
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    print("records " + std::to_string(session.records()) + " used " +
          std::to_string(session.store()->used()) + " peak-kb " + std::to_string(usage.ru_maxrss) +
          "\n");
  }
  return 0;
}

int exportTree(const Options& options, Session& session) {
  session.open(options.store, options.schemas, false);
  require(session.store(), options.path, options.path.empty() ? Named::kRoot : Named::kContainer,
          Named::kTable, "container or table");
  serialize(session, options.path);
  session.commit();
  return 0;
}

int list(const Options& options, Session& session) {
  session.open(options.store, options.schemas, false);
  std::string path = options.operands.empty() ? "" : options.operands[0];
  require(session.store(), path, path.empty() ? Named::kRoot : Named::kContainer, Named::kTable,
          "container or table");
  print(listChildren(session.store(), path));
  session.commit();
  return 0;
}

int get(const Options& options, Session& session) {
  session.open(options.store, options.schemas, false);
  const std::string& path = options.operands[0];
  require(session.store(), path, Named::kPrimitive, Named::kPrimitive, "primitive");
  auto property = IContainerFrontEnd::property(session.store(), wide(path));
  std::string out;
  for (const core::string::WideString& block :
       IXMLFrontEnd::values(data::metadata::IPrimitive::to(property.get()), session.locator()))
    out += core::string::StringAlgorithm::UTF8Encode(block) + '\n';
  print(out);
  session.commit();
  return 0;
}

int validate(const Options& options, Session& session) {
  if (options.schemas.empty()) throw UsageError("validate needs --schemas");
  session.open(options.store, options.schemas, false);
  const std::string& path = options.operands[0];
  const std::string& uri = options.operands[1];
  Named named = require(session.store(), path, Named::kContainer, Named::kTable,
                        "container or table");
  auto schema = session.locator()->resolve(wide(uri));
  if (!schema) throw Failure("no schema '" + uri + "' in the schema documents");
  bool conforms;
  if (named == Named::kTable) {
    auto table = IContainerFrontEnd::property(session.store(), wide(path));
    conforms = data::metadata::ITable::to(table.get())->validates(schema.get());
  } else {
    conforms = IContainerFrontEnd::find(session.store(), wide(path))->validates(schema.get(), false);
  }
  print(path + (conforms ? " conforms to " : " does not conform to ") + uri + "\n");
  session.commit();
  return conforms ? 0 : 2;
}

const Command kpCommands[] = {
    {"roundtrip", kSchemasOption, 1, 1, roundtrip},
    {"import", kStoreOption | kSchemasOption | kStatsOption, 1, 1, import},
    {"export", kStoreOption | kSchemasOption | kPathOption, 0, 0, exportTree},
    {"ls", kStoreOption, 0, 1, list},
    {"get", kStoreOption | kSchemasOption, 1, 1, get},
    {"validate", kStoreOption | kSchemasOption, 2, 2, validate},
};

}  // namespace

const Command& findCommand(const Options& options) {
  for (const Command& command : kpCommands) {
    if (options.command != command.name) continue;
    unsigned refused = options.given & ~command.options;
    if (refused != 0) {
      unsigned lowest = refused & ~(refused - 1);
      throw UsageError(options.command + " does not take " + optionName(Option(lowest)));
    }
    std::size_t operands = options.operands.size();
    if (operands < command.minOperands) throw UsageError(options.command + ": too few arguments");
    if (operands > command.maxOperands) throw UsageError(options.command + ": too many arguments");
    return command;
  }
  throw UsageError("unknown command '" + options.command + "' (kmeta --help lists them)");
}

}  // namespace kmeta
