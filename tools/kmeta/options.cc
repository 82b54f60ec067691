#include "options.h"

#include <cstring>

#include "failure.h"

namespace kmeta {

namespace {

struct tOptionName {
  const char* name;
  Option option;
};

const tOptionName kpOptions[] = {
    {"--store", kStoreOption},
    {"--schemas", kSchemasOption},
    {"--path", kPathOption},
    {"--stats", kStatsOption},
};

// Stores the value of an option that takes one.
void assign(Options& options, Option option, const std::string& value) {
  switch (option) {
    case kStoreOption:
      options.store = value;
      break;
    case kSchemasOption:
      options.schemas.push_back(value);
      break;
    case kPathOption:
      options.path = value;
      break;
    case kStatsOption:
      break;
  }
}

}  // namespace

const char* optionName(Option option) {
  for (const tOptionName& candidate : kpOptions)
    if (candidate.option == option) return candidate.name;
  return "?";
}

Options parseArguments(int argc, const char* const* argv) {
  Options options;
  bool operandsOnly = false;
  for (int i = 1; i < argc; ++i) {
    std::string word = argv[i];
    if (operandsOnly || word == "-" || word.compare(0, 1, "-") != 0) {
      if (options.command.empty() && !operandsOnly)
        options.command = word;
      else
        options.operands.push_back(word);
      continue;
    }
    if (word == "--") {
      operandsOnly = true;
      continue;
    }
    if (word == "--help" || word == "-h") {
      options.help = true;
      continue;
    }
    std::string::size_type equals = word.find('=');
    std::string name = word.substr(0, equals);
    const tOptionName* found = nullptr;
    for (const tOptionName& candidate : kpOptions)
      if (name == candidate.name) found = &candidate;
    if (found == nullptr) throw UsageError("unknown option '" + name + "'");
    options.given |= found->option;
    if (found->option == kStatsOption) {
      if (equals != std::string::npos) throw UsageError(name + " takes no value");
      continue;
    }
    if (equals != std::string::npos) {
      assign(options, found->option, word.substr(equals + 1));
    } else if (i + 1 < argc) {
      assign(options, found->option, argv[++i]);
    } else {
      throw UsageError(name + " needs a value");
    }
  }
  if (options.command.empty() && !options.help) throw UsageError("no command given");
  return options;
}

}  // namespace kmeta
