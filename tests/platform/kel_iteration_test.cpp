// Iteration of collections of every kind: order, starts at keys that have gone, changes at any moment;
// against a model of the states.
#include <functional>
#include <random>
#include <set>

#include "Ondra/PathElem.h"
#include "platform/KelTesting.h"

namespace KelTesting {
namespace {

class KelIteration : public InterfaceTest {
protected:
  // Members of one attribute by number; handles of keys are in the order of the numbers.
  struct Kind {
    char const* name;
    Handle object;
    KelAttr attr;
    std::function<ConstHandle(int)> key;
    std::function<void(int)> put;
    bool isArray = false, givesAdditions = true;
  };

  [[nodiscard]] Kind keyed(char const* name, std::function<ConstHandle(int)> const& key) const {
    KelAttr const at = attr(name);
    return {name, object, at, key, [this, at, key](int i) {
              if (at.isInstantiating()) {
                ArgList args;
                args.push_back(key(i));
                at.genericIfSet(object, args);
              } else if (at.isPointer()) {
                at.genericIfSet(object, key(i), other);
              } else {
                Handle const member = at.memberType().genericIf(nullptr);
                if (at.indexAttr()) at.indexAttr().genericIfSet(member, nullptr, key(i));
                at.genericIfSet(object, key(i), member);
              }
            }};
  }
  std::vector<Kind> kinds() {
    auto const text = [](int i) { return str(std::string(1, static_cast<char>('a' + i)).c_str()); };
    Kel::Ptr<Kel::Dir> const dir = dir_->dirIs("entries");
    Kel::Ptr<Ondra::PathElem> const elem = Ondra::PathElem::PathElemIs("e");
    Handle const hooked = GenericIf::toObject(elem.get());
    std::vector<Kind> all = {
        keyed("vlan", [](int i) { return num(static_cast<std::uint16_t>(i)); }),
        keyed("addr",
              [this](int i) -> ConstHandle {
                return attr("addr").keyType().genericIf({str("v"), num(static_cast<std::uint32_t>(i))});
              }),
        keyed("backup", text),
        keyed("unit", [](int i) { return num(static_cast<std::uint32_t>(i)); }),
        {"entityPtr", handleTo(dir), dir->fwkType().attr("entityPtr"), text,
         [this, dir](int i) {
           std::string const name(1, static_cast<char>('a' + i));
           if (!dir->entity(name)) dir->entityIs(name, entityIn(type_.genericIf(ArgList())));
         }},
        {"key", hooked, hooked->type().attr("key"), text,
         [hooked, text](int i) { hooked->type().attr("key").genericIfSet(hooked, text(i), str("v")); }, false,
         false},
        {"tags", object, attr("tags"), [](int i) { return num(static_cast<std::uint64_t>(i)); }, nullptr,
         true},
    };
    std::vector<Handle> targets;
    for (int i = 0; i < kKeys; ++i)
      targets.push_back(make(("target" + std::to_string(i)).c_str()));
    Handle const device = GetParam().device().genericIf(ArgList());
    KelAttr const cost = device->type().attr("cost");
    auto const target = [targets](int i) { return targets[static_cast<std::size_t>(i)]; };
    all.push_back({"cost", device, cost, target,
                   [=](int i) { cost.genericIfSet(device, target(i), num<std::uint32_t>(1)); }});
    return all;
  }

