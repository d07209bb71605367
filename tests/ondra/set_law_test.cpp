// Laws of the write side; the round trip is in set_walk_test.cpp, the others are played in hostile_test.cpp.
#include <regex>

#include "Ondra/KelGnmiUtils.h"
#include "Ondra/PlaceSet.h"
#include "fixture/Populate.h"
#include "fixture/RandomEdits.h"
#include "ondra/set_random.h"
#include "ondra/set_support.h"

namespace {

using namespace SetTest;
using Ondra::KelGnmiSet::AttrTree, Ondra::KelGnmiSet::PlaceSet;

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

// Whatever is asked, what the model holds no more is not written to, though a reference keeps it alive.
TEST(SetLaw, WhatHasGoneIsNotWrittenThroughReferences) {
  Fixture::World world;
  Kel::Ptr<Fixture::Interface> const eth0 = world.device()->interfaceIs("eth0");
  world.device()->interfaceDel("eth0");
  std::string const before = Fixture::dump(eth0);
  for (std::string const reference : {"uplink", "alias[k=wan]"}) {
    for (char const* const op : {"update", "replace"}) {
      for (char const* const below : {"/mtu", "/contact/person", "/unit[id=0]/label"}) {
        bool const isText = below[1] != 'm';
        Op const asked{op, reference + below, isText ? "string_val: 'x'" : "uint_val: 1"};
        EXPECT_EQ("NOT_FOUND Error in finding path /" + reference + ": Path element '" + reference +
                      "' is not set",
                  textOf(execute(requestOf({asked})).second));
      }
    }
  }
  EXPECT_EQ(before, Fixture::dump(eth0));
}

} // namespace
