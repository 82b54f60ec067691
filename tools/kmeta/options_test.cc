// The command line taken apart, before any command runs.
#include "tools/kmeta/options.h"

#include <gtest/gtest.h>

#include <vector>

namespace kmeta {
namespace {

Options parse(std::vector<const char*> words) {
  words.insert(words.begin(), "kmeta");
  return parseArguments(static_cast<int>(words.size()), words.data());
}

// Catches: options and operands confused with each other, or values lost.
TEST(KmetaOptions, TakesOptionsAndOperandsInAnyOrder) {
  Options options = parse(
      {"import", "doc.xml", "--schemas", "a.xml", "--store=s.db", "--schemas=b.xml", "--stats"});
  EXPECT_EQ(options.command, "import");
  EXPECT_EQ(options.store, "s.db");
  EXPECT_EQ(options.schemas, (std::vector<std::string>{"a.xml", "b.xml"}));
  EXPECT_EQ(options.operands, std::vector<std::string>{"doc.xml"});
  EXPECT_EQ(options.given, unsigned(kStoreOption | kSchemasOption | kStatsOption));

  Options rest = parse({"get", "-", "--", "--path"});
  EXPECT_EQ(rest.operands, (std::vector<std::string>{"-", "--path"}));
  EXPECT_EQ(rest.given, 0u);
  EXPECT_EQ(rest.store, ":memory:");
  EXPECT_TRUE(parse({"--help"}).help);
}

}  // namespace
}  // namespace kmeta
