// Laws of the write side; the round trip is in set_walk_test.cpp, the others are played in hostile_test.cpp.
#include <algorithm>
#include <functional>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Ondra/KelGnmiUtils.h"
#include "Ondra/PlaceSet.h"
#include "fixture/Populate.h"
#include "ondra/set_random.h"
#include "ondra/set_support.h"

namespace {

using namespace SetTest;
using Ondra::KelGnmiSet::AttrTree;
using Ondra::KelGnmiSet::PlaceSet;

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

// The places that a request's paths mean; null when one of them means none, or many.
class Placed {
public:
  explicit Placed(Fixture::World const& world) : set(Ondra::Path::strToPathIs("/fixture/device")) {
    root_.object = world.device()->fwkType().genericIf(static_cast<Kel::PtrInterface*>(world.device().get()));
  }

  PlaceSet::Place const* place(gnmi::Path const& path) {
    AttrTree::KelObject at = root_;
    PlaceSet::Place const* found = &set.root();
    for (gnmi::PathElem const& elem : path.elem()) {
      auto next = AttrTree::getNextKelObject(at, elem);
      if (!next || next->hasFilter()) return nullptr;
      at = std::move(next).value();
      found = &set.placeIs(*found, at.attr, at.key());
    }
    return found;
  }
  // False: some path means no place. A prefix, which is never remade, has no like among places.
  bool take(gnmi::SetRequest const& request) {
    auto const all = [&](auto const& entries, auto const& pathOf, auto const& add) {
      return std::ranges::all_of(entries, [&](auto const& entry) {
        auto const* const found = place(pathOf(entry));
        if (found != nullptr) add(*found, entry);
        return found != nullptr && found != &set.root();
      });
    };
    auto const pathOf = [](gnmi::Update const& update) -> gnmi::Path const& { return update.path(); };
    return request.prefix().elem_size() == 0 &&
           all(request.delete_(), std::identity(), [&](auto& at, auto&) { set.deleteIs(at); }) &&
           all(request.replace(), pathOf, [&](auto& at, auto& entry) { set.replaceIs(at, entry.val()); }) &&
           all(request.update(), pathOf, [&](auto& at, auto& entry) { set.updateIs(at, entry.val()); });
  }

  PlaceSet set;

private:
  AttrTree::KelObject root_;
};

// Keys by their values alone: a path may name a key's field in many ways.
std::string plain(grpc::Status const& status) {
  return std::regex_replace(textOf(status), std::regex(R"(\[[^=\]]*=)"), "[=");
}

TEST(SetLaw, PlacesAreWhatTheirPathsAre) {
  int done = 0;
  int refused = 0;
  for (std::uint32_t seed = 0; done + refused < 150; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    gnmi::SetRequest request;
    Model expected;
    grpc::Status status;
    {
      Fixture::World world;
      RequestMaker maker(world.device(), [&random](std::size_t bound) { return random() % bound; });
      request = maker.make();
      bool const hasValues = std::ranges::all_of(request.update(), &gnmi::Update::has_val) &&
                             std::ranges::all_of(request.replace(), &gnmi::Update::has_val);
      if (!hasValues || !Placed(world).take(request)) continue;
      status = execute(request).second;
      expected = modelOf(world.dir());
    }
    Fixture::World world;
    Placed placed(world);
    ASSERT_TRUE(placed.take(request));
    Model const before = modelOf(world.dir());
    grpc::Status const checked = placed.set.check();
    EXPECT_EQ(std::vector<std::string>{}, changes(before, modelOf(world.dir())));
    EXPECT_EQ(plain(status), plain(placed.set.execute())) << request.ShortDebugString();
    EXPECT_EQ(plain(status), plain(checked));
    EXPECT_EQ(std::vector<std::string>{}, changes(expected, modelOf(world.dir())));
    ++(status.ok() ? done : refused);
  }
  EXPECT_LT(20, done);
  EXPECT_LT(20, refused);
}

} // namespace
