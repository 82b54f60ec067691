#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "data/api/api_test_support.h"

// Handles are independent of one another: each owns its own logic object, so any of them may
// outlive the handle it was obtained from, and dropping them in any order leaves the records'
// reference counts as they were (a child can be removed once the last handle on it is gone).
namespace kestrine::platform::data::api_test {
namespace {

using structure::IContainerFilter;
using structure::IContainerFrontEnd;

class HandleLifetime : public ::testing::Test {
 protected:
  void SetUp() override {
    auto top = IContainerFrontEnd::toplevel(&store_, L"top");
    auto box = top->create(IContainer::kGroup, L"box", nullptr);
    box->create(IContainer::kNode, L"child", nullptr);
    box->create(L"value", metadata::kInt32);
    box->create(L"table", static_cast<metadata::ISchema*>(nullptr))
        ->create(L"member", metadata::kDouble, units::tUnit(0));
  }

  // True when "box" can be removed: nothing in its subtree is open any more.
  bool boxIsFree() { return IContainerFrontEnd::toplevel(&store_, L"top")->destroy(L"box"); }

  // Every call must touch the store under its lock only.
  void TearDown() override { EXPECT_EQ(store_.unguarded(), 0u); }

  GuardedStore store_;
};

TEST_F(HandleLifetime, ContainerGoesBeforeWhatItGaveOut) {
  auto box = IContainerFrontEnd::find(&store_, L"top.box");
  auto value = box->property(L"value");
  auto table = ITable::to(box->property(L"table").get())->lookup(L"member")->parent();
  auto properties = box->properties();
  auto containers = box->containers();
  auto members = ITable::to(table.get())->properties();
  auto parent = box->container(L"child")->parent();
  box.reset();

  EXPECT_EQ(utf8(value->path()), "top.box.value");
  EXPECT_EQ(utf8(properties->current()->tag()), "value");
  EXPECT_EQ(utf8(containers->current()->tag()), "child");
  EXPECT_EQ(utf8(members->current()->tag()), "member");
  EXPECT_TRUE(parent->has(L"table.member"));
  EXPECT_FALSE(boxIsFree());

  value.reset();
  properties.reset();
  containers.reset();
  table.reset();
  parent.reset();
  EXPECT_FALSE(boxIsFree());  // the member filter still holds the table open
  members.reset();
  EXPECT_TRUE(boxIsFree());
}

TEST_F(HandleLifetime, ContainerOutlivesWhatItGaveOut) {
  auto box = IContainerFrontEnd::find(&store_, L"top.box");
  {
    auto value = box->property(L"value");
    auto filter = box->containers();
    auto child = filter->current();
    auto members = ITable::to(box->property(L"table").get())->properties();
  }
  EXPECT_TRUE(box->has(L"child"));
  EXPECT_EQ(walk(*box->properties()), (std::vector<std::string>{"value", "table"}));
  box.reset();
  EXPECT_TRUE(boxIsFree());
}

// Many handles on one subtree, dropped in shuffled orders: every drop gives its count back.
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

// A view is the handle's own object: it stays usable exactly as long as some copy of the
// handle lives, whichever copy that is.
TEST_F(HandleLifetime, ViewsLiveAsLongAsAnyCopyOfTheHandle) {
  auto table = IContainerFrontEnd::find(&store_, L"top.box")->property(L"table");
  ITable* view = ITable::to(table.get());
  SharedPtr<IProperty> copy = table;
  table.reset();
  EXPECT_EQ(view->items(), 1u);
  EXPECT_EQ(copy.uses(), 1u);
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
