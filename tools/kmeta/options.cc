#include "options.h"

#include <cstring>
#include <stdexcept>

#include "failure.h"

namespace kmeta {

namespace {

struct tOptionName {
  const char* name;
  Option option;
  bool takesValue;
};

const tOptionName kpOptions[] = {
    {"--store", kStoreOption, true},        {"--schemas", kSchemasOption, true},
    {"--path", kPathOption, true},          {"--stats", kStatsOption, false},
    {"--strict", kStrictOption, false},     {"--max-depth", kMaxDepthOption, true},
    {"--max-value", kMaxValueOption, true}, {"--max-fields", kMaxFieldsOption, true},
    {"--exact", kExactOption, false},
};

// A limit's value: a decimal count, 0 for none, at most what the library takes.
unsigned long long count(const std::string& option, const std::string& value,
                         unsigned long long most) {
  std::size_t end = 0;
  unsigned long long number = 0;
  try {
    if (!value.empty() && value[0] >= '0' && value[0] <= '9') number = std::stoull(value, &end);
  } catch (const std::out_of_range&) {
    end = 0;
  }
  if (end == 0 || end != value.size() || number > most)
    throw UsageError(option + " needs a count from 0 (no limit) to " + std::to_string(most) +
                     ", not '" + value + "'");
  return number;
}

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
    case kMaxDepthOption:
      options.limits.depth = count(optionName(option), value, 0xFFFFFFFFu);
      break;
    case kMaxValueOption:
      options.limits.valueBytes = count(optionName(option), value, 0xFFFFFFFFu);
      break;
    case kMaxFieldsOption:
      options.limits.fields = count(optionName(option), value, 0xFFFFFFFFu);
      break;
    default:
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
    if (!found->takesValue) {
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
