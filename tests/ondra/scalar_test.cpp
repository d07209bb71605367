// Scalars as gNMI values.
#include <gtest/gtest.h>

#include "Kel/Attr.h"
#include "Ondra/CompactText.h"
#include "Ondra/ScalarEncode.h"
#include "fixture/Types.h"
#include "fixture/Values.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"
#include "ondra/assertion.h"

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

// Beside what the recorded walk holds of every kind.
TEST_F(ScalarEncode, ValuesAtTheEdges) {
  using Fixture::Selector;
  struct Case {
    Handle value;
    std::string text;
  };
  Case const cases[] = {
      {handleOf(std::int8_t{-128}), "int_val:-128"},
      {handleOf(static_cast<char>(-1)), "uint_val:18446744073709551615"},
      {handleOf(0.1F), "double_val:0.10000000149011612"},
      {handleOf(-0.0), "double_val:-0"},
      {handleOf(Kel::Bytes(std::string_view("a\0b", 3))), std::string("bytes_val:a\0b", 13)},
      {handleOf(Kel::Seconds(-1.5)), "int_val:-1500000000"},
      // 2^63 nanoseconds and more: beyond what a signed number holds.
      {handleOf(Kel::Time::fromNanoseconds(std::uint64_t{1} << 63)), "uint_val:9223372036854775808"},
      {handleOf(Kel::JsonString{R"({"a":[1]})"}), R"(json_val:{"a":[1]})"},
      {handleOf(Fixture::Trust{Fixture::Zone::Dmz}), "string_val:DMZ"},
      {handleOf(Fixture::Fingerprint{Kel::Bytes("xyz")}), "bytes_val:xyz"},
      {handleOf(Selector{Fixture::Zone::Dmz}), "string_val:DMZ"},
      {handleOf(Selector{Kel::String("t")}), "string_val:t"},
  };
  for (Case const& one : cases) {
    EXPECT_TRUE(Ondra::isScalarType(one.value->type())) << one.value->type().name().view();
    EXPECT_EQ(encoded(one.value), one.text) << one.value->type().name().view();
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

TEST_F(ScalarEncode, RefusesWhatIsNoScalar) {
  Handle const structure = handleOf(Fixture::Contact{});
  EXPECT_FALSE(Ondra::isScalarType(structure->type()));
  gnmi::TypedValue out;
  EXPECT_EQ(assertionIn([&] { Ondra::extractScalar(nullptr, structure, &out); }),
            "OndraIr: not supported scalar type");
}

} // namespace
