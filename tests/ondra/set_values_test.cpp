// gNMI values into values of the model, key maps into keys.

#include "Kel/TypeBuilder.h"
#include "Ondra/AttrTree.h"
#include "Ondra/KeyDecoder.h"
#include "Tovak/Assert.h"
#include "fixture/Populate.h"
#include "fixture/Types.h"
#include "ondra/set_support.h"

namespace {

using Ondra::KelGnmiSet::AttrTree;
using Decoder = AttrTree::KeyDecoder;
using namespace SetTest;
using Kel::BuiltinKind, Kel::KelType;

class SetDecoding : public testing::Test {
protected:
  SetDecoding() { Fixture::declareTypes(); }
};
using SetValues = SetDecoding;
using SetKeys = SetDecoding;

std::string decoded(KelType type, gnmi::TypedValue const& value) {
  auto const result = AttrTree::gnmiToKelValue(type, value);
  return result ? (*result)->strRep() : result.error();
}

KelType type(BuiltinKind kind) { return Kel::builtinType(kind); }

// Every builtin with every field: which one it takes, and what the others are told.
TEST_F(SetValues, FieldsThatFitAndThatDoNot) {
  // Its name in the refusal; empty: not supported by any.
  std::pair<char const*, std::string> const fields[] = {
      {"string_val: '7'", "string"},
      {"int_val: -7", "int"},
      {"uint_val: 7", "unsigned int"},
      {"bool_val: true", "bool"},
      {"bytes_val: '\\077\\271\\231\\231\\231\\231\\231\\232'", "bytes_val"},
      {"float_val: 1.5", "float"},
      {"double_val: 1.5", "double"},
      {"decimal_val { digits: 7 }", ""},
      {"leaflist_val { }", ""},
      {"json_val: '7'", ""},
      {"proto_bytes: '7'", ""},
      {"", ""}};
  using enum BuiltinKind;
  std::vector<std::pair<std::vector<BuiltinKind>, std::map<std::string, std::string>>> const accepted = {
      {{U8, U16, U32, U64, Time}, {{"unsigned int", "7"}}},
      {{S8, S16, S32, S64, Seconds}, {{"int", "-7"}}},
      {{Bool}, {{"bool", "true"}}},
      {{Char}, {{"unsigned int", "\a"}}},
      {{Float}, {{"float", "1.5"}}},
      {{Double}, {{"double", "1.5"}, {"bytes_val", "0.1"}}},
      {{String}, {{"string", "\"7\""}}},
      {{Bytes, JsonString}, {}}};
  for (auto const& [kinds, takes] : accepted) {
    for (auto const& [text, field] : fields) {
      gnmi::TypedValue const value = valueOf(text);
      auto const taken = takes.find(field);
      for (BuiltinKind const kind : kinds) {
        std::string const name = type(kind).name().str();
        std::string const expected = taken != takes.end() ? taken->second
                                     : field.empty()      ? "'" + value.DebugString() + "' is not supported"
                                                          : "Expected '" + name + "'; found '" + field + "'";
        EXPECT_EQ(expected, decoded(type(kind), value)) << name << " from " << text;
      }
    }
  }
}

TEST_F(SetValues, TypesWithRulesOfTheirOwn) {
  KelType const selector = Kel::typeOf<Fixture::Selector>();
  for (auto const& [of, value, expected] : std::vector<std::tuple<KelType, char const*, char const*>>{
           {type(BuiltinKind::U8), "uint_val: 300", "44"},
           {type(BuiltinKind::S8), "int_val: 255", "-1"},
           {type(BuiltinKind::Time), "uint_val: 9223372036854775808", "9223372036854775808"},
           {type(BuiltinKind::Seconds), "int_val: -1099511627776", "-1099511627776"},
           {type(BuiltinKind::Double), "bytes_val: '1234567'",
            "Error in interpreting 'bytes_val' as 'double'"},
           {Kel::typeOf<Fixture::Zone>(), "string_val: 'dmz'",
            "'dmz' is no enumerator of type 'Zone': expected one of INSIDE, OUTSIDE, DMZ"},
           {Kel::typeOf<Fixture::Zone>(), "int_val: 5", "Expecting a string value as 'Zone' has gnmi strep"},
           {Kel::typeOf<Fixture::Trust>(), "string_val: 'OUTSIDE'", "'OUTSIDE'"},
           {Kel::typeOf<Fixture::Percent>(), "uint_val: 42", "42"},
           {Kel::typeOf<Fixture::Percent>(), "int_val: 42", "Expected 'U8'; found 'int'"},
           {Kel::typeOf<Fixture::MacAddr>(), "uint_val: 42",
            "Expecting a string value as 'MacAddr' has gnmi strep"},
           {selector, "string_val: 'DMZ'", "'DMZ'"}, // the first that takes it
           {selector, "string_val: 'x'", "\"x\""},
           {selector, "uint_val: 5", "5"},
           {selector, "int_val: 5", "gnmi value doesn't match any alternatives of Union type 'Selector'"},
           {Kel::typeOf<Fixture::Contact>(), "string_val: 'x'", "Expected 'Contact'; found 'string'"}})
    EXPECT_EQ(expected, decoded(of, valueOf(value))) << of.name().view() << " " << value;
  EXPECT_EQ("Cannot create default object of non-value type Interface",
            Ondra::KelGnmiSet::defaultKelObject(Kel::typeOf<Fixture::Interface>()).error());
  Tovak::ScopedAssertHandler const throwing;
  EXPECT_THROW(static_cast<void>(AttrTree::decodeUnion(type(BuiltinKind::U8), {})), Tovak::AssertionError);
}

std::string key(KelType type, std::map<std::string, std::string> const& entries) {
  Decoder::KeyMap const map(entries.begin(), entries.end());
  auto const result = Decoder::decodeKey(type, map);
  if (auto const* const error = std::get_if<std::string>(&result)) return *error;
  if (auto const* const single = std::get_if<AttrTree::SingleKey>(&result)) return single->key->strRep();
  std::string text = "all";
  for (auto const& [attr, value] : std::get<AttrTree::MultipleKeys>(result).filter)
    text += " with " + attr.name().str() + "=" + value->strRep();
  return text;
}

TEST_F(SetKeys, OfEveryShape) {
  KelType const addr = Kel::typeOf<Fixture::AddrKey>();
  KelType const route = Kel::typeOf<Fixture::RouteKey>();
  std::string const noKeys = "Expecting a single entry in the key map for the key of type ";
  using Entries = std::map<std::string, std::string>;
  for (auto const& [of, entries, expected] : std::vector<std::tuple<KelType, Entries, std::string>>{
           {type(BuiltinKind::String), {{"any", "a\"'\\__\"]"}}, "\"a\"'\\__\"]\""},
           {type(BuiltinKind::String), {{"any", "*"}}, "all"},
           {type(BuiltinKind::String), {{"a", "1"}, {"b", "2"}}, noKeys + "'String'; found 2"},
           {type(BuiltinKind::U16), {}, noKeys + "'U16'; found 0"},
           {type(BuiltinKind::Float), {{"k", "P8AAAA=="}}, "1.5"},
           {Kel::typeOf<Fixture::Zone>(), {{"k", "DMZ"}}, "'DMZ'"},
           {Kel::typeOf<Fixture::MacAddr>(), {{"k", "02:00:00:00:00:2a"}}, "\"02:00:00:00:00:2a\""},
           {Kel::typeOf<Fixture::Selector>(), {{"k", "7"}}, "key of union type 'Selector' is not supported"},
           {Kel::typeOf<Fixture::LinkKey>(),
            {{"k", "/x"}},
            "key of reference type 'LinkKey' is not supported"},
           {addr, {{"addr", "1"}, {"vrf", "a\\__b"}}, "{vrf=\"a__b\", addr=1}"},
           {addr, {{"addr", "1"}}, "Key field 'vrf' of type 'AddrKey' is missing"},
           {addr, {{"addr", "1"}, {"vrf", "r"}, {"x", "y"}}, "Attribute 'x' not found on Type 'AddrKey'"},
           {addr, {{"addr", "*"}, {"vrf", "r"}}, "all with vrf=\"r\""},
           {addr, {{"vrf", "*"}}, "all"},
           {addr, {{"vrf", "*"}, {"", "x"}}, "Attribute '' not found on Type 'AddrKey'"},
           {addr, {{"addr", "*"}, {"vrf", "a\\__b"}}, "all with vrf=\"a__b\""},
           {route,
            {{"subnet__address", "1"}, {"subnet__length", "2"}, {"vrf", "r"}},
            "{subnet={address=1, length=2}, vrf=\"r\"}"},
           {route,
            {{"subnet", "1"}, {"vrf", "r"}},
            "Expecting a scalar at leaf element 'subnet'; found composite of type 'Subnet'"},
           {route, {{"vrf__x", "1"}}, "Attribute 'x' not found on Type 'String'"},
           {route, {{"subnet__address", "*"}, {"vrf", "r"}}, "all with vrf=\"r\""},
           {route,
            {{"subnet__address", "1"}, {"vrf", "*"}},
            "Filtering nested key 'subnet__address' is not supported"}})
    EXPECT_EQ(expected, key(of, entries)) << of.name().view();
}

TEST_F(SetKeys, PathsOfFields) {
  using Parts = std::vector<std::string_view>;
  EXPECT_EQ((Parts{"a", "b", "", "c"}), Decoder::splitPath("a__b____c"));
  EXPECT_EQ((Parts{"a\\__b", "c"}), Decoder::splitPath("a\\__b__c"));
  EXPECT_EQ((Parts{""}), Decoder::splitPath(""));
}

} // namespace
