// Text forms: what a value prints, parses back; what does not parse says why.
#include <bit>
#include <cmath>

#include <nlohmann/json.hpp>

#include "fixture/RandomEdits.h"
#include "platform/KelTesting.h"

namespace KelTesting {
namespace {

std::string parsed(KelType type, std::string const& text) {
  auto const value = type.genericIf(Kel::String(text));
  return value.ok() ? value.value()->strRep() : value.error();
}

// Every scalar attribute of the gauges: builtins, enumerations, nominals, unions, string representations.
class KelText : public testing::TestWithParam<Flavour> {};
INSTANTIATE_TEST_SUITE_P(Kel, KelText, testing::ValuesIn(kFlavours), nameOf);

TEST_P(KelText, WhatIsPrintedParsesBack) {
  KelType const gauges = GetParam().device().attr("gauges").memberType();
  Fixture::RandomEdits random(entityIn(gauges.genericIf(ArgList())), 21);
  int compared = 0;
  for (KelType::AttributeQIterator at(gauges); at; ++at) {
    KelType const type = (*at).type();
    SCOPED_TRACE((*at).name().str());
    if (type.hasGnmiByteRep()) continue; // a structure: no text form
    for (int i = 0; i < 400; ++i, ++compared) {
      ConstHandle const value = random.value(type);
      auto const back = type.genericIf(Kel::String(value->strRep()));
      ASSERT_TRUE(back.ok()) << value->strRep() << ": " << back.error();
      ASSERT_TRUE(back.value()->equals(*value))
          << value->strRep() << " came back as " << back.value()->strRep();
      ASSERT_EQ(back.value()->hash(), value->hash());
    }
  }
  EXPECT_GT(compared, 10000);
}

TEST(KelTexts, ComparisonsAgreeWithTheOrder) {
  using Op = GenericIf::AttributeOp;
  auto const is = [](ConstHandle const& a, Op op, int b) {
    return KelType::genericIfBooleanOp(*a, op, *num(b));
  };
  for (auto const& [op, of123] : std::initializer_list<std::pair<Op, std::string>>{{Op::Equal, "010"},
                                                                                   {Op::NotEqual, "101"},
                                                                                   {Op::Less, "100"},
                                                                                   {Op::LessEqual, "110"},
                                                                                   {Op::Greater, "001"},
                                                                                   {Op::GreaterEqual, "011"}})
    for (int a : {1, 2, 3})
      EXPECT_EQ(is(num(a), op, 2), of123[static_cast<std::size_t>(a) - 1] == '1') << of123 << a;
  EXPECT_THROW(is(num(1), Op::Get, 1), Kel::Error);
  EXPECT_THROW(is(num(true), Op::Equal, 1), Kel::Error);
}

// Floats of any bits, not-a-number and the infinities included, also by the base64 text that keys carry.
TEST(KelTexts, FloatsOfAnyBits) {
  std::mt19937_64 random(22);
  for (int i = 0; i < 5000; ++i) {
    std::uint64_t const bits = random();
    double const number = std::bit_cast<double>(bits);
    if (std::isnan(number)) continue;
    auto const value = handleOf(number);
    auto const back = value->type().genericIf(Kel::String(value->strRep()));
    ASSERT_TRUE(back.ok() && back.value()->equals(*value)) << "bits " << bits << " as " << value->strRep();
  }
  EXPECT_EQ(parsed(Kel::typeOf<float>(), "P8AAAA=="), "1.5");
  EXPECT_EQ(parsed(Kel::typeOf<double>(), "P/gAAAAAAAA="), "1.5");
  EXPECT_TRUE(handleOf(std::nan(""))->equals(*handleOf(std::nan("")))) << "compared by bits";
  EXPECT_FALSE(handleOf(0.0)->equals(*handleOf(-0.0)));
}

// What prints values as JSON prints JSON, and what is JSON already is handed on as it is.
TEST(KelTexts, JsonIsAlwaysReadable) {
  Fixture::declareTypes();
  Kel::Ptr<Fixture::Device> const device(new Fixture::Device());
  Fixture::Gauges& gauges = *device->gaugesIs();
  ConstHandle const handle = handleTo(device);
  auto const printed = [&handle](char const* attr) {
    auto const json = handle->type().attr(attr).genericIfGnmiJsonString(handle);
    std::string const text = json->attrValPtr<Kel::JsonString>()->text.str();
    EXPECT_TRUE(nlohmann::json::accept(text)) << text;
    return text;
  };
  std::string const tooDeep = std::string(200, '[') + std::string(200, ']');
  std::vector<std::string> texts{tooDeep, std::string("\0", 1)};
  for (char const* const text :
       {"{}", "[]", "true", "", "{", "[1,]", "{\"a\":}", "{1:2}", "01", "1.", "-", "+1", "nul", "1 2", "NaN"})
    texts.emplace_back(text);
  for (char const* const text : // all that a string can have amiss
       {"\"", "\"\n\"", "\"\xff\"", "\"\\x\"", "\"\\u12g4\"", "\x01\x1f\x7f", "\xed\xa0\x80",
        "\xf0\x9f\x98\x80\\\"", "\"\xc3\xa9\"", " [1, -0.5e+3,\t{\"a\" : null}, \"\\u00e9\\\"\"] "})
    texts.emplace_back(text);
  std::mt19937 random(23);
  while (texts.size() < 300) {
    std::string text(random() % 12, '\0');
    for (char& c : text)
      c = random() % 3 == 0 ? static_cast<char>(random()) : "[]{},:\"\\0-.eE truefalsn"[random() % 23];
    texts.push_back(text);
  }
  gauges.ratio = std::numeric_limits<float>::quiet_NaN();
  gauges.level = -std::numeric_limits<double>::infinity();
  for (std::string const& text : texts) {
    gauges.config.text = gauges.label = text;
    device->policyText.title = text;
    device->policyText.limit.memberIs(text, 1);
    static_cast<void>(printed("policyText"));
    std::string const json = printed("gauges");
    std::string const wanted = text.empty() ? "null" : text;
    bool const isJson = text != tooDeep && nlohmann::json::accept(wanted);
    EXPECT_TRUE(isJson ? json.find("\"config\":" + wanted) != std::string::npos
                       : nlohmann::json::parse(json)["config"].is_string())
        << text;
  }
  device->aliasIs("nobody", nullptr);
  EXPECT_EQ(printed("alias"), "{}") << "a reference to nothing is no member";
}

TEST(KelTexts, MalformedTextsAreRefused) {
  Fixture::declareTypes();
  for (auto const& [type, texts] : std::initializer_list<std::pair<KelType, std::vector<char const*>>>{
           {Kel::typeOf<std::uint8_t>(), {"256", "-1", "", "007", "+7", " 7", "7 ", "0x7", "7.0"}},
           {Kel::typeOf<std::int8_t>(), {"-129", "-0", "--1"}},
           {Kel::typeOf<std::uint64_t>(), {"18446744073709551616"}},
           {Kel::typeOf<std::int64_t>(), {"9223372036854775808"}},
           {Kel::typeOf<bool>(), {"TRUE", "1"}},
           {Kel::typeOf<double>(),
            {"1.5x", "", "01", "1.", "1.0", "1e0", "+1", " 1", "INF", "nan", "0x1p3", "1e400"}},
           {Kel::typeOf<Kel::String>(), {"bare", "\"", "\"open"}},
           {Kel::typeOf<Kel::Bytes>(), {"a"}},
           {Kel::typeOf<Kel::Time>(), {"-1", "1.5"}},
           {Kel::typeOf<Fixture::Duplex>(), {"FULL", "'full'"}},
           {Kel::typeOf<Fixture::MacAddr>(), {"\"02:00\""}},
           {Kel::typeOf<Fixture::Interface>(), {"x"}},
       }) {
    for (char const* const text : texts) {
      auto const value = type.genericIf(Kel::String(text));
      ASSERT_FALSE(value.ok()) << type.name().str() << " took '" << text << "'";
      EXPECT_NE(value.error().find(type.name().str()), std::string::npos) << value.error();
    }
  }
  EXPECT_EQ(parsed(Kel::typeOf<Fixture::Duplex>(), "'full'"),
            "'full' is no enumerator of type 'Duplex': expected one of AUTO, FULL, HALF");
  EXPECT_EQ(parsed(Kel::typeOf<Fixture::Contact>(), "{}"),
            "type 'Contact' has no text form to read a value from; found '{}'");
}

} // namespace
} // namespace KelTesting
