#include "tools/kmeta/commands.h"

#include <sys/resource.h>

#include <cstdio>
#include <string>

#include "data/api/conformance.h"
#include "data/record/base.h"
#include "data/tree/container.h"
#include "data/tree/table.h"
#include "kestrine/platform/core/io.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/data/format/xml.h"
#include "tools/kmeta/document.h"
#include "tools/kmeta/failure.h"
#include "tools/kmeta/listing.h"
#include "tools/kmeta/tree_path.h"
#include "tools/kmeta/value_text.h"

namespace kmeta {

namespace core = kestrine::platform::core;
namespace data = kestrine::platform::data;
using data::Record::tType;

namespace {

// Writes to standard output; write errors (a full disk) throw.
void print(const std::string& text) {
  core::io::FileWriter out("-");
  out.open();
  out.write(text.data(), static_cast<unsigned>(text.size()));
  out.close();
}

void serialize(Session& session, unsigned offset) {
  core::io::FileWriter out("-");
  data::format::xml::IXMLFrontEnd::serialize(session.store(), &out, session.locator(), offset);
}

// The record at `path`, which must be of one of the kinds `a` and `b` (named by `what` in
// the refusal).
unsigned resolve(Session& session, const std::string& path, tType a, tType b, const char* what) {
  unsigned offset = resolvePath(session.store(), path);
  tType kind = data::Record::peek(session.store(), offset);
  if (kind != a && kind != b) throw Failure(std::string("no ") + what + " at '" + path + "'");
  return offset;
}

unsigned resolveSet(Session& session, const std::string& path) {
  if (path.empty()) return resolvePath(session.store(), path);
  return resolve(session, path, data::Record::kContainer, data::Record::kTable,
                 "container or table");
}

int roundtrip(const Options& options, Session& session) {
  Document document(options.operands[0]);
  session.open(":memory:", options.schemas, true);
  document.import(session.store(), session.locator(), session.reporter());
  serialize(session, resolvePath(session.store(), ""));
  return 0;
}

int import(const Options& options, Session& session) {
  Document document(options.operands[0]);
  session.open(options.store, options.schemas, true);
  document.import(session.store(), session.locator(), session.reporter());
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
  serialize(session, resolveSet(session, options.path));
  session.commit();
  return 0;
}

int list(const Options& options, Session& session) {
  session.open(options.store, options.schemas, false);
  unsigned offset = resolveSet(session, options.operands.empty() ? "" : options.operands[0]);
  print(listChildren(session.store(), offset));
  session.commit();
  return 0;
}

int get(const Options& options, Session& session) {
  session.open(options.store, options.schemas, false);
  unsigned offset = resolve(session, options.operands[0], data::Record::kPrimitive,
                            data::Record::kPrimitive, "primitive");
  print(valueText(session.store(), offset, session.locator()));
  session.commit();
  return 0;
}

int validate(const Options& options, Session& session) {
  if (options.schemas.empty()) throw UsageError("validate needs --schemas");
  session.open(options.store, options.schemas, false);
  const std::string& path = options.operands[0];
  const std::string& uri = options.operands[1];
  unsigned offset =
      resolve(session, path, data::Record::kContainer, data::Record::kTable, "container or table");
  auto schema = session.locator()->resolve(core::string::StringAlgorithm::UTF8Decode(uri.c_str()));
  if (!schema) throw Failure("no schema '" + uri + "' in the schema documents");
  bool conforms;
  if (data::Record::peek(session.store(), offset) == data::Record::kTable) {
    data::Design::Table table(session.store(), offset, true);
    conforms = data::Api::conforms(table, table.base(), schema.get(), false);
  } else {
    data::Structural::Container container(session.store(), offset, true);
    conforms = data::Api::conforms(container, container.base(), schema.get(), false);
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
