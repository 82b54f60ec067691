#include <gtest/gtest.h>

#include <memory>

#include "data/api/api_test_support.h"

namespace kestrine::platform::data::api_test {
namespace {

using metadata::IStringArray;
using structure::IContainerFrontEnd;

std::vector<std::string> strings(const IStringArray& array) {
  std::vector<std::string> out;
  for (unsigned i = 0; i < array.strings(); ++i)
    out.push_back(utf8(array.get(i)));
  return out;
}

TEST(StringArray, UnpacksAtEveryZeroAndDropsAnUnterminatedTail) {
  const wchar_t packed[] = {L'a', 0, 0, L'b', 0};
  std::unique_ptr<IStringArray> five(IStringArray::to(packed, 5));
  EXPECT_EQ(strings(*five), (std::vector<std::string>{"a", "", "b"}));
  std::unique_ptr<IStringArray> four(IStringArray::to(packed, 4));
  EXPECT_EQ(strings(*four), (std::vector<std::string>{"a", ""}));
  std::unique_ptr<IStringArray> none(IStringArray::to(packed, 0));
  EXPECT_EQ(none->strings(), 0u);
  std::unique_ptr<IStringArray> null(IStringArray::to(nullptr, 3));
  EXPECT_EQ(null->strings(), 0u);
}

class StringArrayWrite : public ::testing::Test {
 protected:
  // Every call must touch the store under its lock only.
  void TearDown() override { EXPECT_EQ(store_.unguarded(), 0u); }

  GuardedStore store_;
  SharedPtr<IContainer> top_ = IContainerFrontEnd::toplevel(&store_, L"top");
};

TEST_F(StringArrayWrite, PacksStringsEachWithOneTerminator) {
  auto text = top_->create(L"names", metadata::kString);
  std::unique_ptr<IStringArray> array(IStringArray::to(nullptr, 0));
  array->add(L"ab");
  array->add(L"xy");
  ASSERT_TRUE(array->write(text.get()));
  ASSERT_EQ(text->dimension(), 6u);
  wchar_t stored[6];
  ASSERT_EQ(text->get(stored, 0, 6), 6u);
  EXPECT_EQ(std::wstring(stored, 6), std::wstring(L"ab\0xy\0", 6));
  std::unique_ptr<IStringArray> back(IStringArray::to(stored, 6));
  EXPECT_EQ(strings(*back), (std::vector<std::string>{"ab", "xy"}));
}

TEST_F(StringArrayWrite, ReplacesTheValuesWhole) {
  auto text = top_->create(L"names", metadata::kURI);
  std::unique_ptr<IStringArray> array(IStringArray::to(L"first\0second", 13));
  ASSERT_TRUE(array->write(text.get()));
  std::unique_ptr<IStringArray> shorter(IStringArray::to(L"x", 2));
  ASSERT_TRUE(shorter->write(text.get()));
  EXPECT_EQ(text->dimension(), 2u);
  std::unique_ptr<IStringArray> empty(IStringArray::to(nullptr, 0));
  EXPECT_TRUE(empty->write(text.get()));
  EXPECT_EQ(text->dimension(), 0u);
}

TEST_F(StringArrayWrite, RefusesNonTextTargetsAndUriMode) {
  auto number = top_->create(L"n", metadata::kInt32);
  const int value = 5;
  number->set(&value, 0, 1);
  std::unique_ptr<IStringArray> array(IStringArray::to(L"a", 2));
  EXPECT_FALSE(array->write(number.get()));
  EXPECT_EQ(number->dimension(), 1u);
  EXPECT_FALSE(array->write(nullptr));

  auto linked = top_->create(L"l", metadata::kString);
  linked->uri(L"file:///names");
  EXPECT_FALSE(array->write(linked.get()));
  EXPECT_EQ(utf8(linked->uri()), "file:///names");
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
