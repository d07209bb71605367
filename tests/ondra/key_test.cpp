// Keys of list entries: attributes that have the name of a key field, texts of keys of every kind, texts that no message can hold.

#include <boost/algorithm/string/replace.hpp>

#include <random>
#include <set>

#include <gmock/gmock.h>

#include "Kel/Declare.h"
#include "Kel/Dir.h"
#include "WalkHarness.h"
#include "fixture/Populate.h"
#include "fixture/Types.h"
#include "ondra/set_support.h"

namespace {

using Kel::String;
using Ondra::flagSnapshot;
using Ondra::flagStream;
using testing::IsEmpty;
using Numbers = std::vector<std::uint32_t>;

// --- the model: entries whose key fields have the names of attributes of every kind -----------------------------

struct EntryKey {
  String text, list, json, whole, part, ref, child, sub, name, free;
  bool operator==(EntryKey const&) const = default;
};
struct Part {
  std::optional<std::uint32_t> x;
  bool operator==(Part const&) const = default;
};
class Child final : public Kel::EntityOf<Child> {
public:
  std::uint32_t x = 0;
};
struct Attributes {
  std::optional<String> text;
  Numbers list;
  Kel::JsonString json;
  Part whole; // sent as one JSON text
  std::optional<Part> part;
  Kel::Ptr<Child> refTo;
  Kel::KeyedValues<String, std::uint32_t> sub;
  String named;
};
struct Value : Attributes {};
class Entry final : public Kel::EntityOf<Entry>, public Attributes {
public:
  void childIs(bool there) { there ? static_cast<void>(Entity::childIs(child)) : childDel(child); }
  Kel::Ptr<Child> child;
};

// Keys of every kind that has a text of its own, and a value of each.
enum class Odd : std::uint8_t { Low_, Bad };
struct Tag { // with a string representation
  String text;
  bool operator==(Tag const&) const = default;
};
struct Label { // a string by another name
  String text;
  bool operator==(Label const&) const = default;
};
struct OddKey {
  String text;
  Tag tag;
  Label label;
  Odd odd = Odd::Low_;
  bool operator==(OddKey const&) const = default;
};
class Holder final : public Kel::EntityOf<Holder> {
public:
  Kel::Ptr<Entry> entryIs(EntryKey const& key) { return memberIs(entries, key); }
  Kel::Ptr<Child> byTextIs(String const& key) { return memberIs(byText, key); }
  void byTextDel(String const& key) { memberDel(byText, key); }

