// Store faults in the middle of the data layer's operations: whichever store operation fails,
// the call must hand the store's exception on, hold no store lock afterwards, free what it
// had built (the sanitizer build checks the leaks), and leave a store that serves the next
// call. Each scenario is run with a fault at every store operation in turn, once failing just
// that operation and once failing every later one as well, so that destructors fail while the
// first fault unwinds.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>

#include "data/api/api_test_support.h"
#include "data/schema/schema_locator_impl.h"
#include "data/schema/schema_test_support.h"
#include "data/tree/root.h"
#include "data/tree/tree_test_support.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::data::api_test {
namespace {

using metadata::ISchemaLocator;
using metadata::IStringArray;
using structure::ILink;

// Fills the failing store and the plain one, and answers the call to make while the failing
// one fails.
using Scenario =
    std::function<std::function<void()>(InterceptingStore& failing, MemoryDataStore& plain)>;

// Where a fault may end. The tree and the locator pass every store fault on; a call through
// the object model may also meet one in a handle's destructor, which closes the handle
// without throwing.
enum class Faults { kPassedOn, kPassedOnOrClosedOver };

// The store still takes a new top-level container with a child.
void servesTheNextCall(InterceptingStore& store) {
  auto after = IContainerFrontEnd::toplevel(&store, L"after");
  ASSERT_TRUE(after);
  EXPECT_TRUE(after->create(L"x", metadata::kInt8));
}

// Runs the scenario's call once for every store operation it makes, on fresh stores each time,
// failing that operation (and, in the second round, every later one until the call returns);
// then, with the store working and the call's handles dropped, runs `afterwards`.
void failEachStep(const Scenario& scenario, Faults faults = Faults::kPassedOnOrClosedOver,
                  const std::function<void(InterceptingStore&)>& afterwards = servesTheNextCall) {
  for (bool sticky : {false, true}) {
    for (unsigned step = 0;; ++step) {
      ASSERT_LT(step, 100000u) << "the call never completed";
      InterceptingStore failing;
      MemoryDataStore plain;
      bool fired = false;
      {
        std::function<void()> call = scenario(failing, plain);
        failing.failAfter(step, sticky);
        bool threw = false;
        try {
          call();
        } catch (const core::Exception&) {
          threw = true;
        }
        fired = failing.fired();
        failing.disarm();
        EXPECT_TRUE(fired || !threw);
        if (faults == Faults::kPassedOn) {
          EXPECT_EQ(threw, fired) << "the fault at step " << step << " was swallowed";
        }
        ASSERT_EQ(failing.locksHeld, 0) << "a lock is still held after a fault at step " << step;
      }  // the call's handles close here, on a working store
      ASSERT_EQ(failing.locksHeld, 0) << "a handle kept a lock after a fault at step " << step;
      afterwards(failing);
      if (!fired) break;
    }
  }
}

// Catches a fresh store left half-prepared or locked when making its root fails.
TEST(FaultInjection, FrontEndOnAFreshStore) {
  failEachStep([](InterceptingStore& failing, MemoryDataStore&) {
    return [&failing] {
      auto top = IContainerFrontEnd::toplevel(&failing, WideString());
      top->create(IContainer::kGroup, L"a", nullptr);
      IContainerFrontEnd::find(&failing, L"default.a");
    };
  });
}

// Catches an inheritance or validation that keeps a lock or leaks copies on a failure.
TEST(FaultInjection, CreatingFromASchema) {
  failEachStep([](InterceptingStore& failing, MemoryDataStore& plain) {
    auto schema = defineSchema(&plain, L"s");
    schema->create(L"x", metadata::kDouble, units::Meter);
    schema->create(L"inner", nullptr)->create(L"y", metadata::kInt32, units::tUnit(0));
    auto locator = ISchemaLocator::make(&plain);
    auto top = IContainerFrontEnd::toplevel(&failing, L"top");
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
  failEachStep([](InterceptingStore& failing, MemoryDataStore&) {
    auto top = IContainerFrontEnd::toplevel(&failing, L"top");
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
  failEachStep([](InterceptingStore& failing, MemoryDataStore&) {
    auto top = IContainerFrontEnd::toplevel(&failing, L"top");
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
  failEachStep([](InterceptingStore& failing, MemoryDataStore& plain) {
    auto in = sourceTree(&plain), out = sourceTree(&failing);
    auto target = IContainerFrontEnd::toplevel(&failing, L"a");
    IContainerFrontEnd::toplevel(&plain, L"a");
    return [in, out, target, &failing, &plain] {
      in->clone(&failing, L"a.b");
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
  failEachStep([](InterceptingStore& failing, MemoryDataStore& plain) {
    sourceTree(&plain);
    sourceTree(&failing);
    auto out =
        IContainerFrontEnd::toplevel(&failing, L"top")->create(IContainer::kLink, L"out", nullptr);
    ILink::to(out.get())->target(L"src.box");
    auto in =
        IContainerFrontEnd::toplevel(&plain, L"top")->create(IContainer::kLink, L"in", nullptr);
    ILink::to(in.get())->target(L"src.box");
    return [out, in, &failing, &plain] {
      ILink::to(out.get())->follow(&plain);
      ILink::to(out.get())->follow(nullptr);
      ILink::to(in.get())->follow(&failing);
    };
  });
}

// A root holding the subtree "g" (see testing::Subtree), as the front end leaves one.
void rootWithSubtree(InterceptingStore& store) {
  Metadata::Root(&store, L"root").add(testing::Subtree(&store, L"g").group);
  store.version(1);
}

// Catches add, remove, rename, hide, show, clear and a clone into the failing store that
// swallow the fault or leave a leak behind when the store fails half-way.
TEST(FaultInjection, ChangingTheTree) {
  failEachStep(
      [](InterceptingStore& failing, MemoryDataStore& plain) {
        rootWithSubtree(failing);
        const unsigned source = testing::Subtree(&plain, L"c").group;
        return [&failing, &plain, source] {
          Metadata::Root root(&failing, 0);
          root.add(Structural::Container(&plain, source, true).clone(&failing));
          root.add(testing::Subtree(&failing, L"h").group);
          root.remove(L"g");
          root.rename(L"h", L"i");
          root.hide(root.find(L"i"));
          Design::Primitive(&failing, root.lookup(L"i.t.p1")).show();
          Design::Table(&failing, root.lookup(L"i.t"), false).clear();
        };
      },
      Faults::kPassedOn);
}

// Catches an inherit that keeps the schema store's lock, or leaks its half-made copies, when
// the schema store fails.
TEST(FaultInjection, InheritingFromAFailingStore) {
  failEachStep(
      [](InterceptingStore& failing, MemoryDataStore& plain) {
        rootWithSubtree(failing);
        return [&failing, &plain] {
          Metadata::Root definitions(&failing, 0);
          testing::SchemaChain chain({{L"s", &definitions}});
          Structural::Container(&plain, IContainer::kNode, L"c").inherit(&chain);
        };
      },
      Faults::kPassedOn);
}

// Catches a destructor that swallows its own store failure, or throws a second one while
// the first unwinds (which would terminate the process).
TEST(FaultInjection, ADestructorFailsOnlyWhenNothingElseIsUnwinding) {
  InterceptingStore store;
  auto* container = new Structural::Container(&store, IContainer::kNode, L"c");
  container->localize(L"x", L"en");
  store.failAfter(0, true);
  EXPECT_THROW(delete container, core::Exception);  // and still freed
  store.disarm();
  EXPECT_THROW(
      {
        Design::Primitive item(&store, metadata::kInt8, L"p");
        item.localize(L"x", L"en");
        store.failAfter(0, true);
        throw std::runtime_error("first");
      },
      std::runtime_error);
}

// Resolves "pair;point" (see Schema::SchemaBuilder::pointAndPair), and validates the table
// "pair" by its schema.
void resolvePairAndPoint(Schema::SchemaLocatorImpl& locator) {
  auto chain = locator.schema(WideString(L"pair;point"));
  ASSERT_TRUE(chain);
  ASSERT_EQ(2u, chain->links());
  EXPECT_EQ(5u, chain->layout(0)->fields());
  EXPECT_EQ(32u, chain->layout(0)->stride());
  auto pair = locator.schema(WideString(L"pair"));
  ASSERT_TRUE(pair);
  EXPECT_EQ(1u, pair->validate(pair->definition(0)));
}

// Catches a failure swallowed while resolving or validating, a lock left held, and a
// half-built layout cached for the next call.
TEST(FaultInjection, ResolvingSchemas) {
  std::unique_ptr<Schema::SchemaLocatorImpl> locator;
  failEachStep(
      [&](InterceptingStore& failing, MemoryDataStore&) {
        Schema::SchemaBuilder(&failing).pointAndPair();
        locator = std::make_unique<Schema::SchemaLocatorImpl>();
        locator->push(&failing);
        return [&] { resolvePairAndPoint(*locator); };
      },
      Faults::kPassedOn,
      [&](InterceptingStore&) {
        resolvePairAndPoint(*locator);
        locator.reset();
      });
}

// Catches a pop that fails with the store: evicting cannot fail, a store that refuses the
// dropped reference counts only keeps them.
TEST(FaultInjection, PopEvictsEvenWhenTheStoreFails) {
  InterceptingStore store;
  Schema::SchemaBuilder(&store).pointAndPair();
  Schema::SchemaLocatorImpl locator;
  locator.push(&store);
  ASSERT_TRUE(locator.schema(WideString(L"pair")));
  store.failAfter(0, true);
  EXPECT_TRUE(locator.pop(&store));
  store.disarm();
  EXPECT_FALSE(locator.schema(WideString(L"pair")));
  locator.push(&store);
  EXPECT_TRUE(locator.schema(WideString(L"pair")));
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
