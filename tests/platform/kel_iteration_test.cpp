// Iteration of keyed collections: key order, starts at keys that have gone, changes meanwhile; against a std::map.
#include <map>
#include <random>

#include "platform/KelTesting.h"

namespace KelTesting {
namespace {

class KelIteration : public InterfaceTest {
protected:
  static Kel::Ptr<GenericIf const> key(std::uint16_t id) { return num(id); }
  void put(std::uint16_t id) {
    Handle const vlan = at().memberType().genericIf(nullptr);
    at().indexAttr().genericIfSet(vlan, nullptr, key(id));
    at().genericIfSet(object, key(id), vlan);
  }
  [[nodiscard]] KelAttr at() const { return attr("vlan"); }
  static std::uint16_t idOf(ConstHandle const& handle) { return *handle->attrValPtr<std::uint16_t>(); }
};
INSTANTIATE_TEST_SUITE_P(Kel, KelIteration, testing::ValuesIn(kFlavours), nameOf);

TEST_P(KelIteration, AgreesWithAMapWhateverChangesMeanwhile) {
  for (std::uint32_t seed = 1; seed <= 200; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::map<std::uint16_t, bool> model;
    auto const edit = [&] {
      auto const id = static_cast<std::uint16_t>(random() % 24);
      if (random() % 2 == 0) {
        put(id);
        model[id] = true;
      } else {
        at().genericIfDel(object, key(id));
        model.erase(id);
      }
    };
    for (int i = 0; i < 30; ++i)
      edit();

    auto const start = static_cast<std::uint16_t>(random() % 26);
    bool const fromStart = random() % 2 == 0;
    auto it =
        fromStart ? at().genericIfIteratorConst(object) : at().genericIfIteratorConst(object, key(start));
    auto expected = fromStart ? model.begin() : model.lower_bound(start);
    std::optional<std::uint16_t> last;
    while (it) {
      ASSERT_NE(expected, model.end());
      last = idOf(it.key());
      ASSERT_EQ(*last, expected->first);
      ASSERT_EQ(idOf(at().indexAttr().genericIfGet(it.ptr())), *last);
      for (auto changes = random() % 3; changes > 0; --changes)
        edit();
      ++it;
      expected = model.upper_bound(*last); // past the last key it gave
    }
    ASSERT_EQ(expected, model.end());
    for (auto const& [id, there] : model)
      at().genericIfDel(object, key(id));
  }
}

// What a key orders by, kind by kind.
TEST_P(KelIteration, KeyOrder) {
  KelAttr const lanes = attr("lane"), backups = attr("backup"), addrs = attr("addr");
  for (Fixture::Zone zone : {Fixture::Zone::Dmz, Fixture::Zone::Inside, Fixture::Zone::Outside}) {
    lanes.genericIfSet(object, handleOf(zone), ArgList());
  }
  for (char const* text : {"b", "", "a10", "a9", "\xc3\xa9"})
    backups.genericIfSet(object, str(text), other);
  for (auto const& [vrf, addr] : {std::pair{"red", 2U}, {"red", 1U}, {"blue", 0x80000000U}}) {
    addrs.genericIfSet(object, handleOf(Fixture::AddrKey{vrf, addr}), handleOf(Fixture::AddrInfo{24, ""}));
  }
  auto const order = [this](KelAttr const& of) {
    std::string text;
    for (auto it = of.genericIfIteratorConst(object); it; ++it)
      text += it.key()->strRep() + " ";
    return text;
  };
  EXPECT_EQ(order(lanes), "'INSIDE' 'OUTSIDE' 'DMZ' ");
  EXPECT_EQ(order(backups), "\"\" \"a10\" \"a9\" \"b\" \"\xc3\xa9\" ");
  EXPECT_EQ(order(addrs), "{vrf=\"blue\", addr=2147483648} {vrf=\"red\", addr=1} {vrf=\"red\", addr=2} ");
}

// A cursor pins what it walks: its object may be removed and let go of meanwhile.
TEST_P(KelIteration, OutlivesTheObjectsPlaceInTheTree) {
  put(1);
  put(2);
  auto it = at().genericIfIteratorConst(object);
  dir_->entityDel("subject");
  object = nullptr;
  int members = 0;
  for (; it; ++it)
    members += idOf(it.key());
  EXPECT_EQ(members, 3);
}

} // namespace
} // namespace KelTesting
