// Paths are compared as texts, element by element.
#include "service/access_testing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <tuple>
#include <utility>

#include <fmt/format.h>

#include "Tovak/Clock.h"

namespace ServiceTesting {
namespace {

// Cut at "/" outside of brackets.
std::vector<std::string> elemsOf(std::string_view path) {
  std::vector<std::string> elems;
  int depth = 0;
  for (char const c : path) {
    if (c == '/' && depth == 0) {
      elems.emplace_back();
      continue;
    }
    depth += c == '[' ? 1 : c == ']' ? -1 : 0;
    elems.back() += c;
  }
  if (elems.size() == 1 && elems.front().empty()) elems.clear();
  return elems;
}

std::string nameOf(std::string const& elem) { return elem.substr(0, elem.find('[')); }
// Empty where any key is meant.
std::string keyOf(std::string const& elem) {
  std::string const key = elem.substr(nameOf(elem).size());
  return key.ends_with("=*]") ? "" : key;
}

bool matches(std::string const& rule, std::string const& elem) {
  return (nameOf(rule) == "*" || nameOf(rule) == nameOf(elem)) &&
         (keyOf(rule).empty() || keyOf(rule) == keyOf(elem));
}

} // namespace

std::vector<TestRule> randomRules(std::mt19937& random, std::size_t count,
                                  std::vector<std::string> const& principals) {
  static std::vector<std::string> const paths = {
      "/",
      "/*",
      "/interfaces",
      "/system",
      "/interfaces/interface",
      "/interfaces/interface[name=eth0]",
      "/interfaces/interface[name=eth1]",
      "/interfaces/*",
      "/interfaces/interface[name=*]/state",
      "/interfaces/interface[name=eth1]/state",
      "/interfaces/interface[name=eth2]/*",
      "/interfaces/interface[name=*]/state/mtu",
      "/interfaces/interface[name=eth3]/state/mtu",
      "/interfaces/*/*/mtu",
      "/interfaces/interface[name=*]/state/counters",
      "/interfaces/interface[name=eth4]/state/counters/in-octets",
      "/*/interface[name=eth1]/config",
      "/interfaces/interface[name=*]/subinterfaces/subinterface[index=1]",
      "/interfaces/interface[name=eth0]/subinterfaces/subinterface[index=*]/ipv4",
      "/interfaces/interface[name=*]/subinterfaces/subinterface[index=*]/ipv4/addresses/address[ip=10.0.0.1]",
      "/interfaces/interface[name=*]/name"};
  std::vector<TestRule> rules;
  while (rules.size() < count)
    rules.push_back({principals[random() % principals.size()], paths[random() % paths.size()],
                     random() % 3 == 0, random() % 2 == 0});
  return rules;
}

std::string accessFile(std::vector<TestRule> const& rules, std::string_view groups) {
  std::string text = fmt::format("{{\"groups\": {}, \"rules\": [\n", groups);
  char const* separator = "";
  for (TestRule const& rule : rules) {
    std::size_t const space = rule.principal.find(' ');
    text += fmt::format("{}  {{\"{}\": \"{}\", \"path\": \"{}\", \"mode\": \"{}\", \"action\": \"{}\"}}",
                        std::exchange(separator, ",\n"), rule.principal.substr(0, space),
                        rule.principal.substr(space + 1), rule.path, rule.writes ? "write" : "read",
                        rule.permits ? "permit" : "deny");
  }
  return text + "\n]}\n";
}

Agent::AccessRules accessRules(std::string const& file) {
  auto rules = Agent::AccessRules::parse(file);
  EXPECT_TRUE(rules.ok()) << (rules.ok() ? "" : rules.error()) << "\n" << file;
  return std::move(rules).value();
}

std::shared_ptr<Agent::Gate> gateOf(std::shared_ptr<Agent::AccessRules const> rules) {
  return std::make_shared<Agent::Gate>(Agent::Terms{.access = std::move(rules)},
                                       Tovak::SystemClock::instance());
}

bool isPermitted(std::vector<TestRule> const& rules, std::vector<std::string> const& principals, bool writes,
                 std::string_view path) {
  // Length; what is explicit, from the front; whether it is a user's; whether it denies.
  using Strength = std::tuple<std::size_t, std::vector<std::pair<bool, bool>>, bool, bool>;
  std::optional<Strength> strongest;
  std::vector<std::string> const elems = elemsOf(path);
  for (TestRule const& rule : rules) {
    std::vector<std::string> const own = elemsOf(rule.path);
    if (rule.writes != writes || own.size() > elems.size()) continue;
    if (std::ranges::find(principals, rule.principal) == principals.end()) continue;
    if (!std::equal(own.begin(), own.end(), elems.begin(), matches)) continue;
    std::vector<std::pair<bool, bool>> isExplicit;
    for (std::string const& elem : own)
      isExplicit.emplace_back(nameOf(elem) != "*", !keyOf(elem).empty());
    Strength const strength(own.size(), isExplicit, rule.principal.starts_with("user"), !rule.permits);
    if (!strongest || *strongest < strength) strongest = strength;
  }
  return strongest && !std::get<3>(*strongest);
}

} // namespace ServiceTesting
