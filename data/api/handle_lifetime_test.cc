#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <thread>

#include "data/api/api_test_support.h"

// Handles are independent of one another: each owns its own logic object, so any of them may
// outlive the handle it was obtained from, and dropping them in any order leaves the records'
// reference counts as they were (a child can be removed once the last handle on it is gone).
namespace kestrine::platform::data::api_test {
namespace {

class HandleLifetime : public ApiTest {
 protected:
  // Through a fresh handle on "top", whose index knows when "box" was removed.
  void SetUp() override {
    auto box =
        IContainerFrontEnd::toplevel(&store_, L"top")->create(IContainer::kGroup, L"box", nullptr);
    box->create(IContainer::kNode, L"child", nullptr);
    box->create(L"value", metadata::kInt32);
    box->create(L"table", static_cast<metadata::ISchema*>(nullptr))
        ->create(L"member", metadata::kDouble, units::tUnit(0));
  }

  // True when "box" can be removed: nothing in its subtree is open any more.
  bool boxIsFree() { return IContainerFrontEnd::toplevel(&store_, L"top")->destroy(L"box"); }
};

// Catches a handle that borrows its source's logic object (a use after free once the
// source goes, under ASan) or that holds a count only while its source lives.
TEST_F(HandleLifetime, ContainerGoesBeforeWhatItGaveOut) {
  auto box = IContainerFrontEnd::find(&store_, L"top.box");
  auto value = box->property(L"value");
  auto table = ITable::to(box->property(L"table").get())->lookup(L"member")->parent();
  auto properties = box->properties();
  auto containers = box->containers();
  auto members = ITable::to(table.get())->properties();
  auto parent = box->container(L"child")->parent();
  // A view is the handle's own object: it lives as long as any copy of the handle.
  ITable* view = ITable::to(table.get());
  SharedPtr<IProperty> copy = table;
  box.reset();
  table.reset();

  EXPECT_EQ(utf8(value->path()), "top.box.value");
  EXPECT_EQ(utf8(properties->current()->tag()), "value");
  EXPECT_EQ(utf8(containers->current()->tag()), "child");
  EXPECT_EQ(utf8(members->current()->tag()), "member");
  EXPECT_TRUE(parent->has(L"table.member"));
  EXPECT_EQ(view->items(), 1u);
  EXPECT_EQ(copy.uses(), 1u);
  EXPECT_FALSE(boxIsFree());

  value.reset();
  properties.reset();
  containers.reset();
  copy.reset();
  parent.reset();
  EXPECT_FALSE(boxIsFree());  // the member filter still holds the table open
  members.reset();
  EXPECT_TRUE(boxIsFree());
}

// Catches a count taken twice or given back twice: many handles on one subtree, dropped in
// shuffled orders, must leave the subtree free to remove.
TEST_F(HandleLifetime, AnyReleaseOrderBalancesTheCounts) {
  std::mt19937 random(7);
  for (int round = 0; round < 20; ++round) {
    if (round > 0) SetUp();
    std::vector<std::shared_ptr<void>> handles;
    auto keep = [&handles](auto handle) {
      ASSERT_TRUE(handle);
      handles.push_back(std::make_shared<decltype(handle)>(handle));
    };
    auto box = IContainerFrontEnd::find(&store_, L"top.box");
    keep(box->container(WideString()));
    keep(box->container(L"child"));
    keep(box->container(L"child")->parent());
    keep(box->property(L"value"));
    keep(box->property(L"table.member"));
    keep(box->property(L"table.member")->parent());
    keep(box->properties());
    keep(box->containers());
    keep(ITable::to(box->property(L"table").get())->properties());
    keep(ITable::to(box->property(L"table").get())->at(0));
    keep(box);
    box.reset();
    ASSERT_FALSE(boxIsFree());
    std::shuffle(handles.begin(), handles.end(), random);
    handles.clear();
    ASSERT_TRUE(boxIsFree()) << "round " << round;
  }
}

// Catches a library that keeps per-thread state only as long as the thread's thread-local
// objects: a handle held by a static closes at exit after them, and one held by a thread-local
// made before the thread's first call closes after them too. Such a close must still give back
// its count and leave the library usable (it wrote into freed memory, under ASan).
TEST(HandleLifetimeAtThreadEnd, ClosesAfterTheThreadLocalsAreGone) {
  struct Holder {
    MemoryDataStore* store = nullptr;
    SharedPtr<IContainer> box;
    int* result = nullptr;
    ~Holder() {
      box.reset();
      *result = IContainerFrontEnd::toplevel(store, L"top")->destroy(L"box") ? 1 : 0;
    }
  };
  MemoryDataStore store;
  int result = -1;
  std::thread([&] {
    // Made before the thread's first call into the library, so destroyed after whatever
    // thread-local objects that call makes.
    thread_local Holder holder;
    holder.store = &store;
    holder.result = &result;
    holder.box =
        IContainerFrontEnd::toplevel(&store, L"top")->create(IContainer::kGroup, L"box", nullptr);
    ASSERT_TRUE(holder.box);
  }).join();
  EXPECT_EQ(result, 1);
  EXPECT_FALSE(IContainerFrontEnd::find(&store, L"top.box"));
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
