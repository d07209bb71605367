// Observers that change the model, raise, or ask for another Set while a Set is being committed: the answer tells the truth, and the
// model is whole afterwards. Meant for the run under the address sanitizer too.
#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <stdexcept>

#include "Kel/Dir.h"
#include "Kel/Error.h"
#include "Ondra/AttrTree.h"
#include "Tovak/TraceSink.h"
#include "fixture/Observer.h"
#include "fixture/RandomEdits.h"
#include "ondra/set_rows.h"

namespace {

using namespace SetTest;
using Kel::Entity;
using Kel::KelAttr;
using Ondra::KelGnmiSet::AttrTree;

AttrTree::Handle handleTo(Entity* entity) {
  return Kel::GenericIf::toObject(static_cast<Kel::PtrInterface*>(entity));
}

// Puts another entity of the same key and arguments into its place.
void remake(Entity& old) {
  Kel::ArgList args;
  for (Kel::AttrDesc const* const arg : old.fwkType().ctorArgs())
    args.push_back(KelAttr(arg).genericIfGet(handleTo(&old)));
  KelAttr const attr = old.parentAttr();
  attr.genericIfSet(handleTo(old.parent()), attr.isKeyed() && !attr.indexAttr() ? old.parentKey() : nullptr,
                    args);
}

// Whether what an operation asks for is so: the value stands at the path, or (no value) nothing but a default does.
bool holds(Entity& root, std::vector<gnmi::PathElem> const& path, gnmi::TypedValue const* value) {
  bool const isGone = value == nullptr;
  AttrTree::KelObject at(handleTo(&root)), last;
  if (root.isOrphan()) return isGone;
  for (gnmi::PathElem const& elem : path) {
    if (at.type().isEntity() && at.object && static_cast<Entity*>(at.object->object())->isOrphan())
      return isGone;
    auto next = AttrTree::getNextKelObject(at, elem);
    if (!next || (!next->object && &elem != &path.back())) return isGone;
    last = std::exchange(at, *std::move(next));
  }
  KelAttr const attr = at.attr;
  if (isGone) {
    if (!last.type().isEntity() || !at.object) return true; // within a value an update may follow
    bool const hasDefault = !attr.isKeyed() && !attr.isOptional() && !attr.isInstantiating();
    return hasDefault && at.object->equals(*attr.type().genericIf(nullptr));
  }
  if (!at.object) return false;
  if (!attr.isArray()) {
    auto const wanted = AttrTree::gnmiToKelValue(attr.memberType(), *value);
    return wanted && at.object->equals(**wanted);
  }
  auto const decoded = AttrTree::gnmiToGifArray(attr.memberType(), *value);
  auto const* const wanted = std::get_if<0>(&decoded);
  auto const found = attr.genericIfMembers(at.object);
  return wanted != nullptr && std::equal(wanted->begin(), wanted->end(), found.begin(), found.end(),
                                         [](auto const& a, auto const& b) { return a->equals(*b); });
}

// Requests that meet: few objects, several leaves of each, most of them accepted.
gnmi::SetRequest busyRequest(std::mt19937& random) {
  struct Leaf {
    char const* path;
    char const* value;
  };
  static constexpr Leaf kLeaves[] = {{"hostname", "string_val"},
                                     {"uplink/mtu", "uint_val"},
                                     {"interface[name=#]/mtu", "uint_val"},
                                     {"interface[name=#]/description", "string_val"},
                                     {"interface[name=#]/contact/person", "string_val"},
                                     {"interface[name=#]/contact/phone/country", "uint_val"},
                                     {"interface[name=#]/deputy/phone/number", "string_val"},
                                     {"interface[name=#]/tags", "leaflist_val"},
                                     {"interface[name=#]/vlan[id=#]/label", "string_val"},
                                     {"interface[name=#]/unit[id=#]/label", "string_val"},
                                     {"interface[name=#]/unit[id=#]/enabled", "bool_val"},
                                     {"interface[name=#]/unit[id=#]/queue[number=#]/depth", "uint_val"},
                                     {"interface[name=#]/unit[id=#]/queue[number=#]/weight", "uint_val"},
                                     {"interface[name=#]/optics/vendor", "string_val"},
                                     {"interface[name=#]/name", "string_val"}};
  std::vector<Op> ops;
  bool const replaces = random() % 4 == 0;
  std::string const kind = replaces ? "replace" : "update", port = random() % 3 == 0 ? "2" : "1";
  for (auto left = 2 + random() % 7; left != 0; --left) {
    Leaf const& leaf = kLeaves[random() % std::size(kLeaves)];
    std::string path = leaf.path, number = std::to_string(random() % 10), value;
    bool const isDelete = random() % 5 == 0;
    for (std::size_t at = 0; (at = path.find('#')) != std::string::npos;)
      path.replace(at, 1,
                   path.find("[name=#]") != std::string::npos ? port
                   : isDelete && random() % 2 == 0            ? "*"
                                                              : std::to_string(random() % 3));
    if (isDelete) {
      if (auto const wildcard = path.find('*'); wildcard != std::string::npos) path.resize(wildcard + 2);
      ops.push_back({"delete", path, ""});
      continue;
    }
    if (path.ends_with("/name")) number = port;
    value = leaf.value == std::string("leaflist_val")
                ? "leaflist_val { element { string_val: '" + number + "' } }"
            : leaf.value == std::string("bool_val")
                ? "bool_val: true"
                : std::string(leaf.value) + ": " + (leaf.value[0] == 's' ? "'" + number + "'" : number);
    ops.push_back({kind, path, value});
  }
  return requestOf(ops);
}

// The operations of a request, the last of each path, and which of them have been so at any moment that was looked at.
class Truth {
public:
  Truth(Entity& root, gnmi::SetRequest const& request) : root_(root), request_(request) {
    for (gnmi::Path const& path : request_.delete_())
      add(path, nullptr);
    for (auto const* const updates : {&request_.replace(), &request_.update()})
      for (gnmi::Update const& update : *updates)
        add(update.path(), &update.val());
  }
  void look() {
    for (auto& [name, op] : ops_)
      op.held = op.held || holds(root_, op.path, op.value);
  }
  Texts neverHeld() const {
    Texts names;
    for (auto const& [name, op] : ops_)
      if (!op.held) names.push_back(name);
    return names;
  }
  bool allHoldNow() const {
    return std::all_of(ops_.begin(), ops_.end(),
                       [this](auto const& op) { return holds(root_, op.second.path, op.second.value); });
  }

private:
  struct Op {
    std::vector<gnmi::PathElem> path;
    gnmi::TypedValue const* value = nullptr;
    bool held = false;
  };
  void add(gnmi::Path path, gnmi::TypedValue const* value) {
    if (auto* const last = path.mutable_elem()->empty() ? nullptr : &*path.mutable_elem()->rbegin()) {
      for (auto& [key, text] : *last->mutable_key()) {
        if (text != "*") continue;
        for (char const* const member :
             {"0", "1", "2"}) { // each goes at its time; an observer may make others meanwhile
          text = member;
          add(path, value);
        }
        return;
      }
    }
    Op op{{request_.prefix().elem().begin(), request_.prefix().elem().end()}, value};
    op.path.insert(op.path.end(), path.elem().begin(), path.elem().end());
    std::string name;
    for (gnmi::PathElem const& elem : op.path) {
      name += "/" + elem.name();
      for (auto const& [key, text] : std::map(elem.key().begin(), elem.key().end()))
        name += "[" + (elem.key_size() == 1 ? "" : key) + "=" + text + "]";
    }
    ops_[name] = std::move(op);
  }