  Kel::KeyedEntities<EntryKey, Entry> entries;
  Kel::KeyedValues<EntryKey, Value> values;
  Kel::KeyedValues<OddKey, std::uint32_t> byAll;
  Kel::KeyedEntities<String, Child> byText;
  Kel::KeyedValues<Tag, std::uint32_t> byTag;
  Kel::KeyedValues<Label, std::uint32_t> byLabel;
  Kel::KeyedValues<Odd, std::uint32_t> byOdd;
  String text;
  Tag tag;
  Label label;
  Odd odd = Odd::Low_;
  Kel::JsonString json{"{}"};
  std::variant<String, bool> choice;
  std::vector<String> texts;
  std::uint32_t last = 7;
};

// One line an attribute.
// clang-format off
template <class Declaration>
Declaration& declareAttributes(Declaration& type) {
  return type
      .attr("text", &Attributes::text).settable()
      .array("list", &Attributes::list).settable()
      .attr("json", &Attributes::json).settable()
      .attr("whole", &Attributes::whole).gnmiJson().settable()
      .attr("part", &Attributes::part).settable()
      .pointer("ref", &Attributes::refTo)
      .keyed("sub", &Attributes::sub).settable()
      .attr("name", &Attributes::named).settable();
}

void declareModel() {
  Fixture::declareTypes();
  constexpr char const* kModule = "key-test";
  Kel::valueType<EntryKey>("EntryKey", kModule)
      .attr("text", &EntryKey::text).ctorArg().attr("list", &EntryKey::list).ctorArg()
      .attr("json", &EntryKey::json).ctorArg().attr("whole", &EntryKey::whole).ctorArg()
      .attr("part", &EntryKey::part).ctorArg().attr("ref", &EntryKey::ref).ctorArg()
      .attr("child", &EntryKey::child).ctorArg().attr("sub", &EntryKey::sub).ctorArg()
      .attr("name", &EntryKey::name).ctorArg().attr("free", &EntryKey::free).ctorArg()
      .done();
  Kel::valueType<Part>("Part", kModule).attr("x", &Part::x).done();
  Kel::entityType<Child>("Child", kModule).attr("x", &Child::x).settable().done();
  auto value = Kel::valueType<Value>("Value", kModule);
  declareAttributes(value).done();
  auto entry = Kel::entityType<Entry>("Entry", kModule);
  declareAttributes(entry).instantiating("child", &Entry::child).done();
  Kel::enumType<Odd>("Odd", {{"LOW__POWER", Odd::Low_}, {"B\xff", Odd::Bad}}, kModule);
  Kel::valueType<Tag>("Tag", kModule)
      .attr("text", &Tag::text).ctorArg()
      .gnmiStrRep([](Tag const& tag) { return tag.text.str(); },
                  [](std::string_view text, Tag& to) { to.text = text; return std::optional<std::string>(); })
      .done();
  Kel::nominalType<Label>("Label", "text", &Label::text, kModule);
  Kel::unionType<std::variant<String, bool>>("Choice", {"text", "flag"}, kModule);
  Kel::valueType<OddKey>("OddKey", kModule)
      .attr("text", &OddKey::text).ctorArg()
      .attr("tag", &OddKey::tag).ctorArg()
      .attr("label", &OddKey::label).ctorArg()
      .attr("odd", &OddKey::odd).ctorArg()
      .done();
  Kel::entityType<Holder>("Holder", kModule)
      .instantiating("entry", &Holder::entries)
      .keyed("value", &Holder::values).settable()
      .keyed("byAll", &Holder::byAll).settable()
      .instantiating("byText", &Holder::byText)
      .keyed("byTag", &Holder::byTag).settable()
      .keyed("byLabel", &Holder::byLabel).settable()
      .keyed("byOdd", &Holder::byOdd).settable()
      .attr("text", &Holder::text).settable()
      .attr("tag", &Holder::tag).settable()
      .attr("label", &Holder::label).settable()
      .attr("odd", &Holder::odd).settable()
      .attr("json", &Holder::json).settable()
      .attr("choice", &Holder::choice).settable()
      .array("texts", &Holder::texts).settable()
      .attr("last", &Holder::last).settable()
      .done();
}
// clang-format on

// Sees each response as a client does: what it cannot read is nothing to it.
class ClientRouter final : public Ondra::BaseRouter {
public:
  explicit ClientRouter(RecordingRouter& to) : to_(to) {}
  bool push(Ondra::SyncId syncId, Ondra::WalkId walkId, std::shared_ptr<Ondra::ArenaRespMsg>& resp) override {
    gnmi::SubscribeResponse read;
    EXPECT_TRUE(read.ParseFromString(resp->response->SerializeAsString()));
    std::set<std::string> paths;
    for (gnmi::Update const& update : read.update().update())
      EXPECT_TRUE(paths.insert(update.path().SerializeAsString()).second) << update.ShortDebugString();
    return to_.push(syncId, walkId, resp);
  }
  Ondra::ByteRouter* byteRouter() override { return to_.byteRouter(); }

private:
  RecordingRouter& to_;
};

class Keys : public testing::Test {
protected:
  Keys() {
    static bool const declared = (declareModel(), true);
    EXPECT_TRUE(declared);
    world.dir()->entityIs("holder", holder);
  }
  // By generic writes, each of which tells.
  static void set(Kel::Entity& object, char const* attr, Kel::Ptr<Kel::GenericIf const> const& value,
                  Kel::Ptr<Kel::GenericIf const> const& key = {}) {
    Kel::KelAttr const named = object.fwkType().attr(attr);
    auto const handle = Kel::GenericIf::toObject(static_cast<Kel::PtrInterface*>(&object));
    value ? named.genericIfSet(handle, key, value) : named.genericIfDel(handle, key);
  }
  RecordingRouter::Leaves walk(RecordingRouter& to, Kel::Entity const& root, Ondra::WalkerFlags flags,
                               std::function<bool()> const& yieldWhen = {}) {
    ClientRouter client(to);
    auto walk = harness.start(client, root, flags, yieldWhen);
    WalkHarness::finish(walk);
    return to.leaves();
  }

