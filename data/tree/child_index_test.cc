#include "data/tree/child_index.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kestrine::platform::data::Metadata {
namespace {

const unsigned kAbsent = 0xFFFFFFFF;

// Names that collide in every hash that reads only part of a name, and odd ones: long, empty,
// characters packed into several bytes, values that are no code point.
std::vector<std::wstring> awkwardNames() {
  std::vector<std::wstring> names;
  for (int i = 0; i < 3000; ++i)
    names.push_back(L"item_" + std::to_wstring(i));
  names.push_back(L"abcdefgh");
  names.push_back(L"abcdefgi");  // differs only in its last character
  names.push_back(std::wstring(200, L'x') + L"1");
  names.push_back(std::wstring(200, L'x') + L"2");
  names.push_back(L"\x101");     // packs as the bytes 0x81 0x02 ...
  names.push_back(L"\x81\x02");  // ... which are also these two characters
  names.push_back(std::wstring(1, static_cast<wchar_t>(0x7FFFFFFF)));
  names.push_back(std::wstring(1, static_cast<wchar_t>(-1)));  // no code point, still a name
  names.push_back(L"\x10FFFF\x80");
  names.push_back(L"");
  return names;
}

// Catches: names told apart by part of them only, and long or odd names lost or merged.
TEST(ChildIndex, TellsEveryNameApartAndFindsNoOther) {
  std::vector<std::wstring> names = awkwardNames();
  ChildIndex index;
  for (unsigned i = 0; i < names.size(); ++i)
    ASSERT_TRUE(index.insert(names[i].c_str(), 100 + i)) << i;
  EXPECT_EQ(index.size(), names.size());
  for (unsigned i = 0; i < names.size(); ++i)
    EXPECT_EQ(index.find(names[i].c_str()), 100 + i) << i;
  for (const wchar_t* other : {L"item_3000", L"item_", L"abcdefg", L"\x81", L"\x102", L"x"})
    EXPECT_EQ(index.find(other), kAbsent);
  EXPECT_FALSE(index.insert(L"item_7", 1));
  EXPECT_EQ(index.find(L"item_7"), 107u);
}

// Catches: a name equal to a marker key indexed (it would be taken for an empty or deleted
// bucket), and a refusal that changes anything.
TEST(ChildIndex, RefusesTheMarkerKeys) {
  ChildIndex index;
  ASSERT_TRUE(index.insert(L"a", 1));
  for (const wchar_t* marker : {L"$$$$$_____empty_key", L"$$$$$_____deleted_key"}) {
    EXPECT_FALSE(index.insert(marker, 2));
    EXPECT_FALSE(index.rename(L"a", marker));
    EXPECT_EQ(index.find(marker), kAbsent);
  }
  EXPECT_EQ(index.size(), 1u);
  EXPECT_EQ(index.find(L"a"), 1u);
  EXPECT_TRUE(index.insert(L"$$$$$_____empty_ke", 3));  // near misses are ordinary names
}

// Catches: entries lost or stale when names are renamed and erased by the thousand, which
// makes the index repack its names.
TEST(ChildIndex, RenamesAndErasuresKeepEveryOtherEntry) {
  ChildIndex index;
  const int kCount = 20000;
  for (int i = 0; i < kCount; ++i)
    ASSERT_TRUE(index.insert((L"name_" + std::to_wstring(i)).c_str(), i));
  EXPECT_FALSE(index.rename(L"name_1", L"name_2"));
  EXPECT_FALSE(index.rename(L"missing", L"anything"));
  for (int i = 0; i < kCount; i += 2)
    ASSERT_TRUE(index.rename((L"name_" + std::to_wstring(i)).c_str(),
                             (L"renamed_" + std::to_wstring(i)).c_str()));
  // Every other name erased too: the bytes left behind come to more than half.
  for (int i = 1; i < kCount; i += 2)
    ASSERT_TRUE(index.erase((L"name_" + std::to_wstring(i)).c_str()));
  EXPECT_FALSE(index.erase(L"name_1"));
  EXPECT_EQ(index.size(), unsigned(kCount / 2));
  for (int i = 0; i < kCount; ++i) {
    std::wstring before = L"name_" + std::to_wstring(i), after = L"renamed_" + std::to_wstring(i);
    unsigned expected = i % 2 == 1 ? kAbsent : unsigned(i);
    EXPECT_EQ(index.find((i % 2 == 0 ? after : before).c_str()), expected) << i;
    if (i % 2 == 0) {
      EXPECT_EQ(index.find(before.c_str()), kAbsent) << i;
    }
  }
  std::vector<unsigned> offsets = index.offsets();
  EXPECT_EQ(offsets.size(), index.size());
  index.clear();
  EXPECT_EQ(index.size(), 0u);
  EXPECT_EQ(index.find(L"renamed_0"), kAbsent);
  EXPECT_TRUE(index.insert(L"renamed_0", 5));
}

}  // namespace
}  // namespace kestrine::platform::data::Metadata
