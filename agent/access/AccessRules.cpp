// The order of rules, and for each user the rules that concern him as two trees, shared by all who have the
// same.
#include "agent/access/AccessRules.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Agent {
namespace {

using Elem = Pattern::Elem;

// Below 0: the first one is explicit earlier.
int compareElems(Elem const& a, Elem const& b) {
  bool const isAny = a.kind == Elem::Kind::AnyName;
  if (isAny != (b.kind == Elem::Kind::AnyName)) return isAny ? 1 : -1;
  if (a.keys.size() != b.keys.size()) return a.keys.size() > b.keys.size() ? -1 : 1;
  auto const namesOf = [](Elem const& elem) {
    std::vector<std::string_view> names;
    for (auto const& key : elem.keys)
      names.push_back(key.first);
    std::ranges::sort(names);
    return names;
  };
  auto const namesA = namesOf(a);
  auto const namesB = namesOf(b);
  return namesA == namesB ? 0 : namesA < namesB ? -1 : 1;
}

// What follows from rules for one mode: their paths, and whether they permit.
std::string meaningOf(std::span<RuleTree::Rule const> rules) {
  std::vector<std::string> all;
  for (RuleTree::Rule const& rule : rules) {
    std::string text = rule.permits ? "+" : "-";
    for (Elem const& elem : rule.path->elems()) {
      text += fmt::format("{}/{}/", elem.name.size(), elem.name);
      auto keys = elem.keys;
      std::ranges::sort(keys);
      for (auto const& [name, value] : keys)
        text += fmt::format("{}={}={}", name, value.size(), value);
    }
    all.push_back(std::move(text));
  }
  std::ranges::sort(all);
  return fmt::format("{}", fmt::join(all, "\n"));
}

} // namespace

std::string AccessRule::text() const {
  return fmt::format("{} {}, {}, {}, {}", isGroup ? "group" : "user", principal,
                     mode == AccessMode::Read ? "read" : "write", permits ? "permit" : "deny", path->text());
}

std::string_view strongerBy(AccessRule const& rule, AccessRule const& other) {
  auto const& elems = rule.path->elems();
  auto const& others = other.path->elems();
  if (elems.size() != others.size()) return elems.size() > others.size() ? "longer" : "";
  for (std::size_t i = 0; i < elems.size(); ++i)
    if (int const order = compareElems(elems[i], others[i]); order != 0)
      return order < 0 ? "explicit earlier" : "";
  if (rule.isGroup != other.isGroup) return other.isGroup ? "of a user" : "";
  return !rule.permits && other.permits ? "denies" : "";
}

bool AccessRules::concerns(AccessRule const& rule, std::string_view user) const {
  if (!rule.isGroup) return rule.principal == user;
  if (rule.principal == "*") return true;
  auto const group = groups_.find(rule.principal);
  return group != groups_.end() && group->second.contains(user);
}

std::vector<AccessRule const*> AccessRules::matching(std::string_view user, AccessMode mode,
                                                     PathView const& path) const {
  std::vector<AccessRule const*> found;
  for (AccessRule const& rule : rules_)
    if (rule.mode == mode && concerns(rule, user) && rule.path->covers(path)) found.push_back(&rule);
  std::ranges::stable_sort(
      found, [](AccessRule const* a, AccessRule const* b) { return !strongerBy(*a, *b).empty(); });
  return found;
}

Rights AccessRules::rightsOf(std::string_view user) const {
  auto const found = meanings_.find(user);
  Meaning const& meaning = found == meanings_.end() ? others_ : found->second;
  return {trees_.at(meaning.reads), trees_.at(meaning.writes)};
}

void AccessRules::keepFrom(AccessRules const& before) {
  for (auto& [meaning, tree] : trees_) {
    auto const found = before.trees_.find(meaning);
    if (found != before.trees_.end()) tree = found->second;
  }
}

void AccessRules::treesMake() {
  std::set<std::string> users;
  for (AccessRule const& rule : rules_)
    if (!rule.isGroup) users.insert(rule.principal);
  for (auto const& [name, members] : groups_)
    users.insert(members.begin(), members.end());
  for (std::string const& user : users)
    meanings_[user] = treesMake(user);
  others_ = treesMake("");
}

AccessRules::Meaning AccessRules::treesMake(std::string_view user) {
  std::vector<AccessRule const*> all;
  for (AccessRule const& rule : rules_)
    if (concerns(rule, user)) all.push_back(&rule);
  // Of the same path a user's comes first, then what denies: that one counts.
  std::ranges::stable_sort(all, {},
                           [](AccessRule const* rule) { return std::pair(rule->isGroup, rule->permits); });
  auto const treeOf = [&](AccessMode mode) {
    std::vector<RuleTree::Rule> rules;
    for (AccessRule const* rule : all) {
      bool const isThere = std::ranges::any_of(
          rules, [rule](RuleTree::Rule const& one) { return one.path->elems() == rule->path->elems(); });
      if (rule->mode == mode && !isThere) rules.push_back({rule->path, rule->permits});
    }
    std::string meaning = meaningOf(rules);
    std::shared_ptr<RuleTree const>& tree = trees_[meaning];
    if (!tree) tree = std::make_shared<RuleTree const>(rules);
    return meaning;
  };
  return {treeOf(AccessMode::Read), treeOf(AccessMode::Write)};
}

} // namespace Agent