  static constexpr int kKeys = 10;
};
INSTANTIATE_TEST_SUITE_P(Kel, KelIteration, testing::ValuesIn(kFlavours), nameOf);

// What `Cursor` says of its states, said once more over a set of numbers.
class Model {
public:
  Model(std::set<int> const& present, bool givesAdditions, int start)
      : present_(present)
      , known_(givesAdditions ? std::nullopt : std::optional(present))
      , at_(first(start)) {}
  [[nodiscard]] bool isThere() const { return at_ && present_.contains(*at_); }
  [[nodiscard]] std::optional<int> at() const { return at_; }
  bool test() {
    if (at_ && !isThere()) moved_ = moved_ || given_, given_ = false, at_ = first(*at_);
    return at_.has_value();
  }
  void give() { given_ = true, moved_ = false; }
  void advance() {
    if (at_) at_ = first(*at_ + (moved_ ? 0 : 1));
    given_ = moved_ = false;
  }

private:
  [[nodiscard]] std::optional<int> first(int from) const {
    for (auto at = present_.lower_bound(from); at != present_.end(); ++at)
      if (!known_ || known_->contains(*at)) return *at;
    return std::nullopt;
  }
  std::set<int> const& present_;
  std::optional<std::set<int>> known_;
  std::optional<int> at_;
  bool given_ = false, moved_ = false;
};

TEST_P(KelIteration, KeepsToItsStatesWhateverChangesAtWhateverMoment) {
  int steps = 0, gone = 0;
  for (Kind const& kind : kinds()) {
    for (std::uint32_t seed = 1; seed <= 150; ++seed) {
      SCOPED_TRACE(std::string(kind.name) + ", seed " + std::to_string(seed));
      std::mt19937 random(seed);
      auto const below = [&random](int bound) {
        return static_cast<int>(random() % static_cast<unsigned>(bound));
      };
      std::set<int> present;
      auto const edit = [&] {
        int const i = below(kKeys);
        if (kind.isArray) {
          Handle const array = kind.attr.type().genericIf(nullptr);
          present.clear();
          for (int at = 0; at < i; ++at)
            kind.attr.genericIfAdd(array, str("x")), present.insert(at);
          kind.attr.genericIfSet(kind.object, nullptr, array);
        } else if (below(5) < 2) {
          kind.put(i), present.insert(i);
        } else {
          kind.attr.genericIfDel(kind.object, kind.key(i)), present.erase(i);
        }
      };
      for (int i = 0; i < 12; ++i)
        edit();
      int const start = below(kKeys);
      bool const fromStart = below(2) == 0;
      auto it = fromStart ? kind.attr.genericIfIteratorConst(kind.object)
                          : kind.attr.genericIfIteratorConst(kind.object, kind.key(start));
      Model model(present, kind.givesAdditions, fromStart ? 0 : start);
      for (int step = 0; step < 40; ++step, ++steps) {
        switch (below(6)) {
        case 0: ++it, model.advance(); break;
        case 1: ASSERT_EQ(static_cast<bool>(it), model.test()); break;
        case 2: {
          ConstHandle const key = it.key();
          ASSERT_EQ(static_cast<bool>(key), model.at().has_value());
          ASSERT_TRUE(!key || key->equals(*kind.key(*model.at())));
          model.give();
          break;
        }
        case 3: {
          ConstHandle const member = it.ptr();
          ASSERT_EQ(static_cast<bool>(member), model.isThere());
          ASSERT_TRUE(!member || member->equals(*kind.attr.genericIfGet(kind.object, kind.key(*model.at()))));
          gone += model.at() && !member;
          model.give();
          break;
        }
        default: edit();
        }
      }
      while (!kind.isArray && !present.empty())
        kind.attr.genericIfDel(kind.object, kind.key(*present.begin())), present.erase(present.begin());
    }
  }
  EXPECT_GT(steps, 40000);
  EXPECT_GT(gone, 100);
}

// What a key orders by, kind by kind.
TEST_P(KelIteration, KeyOrder) {
  KelAttr const lanes = attr("lane"), backups = attr("backup"), addrs = attr("addr");
  for (char const* zone : {"'DMZ'", "'INSIDE'", "'OUTSIDE'"})
    lanes.genericIfSet(object, lanes.keyType().genericIf(Kel::String(zone)).value(), ArgList());
  for (char const* text : {"b", "", "a10", "a9", "\xc3\xa9"})
    backups.genericIfSet(object, str(text), other);
  for (auto const& [vrf, addr] : {std::pair{"red", 2U}, {"red", 1U}, {"blue", 0x80000000U}}) {
    addrs.genericIfSet(object, addrs.keyType().genericIf({str(vrf), num(addr)}),
                       addrs.memberType().genericIf(nullptr));
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
  Kind const vlans = kinds().front();
  vlans.put(1);
  vlans.put(2);
  auto it = attr("vlan").genericIfIteratorConst(object);
  dir_->entityDel("subject");
  object = nullptr;
  int members = 0;
  for (; it; ++it)
    members += *it.key()->attrValPtr<std::uint16_t>();
  EXPECT_EQ(members, 3);
}

} // namespace
} // namespace KelTesting
