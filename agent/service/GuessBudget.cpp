// Debts in time: who pays for a guess, and whether one more may be owed. The tables are bounded and forget
// what is long past.
#include "agent/service/GuessBudget.h"

#include <algorithm>

namespace Agent {
namespace {

// Whether one more may be owed to what is paid for at `untilNs`.
bool isLittle(std::int64_t untilNs, std::int64_t nowNs, std::int64_t guessNs = GuessBudget::guessNs) {
  return untilNs <= nowNs + (GuessBudget::burst - 1) * guessNs;
}

void owe(std::int64_t& untilNs, std::int64_t nowNs, std::int64_t costNs) {
  untilNs = std::max(untilNs, nowNs) + costNs;
}

} // namespace

bool GuessBudget::isGood(std::string const& place, std::int64_t nowNs) const {
  auto const found = places_.find(place);
  if (found == places_.end()) return places_.size() < memory;
  return found->second.guesses < goodGuesses || nowNs - found->second.sinceNs > goodNs;
}

bool GuessBudget::mayGuess(std::string const& place, std::string_view name, std::int64_t nowNs) const {
  auto const from = places_.find(place);
  if (from != places_.end() && !isLittle(from->second.untilNs, nowNs)) return false;
  if (isGood(place, nowNs)) return isLittle(goodUntilNs_, nowNs);
  auto const named = namesUntilNs_.find(name);
  return isLittle(othersUntilNs_, nowNs) &&
         (named == namesUntilNs_.end() || isLittle(named->second, nowNs, nameNs));
}

void GuessBudget::guessed(std::string const& place, std::string_view name, std::int64_t nowNs,
                          std::int64_t tookNs) {
  std::int64_t const cost = std::max(guessNs, costFactor * tookNs);
  bool const wasGood = isGood(place, nowNs);
  owe(wasGood ? goodUntilNs_ : othersUntilNs_, nowNs, wasGood ? cost / 2 : cost);
  if (places_.size() >= memory)
    std::erase_if(places_, [nowNs](auto const& each) { return nowNs - each.second.sinceNs > goodNs; });
  if (places_.size() < memory || places_.contains(place)) {
    Place& from = places_[place];
    if (from.guesses == 0 || nowNs - from.sinceNs > goodNs) from = {from.untilNs, nowNs, 0};
    ++from.guesses;
    owe(from.untilNs, nowNs, cost);
  }
  if (wasGood) return;
  if (namesUntilNs_.size() >= memory)
    std::erase_if(namesUntilNs_, [nowNs](auto const& each) { return each.second <= nowNs; });
  auto const named = namesUntilNs_.find(name);
  if (named != namesUntilNs_.end())
    owe(named->second, nowNs, nameNs);
  else if (namesUntilNs_.size() < memory)
    namesUntilNs_.emplace(name, nowNs + nameNs);
}

} // namespace Agent
