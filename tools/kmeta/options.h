#ifndef KPL_TOOLS_KMETA_OPTIONS_H_
#define KPL_TOOLS_KMETA_OPTIONS_H_

#include <string>
#include <vector>

namespace kmeta {

// The options a command may take, as bits.
enum Option : unsigned {
  kStoreOption = 1,
  kSchemasOption = 2,
  kPathOption = 4,
  kStatsOption = 8,
  kStrictOption = 16,
  kMaxDepthOption = 32,
  kMaxValueOption = 64,
  kMaxFieldsOption = 128,
  kExactOption = 256,
  // Every limit, for the commands that read documents.
  kLimitOptions = kMaxDepthOption | kMaxValueOption | kMaxFieldsOption,
};

// What a document read by kmeta may hold at most, each 0 for no limit. The defaults lie far
// beyond any real document, and keep a hostile one within about a gigabyte of memory.
struct Limits {
  // Levels of nested elements.
  unsigned long long depth = 200000;
  // Bytes of one primitive's values; its text may take 8 times as many.
  unsigned long long valueBytes = 64ull << 20;
  // Fields of one struct layout, struct members expanded (see ISchemaLocator::make).
  unsigned long long fields = 100000;
};

// A command line taken apart, not yet checked against the command it names.
struct Options {
  std::string command;
  bool help = false;
  // The Option bits of the options given.
  unsigned given = 0;
  std::string store = ":memory:";
  std::vector<std::string> schemas;
  std::string path;
  Limits limits;
  std::vector<std::string> operands;
};

// The spelling of an option on the command line ("--store").
const char* optionName(Option option);

// Reads argv[1...]: the command first, then options and operands in any order ("--" ends the
// options; "--name=value" is the same as "--name value"). "--help" anywhere asks for the usage
// text. Throws UsageError for an unknown option, a missing or malformed value or a missing
// command.
Options parseArguments(int argc, const char* const* argv);

}  // namespace kmeta

#endif  // KPL_TOOLS_KMETA_OPTIONS_H_
