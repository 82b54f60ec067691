#include "commands.h"

#include <sys/resource.h>

#include <cstdio>
#include <string>
#include <unordered_set>
#include <vector>

#include "document.h"
#include "failure.h"
#include "listing.h"
#include "progress.h"
#include "tree_path.h"

namespace kmeta {

namespace core = kestrine::platform::core;
namespace data = kestrine::platform::data;
using data::format::xml::IXMLFrontEnd;
using data::structure::IContainerFrontEnd;

namespace {

// Opens standard output once what was reported is out.
bool openStandardOutput(core::io::FileWriter& out) {
  std::fflush(stderr);
  return out.open();
}

// Writes to standard output; write errors (a full disk) throw.
void print(const std::string& text) {
  core::io::FileWriter out("-");
  openStandardOutput(out);
  out.write(text.data(), static_cast<unsigned>(text.size()));
  out.close();
}

// Standard output, with progress shown for long exports.
class ExportOutput : public core::io::IDataWriter {
 public:
  bool open() override { return openStandardOutput(out_); }
  void write(const void* data, unsigned size) override {
    out_.write(data, size);
    progress_.advance(size);
  }
  void close() override { out_.close(); }

 private:
  core::io::FileWriter out_{"-"};
  Progress progress_{"written"};
};

// Writes the tree, or the subtree at `path` inside the tree's root so that the document
// imports again as a tree; losslessly with --exact.
void serialize(const Options& options, Session& session, const std::string& path) {
  ExportOutput out;
  data::format::xml::tExportOptions exporting;
  exporting.inRoot = true;
  exporting.exact = (options.given & kExactOption) != 0;
  // As for the import: the tool's process has nothing else to do meanwhile.
  exporting.secondThread = true;
  IXMLFrontEnd::serialize(session.store(), &out, session.locator(), wide(path), exporting);
}

int roundtrip(const Options& options, Session& session) {
  session.open(options, ":memory:", Session::Use::kImport);
  importDocument(options.operands[0], session.store(), session.locator(), session.reporter(),
                 readingOptions(options.limits, false));
  require(session.store(), "", Named::kRoot, Named::kRoot, "tree");
  serialize(options, session, "");
  return 0;
}

int import(const Options& options, Session& session) {
  session.open(options, options.store, Session::Use::kImport);
  const bool strict = (options.given & kStrictOption) != 0;
  const std::string& document = options.operands[0];
  unsigned reports = importDocument(document, session.store(), session.locator(),
                                    session.reporter(), readingOptions(options.limits, strict));
  if (strict && reports != 0) {
    throw Failure((document == "-" ? std::string("standard input") : document) + ": " +
                  std::to_string(reports) + (reports == 1 ? " report" : " reports") +
                  "; --strict refuses the document, the store is unchanged");
  }
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
  session.open(options, options.store, Session::Use::kRead);
  require(session.store(), options.path, options.path.empty() ? Named::kRoot : Named::kContainer,
          Named::kTable, "container or table");
  serialize(options, session, options.path);
  session.commit();
  return 0;
}

int list(const Options& options, Session& session) {
  session.open(options, options.store, Session::Use::kRead);
  std::string path = options.operands.empty() ? "" : options.operands[0];
  require(session.store(), path, path.empty() ? Named::kRoot : Named::kContainer, Named::kTable,
          "container or table");
  print(listChildren(session.store(), path));
  session.commit();
  return 0;
}

int get(const Options& options, Session& session) {
  session.open(options, options.store, Session::Use::kRead);
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
  session.open(options, options.store, Session::Use::kRead);
  const std::string& path = options.operands[0];
  const std::string& uri = options.operands[1];
  Named named =
      require(session.store(), path, Named::kContainer, Named::kTable, "container or table");
  auto schema = session.locator()->resolve(wide(uri));
  if (!schema) throw Failure("no schema '" + uri + "' in the schema documents");
  bool conforms;
  if (named == Named::kTable) {
    auto table = IContainerFrontEnd::property(session.store(), wide(path));
    conforms = data::metadata::ITable::to(table.get())->validates(schema.get());
  } else {
    conforms =
        IContainerFrontEnd::find(session.store(), wide(path))->validates(schema.get(), false);
  }
  print(path + (conforms ? " conforms to " : " does not conform to ") + uri + "\n");
  session.commit();
  return conforms ? 0 : 2;
}

// Reports every place where an import of the document would skip, cut, wrap, block or
// drop content, one a line on standard output; exit status 2 when there is any.
int checkDocument(const Options& options, Session& session) {
  if (options.given & kStoreOption) throw UsageError("check takes a document or --store, not both");
  session.open(options, ":memory:", Session::Use::kImport);
  LineReporter out(stdout);
  unsigned reports = importDocument(options.operands[0], session.store(), session.locator(), &out,
                                    readingOptions(options.limits, true));
  return reports == 0 ? 0 : 2;
}

// Reports every damaged record, of the store and of its tree, one a line on standard output;
// exit status 2 when there is any. The store's own check reads every record; the tree's
// walk finds records that read well but do not fit together.
int checkStore(const Options& options, Session& session) {
  session.open(options, options.store, Session::Use::kRead);
  std::vector<std::string> damaged;
  if (session.persistent() != nullptr) session.persistent()->checkRecords(damaged);
  std::unordered_set<std::string> seen(damaged.begin(), damaged.end());
  IContainerFrontEnd::check(session.store(), [&](const std::string& message) {
    if (seen.insert(message).second) damaged.push_back(message);
  });
  std::string out;
  for (const std::string& line : damaged)
    out += line + '\n';
  print(out);
  session.commit();
  return damaged.empty() ? 0 : 2;
}

int check(const Options& options, Session& session) {
  if (!options.operands.empty()) return checkDocument(options, session);
  if ((options.given & kStoreOption) == 0) throw UsageError("check needs a document or --store");
  return checkStore(options, session);
}

const Command kpCommands[] = {
    {"roundtrip", kSchemasOption | kLimitOptions | kExactOption, 1, 1, roundtrip},
    {"import", kStoreOption | kSchemasOption | kStatsOption | kStrictOption | kLimitOptions, 1, 1,
     import},
    {"export", kStoreOption | kSchemasOption | kPathOption | kLimitOptions | kExactOption, 0, 0,
     exportTree},
    {"ls", kStoreOption, 0, 1, list},
    {"get", kStoreOption | kSchemasOption | kLimitOptions, 1, 1, get},
    {"validate", kStoreOption | kSchemasOption | kLimitOptions, 2, 2, validate},
    {"check", kStoreOption | kSchemasOption | kLimitOptions, 0, 1, check},
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
