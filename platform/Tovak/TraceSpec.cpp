// The parser of "pattern/levels,...", which shows the entry that is wrong, and matching with "*" and "?".
#include "Tovak/TraceSpec.h"

#include <optional>

#include <fmt/format.h>

#include "Tovak/DebugHandler.h"

namespace Tovak::Impl {

namespace {

std::string_view trimmed(std::string_view text) {
  size_t const first = text.find_first_not_of(' ');
  return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::optional<unsigned> parseLevel(std::string_view text) {
  static_assert(traceLevelMax == 9, "a level is one digit");
  if (text.size() != 1 || text[0] < '0' || text[0] > '9') return std::nullopt;
  return static_cast<unsigned>(text[0] - '0');
}

// Bit n for level n, first to last inclusive.
std::uint32_t levelBits(unsigned first, unsigned last) { return (2u << last) - (1u << first); }

Kstd::Result<std::uint32_t, String> parseLevels(std::string_view text) {
  if (text == "*") return levelBits(0, traceLevelMax);
  size_t const dash = text.find('-');
  std::optional<unsigned> const first = parseLevel(text.substr(0, dash));
  std::optional<unsigned> const last = dash == text.npos ? first : parseLevel(text.substr(dash + 1));
  if (!first || !last) {
    return Kstd::Err(fmt::format("levels \"{}\": expected a level from 0 to {}, a range like 0-5, or *", text,
                                 traceLevelMax));
  }
  if (*first > *last) return Kstd::Err(fmt::format("levels \"{}\": the range is backwards", text));
  return levelBits(*first, *last);
}

Kstd::Result<TraceRule, String> parseEntry(std::string_view entry) {
  size_t const slash = entry.find('/');
  if (slash == entry.npos) return Kstd::Err(String("expected pattern/levels, as in OndraPath/0-5"));
  if (slash == 0) return Kstd::Err(String("the pattern before '/' is empty"));
  Kstd::Result<std::uint32_t, String> const levels = parseLevels(entry.substr(slash + 1));
  if (!levels) return Kstd::Err(levels.error());
  return TraceRule{String(entry.substr(0, slash)), levels.value()};
}

} // namespace

Kstd::Result<std::vector<TraceRule>, String> parseTraceSpec(std::string_view spec) {
  std::vector<TraceRule> rules;
  if (trimmed(spec).empty()) return rules;
  for (size_t start = 0; start <= spec.size();) {
    size_t const end = std::min(spec.find(',', start), spec.size());
    std::string_view const entry = trimmed(spec.substr(start, end - start));
    Kstd::Result<TraceRule, String> rule = parseEntry(entry);
    if (!rule) return Kstd::Err(fmt::format("trace spec entry \"{}\": {}", entry, rule.error()));
    rules.push_back(std::move(rule).value());
    start = end + 1;
  }
  return rules;
}

bool globMatches(std::string_view pattern, std::string_view name) {
  // On a mismatch the last '*' takes one character more; earlier ones need no second thought.
  size_t p = 0;
  size_t n = 0;
  size_t star = pattern.npos;
  size_t starName = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      starName = n;
    } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == name[n])) {
      ++p;
      ++n;
    } else if (star != pattern.npos) {
      p = star + 1;
      n = ++starName;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', p) == pattern.npos;
}

} // namespace Tovak::Impl
