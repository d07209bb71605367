// Agent::GuessBudget: how many wrong passwords are looked at, from where and for whom.
//
// 1. A place pays for each of its wrong guesses with time: ten at once, then five a second, fewer when a hash
//    is costly.
// 2. A place that guessed wrong rarely (thrice in ten minutes) pays for itself alone: whoever guesses
//    elsewhere, at the same name too, does not shut it out.
// 3. The other places pay for the name as well, ten at once and one a second from all of them, and share a
//    quarter of a processor. The good ones share half of one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace Agent {

// Places are those of `placeOf`; times are monotonic. Bounded, whatever places and names come. One thread at
// a time.
class GuessBudget {
public:
  static constexpr std::int64_t guessNs = 200'000'000;  // what a wrong guess costs its place...
  static constexpr std::int64_t costFactor = 4;         // ... or so many times what it took to find out
  static constexpr std::int64_t nameNs = 1'000'000'000; // and the name
  static constexpr std::int64_t burst = 10;             // so many may be owed
  static constexpr std::int64_t goodNs = 600'000'000'000;
  static constexpr int goodGuesses = 3;        // in that time
  static constexpr std::size_t memory = 4'096; // places; and names

  // Whether a password that nobody remembers may be looked at.
  [[nodiscard]] bool mayGuess(std::string const& place, std::string_view name, std::int64_t nowNs) const;
  // It was wrong, and took so long.
  void guessed(std::string const& place, std::string_view name, std::int64_t nowNs, std::int64_t tookNs);

private:
  struct Place {
    std::int64_t untilNs = 0; // its guesses are paid for then
    std::int64_t sinceNs = 0; // its first one of those that count
    int guesses = 0;
  };
  [[nodiscard]] bool isGood(std::string const& place, std::int64_t nowNs) const;

  std::map<std::string, Place> places_;
  std::map<std::string, std::int64_t, std::less<>> namesUntilNs_;
  std::int64_t goodUntilNs_ = 0;
  std::int64_t othersUntilNs_ = 0;
};

} // namespace Agent
