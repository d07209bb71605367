// A law of the write side; the round trip is in set_walk_test.cpp, the others are played in hostile_test.cpp.
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fixture/Populate.h"
#include "ondra/set_support.h"

namespace {

using namespace SetTest;

// Of many leaves of many members, some named by a second spelling of their keys.
std::vector<gnmi::Update> manyUpdates(std::mt19937& random) {
  std::vector<gnmi::Update> updates;
  auto const add = [&updates](std::string const& path, std::string const& value) {
    gnmi::Update& update = updates.emplace_back();
    *update.mutable_path() = pathOf(path);
    *update.mutable_val() = valueOf(value);
  };
  for (int i = 0; i < 60; ++i) {
    std::string const number = std::to_string(i);
    for (std::string const& port :
         {"/interface[name=eth" + number + "]", std::string("/interface[name=eth0]")}) {
      auto const below = [&](std::string const& list, std::string const& key) {
        return port + "/" + list + "[" + (random() % 2 == 0 ? key : "other") + "=" + number + "]/";
      };
      add(port + "/contact/phone/country", "uint_val: 7");
      add(below("vlan", "id") + "label", "string_val: 'v'");
      add(below("unit", "id") + "label", "string_val: 'u'");
      add(below("unit", "id") + "queue[number=3]/depth", "uint_val: 5");
      add(below("unit", "id") + "queue[number=3]/weight", "uint_val: 6");
    }
  }
  return updates;
}

TEST(SetLaw, TheOrderOfUpdatesIsOfNoMatter) {
  Model first;
  for (std::uint32_t seed = 0; seed < 8; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::vector<gnmi::Update> updates = manyUpdates(random);
    if (seed != 0) std::shuffle(updates.begin(), updates.end(), random);
    gnmi::SetRequest request;
    request.mutable_update()->Add(updates.begin(), updates.end());
    Fixture::World world;
    auto const top = Kel::Ptr<Kel::Entity>(world.dir());
    Model const before = modelOf(top);
    auto const [response, status] = execute(request);
    ASSERT_EQ("OK", textOf(status));
    ASSERT_EQ(request.update_size(), response.response_size());
    for (int i = 0; i < request.update_size(); ++i) {
      ASSERT_EQ(request.update(i).path().SerializeAsString(),
                response.response(i).path().SerializeAsString());
    }
    Model const after = modelOf(top);
    if (seed == 0) {
      EXPECT_LT(600U, changes(before, after).size());
      first = after;
    }
    EXPECT_EQ(std::vector<std::string>{}, changes(first, after));
  }
}

} // namespace
