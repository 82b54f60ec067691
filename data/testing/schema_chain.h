#ifndef KPL_DATA_TESTING_SCHEMA_CHAIN_H_
#define KPL_DATA_TESTING_SCHEMA_CHAIN_H_

#include <utility>
#include <vector>

#include "data/tree/definition_chain.h"
#include "kestrine/platform/data/metadata/schema.h"

namespace kestrine::platform::data::testing {

// A schema made by hand, a chain of (path, defining set) pairs, standing in for the
// locator's schemas where only inheriting from a chain is under test.
class SchemaChain : public metadata::ISchema, public Metadata::DefinitionChain {
 public:
  using Links = std::vector<std::pair<const wchar_t*, Metadata::Set*>>;
  explicit SchemaChain(Links links) : links_(std::move(links)) {}

  core::string::WideString path() const override { return links_.at(0).first; }
  metadata::IStructLayout* layout() override { return nullptr; }
  unsigned links() const override { return static_cast<unsigned>(links_.size()); }
  const wchar_t* path(unsigned link) const override { return links_[link].first; }
  Metadata::Set* definition(unsigned link) const override { return links_[link].second; }

 private:
  Links links_;
};

}  // namespace kestrine::platform::data::testing

#endif  // KPL_DATA_TESTING_SCHEMA_CHAIN_H_
