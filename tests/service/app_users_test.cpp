// The users file, and the check of credentials.
#include <gtest/gtest.h>

#include <crypt.h>

#include <string>
#include <utility>
#include <vector>

#include "Tovak/Clock.h"
#include "agent/service/Users.h"

namespace Agent {
namespace {

std::string hashed(char const* password) {
  crypt_data data{};
  return ::crypt_r(password, "$6$rounds=1000$abcdefgh$", &data); // as cheap as it gets
}

Authenticator::Metadata metadata(std::vector<std::pair<char const*, char const*>> const& entries) {
  Authenticator::Metadata map;
  for (auto const& [key, value] : entries)
    map.emplace(key, value);
  return map;
}

grpc::StatusCode codeOf(Authenticator& authenticator, char const* name, char const* password) {
  return authenticator.check(metadata({{"username", name}, {"password", password}})).error_code();
}

TEST(Users, TheFileIsCheckedLineByLine) {
  std::string const hash = hashed("x");
  struct Case {
    std::string text, fault;
  };
  for (Case const& c : std::vector<Case>{
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
    auto const users = Users::parse(c.text);
    EXPECT_EQ(users.ok(), c.fault.empty()) << c.text;
    if (users.ok()) continue;
    EXPECT_NE(users.error().find(c.fault), std::string::npos) << users.error();
    EXPECT_EQ(users.error().find("secret"), std::string::npos) << users.error();
  }
  EXPECT_FALSE(Users::fromFile("no/such/file").ok());
}

TEST(Authenticator, OnlyTheRightPairIsLetIn) {
  Tovak::SimulatedClock clock;
  Authenticator authenticator(Users::parse("ann:" + hashed("open") + "\nbob:" + hashed("sesame")).value(),
                              clock);
  using Code = grpc::StatusCode;
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
           {{"username", "ann"}, {"password", endless.c_str()}}}) {
    EXPECT_EQ(authenticator.check(metadata(entries)).error_code(), Code::UNAUTHENTICATED);
  }
  Authenticator::Metadata cut;
  cut.emplace("username", "ann");
  cut.emplace("password", grpc::string_ref("open\0more", 9)); // the hash would end at the NUL
  EXPECT_EQ(authenticator.check(cut).error_code(), Code::UNAUTHENTICATED);
}

TEST(Authenticator, GuessesAreFewAndDoNotShutOutWhoIsKnown) {
  Tovak::SimulatedClock clock;
  Authenticator authenticator(Users::parse("ann:" + hashed("open")).value(), clock);
  using Code = grpc::StatusCode;
  EXPECT_EQ(codeOf(authenticator, "ann", "open"), Code::OK);
  std::int64_t looked = 0;
  for (int i = 0; i < 50; ++i)
    looked += codeOf(authenticator, "ann", std::to_string(i).c_str()) == Code::UNAUTHENTICATED ? 1 : 0;
  EXPECT_EQ(looked, Authenticator::guessBurst);
  EXPECT_EQ(codeOf(authenticator, "ann", "another"), Code::UNAVAILABLE);
  EXPECT_EQ(codeOf(authenticator, "ann", "0"), Code::UNAUTHENTICATED); // a guess that was made already
  EXPECT_EQ(codeOf(authenticator, "ann", "open"), Code::OK);
  clock.advance(Authenticator::guessNs);
  EXPECT_EQ(codeOf(authenticator, "ann", "another"), Code::UNAUTHENTICATED);
  EXPECT_EQ(codeOf(authenticator, "ann", "yet another"), Code::UNAVAILABLE);
  // What was known is asked for anew some time, and right passwords use nothing up.
  clock.advance(Authenticator::acceptedNs);
  for (int i = 0; i < 3 * Authenticator::guessBurst; ++i) {
    EXPECT_EQ(codeOf(authenticator, "ann", "open"), Code::OK);
    clock.advance(Authenticator::acceptedNs / Authenticator::guessBurst / 2);
  }
}

} // namespace
} // namespace Agent
