// Scalars as gNMI values, and as the texts of keys.
#include "Kel/Attr.h"
#include "Ondra/ScalarEncode.h"
#include "RecordingRouter.h"
#include "WalkerProbe.h"
#include "fixture/Device.h"
#include "fixture/Types.h"

namespace {

using Kel::handleOf;
using Handle = Kel::Ptr<Kel::GenericIf const>;

// A value that was there before must not shine through.
std::string encoded(Handle const& value) {
  gnmi::TypedValue out;
  out.mutable_leaflist_val()->add_element()->set_uint_val(9);
  Ondra::extractScalar(nullptr, value, &out);
  return Ondra::typedValueToCompactString(out);
}

class ScalarEncode : public testing::Test {
protected:
  static void SetUpTestSuite() { Fixture::declareTypes(); }
};

// Beside what the recorded walk holds of every kind. Empty: what is no value of a leaf, or no key.
TEST_F(ScalarEncode, ValuesAndKeysAtTheEdges) {
  using Fixture::Selector;
  struct Case {
    Handle value;
    std::string text, key;
    char const* escaped = nullptr; // the key in a structured one, when it differs
  };
  Case const cases[] = {
      {handleOf(std::uint8_t{200}), "uint_val:200", "200"},
      {handleOf(~std::uint64_t{0}), "uint_val:18446744073709551615", "18446744073709551615"},
      {handleOf(std::int8_t{-128}), "int_val:-128", "-128"},
      {handleOf(INT64_MIN), "int_val:-9223372036854775808", "-9223372036854775808"},
      {handleOf(true), "bool_val:true", "true"},
      {handleOf(static_cast<char>(-1)), "uint_val:18446744073709551615", "\xff"},
      {handleOf(0.1F), "double_val:0.10000000149011612", "PczMzQ=="},
      {handleOf(1.5), "double_val:1.5", "P/gAAAAAAAA="},
      {handleOf(-0.0), "double_val:-0", "gAAAAAAAAAA="},
      {handleOf(Kel::String("a__b___")), "string_val:a__b___", "a__b___", "a\\__b\\___"},
      {handleOf(Kel::Bytes(std::string_view("a\0b", 3))), std::string("bytes_val:a\0b", 13), "YQBi"},
      {handleOf(Kel::Seconds(-1.5)), "int_val:-1500000000", "-1500000000"},
      // 2^63 nanoseconds and more: beyond what a signed number holds.
      {handleOf(Kel::Time::fromNanoseconds(std::uint64_t{1} << 63)), "uint_val:9223372036854775808",
       "9223372036854775808"},
      {handleOf(Kel::JsonString{R"({"a":[1]})"}), R"(json_val:{"a":[1]})", ""},
      {handleOf(Fixture::Zone::Dmz), "string_val:DMZ", "DMZ"},
      {handleOf(Fixture::VlanId{10}), "uint_val:10", "10"},
      {handleOf(Fixture::Trust{Fixture::Zone::Dmz}), "string_val:DMZ", "DMZ"},
      {handleOf(Fixture::MacAddr{42}), "string_val:02:00:00:00:00:2a", "02:00:00:00:00:2a"},
      {handleOf(Fixture::Fingerprint{Kel::Bytes("xyz")}), "bytes_val:xyz", "eHl6"},
      {handleOf(Selector{Fixture::Zone::Dmz}), "string_val:DMZ", "DMZ"},
      {handleOf(Selector{Kel::String("t")}), "string_val:t", "t"},
      {handleOf(Selector{std::uint32_t{7}}), "uint_val:7", "7"},
      {handleOf(Fixture::LinkKey{}), "", "nullptr"},
  };
  RecordingRouter router;
  WalkerProbe const walker("/p", router, nullptr);
  for (Case const& one : cases) {
    SCOPED_TRACE(one.value->type().name().view());
    EXPECT_EQ(Ondra::isScalarType(one.value->type()), !one.text.empty());
    EXPECT_EQ(one.text.empty() ? "" : encoded(one.value), one.text);
    for (int escape = one.key.empty() ? 2 : 0; escape < 2; ++escape) {
      Ondra::KelKey key;
      static_cast<void>(
          key.updateTypeAndGenKey(Kel::typeOf<Fixture::Device>().attr("zoneLimit"), one.value->type()));
      key.escapeMarkIs(escape == 1);
      walker.extractScalar(one.value, Ondra::Path::strToPathIs("/k"), key, nullptr);
      std::string const text = escape == 1 && one.escaped != nullptr ? one.escaped : one.key;
      EXPECT_EQ(Ondra::KelKey::toString(key), "[k=" + text + "]");
    }
  }
}

// A builtin text with representations of its own: bytes win over text, text over the plain characters.
TEST_F(ScalarEncode, RepresentationsComeBeforeTheKind) {
  Kel::TypeDesc const& plain = Kel::builtinDesc(Kel::BuiltinKind::String);
  Kel::TypeDesc type;
  type.name = "text";
  type.kind = plain.kind;
  type.builtin = plain.builtin;
  type.ops = plain.ops;
  type.hasGnmiStrRep = true;
  type.gnmiStrRep = [](void const*) { return std::string("as text"); };
  Kel::String const held("held");
  Handle const value = Kel::GenericIf::copyOf(type, &held);
  EXPECT_EQ(encoded(value), "string_val:as text");
  type.hasGnmiByteRep = true;
  type.gnmiByteRep = [](void const*) { return std::string("as bytes"); };
  EXPECT_EQ(encoded(value), "bytes_val:as bytes");
}

} // namespace
