// The laws of the write side over the fixture model, as properties.
#include <random>

#include <gtest/gtest.h>

#include "Ondra/KelGnmiSetter.h"
#include "fixture/Populate.h"
#include "ondra/set_random.h"
#include "ondra/set_support.h"

namespace {

using namespace SetTest;

RequestMaker::Choose seeded(std::uint32_t seed) {
  return [random = std::mt19937(seed)](std::size_t bound) mutable { return random() % bound; };
}

// What is sent for a leaf can be sent back, and then changes nothing and tells nobody. Exceptions: references (sent as paths), floats
// (sent as doubles), bytes and JSON.
TEST(SetLaw, EveryWritableLeafTakesItsOwnValueBack) {
  Fixture::World world;
  auto const top = Kel::Ptr<Kel::Entity>(world.dir());
  Model const before = modelOf(top);
  Watch const watch(top);
  std::vector<std::string> refused;
  std::size_t accepted = 0;
  for (auto const& [name, entity] :
       {std::pair<std::string, Kel::Ptr<Kel::Entity>>{"/fixture/device", world.device()},
        {"/fixture/rack", world.rack()},
        {"/fixture/shelf/spare", world.spare()}}) {
    for (Leaf const& leaf : leavesBeneath(entity)) {
      if (!leaf.isSettable || leaf.isReference) {
        continue;
      }
      gnmi::SetRequest request;
      *request.add_update()->mutable_path() = leaf.path;
      *request.mutable_update(0)->mutable_val() = leaf.value;
      auto const outcome = execute(request, name);
      if (outcome.second.ok()) {
        ++accepted;
      } else if (leaf.value.value_case() == gnmi::TypedValue::VALUE_NOT_SET) {
        refused.push_back(leaf.name); // sent in a form that is not taken back
      } else if (leaf.name.find("[costKey=") == std::string::npos &&
                 leaf.name.find("[linkKey=") == std::string::npos) {
        ADD_FAILURE() << leaf.name << ": " << textOf(outcome.second) << "\n" << leaf.value.ShortDebugString();
      }
    }
  }
  EXPECT_EQ((std::vector<std::string>{"/gauges/ratio", "/gauges/raw", "/gauges/config"}), refused);
  EXPECT_GT(accepted, 150U);
  EXPECT_EQ(std::vector<std::string>{}, changes(before, modelOf(top)));
  EXPECT_EQ(std::vector<std::string>{}, watch.told());
}

TEST(SetLaw, ARefusedRequestIsInvisibleAndAnAcceptedUpdateCanBeRepeatedSilently) {
  std::size_t refused = 0;
  std::size_t accepted = 0;
  for (std::uint32_t seed = 1; seed <= 60; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Fixture::World world;
    auto const top = Kel::Ptr<Kel::Entity>(world.dir());
    RequestMaker maker(world.device(), seeded(seed));
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
      if (request.delete__size() + request.replace_size() != 0) {
        continue;
      }
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