  Fixture::World world;
  Kel::Ptr<Holder> const holder{new Holder()};
  WalkHarness harness;
};

// --- attributes that meet key fields ----------------------------------------------------------------------------

// No path is a leaf and holds others.
void expectTree(RecordingRouter::Leaves const& leaves) {
  for (auto const& [path, value] : leaves) {
    auto const below = leaves.lower_bound(path + "/");
    EXPECT_FALSE(below != leaves.end() && below->first.starts_with(path + "/"))
        << path << ", " << below->first;
  }
}

TEST_F(Keys, AnAttributeThatMeetsAKeyFieldGivesWayAsALeafAndStaysAsAContainer) {
  EntryKey const key{"t", "l", "j", "w", "p", "r", "c", "s", "n", "f"};
  Kel::Ptr<Entry> const entry = holder->entryIs(key);
  Value value;
  Kel::Ptr<Kel::GenericIf const> const valueKey = Kel::handleOf(key);
  std::mt19937 random(7);
  // One attribute of the entry, or the value, is set or cleared.
  auto const edit = [&](unsigned what, bool there) {
    switch (what) {
    case 0: set(*entry, "text", there ? Kel::handleOf(String("T")) : nullptr); break;
    case 1: set(*entry, "list", Kel::handleOf(Numbers(there ? 1 : 0, 1U))); break;
    case 2: set(*entry, "json", Kel::handleOf(Kel::JsonString{there ? "[1]" : "{}"})); break;
    case 3: set(*entry, "whole", Kel::handleOf(Part{3U + (there ? 1U : 0U)})); break;
    case 4:
      set(*entry, "part",
          there ? Kel::handleOf(Part{random() % 2 == 0 ? std::optional(4U) : std::nullopt}) : nullptr);
      break;
    case 5: set(*entry, "name", Kel::handleOf(String(there ? "N" : ""))); break;
    case 6: set(*entry, "sub", there ? Kel::handleOf(5U) : nullptr, Kel::handleOf(String("s"))); break;
    case 7: entry->childIs(there); break;
    default:
      value.text = there ? std::optional<String>("T") : std::nullopt;
      value.part = random() % 2 == 0 ? std::optional(Part{4}) : std::nullopt;
      value.list = Numbers(random() % 2, 1U);
      set(*holder, "value", there || random() % 4 != 0 ? Kel::handleOf(value) : nullptr, valueKey);
    }
  };
  constexpr unsigned kEdits = 9;
  for (unsigned what = 0; what < kEdits; ++what)
    edit(what, true);
  set(*entry, "part", Kel::handleOf(Part{4}));
  std::string const keys = "[child=c][free=f][json=j][list=l][name=n][part=p][ref=r][sub=s][text=t][whole=w]";
  std::string const at = "/fixture/holder/entry" + keys;
  RecordingRouter whole;
  RecordingRouter::Leaves below; // the entry
  for (auto const& [path, text] : walk(whole, *holder, flagSnapshot))
    if (path.starts_with(at)) below[path.substr(at.size())] = text;
  EXPECT_EQ(below, (RecordingRouter::Leaves{
                       {"/child/x", "uint_val:0"},
                       {"/json", "string_val:j"},
                       {"/jsonValue_", "json_val:[1]"},
                       {"/list", "string_val:l"},
                       {"/listValue_", "leaflist_val:[ uint_val:1 ]"},
                       {"/name", "string_val:n"},
                       {"/nameValue_", "string_val:N"},
                       {"/part/x", "uint_val:4"},
                       {"/ref/_ptr", "string_val:nullptr"},
                       {"/sub[subKey=s]", "uint_val:5"},
                       {"/text", "string_val:t"},
                       {"/textValue_", "string_val:T"},
                       {"/whole", "string_val:w"},
                       {"/wholeValue_", "json_val:{\"x\":4}"},
                   }));
  for (Kel::Entity const* const root :
       {static_cast<Kel::Entity*>(holder.get()), static_cast<Kel::Entity*>(entry.get())}) {
    WalkHarness::clearAll();
    RecordingRouter live;
    ClientRouter client(live);
    auto first = harness.start(client, *root, flagStream | flagSnapshot);
    WalkHarness::finish(first);
    for (int turn = 0; turn < 200 && !HasFailure(); ++turn) {
      SCOPED_TRACE(turn);
      edit(random() % kEdits, random() % 2 == 0);
      Kel::activityManagerStatus()->activityLoopExecNsTimeInc(random() % 2);
      RecordingRouter fresh;
      walk(fresh, *root, flagSnapshot);
      expectTree(fresh.leaves());
      EXPECT_EQ(fresh.updates(), fresh.leaves().size());
      EXPECT_THAT(live.differences(fresh), IsEmpty());
      EXPECT_THAT(live.complaints, IsEmpty());
      RecordingRouter cut;
      EXPECT_EQ(walk(cut, *root, flagSnapshot, [&random] { return random() % 3 == 0; }), fresh.leaves());
      EXPECT_EQ(cut.updates(), fresh.updates());
    }
  }
}

// --- texts ----------------------------------------------------------------------------------------------------

TEST_F(Keys, TextsOfEveryKindAreTakenBack) {
  set(*holder, "byAll", Kel::handleOf(1U), Kel::handleOf(OddKey{"a__b\\__", {"x__y"}, {"l__"}, Odd::Low_}));
  set(*holder, "byTag", Kel::handleOf(1U), Kel::handleOf(Tag{"x__y"}));
  set(*holder, "byLabel", Kel::handleOf(1U), Kel::handleOf(Label{"\\__"}));
  set(*holder, "byOdd", Kel::handleOf(1U), Kel::handleOf(Odd::Low_));
  holder->byTextIs("a__b");
  auto const before = SetTest::modelOf(holder);
  RecordingRouter router;
  std::size_t taken = 0;
  for (auto const& [path, value] : walk(router, *holder, flagSnapshot)) {
    if (path.find("/by") == std::string::npos) continue;
    gnmi::SetRequest request;
    auto& update = *request.add_update();
    std::string text = path.substr(std::string_view("/fixture").size());
    boost::replace_all(text, "\\", "\\\\"); // as path texts have it
    *update.mutable_path() = SetTest::pathOf(text);
    update.mutable_val()->set_uint_val(std::stoul(value.substr(value.find(':') + 1)));
    EXPECT_EQ(SetTest::textOf(SetTest::execute(request, "/fixture").second), "OK") << path;
    ++taken;
  }
  EXPECT_EQ(taken, 5U);
  EXPECT_THAT(SetTest::changes(before, SetTest::modelOf(holder)), IsEmpty());
}

// A text that is no UTF-8 costs its own leaf, as a key its own member; what was sent before it is deleted.
TEST_F(Keys, WhatNoMessageCanHoldIsLeftOut) {
  RecordingRouter live;
  ClientRouter client(live);
  auto first = harness.start(client, *world.dir(), flagStream | flagSnapshot);
  WalkHarness::finish(first);
  std::size_t const leavesBefore = live.leaves().size();
  auto const expectTruth = [&](std::string const& what) {
    RecordingRouter fresh;
    walk(fresh, *world.dir(), flagSnapshot);
    EXPECT_THAT(live.differences(fresh), IsEmpty()) << what;
    EXPECT_EQ(fresh.leaves().count("/fixture/holder/last"), 1U) << what;
  };
  auto const leaf = [&live](char const* name) {
    return live.leaves().count(std::string("/fixture/holder/") + name);
  };
  for (std::string const& bad :
       {std::string("\xff"), std::string("plain\xc3"), std::string("\xed\xa0\x80 half of a pair"),
        std::string("\xc0\xaf"), std::string("\xf4\x90\x80\x80"), std::string("\xe0\x80\x80 long"),
        std::string(100, 'a') + '\x80'}) {
    SCOPED_TRACE(testing::PrintToString(bad));
    for (String const& text : {String("gut \xc3\xbc \xf0\x9f\x98\x80 \xed\x9f\xbf"), String(bad)}) {
      bool const isGood = text.view() != bad;
      set(*holder, "text", Kel::handleOf(text));
      set(*holder, "tag", Kel::handleOf(Tag{text}));
      set(*holder, "label", Kel::handleOf(Label{text}));
      set(*holder, "odd", Kel::handleOf(isGood ? Odd::Low_ : Odd::Bad));
      set(*holder, "json", Kel::handleOf(Kel::JsonString{isGood ? String("{}") : text}));
      set(*holder, "choice", Kel::handleOf(std::variant<String, bool>(text)));
      set(*holder, "texts", Kel::handleOf(std::vector<String>{"good", text}));
      for (char const* const name : {"text", "tag", "label", "odd", "json", "choice", "texts"})
        EXPECT_EQ(leaf(name), isGood ? 1U : 0U) << name;
      set(*holder, "byTag", Kel::handleOf(1U), Kel::handleOf(Tag{text}));
      set(*holder, "byLabel", Kel::handleOf(1U), Kel::handleOf(Label{text}));
      set(*holder, "byOdd", Kel::handleOf(1U), Kel::handleOf(isGood ? Odd::Low_ : Odd::Bad));
      set(*holder, "byAll", Kel::handleOf(1U), Kel::handleOf(OddKey{"a", {"b"}, {text}, Odd::Low_}));
      Kel::Ptr<Child> const child = holder->byTextIs(text);
      Kel::Ptr<Fixture::Interface> const inDir(new Fixture::Interface());
      inDir->name = text;
      world.dir()->entityIs(text, inDir);
      world.device()->uplinkIs(inDir);
      EXPECT_EQ(live.leaves().at("/fixture/device/uplink/_ptr") == "string_val:nullptr", !isGood);
      expectTruth("there");
      set(*child, "x", Kel::handleOf(1U));
      set(*holder, "byTag", Kel::handleOf(2U), Kel::handleOf(Tag{text}));
      expectTruth("changed");
      world.device()->uplinkIs(nullptr);
      world.dir()->entityDel(text);
      holder->byTextDel(text);
      for (char const* const name : {"byTag", "byLabel", "byOdd", "byAll"}) {
        Kel::KelAttr const attr = holder->fwkType().attr(name);
        auto const object = Kel::GenericIf::toObject(static_cast<Kel::PtrInterface*>(holder.get()));
        while (auto member = attr.genericIfIteratorConst(object))
          attr.genericIfDel(object, member.key());
      }
      expectTruth("gone");
      EXPECT_EQ(live.leaves().size(), leavesBefore - (isGood ? 0 : 7));
    }
  }
  EXPECT_THAT(live.complaints, IsEmpty());
}

// --- changes while others are sent -----------------------------------------------------------------------------

// Writes to the model while it is given something, as a host may not.
class MeddlingRouter final : public Ondra::BaseRouter {
public:
  MeddlingRouter(RecordingRouter& to, std::function<void()> meddle) : to_(to), meddle_(std::move(meddle)) {}
  bool push(Ondra::SyncId syncId, Ondra::WalkId walkId, std::shared_ptr<Ondra::ArenaRespMsg>& resp) override {
    bool const taken = to_.push(syncId, walkId, resp);
    meddle_();
    return taken;
  }

private:
  RecordingRouter& to_;
  std::function<void()> meddle_;
};

TEST_F(Keys, TheLastOfManyChangesIsNotLost) {
  int left = 0;
  RecordingRouter live;
  MeddlingRouter meddling(live, [&] {
    if (left > 0) set(*holder, "last", Kel::handleOf(static_cast<std::uint32_t>(left--)));
  });
  auto first = harness.start(meddling, *holder, flagStream | flagSnapshot);
  WalkHarness::finish(first);
  for (int const many : {3, 30, 2500}) { // more than are told in one go: the rest after the next change
    left = many;
    set(*holder, "text", Kel::handleOf(String(std::to_string(many))));
    for (int again = 0; again < 3; ++again)
      set(*holder, "odd", Kel::handleOf(again % 2 == 0 ? Odd::Bad : Odd::Low_));
    EXPECT_EQ(left, 0);
    EXPECT_EQ(live.leaves().at("/fixture/holder/last"), "uint_val:1");
  }
}

} // namespace
