// The users file, and the check of credentials.
#include <gtest/gtest.h>

#include <crypt.h>

#include <ctime>

#include "Tovak/Clock.h"
#include "agent/service/Authenticator.h"
#include "agent/service/Place.h"

namespace Agent {
namespace {

std::string hashed(char const* password) {
  crypt_data data{};
  return ::crypt_r(password, "$6$rounds=1000$abcdefgh$", &data); // as cheap as it gets
}

std::shared_ptr<Users const> usersOf(std::string const& text) {
  return std::make_shared<Users const>(Users::parse(text).value());
}
using Code = grpc::StatusCode;

Authenticator::Metadata metadata(std::vector<std::pair<char const*, char const*>> const& entries) {
  Authenticator::Metadata map;
  for (auto const& [key, value] : entries)
    map.emplace(key, value);
  return map;
}

grpc::StatusCode codeOf(Authenticator& authenticator, char const* name, char const* password,
                        std::string const& peer = "ipv4:10.0.0.1:5000") {
  return authenticator.check(metadata({{"username", name}, {"password", password}}), peer).error_code();
}

TEST(Users, TheFileIsCheckedLineByLine) {
  std::string const hash = hashed("x");
  for (auto const& [text, fault] : std::vector<std::pair<std::string, std::string>>{
           {"ann:" + hash + "\n", ""},
           {"# people\r\n\nann:" + hash + ":18000:0:99999\r\nbob:" + hash, ""},
           {"", "no user"},
           {"# nobody\n", "no user"},
           {"\nann\n", "line 2: not of the form NAME:HASH"},
           {":" + hash, "line 1: no name"},
           {"ann:secret",
            "line 1: the hash of 'ann' is of a weak kind"}, // two letters and more: the oldest kind
           {"ann:$?secret", "line 1: what follows 'ann:' is not a crypt hash"},
           {"ann:", "not a crypt hash"},
           {"ann:*", "not a crypt hash"},
           {"ann:$1$abcdefgh$8Zm7YJTaoLQVvP6iuuwE7/", "line 1: the hash of 'ann' is of a weak kind"},
           {"ann:abJnggxhB/yWI", "weak kind"},
           {"ann:" + hash + "\nann:" + hash, "line 2: 'ann' is there already"},
       }) {
    auto const users = Users::parse(text);
    EXPECT_EQ(users.ok(), fault.empty()) << text;
    if (users.ok()) continue;
    EXPECT_NE(users.error().find(fault), std::string::npos) << users.error();
    EXPECT_EQ(users.error().find("secret"), std::string::npos) << users.error();
  }
  EXPECT_FALSE(Users::fromFile("no/such/file").ok());
}

TEST(Authenticator, OnlyTheRightPairIsLetIn) {
  Tovak::SimulatedClock clock;
  Authenticator authenticator(usersOf("ann:" + hashed("open") + "\nbob:" + hashed("sesame")), clock);
  for (int round = 0; round < 2; ++round) { // the second time from memory
    EXPECT_EQ(codeOf(authenticator, "ann", "open"), Code::OK);
    EXPECT_EQ(codeOf(authenticator, "bob", "sesame"), Code::OK);
    EXPECT_EQ(codeOf(authenticator, "ann", "sesame"), Code::UNAUTHENTICATED);
    EXPECT_EQ(codeOf(authenticator, "bobsesame", ""), Code::UNAUTHENTICATED);
    EXPECT_EQ(codeOf(authenticator, "carl", "open"), Code::UNAUTHENTICATED);
    EXPECT_EQ(codeOf(authenticator, "", ""), Code::UNAUTHENTICATED);
  }
  std::string const name = "ann";
  std::string const endless(2'000, 'x');
  for (auto const& entries : std::vector<std::vector<std::pair<char const*, char const*>>>{
           {},
           {{"password", "open"}},
           {{"username", "ann"}},
           {{"username", "ann"}, {"username", "bob"}, {"password", "open"}},
           {{"username", "ann"}, {"password", endless.c_str()}}})
    EXPECT_EQ(authenticator.check(metadata(entries), "unix:").error_code(), Code::UNAUTHENTICATED);
  Authenticator::Metadata cut;
  cut.emplace("username", "ann");
  cut.emplace("password", grpc::string_ref("open\0more", 9)); // the hash would end at the NUL
  EXPECT_EQ(authenticator.check(cut, "unix:").error_code(), Code::UNAUTHENTICATED);
}

TEST(Authenticator, OtherUsersAreAskedAnewAndTheSameAreRemembered) {
  Tovak::SimulatedClock clock;
  std::string const ann = "ann:" + hashed("open") + "\n";
  Authenticator authenticator(usersOf(ann + "bob:" + hashed("sesame") + "\ncarl:" + hashed("open")), clock);
  EXPECT_EQ(codeOf(authenticator, "ann", "open"), Code::OK);
  EXPECT_EQ(codeOf(authenticator, "bob", "sesame"), Code::OK);
  EXPECT_EQ(codeOf(authenticator, "carl", "open"), Code::OK);
  EXPECT_EQ(codeOf(authenticator, "dora", "open"), Code::UNAUTHENTICATED);
  authenticator.usersAre(usersOf(ann + "bob:" + hashed("other") + "\ndora:" + hashed("open")));
  for (int i = 0; i < GuessBudget::burst; ++i) // so that only what is remembered passes
    static_cast<void>(codeOf(authenticator, "ann", std::to_string(i).c_str()));
  EXPECT_EQ(codeOf(authenticator, "ann", "open"), Code::OK);
  for (char const* const gone : {"bob", "carl"})
    EXPECT_NE(codeOf(authenticator, gone, gone[0] == 'b' ? "sesame" : "open", "ipv4:10.0.0.2:1"), Code::OK);
  EXPECT_EQ(codeOf(authenticator, "bob", "other", "ipv4:10.0.0.3:1"), Code::OK);
  EXPECT_EQ(codeOf(authenticator, "dora", "open", "ipv4:10.0.0.3:1"), Code::OK);
}

TEST(Authenticator, GuessesAreFewAndDoNotShutOutWhoIsKnown) {
  Tovak::SimulatedClock clock;
  Authenticator authenticator(usersOf("ann:" + hashed("open")), clock);
  EXPECT_EQ(codeOf(authenticator, "ann", "open"), Code::OK);
  std::int64_t looked = 0;
  for (int i = 0; i < 50; ++i)
    looked += codeOf(authenticator, "ann", std::to_string(i).c_str()) == Code::UNAUTHENTICATED ? 1 : 0;
  EXPECT_EQ(looked, GuessBudget::burst);
  EXPECT_EQ(codeOf(authenticator, "ann", "another"), Code::UNAVAILABLE);
  EXPECT_EQ(codeOf(authenticator, "ann", "0"), Code::UNAUTHENTICATED); // a guess that was made already
  EXPECT_EQ(codeOf(authenticator, "ann", "open"), Code::OK);
  clock.advance(GuessBudget::guessNs);
  EXPECT_EQ(codeOf(authenticator, "ann", "another"), Code::UNAUTHENTICATED);
  EXPECT_EQ(codeOf(authenticator, "ann", "yet another"), Code::UNAVAILABLE);
  // What was known is asked for anew some time, and right passwords use nothing up.
  clock.advance(Authenticator::acceptedNs);
  for (int i = 0; i < 3 * GuessBudget::burst; ++i) {
    EXPECT_EQ(codeOf(authenticator, "ann", "open"), Code::OK);
    clock.advance(Authenticator::acceptedNs / GuessBudget::burst / 2);
  }
}

TEST(Authenticator, WhoGuessesElsewhereShutsNobodyOut) {
  Tovak::SimulatedClock clock;
  Authenticator authenticator(usersOf("ann:" + hashed("open") + "\nbob:" + hashed("sesame")), clock);
  std::int64_t looked = 0;
  for (int i = 0; i < 400; ++i) { // 20 s of four places that guess as much as they can
    std::string const peer = "ipv4:10.0.1." + std::to_string(i % 4) + ":" + std::to_string(i);
    looked += codeOf(authenticator, "ann", std::to_string(i).c_str(), peer) == Code::UNAUTHENTICATED ? 1 : 0;
    clock.advance(50'000'000);
  }
  EXPECT_LE(looked, 4 * GuessBudget::goodGuesses + GuessBudget::burst + 20) << "one a second at a name";
  EXPECT_EQ(codeOf(authenticator, "ann", "mistyped"), Code::UNAUTHENTICATED)
      << "from a place that did not guess";
  EXPECT_EQ(codeOf(authenticator, "ann", "open"), Code::OK);
  EXPECT_EQ(codeOf(authenticator, "bob", "sesame", "ipv4:10.0.1.3:1"), Code::OK)
      << "another name, from one that did";
  EXPECT_EQ(codeOf(authenticator, "ann", "open", "ipv4:10.0.1.3:1"), Code::OK) << "remembered";

  EXPECT_EQ(placeOf("ipv4:10.0.0.1:5000"), "10.0.0.1");
  EXPECT_EQ(placeOf("ipv6:%5B2001:db8::1:2:3:4%5D:5000"), placeOf("ipv6:%5B2001:db8::4%5D:1"));
  EXPECT_NE(placeOf("ipv6:%5B2001:db8::1%5D:5000"), placeOf("ipv6:%5B2001:db8:0:1::1%5D:1"));
}

// By the processor's time, which other programs do not lengthen.
TEST(Users, EveryNameCostsTheSame) {
  auto const hash = [](char const* setting) {
    crypt_data data{};
    return std::string(::crypt_r("open", setting, &data));
  };
  Users const users =
      Users::parse("ann:" + hashed("open") + "\nbob:" + hash("$6$rounds=60000$abcdefgh$") +
                   "\ncarl:" + hashed("open") + "\ndora:" + hash("$2b$05$abcdefghijklmnopqrstuu"))
          .value();
  EXPECT_TRUE(users.accepts("ann", "open") && users.accepts("bob", "open") && users.accepts("dora", "open"));
  auto const cost = [&users](char const* name) {
    std::clock_t const begin = std::clock();
    for (int i = 0; i < 3; ++i)
      EXPECT_FALSE(users.accepts(name, "wrong"));
    return static_cast<double>(std::clock() - begin);
  };
  double const bob = cost("bob");
  for (char const* const name : {"ann", "carl", "dora", "nobody"})
    EXPECT_NEAR(cost(name) / bob, 1, 0.5) << name;
}

} // namespace
} // namespace Agent
