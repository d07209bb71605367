// Who keeps what alive: handles, weak keys, clones, the end of entities, reference counts on several threads. Meant for the run
// under the address sanitizer too.
#include <gmock/gmock.h>

#include <stdexcept>
#include <thread>

#include "fixture/Populate.h"
#include "platform/KelTesting.h"

namespace KelTesting {
namespace {

using testing::ElementsAre;

class KelLifetime : public InterfaceTest {};
INSTANTIATE_TEST_SUITE_P(Kel, KelLifetime, testing::ValuesIn(kFlavours), nameOf);

TEST_P(KelLifetime, HandlesSurviveRemoval) {
  attr("mtu").genericIfSet(object, nullptr, num<std::uint32_t>(9000));
  Handle const vlan = attr("vlan").memberType().genericIf(nullptr);
  attr("vlan").genericIfSet(object, num<std::uint16_t>(0), vlan);
  ConstHandle const mtu = attr("mtu").genericIfGet(object), contact = attr("contact").genericIfGet(object),
                    member = attr("vlan").genericIfGet(object, num<std::uint16_t>(0));
  ArgList seven;
  seven.push_back(num<std::uint32_t>(7));
  Handle const unit = attr("unit").genericIfSet(object, seven);
  attr("vlan").genericIfDel(object, num<std::uint16_t>(0));
  dir_->entityDel("subject");
  object = nullptr;
  EXPECT_EQ(mtu->strRep(), "9000");
  EXPECT_EQ(contact->strRep(), "{person=\"\", phone={country=0, number=\"\"}}");
  EXPECT_EQ(member->strRep(), "{id=0, label=\"\"}");
  EXPECT_TRUE(entityIn(unit)->isOrphan()) << "an ancestor was removed";
  EXPECT_EQ(unit->type().attr("id").genericIfGet(unit)->strRep(), "7");
}

TEST_P(KelLifetime, TheEndIsToldOnceTopDown) {
  ArgList seven;
  seven.push_back(num<std::uint32_t>(7));
  auto const unit = entityIn(attr("unit").genericIfSet(object, seven));
  auto const optics = entityIn(attr("optics").genericIfSet(object, ArgList()));
  Recorder dirTold(dir_), unitTold(unit), opticsTold(optics);
  static_cast<void>(told());
  auto const subject = entityIn(object);
  dir_->entityDel("subject");
  EXPECT_THAT(dirTold.take(), ElementsAre("entityPtr[\"subject\"]"));
  EXPECT_EQ(told(), just("end"));
  EXPECT_EQ(unitTold.take(), just("end"));
  EXPECT_EQ(opticsTold.take(), just("end"));
  EXPECT_TRUE(subject->isOrphan() && unit->isOrphan() && optics->isOrphan());
  EXPECT_EQ(unit->parent(), nullptr);
  EXPECT_THROW(dir_->entityIs("again", subject), Kel::Error) << "what was removed is never attached again";
  EXPECT_THROW(attr("unit").genericIfSet(object, seven), Kel::Error) << "nor does it take children";
}

// Structures small enough to lie in their handles, one in the other: the inner one's handle keeps the outer one's.
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
  EXPECT_EQ(weak->object(), object->object());
  auto const hash = weak->hash();
  dir_->entityDel("subject");
  object = nullptr;
  EXPECT_EQ(weak->object(), nullptr);
  EXPECT_EQ(weak->hash(), hash);
  Handle const successor = make("subject");
  EXPECT_FALSE(weak->equals(*successor)) << "the same address or name makes it no other entity";
  EXPECT_EQ(errorOf([&] { static_cast<void>(attr("mtu").genericIfGet(weak)); }),
            "attribute 'mtu' of type 'Interface' was asked of an object that has gone");
}

// A collection keyed by reference keeps the key, not the entity.
TEST(KelObjects, ReferenceKeysPinNothing) {
  Fixture::World world;
  ConstHandle const device = handleTo(world.device().get());
  KelAttr const costs = device->type().attr("cost");
  auto const eth0 = world.device()->interfaceIs("eth0");
  ConstHandle const strong = handleTo(eth0.get());
  EXPECT_EQ(costs.genericIfGet(device, strong)->strRep(), "10");
  ConstHandle const weak = strong->detachedKey();
  world.device()->interfaceDel("eth0");
  EXPECT_EQ(costs.genericIfGet(device, weak)->strRep(), "10")
      << "still there, under the identity of what has gone";
  EXPECT_EQ(costs.genericIfCount(device), 2U);
  auto const gauges = Kel::Ptr<Fixture::Gauges>(new Fixture::Gauges());
  for (ConstHandle const& stranger :
       {ConstHandle(handleTo(gauges.get())), GenericIf::weak(*Kel::Ptr(new Fixture::Gauges()))})
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

TEST(KelNotifiees, RegistrationAndRemovalDuringAVisit) {
  Fixture::World world;
  struct Actor final : Kel::PtrInterface::NotifieeConst {
    explicit Actor(Kel::PtrInterface const* notifier) : NotifieeConst(notifier) {
      hasNotificationActiveIs(true);
      isRegisteredNotifieeIs(true);
    }
    void onAttribute(Kel::AttributeId, void const*) override {
      ++calls;
      if (act) act();
    }
    int calls = 0;
    std::function<void()> act;
  };
  auto const* const notifier = world.device().get();
  auto first = Kel::Ptr(new Actor(notifier)), second = Kel::Ptr(new Actor(notifier));
  Kel::Ptr<Actor> third;
  second->act = [] { FAIL() << "it left before its turn"; };
  first->act = [&] {
    second = nullptr;
    third = Kel::Ptr(new Actor(notifier));
  };
  world.device()->hostnameIs("one");
  EXPECT_EQ(first->calls, 1);
  EXPECT_EQ(third->calls, 0) << "who joins during a visit is told from the next on";
  first->act = [&] { // drops itself, and his exception with him
    first = nullptr;
    throw std::out_of_range("his own");
  };
  world.device()->hostnameIs("two");
  EXPECT_EQ(third->calls, 1);
  third->hasNotificationActiveIs(false);
  world.device()->hostnameIs("three");
  EXPECT_EQ(third->calls, 1) << "a silent notifiee is not told";
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
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
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
