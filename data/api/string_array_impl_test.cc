#include <gtest/gtest.h>

#include <memory>

#include "data/api/api_test_support.h"

namespace kestrine::platform::data::api_test {
namespace {

using metadata::IStringArray;

// The strings an array unpacks from `count` packed characters.
Names strings(const wchar_t* packed, unsigned count) {
  std::unique_ptr<IStringArray> array(IStringArray::to(packed, count));
  Names out;
  for (unsigned i = 0; i < array->strings(); ++i)
    out.push_back(utf8(array->get(i)));
  return out;
}

// Catches a split that drops empty strings or keeps an unterminated tail.
TEST(StringArray, UnpacksAtEveryZeroAndDropsAnUnterminatedTail) {
  const wchar_t packed[] = {L'a', 0, 0, L'b', 0};
  EXPECT_EQ(strings(packed, 5), (Names{"a", "", "b"}));
  EXPECT_EQ(strings(packed, 4), (Names{"a", ""}));
  EXPECT_TRUE(strings(packed, 0).empty());
  EXPECT_TRUE(strings(nullptr, 3).empty());
}

using StringArrayWrite = ApiTest;

// Catches strings packed without their terminators, old values left behind a shorter list,
// and a write into a primitive that is not text or stands for its values by a URI.
TEST_F(StringArrayWrite, PacksEachStringWithOneTerminatorReplacingTheValues) {
  auto text = top_->create(L"names", metadata::kString);
  std::unique_ptr<IStringArray> array(IStringArray::to(nullptr, 0));
  array->add(L"ab");
  array->add(L"xy");
  ASSERT_TRUE(array->write(text.get()));
  ASSERT_EQ(text->dimension(), 6u);
  wchar_t stored[6];
  ASSERT_EQ(text->get(stored, 0, 6), 6u);
  EXPECT_EQ(std::wstring(stored, 6), std::wstring(L"ab\0xy\0", 6));
  EXPECT_EQ(strings(stored, 6), (Names{"ab", "xy"}));

  auto uris = top_->create(L"uris", metadata::kURI);
  std::unique_ptr<IStringArray> shorter(IStringArray::to(L"x", 2));
  std::unique_ptr<IStringArray> empty(IStringArray::to(nullptr, 0));
  ASSERT_TRUE(array->write(uris.get()));
  ASSERT_TRUE(shorter->write(uris.get()));
  EXPECT_EQ(uris->dimension(), 2u);
  EXPECT_TRUE(empty->write(uris.get()));
  EXPECT_EQ(uris->dimension(), 0u);

  auto number = top_->create(L"n", metadata::kInt32);
  const int value = 5;
  number->set(&value, 0, 1);
  EXPECT_FALSE(shorter->write(number.get()));
  EXPECT_EQ(number->dimension(), 1u);
  EXPECT_FALSE(shorter->write(nullptr));
  text->uri(L"file:///names");
  EXPECT_FALSE(shorter->write(text.get()));
  EXPECT_EQ(utf8(text->uri()), "file:///names");
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
