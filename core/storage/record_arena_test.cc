#include "core/storage/record_arena.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <random>
#include <vector>

namespace kestrine::platform::core::storage::datastore {
namespace {

using Model = std::vector<std::optional<std::vector<unsigned char>>>;

void expectSame(const RecordArena& arena, const Model& model) {
  for (unsigned offset = 0; offset < model.size(); ++offset) {
    RecordArena::Bytes bytes;
    ASSERT_EQ(arena.find(offset, bytes), model[offset].has_value()) << offset;
    if (!model[offset]) continue;
    ASSERT_EQ(bytes.size, model[offset]->size()) << offset;
    if (bytes.size != 0) {
      ASSERT_EQ(0, std::memcmp(bytes.data, model[offset]->data(), bytes.size)) << offset;
    }
  }
}

std::vector<unsigned char> randomBytes(std::mt19937& random, std::size_t size) {
  std::vector<unsigned char> bytes(size);
  for (auto& byte : bytes)
    byte = static_cast<unsigned char>(random());
  return bytes;
}

// Records made, grown where they lie and elsewhere, grown past a chunk's largest, cut down,
// rewritten and freed at random, with enough churn for several packs, read back as a plain
// model of the same operations holds them.
TEST(RecordArena, KeepsEveryRecordThroughMovesAndPacks) {
  std::mt19937 random(7);
  RecordArena arena;
  Model model;
  std::vector<unsigned> freed;
  auto pickLive = [&]() -> std::optional<unsigned> {
    for (int tries = 0; tries < 8 && !model.empty(); ++tries) {
      unsigned offset = random() % model.size();
      if (model[offset]) return offset;
    }
    return std::nullopt;
  };
  auto size = [&]() -> std::size_t {
    return random() % 50 == 0 ? 60000 + random() % 20000 : random() % 400;
  };
  for (int step = 0; step < 120000; ++step) {
    unsigned choice = random() % 10;
    std::optional<unsigned> live = pickLive();
    if (choice < 4 || !live) {
      std::vector<unsigned char> bytes = randomBytes(random, size());
      unsigned offset =
          arena.create(bytes.empty() ? nullptr : bytes.data(), static_cast<unsigned>(bytes.size()));
      if (!freed.empty()) {
        // A freed offset is given out again before a new one.
        ASSERT_NE(std::find(freed.begin(), freed.end(), offset), freed.end());
        freed.erase(std::find(freed.begin(), freed.end(), offset));
      } else {
        ASSERT_EQ(offset, model.size());
        model.emplace_back();
      }
      model[offset] = std::move(bytes);
    } else if (choice < 7) {
      std::vector<unsigned char>& record = *model[*live];
      std::vector<unsigned char> tail = randomBytes(random, size() / 4);
      unsigned old = static_cast<unsigned>(record.size());
      unsigned char* data = arena.resize(*live, static_cast<unsigned>(old + tail.size()), old);
      std::copy(tail.begin(), tail.end(), data + old);
      record.insert(record.end(), tail.begin(), tail.end());
    } else if (choice < 8) {
      std::vector<unsigned char>& record = *model[*live];
      unsigned kept = static_cast<unsigned>(random() % (record.size() + 1));
      arena.resize(*live, kept, kept);
      record.resize(kept);
    } else {
      ASSERT_TRUE(arena.free(*live));
      ASSERT_FALSE(arena.free(*live));
      model[*live].reset();
      freed.push_back(*live);
    }
    if (step % 20000 == 0) expectSame(arena, model);
  }
  expectSame(arena, model);
  RecordArena::Bytes none;
  EXPECT_FALSE(arena.find(static_cast<unsigned>(model.size()), none));
  EXPECT_EQ(nullptr, arena.resize(static_cast<unsigned>(model.size()), 1, 0));
}

// The newest record grows where it lies while its chunk has room, and moves to a new chunk
// when it has not, keeping its bytes.
TEST(RecordArena, GrowsTheNewestRecordInPlaceOnlyWithinItsChunk) {
  constexpr unsigned kBig = 65000;
  constexpr unsigned kChunk = RecordArena::kChunkBytes;
  RecordArena arena;
  std::vector<unsigned char> big(kBig, 1);
  for (unsigned i = 0; i < kChunk / kBig; ++i)
    arena.create(big.data(), kBig);
  // Leaves 576 bytes of the chunk.
  const unsigned size = kChunk % kBig - 576, grown = size + 576;
  std::vector<unsigned char> last(size, 2);
  const unsigned offset = arena.create(last.data(), size);
  EXPECT_EQ(arena.chunkBytes(), kChunk);
  arena.resize(offset, grown, size);  // fits
  EXPECT_EQ(arena.chunkBytes(), kChunk);
  unsigned char* data = arena.resize(offset, grown + 8, grown);  // does not
  std::fill(data + size, data + grown + 8, 3);
  EXPECT_EQ(arena.chunkBytes(), 2 * kChunk);
  last.resize(grown + 8, 3);
  RecordArena::Bytes bytes;
  ASSERT_TRUE(arena.find(offset, bytes));
  ASSERT_EQ(bytes.size, grown + 8);
  EXPECT_EQ(0, std::memcmp(bytes.data, last.data(), grown + 8));
}

// Holes are let stand up to half of what the records hold (or 8 MiB), and no further.
TEST(RecordArena, PacksAwayHolesThatOutweighTheRecords) {
  std::mt19937 random(11);
  RecordArena arena;
  Model model;
  for (unsigned offset = 0; offset < 60000; ++offset) {
    model.emplace_back(randomBytes(random, 1000));
    ASSERT_EQ(offset, arena.create(model.back()->data(), 1000));
  }
  EXPECT_GE(arena.chunkBytes(), 60000u * 1000u);
  for (unsigned offset = 0; offset < model.size(); ++offset) {
    if (offset % 3 == 0) continue;
    arena.free(offset);
    model[offset].reset();
  }
  expectSame(arena, model);
  std::size_t held = 20000 * 1000;
  EXPECT_LE(arena.chunkBytes(), held + held / 2 + (std::size_t{10} << 20));
}

}  // namespace
}  // namespace kestrine::platform::core::storage::datastore