  Entity& root_;
  gnmi::SetRequest const& request_;
  std::map<std::string, Op> ops_;
};

// Observes everything there is and comes to be, looks at the truth at each telling, and then does something, or not.
class Reactors {
public:
  Reactors(Kel::Ptr<Entity> top, Entity& root, std::uint32_t seed)
      : top_(std::move(top))
      , root_(root)
      , random_(seed)
      , edits_(top_, seed) {
    observe(top_);
  }
  gnmi::SetRequest request() { return busyRequest(random_); }
  void watch(Truth* truth) {
    truth_ = truth;
    left_ = truth == nullptr ? 0 : 4;
  }
  std::size_t reactions() const { return reactions_; }

  // Everything that is still held is whole: it has a place in what it calls its parent, or none.
  void checkPlaces() const {
    for (auto const& [serial, weak] : seen_) {
      if (weak->object() == nullptr) continue;
      Kel::Ptr<Entity> const entity(static_cast<Entity*>(weak->object()));
      ASSERT_EQ(entity->isOrphan(), entity->parent() == nullptr);
      if (entity->parent() == nullptr) continue;
      auto const key = entity->parentAttr().isKeyed() ? entity->parentKey() : nullptr;
      auto const there = entity->parentAttr().genericIfGet(handleTo(entity->parent()), key);
      ASSERT_TRUE(there && there->object() == entity.get()) << entity->fullName().view();
    }
  }

private:
  void observe(Kel::Ptr<Entity> const& from) {
    for (auto const& entity : Fixture::entitiesBeneath(from)) {
      if (!seen_.emplace(entity->serial(), Kel::GenericIf::weak(*entity)).second) continue;
      entity->hasNotificationActiveIs(true);
      observers_.emplace_back(
          new Fixture::Observer(entity.get(), [this, at = entity.get()](auto const&) { told(*at); }));
    }
  }
  void told(Entity& at) {
    if (truth_ != nullptr) truth_->look();
    if (!at.isOrphan()) observe(Kel::Ptr(&at));
    if (left_ == 0 || random_() % 3 != 0) return;
    --left_;
    ++reactions_;
    react(at);
  }
  void react(Entity& at) {
    Entity* near = &at;
    for (auto up = random_() % 3; up != 0 && near->parent() != nullptr; --up)
      near = near->parent();
    bool const isRoot = near == &root_;
    bool const isOwned = near->parent() != nullptr && !near->fwkType().isDir();
    if (!isOwned || (isRoot && random_() % 8 != 0)) near = nullptr;
    Kel::Ptr<Entity> const pin(near);
    switch (random_() % 6) {
    case 0:
      if (pin) pin->parentAttr().genericIfDel(handleTo(pin->parent()), pin->parentKey());
      break;
    case 1:
      if (pin && !isRoot) remake(*pin);
      break;
    case 2: static_cast<void>(execute(busyRequest(random_))); break;
    case 3: throw Kel::Error("an observer's own");
    case 4: throw std::out_of_range("of another kind");
    default: static_cast<void>(edits_.edit()); break;
    }
  }

