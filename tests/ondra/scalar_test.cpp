// Scalars of every kind as gNMI values, and base64.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <limits>
#include <string>

#include "Kel/Attr.h"
#include "Ondra/CompactText.h"
#include "Ondra/ScalarEncode.h"
#include "Tovak/Assert.h"
#include "fixture/Types.h"
#include "fixture/Values.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

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

TEST_F(ScalarEncode, EveryKind) {
  using Fixture::Selector;
  struct Case {
    Handle value;
    std::string text;
  };
  Case const cases[] = {
      {handleOf(std::uint8_t{255}), "uint_val:255"},
      {handleOf(std::int8_t{-128}), "int_val:-128"},
      {handleOf(std::uint16_t{65535}), "uint_val:65535"},
      {handleOf(std::int16_t{-32768}), "int_val:-32768"},
      {handleOf(std::numeric_limits<std::uint32_t>::max()), "uint_val:4294967295"},
      {handleOf(std::numeric_limits<std::int32_t>::min()), "int_val:-2147483648"},
      {handleOf(std::numeric_limits<std::uint64_t>::max()), "uint_val:18446744073709551615"},
      {handleOf(std::numeric_limits<std::int64_t>::min()), "int_val:-9223372036854775808"},
      {handleOf(true), "bool_val:true"},
      {handleOf('A'), "uint_val:65"},
      {handleOf(static_cast<char>(-1)), "uint_val:18446744073709551615"},
      {handleOf(1.5F), "double_val:1.5"},
      {handleOf(0.1F), "double_val:0.10000000149011612"},
      {handleOf(-0.0), "double_val:-0"},
      {handleOf(Kel::String("longer than any inline text")), "string_val:longer than any inline text"},
      {handleOf(Kel::String()), "string_val:"},
      {handleOf(Kel::Bytes(std::string_view("a\0b", 3))), std::string("bytes_val:a\0b", 13)},
      {handleOf(Kel::Seconds(1.5)), "int_val:1500000000"},
      {handleOf(Kel::Seconds(-1.5)), "int_val:-1500000000"},
      {handleOf(Kel::Time(1.5)), "uint_val:1500000000"},
      // 2^63 nanoseconds and more: beyond what a signed number holds.
      {handleOf(Kel::Time::fromNanoseconds(std::uint64_t{1} << 63)), "uint_val:9223372036854775808"},
      {handleOf(Kel::JsonString{R"({"a":[1]})"}), R"(json_val:{"a":[1]})"},
      {handleOf(Fixture::Duplex::Full), "string_val:" + handleOf(Fixture::Duplex::Full)->gnmiStrRep()},
      {handleOf(Fixture::Percent{42}), "uint_val:42"},
      {handleOf(Fixture::Trust{Fixture::Zone::Dmz}),
       "string_val:" + handleOf(Fixture::Zone::Dmz)->gnmiStrRep()},
      {handleOf(Fixture::MacAddr{42}), "string_val:02:00:00:00:00:2a"},
      {handleOf(Fixture::Fingerprint{Kel::Bytes("xyz")}), "bytes_val:xyz"},
      {handleOf(Selector{Fixture::Zone::Dmz}), "string_val:" + handleOf(Fixture::Zone::Dmz)->gnmiStrRep()},
      {handleOf(Selector{Kel::String("t")}), "string_val:t"},
      {handleOf(Selector{std::uint32_t{7}}), "uint_val:7"},
      {handleOf(Selector{true}), "bool_val:true"},
  };
  for (Case const& one : cases) {
    EXPECT_TRUE(Ondra::isScalarType(one.value->type())) << one.value->type().name().view();
    EXPECT_EQ(encoded(one.value), one.text) << one.value->type().name().view();
  }
  // Enumerators travel by name, not by number.
  EXPECT_FALSE(std::isdigit(handleOf(Fixture::Duplex::Full)->gnmiStrRep().front()));
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
  Tovak::ScopedAssertHandler const throwing;
  Handle const structure = handleOf(Fixture::Contact{});
  EXPECT_FALSE(Ondra::isScalarType(structure->type()));
  gnmi::TypedValue out;
  try {
    Ondra::extractScalar(nullptr, structure, &out);
    ADD_FAILURE() << "encoded a structure";
  } catch (Tovak::AssertionError const& error) {
    EXPECT_STREQ(error.what(), "not supported scalar type");
  }
}

TEST(Base64, StandardAlphabetWithPadding) {
  struct Case {
    std::string_view bytes;
    char const* text;
  };
  // RFC 4648, section 10; then the two last characters of the alphabet, and a float's bytes.
  constexpr Case cases[] = {{"", ""},
                            {"f", "Zg=="},
                            {"fo", "Zm8="},
                            {"foo", "Zm9v"},
                            {"foob", "Zm9vYg=="},
                            {"fooba", "Zm9vYmE="},
                            {"foobar", "Zm9vYmFy"},
                            {"\xfb\xff\xbf", "+/+/"},
                            {{"\x3f\xc0\0\0", 4}, "P8AAAA=="}};
  for (Case const& one : cases) {
    std::string text = "something longer that was there before";
    Ondra::base64Encode(one.bytes.data(), one.bytes.size(), text);
    EXPECT_EQ(text, one.text);
  }
}

} // namespace
