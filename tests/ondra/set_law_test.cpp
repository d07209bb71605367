// The laws of the write side over the fixture model, as properties; the round trip is in set_walk_test.cpp.
#include <random>

#include <gtest/gtest.h>

#include "fixture/Populate.h"
#include "ondra/set_random.h"
#include "ondra/set_support.h"

namespace {

using namespace SetTest;

TEST(SetLaw, ARefusedRequestIsInvisibleAndAnAcceptedUpdateCanBeRepeatedSilently) {
  std::size_t refused = 0;
  std::size_t accepted = 0;
  for (std::uint32_t seed = 1; seed <= 60; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Fixture::World world;
    auto const top = Kel::Ptr<Kel::Entity>(world.dir());
    std::mt19937 random(seed);
    RequestMaker maker(world.device(), [&random](std::size_t bound) { return random() % bound; });
    for (int round = 0; round < 25; ++round) {
      gnmi::SetRequest request = maker.make();
      Model const before = modelOf(top);
      Watch const watch(top);
      auto const outcome = execute(request);
      ASSERT_EQ(request.delete__size() + request.replace_size() + request.update_size(),
                outcome.first.response_size());
      if (!outcome.second.ok()) {
        ++refused;
        ASSERT_EQ(std::vector<std::string>{}, changes(before, modelOf(top))) << request.DebugString();
        ASSERT_EQ(std::vector<std::string>{}, watch.told()) << request.DebugString();
        continue;
      }
      ++accepted;
      if (request.delete__size() + request.replace_size() != 0) continue;
      Model const after = modelOf(top);
      Watch const again(top);
      ASSERT_EQ("OK", textOf(execute(request).second)) << request.DebugString();
      ASSERT_EQ(std::vector<std::string>{}, changes(after, modelOf(top))) << request.DebugString();
      ASSERT_EQ(std::vector<std::string>{}, again.told()) << request.DebugString();
    }
  }
  // Both kinds are met often enough to mean something.
  EXPECT_GT(refused, 100U);
  EXPECT_GT(accepted, 100U);
}

} // namespace
