// The table of the generic operations by kind of attribute, over the declared and the run-time types alike.
#include <gmock/gmock.h>

#include "fixture/RandomEdits.h"
#include "platform/KelTesting.h"

namespace KelTesting {
namespace {

using testing::ElementsAre;

// What is said of an attribute of an interface.
std::string of(std::string const& attr, std::string const& rest) {
  return "attribute '" + attr + "' of type 'Interface'" + rest;
}

class KelOperations : public InterfaceTest {};
INSTANTIATE_TEST_SUITE_P(Kel, KelOperations, testing::ValuesIn(kFlavours), nameOf);

TEST_P(KelOperations, SingularValue) {
  Fixture::RandomEdits random(entityIn(object), 11);
  for (char const* name : {"mtu", "duplex", "description", "load", "mac", "contact", "selector"}) {
    SCOPED_TRACE(name);
    KelAttr const at = attr(name);
    ConstHandle const initial = at.genericIfGet(object);
    ASSERT_TRUE(initial);
    EXPECT_TRUE(initial->equals(*at.type().genericIf(nullptr)));
    EXPECT_TRUE(at.genericIfExist(object));

    ConstHandle wanted = random.value(at.type());
    while (wanted->equals(*initial))
      wanted = random.value(at.type());
    at.genericIfSet(object, nullptr, wanted);
    EXPECT_EQ(told(), just(name));
    EXPECT_TRUE(at.genericIfGet(object)->equals(*wanted));
    at.genericIfSet(object, nullptr, wanted->clone());
    EXPECT_EQ(told(), nothing()) << "an equal value is silent";

    EXPECT_EQ(errorOf([&] { at.genericIfSet(object, nullptr, nullptr); }),
              of(name, " cannot be left without a value"));
    EXPECT_EQ(errorOf([&] { at.genericIfSet(object, nullptr, num(true)); }),
              of(name, " takes a value of type '" + at.type().name().str() + "'; found true of type '" +
                           num(true)->type().name().str() + "'"));
    EXPECT_EQ(errorOf([&] { at.genericIfSet(object, num<std::uint8_t>(1), wanted); }),
              of(name, " is singular and takes no key; found 1"));
    EXPECT_EQ(errorOf([&] { at.genericIfSet(object, ArgList()); }),
              of(name, " does not support the operation 'set from constructor arguments'"));
    EXPECT_TRUE(at.genericIfGet(object)->equals(*wanted)) << "what is refused changes nothing";
    EXPECT_EQ(told(), nothing());

    at.genericIfDel(object);
    EXPECT_EQ(told(), just(name));
    EXPECT_TRUE(at.genericIfGet(object)->equals(*initial)) << "deleting is the reset to the type's default";
    at.genericIfDel(object);
    EXPECT_EQ(told(), nothing());
  }
}

TEST_P(KelOperations, OptionalAndPointer) {
  Fixture::RandomEdits random(entityIn(object), 12);
  for (char const* name : {"speed", "deputy", "peer"}) {
    SCOPED_TRACE(name);
    KelAttr const at = attr(name);
    ConstHandle const wanted = at.isPointer() ? ConstHandle(other) : random.value(at.memberType());
    EXPECT_FALSE(at.genericIfGet(object));
    EXPECT_FALSE(at.genericIfExist(object));
    at.genericIfDel(object);
    at.genericIfSet(object, nullptr, nullptr);
    EXPECT_EQ(told(), nothing());
    for (bool clearBySet : {false, true}) {
      at.genericIfSet(object, nullptr, wanted);
      EXPECT_EQ(told(), just(name));
      EXPECT_TRUE(at.genericIfExist(object));
      EXPECT_TRUE(at.genericIfGet(object)->equals(*wanted));
      at.genericIfSet(object, nullptr, wanted);
      EXPECT_EQ(told(), nothing());
      clearBySet ? at.genericIfSet(object, nullptr, nullptr) : at.genericIfDel(object);
      EXPECT_EQ(told(), just(name));
      EXPECT_FALSE(at.genericIfGet(object));
    }
  }
  EXPECT_EQ(errorOf([&] { attr("peer").genericIfSet(object, nullptr, handleTo(dir_)); }),
            "attribute 'peer' of type 'Interface' refers to an object of type 'Interface'; found /contract "
            "of type 'Dir'");
}

TEST_P(KelOperations, ScalarArray) {
  KelAttr const at = attr("tags");
  EXPECT_TRUE(at.isScalarArray());
  EXPECT_EQ(at.genericIfCount(object), 0U);
  Handle const wanted = at.type().genericIf(nullptr);
  at.genericIfAdd(wanted, str("a"));
  at.genericIfAdd(wanted, str("b"));
  EXPECT_EQ(errorOf([&] { at.genericIfAdd(wanted, num(true)); }).substr(0, 41),
            "attribute 'tags' of type 'Interface' take");
  at.genericIfSet(object, nullptr, wanted);
  EXPECT_EQ(told(), just("tags"));
  at.genericIfAdd(wanted, str("c"));
  EXPECT_EQ(at.genericIfCount(object), 2U) << "the array in the object is a copy";
  EXPECT_EQ(at.genericIfMembers(wanted).size(), 3U);
  EXPECT_EQ(*at.genericIfGet(object, num<std::uint64_t>(1))->attrValPtr<Kel::String>(), "b");
  EXPECT_FALSE(at.genericIfGet(object, num<std::uint64_t>(2)));
  std::string seen;
  for (auto it = at.genericIfIteratorConst(object); it; ++it)
    seen += it.key()->strRep() + it.ptr()->gnmiStrRep();
  EXPECT_EQ(seen, "0a1b");
  at.genericIfDel(object);
  EXPECT_EQ(told(), just("tags"));
  at.genericIfDel(object);
  EXPECT_EQ(told(), nothing());
  at.genericIfRemove(wanted);
  EXPECT_TRUE(at.genericIfMembers(wanted).empty());
}

TEST_P(KelOperations, KeyedValues) {
  KelAttr const at = attr("vlan");
  Handle const vlan = at.memberType().genericIf(nullptr);
  at.indexAttr().genericIfSet(vlan, nullptr, num<std::uint16_t>(10));
  auto const ten = num<std::uint16_t>(10), eleven = num<std::uint16_t>(11);
  EXPECT_FALSE(at.genericIfGet(object, ten));
  at.genericIfDel(object, ten);
  EXPECT_EQ(told(), nothing()) << "deleting what is absent is silent";
  at.genericIfSet(object, ten, vlan);
  EXPECT_EQ(told(), just("vlan[10]"));
  at.genericIfSet(object, ten, vlan);
  EXPECT_EQ(told(), nothing());
  at.memberType().attr("label").genericIfSet(vlan, nullptr, str("voice"));
  EXPECT_FALSE(at.genericIfGet(object, ten)->equals(*vlan)) << "a clone is no way into the collection";
  at.genericIfSet(object, ten, vlan);
  EXPECT_EQ(told(), just("vlan[10]"));
  EXPECT_EQ(errorOf([&] { at.genericIfSet(object, eleven, vlan); }),
            "attribute 'vlan' of type 'Interface': the member's own key 10 differs from the key 11");
  std::string const needsKey = of("vlan", " is a collection and needs a key");
  EXPECT_EQ(errorOf([&] { static_cast<void>(at.genericIfGet(object)); }), needsKey);
  EXPECT_EQ(errorOf([&] { at.genericIfSet(object, nullptr, vlan); }), needsKey);
  EXPECT_EQ(errorOf([&] { at.genericIfDel(object, str("ten")); }),
            "attribute 'vlan' of type 'Interface' is keyed by type '" + ten->type().name().str() +
                "'; found \"ten\" of type '" + str("")->type().name().str() + "'");
  EXPECT_TRUE(at.genericIfExist(object, ten));
  EXPECT_FALSE(at.genericIfExist(object, eleven));
  EXPECT_EQ(at.genericIfCount(object), 1U);
  at.genericIfDel(object, ten);
  EXPECT_EQ(told(), just("vlan[10]"));
}

TEST_P(KelOperations, OwnedEntities) {
  ConstHandle const seven = num<std::uint32_t>(7), dmz = attr("lane").keyType().genericIf("'DMZ'").value();
  struct {
    char const* name;
    ConstHandle key, givenKey;
    ArgList args;
    std::string event, fullName;
  } const cases[] = {
      {"unit", seven, nullptr, {seven}, "unit[7]", "/contract/subject/unit[id=7]"},
      {"lane", dmz, dmz, {}, "lane['DMZ']", "/contract/subject/lane[laneKey=DMZ]"},
      {"optics", nullptr, nullptr, {}, "optics", "/contract/subject/optics"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    KelAttr const at = attr(c.name);
    EXPECT_FALSE(at.genericIfExist(object, c.key));
    EXPECT_FALSE(at.genericIfGet(object, c.key));
    Handle const first = at.genericIfSet(object, c.givenKey, c.args);
    EXPECT_EQ(told(), just(c.event));
    EXPECT_EQ(entityIn(first)->fullName().str(), c.fullName);
    EXPECT_EQ(entityIn(first)->parentKey() ? entityIn(first)->parentKey()->strRep() : "",
              c.key ? c.key->strRep() : "");
    EXPECT_EQ(at.genericIfGet(object, c.key)->object(), first->object());
    Recorder watcher(entityIn(first));
    Handle const second = at.genericIfSet(object, c.givenKey, c.args);
    EXPECT_THAT(told(), ElementsAre(c.event, c.event)) << "removed, then made";
    EXPECT_THAT(watcher.take(), ElementsAre("end"));
    EXPECT_TRUE(entityIn(first)->isOrphan() && entityIn(first)->parent() == nullptr);
    EXPECT_EQ(entityIn(second)->parent(), entityIn(object).get());
    EXPECT_EQ(errorOf([&] { at.genericIfSet(object, c.key, second); }),
              of(c.name, " does not support the operation 'set'"));
    at.genericIfDel(object, c.key);
    EXPECT_EQ(told(), just(c.event));
    at.genericIfDel(object, c.key);
    EXPECT_EQ(told(), nothing());
    EXPECT_TRUE(entityIn(second)->isOrphan());
  }
  EXPECT_EQ(errorOf([&] { attr("lane").genericIfSet(object, ArgList()); }),
            of("lane", " is a collection and needs a key"));
  EXPECT_EQ(errorOf([&] {
              attr("unit").genericIfSet(object, ArgList{seven, seven});
            }),
            "type 'Unit' takes 1 constructor arguments; found 2");
  EXPECT_EQ(told(), nothing());
}

TEST_P(KelOperations, Directory) {
  ConstHandle const dir = handleTo(dir_);
  KelAttr const at = dir->type().attr("entityPtr");
  Recorder watcher(dir_);
  EXPECT_EQ(at.genericIfGet(dir, str("subject"))->object(), object->object());
  EXPECT_FALSE(at.genericIfGet(dir, str("nobody")));
  EXPECT_EQ(errorOf([&] { at.genericIfSet(handleTo(dir_), str("x"), object); }),
            "attribute 'entityPtr' of type 'Dir' does not support the operation 'set'");
  at.genericIfDel(handleTo(dir_), str("other"));
  EXPECT_THAT(watcher.take(), ElementsAre("entityPtr[\"other\"]"));
  dir_->dirIs("fixed")->entityIs("kept", entityIn(type_.genericIf(ArgList())), false);
  Handle const fixed = handleTo(dir_->dirIs("fixed"));
  EXPECT_EQ(errorOf([&] { at.genericIfDel(fixed, str("kept")); }),
            "entity 'kept' of directory '/contract/fixed' cannot be removed");
  for (char const* bad : {"", "a/b", "a[0]"}) {
    EXPECT_EQ(errorOf([&] { dir_->entityIs(bad, entityIn(type_.genericIf(ArgList()))); }),
              "'" + std::string(bad) +
                  "' cannot name an entity in directory '/contract': expected a text without '/' and '['");
  }
}

TEST_P(KelOperations, ReadOnlyAttributesAndWrongOwners) {
  for (char const* name : {"name", "created", "operational"}) {
    KelAttr const at = attr(name);
    ASSERT_FALSE(at.isSettable());
    std::string const expected = of(name, " cannot be written");
    EXPECT_EQ(errorOf([&] { at.genericIfSet(object, nullptr, at.type().genericIf(nullptr)); }), expected);
    EXPECT_EQ(errorOf([&] { at.genericIfDel(object); }), expected);
  }
  EXPECT_EQ(errorOf([&] { static_cast<void>(attr("mtu").genericIfGet(handleTo(dir_))); }),
            "attribute 'mtu' of type 'Interface' was asked of an object of type 'Dir'");
  EXPECT_EQ(errorOf([&] { static_cast<void>(attr("mtu").genericIfGet(nullptr)); }),
            "attribute 'mtu' of type 'Interface' was asked of a null handle");
}

// A detached object is made whole from its arguments, and nobody is told of its making or of writes to it.
TEST_P(KelOperations, ConstructorArguments) {
  ArgList args;
  args.push_back(str("made"));
  args.push_back(handleOf(Kel::Time(5)));
  Handle const made = type_.genericIf(args);
  Recorder watcher(entityIn(made));
  EXPECT_EQ(attr("name").genericIfGet(made)->gnmiStrRep(), "made");
  EXPECT_EQ(attr("created").genericIfGet(made)->attrValPtr<Kel::Time>()->nanoseconds(), 5'000'000'000U);
  attr("mtu").genericIfSet(made, nullptr, num<std::uint32_t>(1));
  EXPECT_EQ(watcher.take(), nothing());
  args[0] = nullptr;
  EXPECT_EQ(attr("name").genericIfGet(type_.genericIf(args))->gnmiStrRep(), "")
      << "a null argument is the default";
  args[0] = num(true);
  EXPECT_EQ(errorOf([&] { static_cast<void>(type_.genericIf(args)); }).substr(0, 43),
            "attribute 'name' of type 'Interface' takes ");
}

} // namespace
} // namespace KelTesting
