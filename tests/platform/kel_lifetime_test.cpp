// Who keeps what alive: handles, weak keys, clones, the end of entities, reference counts on several threads.
// Meant for the run under the address sanitizer too.
#include <chrono>
#include <list>
#include <random>
#include <set>
#include <stdexcept>
#include <stop_token>
#include <thread>
#include <vector>

#include "Kel/Memory.h"
#include "Kel/MemoryReady.h"
#include "fixture/Populate.h"
#include "platform/KelTesting.h"

namespace KelTesting {
namespace {

class KelLifetime : public InterfaceTest {};
INSTANTIATE_TEST_SUITE_P(Kel, KelLifetime, testing::ValuesIn(kFlavours), nameOf);

TEST_P(KelLifetime, HandlesSurviveRemoval) {
  attr("mtu").genericIfSet(object, nullptr, num<std::uint32_t>(9000));
  Handle const vlan = attr("vlan").memberType().genericIf(nullptr);
  attr("vlan").genericIfSet(object, num<std::uint16_t>(0), vlan);
  ConstHandle const mtu = attr("mtu").genericIfGet(object), contact = attr("contact").genericIfGet(object),
                    member = attr("vlan").genericIfGet(object, num<std::uint16_t>(0));
  ArgList const seven{num<std::uint32_t>(7)};
  Handle const unit = attr("unit").genericIfSet(object, seven);
  attr("vlan").genericIfDel(object, num<std::uint16_t>(0));
  dir_->entityDel("subject");
  EXPECT_THROW(dir_->entityIs("again", entityIn(object)), Kel::Error) << "never attached again";
  EXPECT_THROW(attr("unit").genericIfSet(object, seven), Kel::Error) << "nor does it take children";
  object = nullptr;
  EXPECT_EQ(mtu->strRep(), "9000");
  EXPECT_EQ(contact->strRep(), "{person=\"\", phone={country=0, number=\"\"}}");
  EXPECT_EQ(member->strRep(), "{id=0, label=\"\"}");
  EXPECT_TRUE(entityIn(unit)->isOrphan()) << "an ancestor was removed";
  EXPECT_EQ(unit->type().attr("id").genericIfGet(unit)->strRep(), "7");
}

// Structures small enough to lie in their handles, one in the other: the inner one's handle keeps the outer
// one's.
TEST(KelHandles, OfNestedStructuresKeepWhatTheyLieIn) {
  struct Inner {
    Kel::String text;
  };
  struct Outer {
    Inner inner;
  };
  Kel::valueType<Inner>("Inner").attr("text", &Inner::text).ctorArg().done();
  KelType const type = Kel::valueType<Outer>("Outer").attr("inner", &Outer::inner).done();
  Outer const value{{"a text that is shared"}};
  Handle outer = type.genericIf(&value);
  ConstHandle const inner = type.attr("inner").genericIfGet(outer);
  EXPECT_EQ(&inner->owner(), outer.get());
  outer = type.genericIf(nullptr); // would lie where the other one lay
  EXPECT_EQ(inner->strRep(), "{text=\"a text that is shared\"}");
}

// Two that refer to each other, and one to itself, are no leak (the leak checker says so).
TEST_P(KelLifetime, ReferencesAreDroppedAtTheEnd) {
  attr("peer").genericIfSet(object, nullptr, other);
  attr("peer").genericIfSet(other, nullptr, object);
  attr("backup").genericIfSet(object, str("self"), object);
  auto const subject = entityIn(object);
  dir_->entityDel("subject");
  EXPECT_FALSE(attr("peer").genericIfExist(object));
  EXPECT_EQ(attr("backup").genericIfCount(object), 0U);
}

TEST_P(KelLifetime, WeakKeysComeBackEmpty) {
  ConstHandle const weak = object->detachedKey();
  EXPECT_TRUE(weak->equals(*object));
  EXPECT_EQ(weak->hash(), object->hash());
  EXPECT_EQ(Kel::entityAt(weak), entityIn(object));
  EXPECT_EQ(Kel::entityAt<Kel::Dir>(object), nullptr);
  auto const hash = weak->hash();
  dir_->entityDel("subject");
  object = nullptr;
  EXPECT_EQ(Kel::entityAt(weak), nullptr);
  EXPECT_EQ(weak->hash(), hash);
  Handle const successor = make("subject");
  EXPECT_FALSE(weak->equals(*successor)) << "the same address or name makes it no other entity";
  EXPECT_EQ(errorOf([&] { static_cast<void>(attr("mtu").genericIfGet(weak)); }),
            "attribute 'mtu' of type 'Interface' was asked of an object that has gone");
}

// A collection keyed by reference keeps the key, not the entity.
TEST(KelObjects, ReferenceKeysPinNothing) {
  Fixture::World world;
  ConstHandle const device = handleTo(world.device());
  KelAttr const costs = device->type().attr("cost");
  auto const eth0 = world.device()->interfaceIs("eth0");
  ConstHandle const strong = handleTo(eth0);
  EXPECT_EQ(costs.genericIfGet(device, strong)->strRep(), "10");
  ConstHandle const weak = strong->detachedKey();
  world.device()->interfaceDel("eth0");
  EXPECT_EQ(costs.genericIfGet(device, weak)->strRep(), "10")
      << "still there, under the identity of what has gone";
  EXPECT_EQ(costs.genericIfCount(device), 2U);
  auto const gauges = Kel::Ptr<Fixture::Gauges>(new Fixture::Gauges());
  for (ConstHandle const& stranger :
       {ConstHandle(handleTo(gauges)), GenericIf::weak(*Kel::Ptr(new Fixture::Gauges()))})
    EXPECT_EQ(errorOf([&] { static_cast<void>(costs.genericIfGet(device, stranger)); }).substr(0, 63),
              "attribute 'cost' of type 'Device' is keyed by type 'Interface';")
        << "also when it has gone";
}

TEST(KelObjects, SingletonsAreOfOneType) {
  Fixture::declareTypes();
  EXPECT_FALSE(Kel::Entity::singletonExists("Rack"));
  EXPECT_FALSE(Kel::Entity::singletonExists("Rack")) << "asking makes nothing";
  auto const rack = Kel::Entity::singleton<Fixture::Rack>();
  EXPECT_TRUE(Kel::Entity::singletonExists("Rack"));
  EXPECT_EQ(Kel::Entity::singleton<Fixture::Rack>(), rack);
  EXPECT_EQ(errorOf([] { Kel::Entity::singletonIs(Kel::typeOf<Fixture::Device>(), "Rack"); }),
            "the singleton 'Rack' is of type 'Rack', not 'Device'");
  Kel::Entity::singletonDel("Rack");
  EXPECT_TRUE(rack->isOrphan());
}

// What a thread took goes to those after it.
TEST(KelMemory, ThreadsThatEndLeaveWhatTheyTook) {
  auto const visit = [] {
    std::thread([] {
      for (std::size_t size = 16; size <= Kel::kKelMemLargestClass; size += 48)
        Kel::kelMemFree(Kel::kelMemAlloc(size), size);
    }).join();
  };
  visit();
  std::size_t const before = Kel::kelMemStats().chunks;
  for (int i = 0; i < 500; ++i)
    visit();
  EXPECT_EQ(Kel::kelMemStats().chunks, before);
}

// Once there is so much that it comes in huge pages; whoever asks then has them at once.
TEST(KelMemory, PagesAreKeptReady) {
  constexpr std::size_t kBytes = 512;
  std::vector<void*> blocks;
  auto const takeTo = [&blocks](std::size_t chunks) {
    for (int most = 100'000; most > 0 && Kel::kelMemStats().chunks < chunks; --most)
      blocks.push_back(Kel::kelMemAlloc(kBytes));
    return Kel::kelMemStats().chunks >= chunks;
  };
  if (takeTo(80)) { // not where a sanitizer takes the place of it
    std::size_t const before = Kel::kelMemStats().mappedBytes;
    std::jthread const keeper([](std::stop_token const& stop) { Kel::kelMemKeepReady(stop); });
    auto const isReady = [](std::size_t bytes) {
      auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
      while (Kel::kelMemStats().mappedBytes < bytes && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
      return Kel::kelMemStats().mappedBytes >= bytes;
    };
    constexpr std::size_t kPage = 2 * 1024 * 1024;
    ASSERT_TRUE(isReady(before + 2 * kPage));
    for (std::size_t i = 0; i < 2 * kPage / kBytes; ++i) // what is left of the last one, and more
      blocks.push_back(Kel::kelMemAlloc(kBytes));
    EXPECT_TRUE(isReady(before + 3 * kPage)) << "what was taken is made up for";
  }
  for (void* const block : blocks)
    Kel::kelMemFree(block, kBytes);
}

struct Actor final : Kel::PtrInterface::NotifieeConst {
  Actor(Kel::PtrInterface const* notifier, std::function<void()> act) : act_(std::move(act)) {
    hasNotificationActiveIs(true);
    isWeakReferenceIs(true);
    isRegisteredNotifieeIs(true); // before there is a notifier
    notifierIs(notifier);
  }
  void onAttribute(Kel::AttributeId, void const*) override { act_(); }
  void onZeroReferences() override { act_(); }

private:
  std::function<void()> const act_;
};

// Observers of one object that join, leave, join again, throw and change the object while they are told, at
// random.
class Crowd {
public:
  explicit Crowd(std::uint32_t seed) : random_(seed) {}

  void turn() {
    if (below(3) == 0 && members_.size() < 8) return join();
    if (below(4) == 0) return leave(below(1 + members_.size()));
    // Tells those who were there when it began, each once, in order, unless he has left before his turn.
    Visit& visit = visits_.emplace_back();
    for (auto const& [id, actor] : members_)
      visit.there.push_back(id);
    world_.device()->hostnameIs(std::to_string(++changes_));
    std::erase_if(visit.there, [&](int id) { return visit.left.contains(id) && !visit.told.contains(id); });
    EXPECT_EQ(visit.order, visit.there);
    visits_.pop_back();
  }

private:
  struct Visit {
    std::vector<int> there, order;
    std::set<int> left, told;
  };

  std::size_t below(std::size_t bound) { return random_() % bound; }
  void join() {
    int const id = ++made_;
    members_.emplace_back(id, new Actor(world_.device().get(), [this, id] { react(id); }));
  }
  void leave(std::size_t at) {
    if (at >= members_.size()) return;
    auto [id, actor] = members_[at];
    members_.erase(members_.begin() + static_cast<std::ptrdiff_t>(at));
    for (Visit& visit : visits_)
      visit.left.insert(id);
    bool const isBeingTold = std::any_of(visits_.begin(), visits_.end(), [id = id](Visit const& visit) {
      return !visit.order.empty() && visit.order.back() == id;
    });
    bool const returns = below(3) == 0;
    if (isBeingTold || returns) actor->isRegisteredNotifieeIs(false); // else it is just dropped
    if (!returns) return;
    actor->isRegisteredNotifieeIs(true); // at the end of the list
    members_.emplace_back(id, actor);
  }
  void react(int id) {
    EXPECT_FALSE(visits_.back().left.contains(id));
    EXPECT_TRUE(visits_.back().told.insert(id).second);
    visits_.back().order.push_back(id);
    if (visits_.size() < 4 && below(3) == 0) turn();
    if (below(5) == 0) throw std::runtime_error("rude");
    if (below(9) == 0) throw id;
  }

  std::mt19937 random_;
  Fixture::World world_;
  std::vector<std::pair<int, Kel::Ptr<Actor>>> members_; // in the order of their registration
  std::list<Visit> visits_;
  int made_ = 0, changes_ = 0;
};

TEST(KelNotifiees, WhateverObserversDo) {
  for (std::uint32_t seed = 0; seed < 50; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Crowd crowd(seed);
    for (int turn = 0; turn < 60; ++turn)
      crowd.turn();
  }
}

// So many that joining, being told and leaving would not end if each looked at all the others.
TEST(KelNotifiees, ManyOfOneObject) {
  Fixture::World world;
  auto const device = world.device();
  std::size_t told = 0;
  constexpr std::size_t kCrowd = 300'000;
  std::vector<Kel::Ptr<Actor>> crowd;
  crowd.reserve(kCrowd);
  for (std::size_t i = 0; i < kCrowd; ++i)
    crowd.emplace_back(new Actor(device.get(), [&told] { ++told; }));
  device->hostnameIs("one");
  EXPECT_EQ(std::exchange(told, 0), crowd.size());
  crowd.erase(crowd.begin(), crowd.end() - 100'000);
  device->hostnameIs("two");
  EXPECT_EQ(told, crowd.size());
}

TEST(KelNotifiees, WeakOnesForgetWhatHasGone) {
  struct Silent final : Kel::PtrInterface::NotifieeConst {};
  Kel::Ptr<Silent> const silent(new Silent()); // not registered
  silent->isWeakReferenceIs(true);
  Kel::Ptr<Fixture::Chassis> chassis(new Fixture::Chassis());
  silent->notifierIs(chassis.get());
  Kel::Ptr<Actor> last; // drops the object that it is told of
  last = Kel::Ptr(new Actor(chassis.get(), [&chassis] { chassis = nullptr; }));
  chassis->hasNotificationActiveIs(true);
  chassis->fanIs();
  EXPECT_EQ(silent->notifier(), nullptr);
  EXPECT_EQ(last->notifier(), nullptr);
  ConstHandle handle = str("without a list of observers");
  silent->notifierIs(handle.get());
  EXPECT_EQ(handle->refCount(), 2U) << "nobody could tell of its end";
}

// An observer that throws changes nothing: the removed tree has ended to its last leaf, and everybody else
// knows.
TEST(KelNotifiees, ATreeEndsWhole) {
  Fixture::World world;
  Fixture::Device& device = *world.device();
  Kel::KelAttr const interfaces = device.fwkType().attr("interface");
  Handle const object = handleTo(world.device());
  std::pair<char const*, std::function<void()>> const removals[] = {
      {"member", [&] { device.interfaceDel("a"); }},
      {"generic", [&] { interfaces.genericIfDel(object, str("a")); }},
      {"replaced",
       [&] {
         interfaces.genericIfSet(object, Kel::ArgList{str("a"), nullptr});
       }},
      {"directory", [&] { world.dir()->entityDel("device"); }},
  };
  for (auto const& [what, remove] : removals) {
    auto const a = device.interfaceIs("a");
    auto const unit = a->unitIs(1);
    Kel::Ptr<Kel::Entity> const ending[] = {a, unit, unit->queueIs(2), a->opticsIs()};
    std::list<Recorder> told;
    std::vector<Kel::Ptr<Actor>> rude;
    auto const offend = [&rude](Kel::Entity* entity) {
      rude.emplace_back(new Actor(entity, [] { throw std::runtime_error("rude"); }));
    };
    offend(world.dir().get());
    offend(&device);
    for (auto const& entity : ending) {
      offend(entity.get());
      told.emplace_back(entity);
    }
    EXPECT_NO_THROW(remove()) << what;
    for (auto const& entity : ending) {
      EXPECT_TRUE(entity->isOrphan() && entity->parent() == nullptr) << what;
      EXPECT_EQ(told.front().take(), std::vector<std::string>{"end"}) << what;
      told.pop_front();
    }
  }
}

TEST(KelPointers, CountsHoldOnSeveralThreads) {
  struct Counted final : Kel::PtrInterface {
    explicit Counted(bool& gone) : gone_(gone) {}
    ~Counted() override { gone_ = true; }
    bool& gone_;
  };
  bool gone = false;
  Kel::VFPtrInterface::threadSafePointers_ = true;
  {
    auto const object = Kel::Ptr(new Counted(gone));
    constexpr std::size_t kThreads = 4;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (std::size_t t = 0; t < kThreads; ++t) {
      threads.emplace_back([&object] {
        for (int i = 0; i < 50000; ++i)
          Kel::Ptr<Counted> const copy = object;
      });
    }
    for (auto& thread : threads)
      thread.join();
    EXPECT_EQ(object->refCount(), 1U);
    EXPECT_FALSE(gone);
  }
  Kel::VFPtrInterface::threadSafePointers_ = false;
  EXPECT_TRUE(gone);
}

} // namespace
} // namespace KelTesting