  Kel::Ptr<Entity> top_;
  Entity& root_;
  std::mt19937 random_;
  Fixture::RandomEdits edits_;
  std::map<std::uint64_t, AttrTree::ConstHandle> seen_;
  std::vector<Kel::Ptr<Kel::PtrInterface>> observers_;
  Truth* truth_ = nullptr;
  std::size_t left_ = 0;
  std::size_t reactions_ = 0;
};

TEST(SetObservers, WhateverTheyDoTheAnswerTellsTheTruth) {
  char const* const wanted = std::getenv("KTD_REACTION_SEEDS");
  std::uint32_t const seeds = wanted == nullptr ? 40 : static_cast<std::uint32_t>(std::atoi(wanted));
  Tovak::ScopedTraceSink sink;
  std::size_t reactions = 0, accepted = 0, late = 0;
  for (std::uint32_t seed = 1; seed <= seeds; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Fixture::World world;
    Kel::Ptr<Entity> const root = seed % 4 == 0 ? world.rack() : Kel::Ptr<Entity>(world.device());
    Reactors reactors(world.dir(), *root, seed);
    for (int round = 0; round < 25 && !root->isOrphan(); ++round) {
      gnmi::SetRequest const request = reactors.request();
      Truth truth(*root, request);
      truth.look();
      reactors.watch(&truth);
      auto const outcome = execute(request, root->fullName().str());
      reactors.watch(nullptr);
      truth.look();
      ASSERT_EQ(request.delete__size() + request.replace_size() + request.update_size(),
                outcome.first.response_size());
      if (outcome.second.ok()) {
        ++accepted;
        ASSERT_EQ(Texts{}, truth.neverHeld()) << request.DebugString();
      } else if (outcome.second.error_message().find("was removed while") != std::string::npos) {
        ++late;
        ASSERT_FALSE(truth.allHoldNow()) << textOf(outcome.second) << request.DebugString();
      }
      ASSERT_NO_FATAL_FAILURE(reactors.checkPlaces()) << request.DebugString();
    }
    reactions += reactors.reactions();
    sink.clear();
  }
  EXPECT_GT(accepted, 5 * seeds);
  EXPECT_GT(reactions, 5 * seeds);
  EXPECT_GT(late, seeds / 10);
}

struct Reaction {
  std::string what;
  std::vector<Op> ops;
  std::string when; // what the device, or its interface "eth0", is told of
  std::function<void(Fixture::Device&)> act;
  std::string status;
  Texts changed;
};

TEST(SetObservers, OfEachKind) {
  std::string const eth0 = "/device/interface[name=eth0]", made = "/device/interface[name=new]";
  std::string const gone = "' was removed while the request was committed";
  Op const first = update("/hostname", "string_val: 'h'"), second = update("/gauges/u8", "uint_val: 1");
  Op const mtu = update("/interface[name=new]/mtu", "uint_val: 1");
  std::string const hostname = "/device hostname[]: \"fixture\" -> \"h\"",
                    u8 = "/device/gauges u8[]: 200 -> 1";
  std::string const contactWas = " contact[]: {person=\"Ada\", phone={country=44, number=\"555-1\"}} -> ";
  for (Reaction const& row : std::vector<Reaction>{
           {"takes away what is being written",
            {mtu, second},
            "interface[\"new\"]",
            [](auto& device) { device.interfaceDel("new"); },
            notFound("/mtu", "Path element 'interface[name=new]" + gone),
            {}},
           {"puts another in its place",
            {mtu, second},
            "interface[\"new\"]",
            [](auto& device) {
              device.interfaceDel("new");
              device.interfaceIs("new")->descriptionIs("mine");
            },
            "OK",
            {made + " description[]: nothing -> \"mine\"", made + " mtu[]: nothing -> 1", u8}},
           {"makes what was about to be made",
            {first, mtu},
            "hostname",
            [](auto& device) { device.interfaceIs("new")->descriptionIs("mine"); },
            "OK",
            {hostname, made + " description[]: nothing -> \"mine\"", made + " mtu[]: nothing -> 1"}},
           {"makes again what is being made anew",
            {prefix("/interface[name=eth0]"), replace("optics/vendor", "string_val: 'v'")},
            "optics",
            [](auto& device) { device.interfaces.find("eth0")->opticsIs(); },
            notFound("/optics",
                     "attribute 'optics' of type 'Interface': an observer has made the entity again "
                     "while it was being replaced"),
            {eth0 + "/optics vendor[]: \"glass & sons\" -> \"\""}},
           {"takes away the data root",
            {first, second},
            "hostname",
            [](auto&) { Kel::globalDir()->dirIs("fixture")->entityDel("device"); },
            notFound("/gauges", "Path element 'device" + gone),
            {}},
           {"changes a structure beside the leaf",
            {first, update("/interface[name=eth0]/contact/phone/country", "uint_val: 1")},
            "hostname",
            [](auto& device) {
              device.interfaces.find("eth0")->contactIs({"Bob", {2, "9"}});
            },
            "OK",
            {hostname, eth0 + contactWas + "{person=\"Bob\", phone={country=1, number=\"9\"}}"}},
           {"clears a structure of which a part is deleted",
            {del("/hostname"), del("/interface[name=eth0]/deputy/person")},
            "hostname",
            [](auto& device) { device.interfaces.find("eth0")->deputyIs(std::nullopt); },
            "OK",
            {"/device hostname[]: \"fixture\" -> \"\"",
             eth0 + " deputy[]: {person=\"Grace\", phone={country=1, number=\"555-99\"}} -> nothing"}},
           {"makes again what a later delete names",
            {del("/hostname"), del("/interface[name=eth0]/unit[id=0]")},
            "hostname",
            [](auto& device) { remake(*device.interfaces.find("eth0")->units.find(0)); },
            "OK",
            {"/device hostname[]: \"fixture\" -> \"\"", eth0 + "/unit[id=0]: Unit -> nothing"}},
           {"raises",
            {first, second},
            "hostname",
            [](auto&) { throw std::logic_error("mine"); },
            "OK",
            {hostname, u8}}}) {
    SCOPED_TRACE(row.what);
    Fixture::World world;
    Model const before = modelOf(world.dir());
    Tovak::ScopedTraceSink const sink;
    bool isDone = false;
    std::vector<Kel::Ptr<Fixture::Observer>> observers;
    for (Entity* const at : {static_cast<Entity*>(world.device().get()),
                             static_cast<Entity*>(world.device()->interfaces.find("eth0"))}) {
      at->hasNotificationActiveIs(true);
      observers.emplace_back(new Fixture::Observer(at, [&](auto const& told) {
        if (told == row.when && !std::exchange(isDone, true)) row.act(*world.device());
      }));
    }
    EXPECT_EQ(row.status, textOf(execute(requestOf(row.ops)).second));
    EXPECT_TRUE(isDone);
    EXPECT_EQ(row.what == "raises", sink.contains("Dropped what was raised while it was told: mine"));
    Texts const changed = changes(before, modelOf(world.dir()));
    for (std::string const& text : row.changed)
      EXPECT_TRUE(std::any_of(changed.begin(), changed.end(), [&text](auto const& one) {
        return one.starts_with(text);
      })) << text;
  }
}

} // namespace
