// Store failures at every step of resolving, validating and evicting: each either passes
// through or is absorbed, and leaves the locator unlocked, its cache sound and (under ASan)
// nothing leaked.

#include <gtest/gtest.h>

#include <optional>

#include "data/schema/schema_locator_impl.h"
#include "data/schema/schema_test_support.h"
#include "data/testing/faulty_store.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::data::Schema {
namespace {

using core::string::WideString;

// A failing store holding "point" and "pair".
class FaultyStore : public BasicSchemaStore<testing::FaultyStore> {
 public:
  FaultyStore() { pointAndPair(); }
};

// Fails the n-th store operation of one call, for every n until the call gets through, and
// checks each time that the failure reached the caller and that the same call then succeeds
// in full. `prepare` runs before each attempt, with the store working.
template <class Prepare, class Call>
void failEachStep(testing::FaultyStore* store, Prepare prepare, Call call) {
  for (unsigned step = 0;; ++step) {
    prepare();
    store->failAfter(step);
    bool threw = false;
    try {
      call();
    } catch (const core::Exception&) {
      threw = true;
    }
    const bool fired = store->fired();
    store->disarm();
    EXPECT_EQ(fired, threw) << "step " << step;
    call();  // deadlocks on a lock left held, throws on a broken cache
    if (!fired) return;
  }
}

// Catches a failure swallowed while resolving, a lock left held, and a half-built layout
// cached for the next call.
TEST(SchemaFaultInjectionTest, ResolvingPassesFailuresThroughAndCachesNothingHalfBuilt) {
  FaultyStore schemas;
  std::optional<SchemaLocatorImpl> locator;
  auto fresh = [&] {
    locator.reset();
    locator.emplace();
    locator->push(schemas.store());
  };
  failEachStep(schemas.store(), fresh, [&] {
    auto schema = locator->schema(WideString(L"pair;point"));
    ASSERT_TRUE(schema);
    ASSERT_EQ(2u, schema->links());
    EXPECT_EQ(5u, schema->layout(0)->fields());
    EXPECT_EQ(32u, schema->layout(0)->stride());
  });
}

// A failure in the middle of one resolve leaves what was cached before it intact.
TEST(SchemaFaultInjectionTest, ACachedLocatorSurvivesFailedResolves) {
  FaultyStore schemas;
  SchemaLocatorImpl locator;
  locator.push(schemas.store());
  failEachStep(
      schemas.store(), [] {},
      [&] {
        auto schema = locator.schema(WideString(L"pair"));
        ASSERT_TRUE(schema);
        EXPECT_EQ(32u, schema->layout(0)->stride());
        EXPECT_EQ(1u, schema->validate(schema->definition(0)));
      });
}

// Evicting cannot fail: a store that refuses the dropped reference counts only keeps them.
TEST(SchemaFaultInjectionTest, PopEvictsEvenWhenTheStoreFails) {
  FaultyStore schemas;
  SchemaLocatorImpl locator;
  locator.push(schemas.store());
  ASSERT_TRUE(locator.schema(WideString(L"pair")));
  schemas.store()->failAfter(0, true);
  EXPECT_TRUE(locator.pop(schemas.store()));
  schemas.store()->disarm();
  EXPECT_FALSE(locator.schema(WideString(L"pair")));
  locator.push(schemas.store());
  EXPECT_TRUE(locator.schema(WideString(L"pair")));
}

}  // namespace
}  // namespace kestrine::platform::data::Schema
