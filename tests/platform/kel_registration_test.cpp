// What registration refuses, and that the text of each refusal names the type, the attribute and the rule.

#include "Kel/TypeBuilder.h"
#include "platform/KelTesting.h"

namespace KelTesting {
namespace {

using Kel::BuiltinKind, Kel::builtinType, Kel::TypeBuilder, Kel::TypeKind;

KelType const kU32 = builtinType(BuiltinKind::U32);
KelType const kText = builtinType(BuiltinKind::String);

TEST(KelRegistration, RefusesWithTypeAttributeAndRule) {
  Fixture::declareTypes();
  KelType const& unit = Fixture::runtimeTypes().unit;
  KelType const selector = Kel::typeOf<Fixture::Selector>(), print = Kel::typeOf<Fixture::Fingerprint>(),
                policy = Kel::typeOf<Fixture::Policy>(), phone = Kel::typeOf<Fixture::Phone>();
  KelType const wrongKey = Kel::runtimeKey("test", "K", {{"id", kText}, {"at", kU32}}).value();
  using Describe = std::function<void(TypeBuilder&)>;
  for (auto const& [kind, describe, text] : std::vector<std::tuple<TypeKind, Describe, char const*>>{
           {TypeKind::Struct, [&](TypeBuilder& b) { b.instantiating("unit", kU32, unit).index("id"); },
            "type 'T', attribute 'unit': a value type cannot own entities"},
           {TypeKind::Entity, [&](TypeBuilder& b) { b.attr("unit", unit); },
            "type 'T', attribute 'unit': an entity is held by reference or by an instantiating attribute, "
            "never "
            "plainly"},
           {TypeKind::Entity, [&](TypeBuilder& b) { b.instantiating("phone", phone); },
            "type 'T', attribute 'phone': an instantiating attribute holds entities"},
           {TypeKind::Entity, [&](TypeBuilder& b) { b.keyed("by", selector, kU32); },
            "type 'T', attribute 'by': a union cannot be a key"},
           {TypeKind::Entity, [&](TypeBuilder& b) { b.keyed("by", print, kU32); },
            "type 'T', attribute 'by': a type with a byte representation cannot be a key"},
           {TypeKind::Entity, [&](TypeBuilder& b) { b.keyed("by", policy, kU32); },
            "type 'T', attribute 'by': a key must not hold collections"},
           {TypeKind::Entity, [&](TypeBuilder& b) { b.array("list", kU32).optional(); },
            "type 'T', attribute 'list': an array is empty, never without value"},
           {TypeKind::Entity, [&](TypeBuilder& b) { b.attr("id", kU32).keyField().settable(); },
            "type 'T', attribute 'id': a key attribute cannot be settable"},
           {TypeKind::Entity, [&](TypeBuilder& b) { b.keyed("phone", kText, phone).index("number"); },
            "type 'T', attribute 'phone': the key attribute 'number' of 'Phone' lacks the key-field mark"},
           {TypeKind::Entity, [&](TypeBuilder& b) { b.instantiating("unit", kU32, unit).index("name"); },
            "type 'T', attribute 'unit': the member type 'Unit' has no attribute 'name' to be the key"},
           {TypeKind::Entity, [&](TypeBuilder& b) { b.instantiating("unit", kText, unit).index("id"); },
            "type 'T', attribute 'unit': it is keyed by 'String', but the key attribute 'id' is of type "
            "'U32'"},
           {TypeKind::Entity, [&](TypeBuilder& b) { b.attr("a__b", kU32); },
            "type 'T', attribute 'a__b': a name must not contain '__', which separates key fields"},
           {TypeKind::Struct, [&](TypeBuilder& b) { b.attr("1st", kU32); },
            "type 'T', attribute '1st': a name must begin with a letter"},
           {TypeKind::Struct, [&](TypeBuilder& b) { b.attr("a/b[c=d]", kU32); },
            "type 'T', attribute 'a/b[c=d]': a name consists of letters, digits, '-', '_' and '.'"},
           {TypeKind::Struct, [&](TypeBuilder& b) { b.attr("_a", kU32); },
            "type 'T', attribute '_a': a name must not begin or end with '_'"},
           {TypeKind::Struct, [&](TypeBuilder& b) { b.attr("a_", kU32); },
            "type 'T', attribute 'a_': a name must not begin or end with '_'"},
           {TypeKind::Struct, [&](TypeBuilder& b) { b.attr("", kU32); },
            "type 'T', attribute '': a name must not be empty"},
           {TypeKind::Struct, [&](TypeBuilder& b) { b.attr("a", kU32).attr("a", kText); },
            "type 'T', attribute 'a': another attribute has the same name"},
           {TypeKind::Struct, [&](TypeBuilder& b) { b.attr("a", kU32).attr("b", kText).id(1); },
            "type 'T', attribute 'b': another attribute has the id 1"},
           {TypeKind::Struct, [&](TypeBuilder& b) { b.attr("self", b.type()); },
            "type 'T', attribute 'self': a value holds others of its own type in collections, never plainly"},
           {TypeKind::Union, [&](TypeBuilder& b) { b.array("list", kU32); },
            "type 'T', attribute 'list': an alternative of a union is a scalar and no union itself"},
           {TypeKind::Nominal, [&](TypeBuilder& b) { b.attr("phone", phone); },
            "type 'T', attribute 'phone': a nominal wraps a builtin or an enumeration"},
           {TypeKind::Entity, [&](TypeBuilder& b) { b.instantiating("unit", wrongKey, unit); },
            "type 'T', attribute 'unit': the field 'id' of its key is of type 'String', and of type 'U32' in "
            "the "
            "member"},
           {TypeKind::Struct, [&](TypeBuilder& b) { b.attr("a", kU32).id(0); },
            "type 'T', attribute 'a': an id must be positive, because notifications carry it with either "
            "sign"},
       }) {
    SCOPED_TRACE(text);
    TypeBuilder builder("test", "T", kind);
    describe(builder);
    auto const type = builder.done();
    ASSERT_FALSE(type.ok());
    EXPECT_EQ(type.error(), text);
  }
}

enum class Light : std::uint8_t { Red, Green };
enum class Alarm : std::uint8_t { Red, Blue };
enum class Twice : std::uint8_t { One, Two };

TEST(KelRegistration, RefusesAmbiguousUnionsAndEnumerations) {
  Kel::enumType<Light>("Light", {{"RED", Light::Red}, {"GREEN", Light::Green}});
  Kel::enumType<Alarm>("Alarm", {{"RED", Alarm::Red}, {"BLUE", Alarm::Blue}});
  EXPECT_EQ(errorOf([] {
              Kel::unionType<std::variant<Light, Alarm>>("U", {"light", "alarm"});
            }),
            "type 'U', attribute 'alarm': the earlier alternative 'light' accepts what this one sends");
  EXPECT_EQ(errorOf([] {
              Kel::unionType<std::variant<Light, Kel::String>>("Fine", {"light", "text"});
            }),
            "(no error)");
  EXPECT_EQ(errorOf([] {
              Kel::enumType<Twice>("Twice", {{"ONE", Twice::One}, {"ONE", Twice::Two}});
            }),
            "type 'Twice': the enumerator 'ONE' repeats a name or a number");
  EXPECT_EQ(Kel::runtimeEnum("test", "E", {}).error(),
            "type 'E': an enumeration has at least one enumerator");
  EXPECT_EQ(
      Kel::runtimeUnion("test", "U", {{"small", builtinType(BuiltinKind::U8)}, {"large", kU32}}).error(),
      "type 'U', attribute 'large': the earlier alternative 'small' accepts what this one sends");
  EXPECT_EQ(Kel::runtimeKey("test", "K", {}).error(), "type 'K': a key has at least one field");
  EXPECT_EQ(Kel::runtimeKey("test", "K", {{"which", Kel::typeOf<Fixture::Selector>()}}).error(),
            "type 'K': a union cannot be a key");
  EXPECT_EQ(errorOf([] { Kel::enumType<Light>("Again", {}); }),
            "type 'Light' is declared already; found a second declaration as 'Again'");
}

} // namespace
} // namespace KelTesting
