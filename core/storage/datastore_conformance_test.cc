// The IDataStore contract, checked the same way against every store implementation.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/storage/datastore_test_support.h"
#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {
namespace {

class DataStoreConformance : public ::testing::TestWithParam<StoreFactory> {
 protected:
  void SetUp() override { store_ = GetParam().make(); }

  std::string readAll(unsigned offset) {
    std::string bytes(store_->size(offset), '\0');
    unsigned copied = store_->read(offset, bytes.data(), 0xFFFFFFFF);
    EXPECT_EQ(copied, bytes.size());
    return bytes;
  }

  std::unique_ptr<IDataStore> store_;
};

TEST_P(DataStoreConformance, FreshStoreIsEmptyAndFirstRecordIsAtZero) {
  EXPECT_EQ(store_->used(), 0u);
  EXPECT_EQ(store_->version(), 0u);
  EXPECT_EQ(store_->create("root", 4), 0u);
  EXPECT_GT(store_->used(), 0u);
  EXPECT_EQ(readAll(0), "root");
}

TEST_P(DataStoreConformance, UsedStaysNonZeroAfterEverythingIsFreed) {
  unsigned offset = store_->create("x", 1);
  store_->free(offset);
  EXPECT_GT(store_->used(), 0u);
}

TEST_P(DataStoreConformance, MissingRecordsReadAsNothing) {
  unsigned offset = store_->create("abc", 3);
  char byte = 'z';
  EXPECT_EQ(store_->size(IDataStore::BADOFF), 0u);
  EXPECT_EQ(store_->read(IDataStore::BADOFF, &byte, 1), 0u);
  EXPECT_EQ(store_->size(offset + 1000), 0u);
  store_->free(offset);
  EXPECT_EQ(store_->size(offset), 0u);
  EXPECT_EQ(store_->read(offset, &byte, 0xFFFFFFFF), 0u);
  EXPECT_EQ(byte, 'z');
  store_->free(offset);  // freeing twice does nothing
  store_->free(IDataStore::BADOFF);
}

TEST_P(DataStoreConformance, WritingToAMissingRecordThrowsAndChangesNothing) {
  unsigned offset = store_->create("abc", 3);
  unsigned long long used = store_->used();
  EXPECT_THROW(store_->write(offset + 1, "x", 1, true), core::Exception);
  EXPECT_THROW(store_->append(IDataStore::BADOFF, "x", 1), core::Exception);
  store_->free(offset);
  EXPECT_THROW(store_->write(offset, "x", 1, true), core::Exception);
  EXPECT_THROW(store_->append(offset, "x", 1), core::Exception);
  EXPECT_EQ(store_->size(offset), 0u);
  EXPECT_LE(store_->used(), used);
}

TEST_P(DataStoreConformance, WriteReplacesTheWholeRecord) {
  unsigned offset = store_->create("hello", 5);
  store_->write(offset, "hi", 2, true);
  EXPECT_EQ(readAll(offset), "hi");
  store_->write(offset, "a longer record", 15, false);
  EXPECT_EQ(readAll(offset), "a longer record");
  store_->write(offset, "", 0, true);
  EXPECT_EQ(store_->size(offset), 0u);
}

TEST_P(DataStoreConformance, AppendGrowsTheRecord) {
  unsigned offset = store_->create("\x03\0\0\0", 4);
  store_->append(offset, "\x01\0\0\0", 4);
  store_->append(offset, "\x02\0\0\0", 4);
  EXPECT_EQ(readAll(offset), std::string("\x03\0\0\0\x01\0\0\0\x02\0\0\0", 12));
}

TEST_P(DataStoreConformance, ReadStopsAtMaximum) {
  unsigned offset = store_->create("abcdef", 6);
  char buffer[8] = {};
  EXPECT_EQ(store_->read(offset, buffer, 1), 1u);
  EXPECT_EQ(std::string(buffer), "a");
  EXPECT_EQ(store_->read(offset, buffer, 100), 6u);
  EXPECT_EQ(std::string(buffer, 6), "abcdef");
}

TEST_P(DataStoreConformance, OffsetsAreDistinctAndStableWhileOthersAreFreed) {
  std::vector<unsigned> offsets;
  for (int i = 0; i < 100; ++i) {
    std::string value = "record " + std::to_string(i);
    offsets.push_back(store_->create(value.data(), static_cast<unsigned>(value.size())));
  }
  for (int i = 0; i < 100; i += 2) store_->free(offsets[i]);
  for (int i = 0; i < 50; ++i) {
    unsigned offset = store_->create("new", 3);
    EXPECT_NE(offset, IDataStore::BADOFF);
    for (int j = 1; j < 100; j += 2) EXPECT_NE(offset, offsets[j]);
  }
  for (int i = 1; i < 100; i += 2) EXPECT_EQ(readAll(offsets[i]), "record " + std::to_string(i));
}

TEST_P(DataStoreConformance, ZeroLengthRecordsExist) {
  unsigned offset = store_->create(nullptr, 0);
  EXPECT_NE(offset, IDataStore::BADOFF);
  EXPECT_EQ(store_->size(offset), 0u);
  store_->append(offset, "ab", 2);
  EXPECT_EQ(readAll(offset), "ab");
}

TEST_P(DataStoreConformance, VersionIsKept) {
  store_->version(7);
  EXPECT_EQ(store_->version(), 7u);
  store_->complete();
  EXPECT_EQ(store_->version(), 7u);
}

TEST_P(DataStoreConformance, LockIsReentrantForOneThreadAndExcludesOthers) {
  std::unique_ptr<IDataStore::ILock> outer(store_->lock());
  std::unique_ptr<IDataStore::ILock> inner(store_->lock());
  std::atomic<bool> acquired{false};
  std::thread other([&] {
    std::unique_ptr<IDataStore::ILock> held(store_->lock());
    acquired = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(acquired.load());
  inner.reset();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(acquired.load());
  outer.reset();
  other.join();
  EXPECT_TRUE(acquired.load());
}

TEST_P(DataStoreConformance, OperationsAreSafeFromManyThreadsWithoutTheLock) {
  // Four writers each keep their own records while a reader walks offset 0 all along.
  unsigned shared = store_->create("shared", 6);
  std::atomic<bool> failed{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      std::vector<unsigned> mine;
      for (int i = 0; i < 300; ++i) {
        std::string value = std::to_string(t) + ":" + std::to_string(i);
        mine.push_back(store_->create(value.data(), static_cast<unsigned>(value.size())));
        if (i % 3 == 0) store_->append(mine.back(), "+", 1);
        if (i % 5 == 0) {
          store_->free(mine.front());
          mine.erase(mine.begin());
        }
      }
      for (unsigned offset : mine) {
        std::string bytes(store_->size(offset), '\0');
        store_->read(offset, bytes.data(), 0xFFFFFFFF);
        if (bytes.rfind(std::to_string(t) + ":", 0) != 0) failed = true;
      }
    });
  }
  threads.emplace_back([&] {
    for (int i = 0; i < 2000; ++i) {
      char buffer[6];
      if (store_->read(shared, buffer, 6) != 6 || std::string(buffer, 6) != "shared") failed = true;
    }
  });
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(failed.load());
}

INSTANTIATE_TEST_SUITE_P(Stores, DataStoreConformance, ::testing::ValuesIn(allStoreFactories()),
                         [](const ::testing::TestParamInfo<StoreFactory>& info) {
                           return info.param.name;
                         });

}  // namespace
}  // namespace kestrine::platform::core::storage::datastore
