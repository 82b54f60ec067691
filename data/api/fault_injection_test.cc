#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <thread>

#include "data/api/api_test_support.h"
#include "data/testing/faulty_store.h"
#include "kestrine/platform/core/exception.h"

// Every store operation that an interface call makes may fail. Whichever one does, the call
// must hand the store's exception on, hold no store lock afterwards (the next call, on this
// thread or another, must not block), and free what it had built (ASan checks the leaks).
namespace kestrine::platform::data::api_test {
namespace {

using metadata::ISchemaLocator;
using metadata::IStringArray;
using structure::ILink;
using testing::FaultyStore;

// Prepares a scenario on the two stores and returns the operation to run while `faulty` fails.
using Scenario = std::function<std::function<void()>(FaultyStore& faulty, MemoryDataStore& plain)>;

// Runs the scenario's operation once for every store operation it makes, failing the n-th
// (and, when `sticky`, every later one until the operation returns).
void failEachStep(const Scenario& scenario, bool sticky) {
  for (unsigned n = 0; n < 100000; ++n) {
    FaultyStore faulty;
    MemoryDataStore plain;
    bool completed = false;
    {
      std::function<void()> operation = scenario(faulty, plain);
      faulty.failAfter(n, sticky);
      try {
        operation();
        completed = !faulty.fired();
      } catch (const core::Exception&) {
        EXPECT_TRUE(faulty.fired());
      }
      faulty.disarm();
      ASSERT_EQ(faulty.locksHeld, 0) << "a lock is still held after a fault at step " << n;
    }  // the scenario's handles close here, on a working store
    ASSERT_EQ(faulty.locksHeld, 0) << "a handle kept a lock after a fault at step " << n;
    std::thread other([&faulty] { delete faulty.lock(); });
    other.join();
    ASSERT_TRUE(IContainerFrontEnd::toplevel(&faulty, L"after"));
    if (completed) return;
  }
  FAIL() << "the operation never completed";
}

void failEachStep(const Scenario& scenario) {
  failEachStep(scenario, false);
  failEachStep(scenario, true);
}

// Catches a fresh store left half-prepared or locked when making its root fails.
TEST(FaultInjection, FrontEndOnAFreshStore) {
  failEachStep([](FaultyStore& faulty, MemoryDataStore&) {
    return [&faulty] {
      auto top = IContainerFrontEnd::toplevel(&faulty, WideString());
      top->create(IContainer::kGroup, L"a", nullptr);
      IContainerFrontEnd::find(&faulty, L"default.a");
    };
  });
}

// Catches an inheritance or validation that keeps a lock or leaks copies on a failure.
TEST(FaultInjection, CreatingFromASchema) {
  failEachStep([](FaultyStore& faulty, MemoryDataStore& plain) {
    auto schema = defineSchema(&plain, L"s");
    schema->create(L"x", metadata::kDouble, units::Meter);
    schema->create(L"inner", nullptr)->create(L"y", metadata::kInt32, units::tUnit(0));
    auto locator = ISchemaLocator::make(&plain);
    auto top = IContainerFrontEnd::toplevel(&faulty, L"top");
    return [locator, top] {
      auto resolved = locator->resolve(L"schemas.s");
      top->create(IContainer::kNode, L"n", resolved.get());
      top->create(L"t", resolved.get())->validates(resolved.get());
      top->validates(L"n", resolved.get(), false);
    };
  });
}

// Catches values, descriptions, string arrays, defaults and renames that keep a lock on a
// failure, or a handle whose destructor does.
TEST(FaultInjection, ValuesDescriptionsAndStrings) {
  failEachStep([](FaultyStore& faulty, MemoryDataStore&) {
    auto top = IContainerFrontEnd::toplevel(&faulty, L"top");
    return [top] {
      auto text = top->create(L"text", metadata::kString);
      text->container()->describe(L"en-us", L"Names");
      std::unique_ptr<IStringArray> names(IStringArray::to(L"a\0bc", 5));
      names->write(text.get());
      auto table = top->create(L"t", static_cast<metadata::ISchema*>(nullptr));
      table->defaults(units::Meter, metadata::kDouble);
      auto length = table->create(L"length", units::group::Length);
      const double value = 2.0;
      length->set(&value, 0, 1);
      length->container()->rename(L"len");
      text.reset();  // writes the description back
      top->property(L"text")->localize(L"en-us");
    };
  });
}

// Catches filters and destroy keeping a lock, or a destroy that leaks, on a failure.
TEST(FaultInjection, WalkingFiltersAndDestroyingASubtree) {
  failEachStep([](FaultyStore& faulty, MemoryDataStore&) {
    auto top = IContainerFrontEnd::toplevel(&faulty, L"top");
    auto sub = top->create(IContainer::kGroup, L"sub", nullptr);
    sub->create(L"v", metadata::kInt8)->container()->describe(L"en-us", L"v");
    sub->create(L"t", static_cast<metadata::ISchema*>(nullptr))->create(L"c", nullptr);
    top->create(IContainer::kLink, L"a", nullptr);
    top->create(L"t", static_cast<metadata::ISchema*>(nullptr))
        ->create(L"m", metadata::kInt8, units::tUnit(0));
    return [top] {
      below(top);
      top->containers()->prev();
      top->destroy(L"sub");
    };
  });
}

// The source tree in one store, the target of a clone or a link in the other.
SharedPtr<IContainer> sourceTree(core::storage::datastore::IDataStore* store) {
  auto src = IContainerFrontEnd::toplevel(store, L"src");
  src->create(L"n", metadata::kDouble)->container()->describe(L"en-us", L"n");
  src->create(L"t", static_cast<metadata::ISchema*>(nullptr))
      ->defaults(units::Second, metadata::kScalar);
  src->create(IContainer::kNode, L"box", nullptr)->create(L"s", metadata::kString);
  return src;
}

// Catches clones and copies across stores that keep either store's lock or leak their
// half-made copy when one store fails.
TEST(FaultInjection, CloningIntoAndOutOfAFailingStore) {
  failEachStep([](FaultyStore& faulty, MemoryDataStore& plain) {
    auto in = sourceTree(&plain), out = sourceTree(&faulty);
    auto target = IContainerFrontEnd::toplevel(&faulty, L"a");
    IContainerFrontEnd::toplevel(&plain, L"a");
    return [in, out, target, &faulty, &plain] {
      in->clone(&faulty, L"a.b");
      target->clone(in->container(L"box"));
      target->copy(in);
      out->clone(&plain, L"a.b");
      out->clone(L"box", L"box2", false);
      out->clone(L"src.n", L"box.n", true);
      out->copy(IContainerFrontEnd::find(&plain, L"a"));
    };
  });
}

// Catches a link followed across stores that keeps either lock on a failure.
TEST(FaultInjection, FollowingLinksAcrossStores) {
  failEachStep([](FaultyStore& faulty, MemoryDataStore& plain) {
    sourceTree(&plain);
    sourceTree(&faulty);
    auto out =
        IContainerFrontEnd::toplevel(&faulty, L"top")->create(IContainer::kLink, L"out", nullptr);
    ILink::to(out.get())->target(L"src.box");
    auto in =
        IContainerFrontEnd::toplevel(&plain, L"top")->create(IContainer::kLink, L"in", nullptr);
    ILink::to(in.get())->target(L"src.box");
    return [out, in, &faulty, &plain] {
      ILink::to(out.get())->follow(&plain);
      ILink::to(out.get())->follow(nullptr);
      ILink::to(in.get())->follow(&faulty);
    };
  });
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
