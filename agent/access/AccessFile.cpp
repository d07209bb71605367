// The file of access rules, read with every doubt: each rule remembers its line, and each fault tells one.
#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <sstream>
#include <utility>

#include "agent/access/AccessRules.h"
#include "agent/paths/PathText.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

using nlohmann::json;

// Reads a text and counts its lines: copies count together.
class CountingIterator {
public:
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = char const*;
  using reference = char const&;
  using iterator_category = std::input_iterator_tag;

  CountingIterator(char const* at, std::size_t& line) : at_(at), line_(&line) {}
  reference operator*() const { return *at_; }
  CountingIterator& operator++() {
    if (*at_++ == '\n') ++*line_;
    return *this;
  }
  bool operator==(CountingIterator const& other) const { return at_ == other.at_; }
  bool operator!=(CountingIterator const& other) const { return at_ != other.at_; }

private:
  char const* at_;
  std::size_t* line_;
};

struct Fault {
  std::size_t line;
  std::string text;
};

constexpr int kRuleDepth = 2; // of objects: the document, the list of rules

// The document, with the lines on which the rules begin.
class Reading {
public:
  explicit Reading(std::string_view text) {
    auto const told = [this](int depth, json::parse_event_t event, json& parsed) {
      if (event == json::parse_event_t::object_start) {
        if (depth == kRuleDepth) ruleLines.push_back(line_);
        members_.emplace_back();
      } else if (event == json::parse_event_t::object_end) {
        members_.pop_back();
      } else if (event == json::parse_event_t::key) {
        auto const name = parsed.get<std::string>();
        if (!members_.back().insert(name).second && !fault)
          fault = Fault{line_, fmt::format("'{}' is there twice", name)};
      }
      return true;
    };
    try {
      document = json::parse(CountingIterator(text.data(), line_),
                             CountingIterator(text.data() + text.size(), line_), told);
    } catch (json::exception const&) {
      fault = Fault{line_, "this is no JSON"};
    }
  }

  json document;
  std::vector<std::size_t> ruleLines;
  std::optional<Fault> fault;

private:
  std::size_t line_ = 1;
  std::vector<std::set<std::string>> members_;
};

Kstd::Result<std::string, std::string> textOf(json const& rule, char const* name) {
  auto const found = rule.find(name);
  if (found == rule.end()) return Kstd::Err(fmt::format("'{}' is missing", name));
  if (!found->is_string() || found->get<std::string>().empty())
    return Kstd::Err(fmt::format("'{}' is no text", name));
  return found->get<std::string>();
}

// Which of two words stands there.
Kstd::Result<bool, std::string> isFirst(json const& rule, char const* name, std::string_view first,
                                        std::string_view second) {
  auto const text = textOf(rule, name);
  if (!text) return Kstd::Err(text.error());
  if (*text != first && *text != second)
    return Kstd::Err(fmt::format("'{}' is neither '{}' nor '{}'", name, first, second));
  return *text == first;
}

Kstd::Result<std::shared_ptr<Pattern const>, std::string> patternOf(std::string const& text) {
  auto const parsed = pathOf(text);
  if (!parsed) return Kstd::Err(parsed.error());
  auto const path = RequestPath::of({}, *parsed);
  if (!path) return Kstd::Err(path.error().error_message());
  for (RequestElem const& elem : path->elems)
    if (elem.name == "...") return Kstd::Err(std::string("a rule takes no element '...'"));
  auto pattern = Pattern::of(*path);
  if (!pattern) return Kstd::Err(pattern.error().error_message());
  return std::make_shared<Pattern const>(std::move(pattern).value());
}

Kstd::Result<AccessRule, std::string> ruleOf(json const& given) {
  static std::set<std::string, std::less<>> const known{"id", "user", "group", "path", "mode", "action"};
  for (auto const& [name, value] : given.items())
    if (!known.contains(name)) return Kstd::Err(fmt::format("'{}' means nothing in a rule", name));
  AccessRule rule;
  rule.isGroup = given.contains("group");
  if (rule.isGroup == given.contains("user"))
    return Kstd::Err(std::string("a rule is of a 'user' or of a 'group'"));
  auto const principal = textOf(given, rule.isGroup ? "group" : "user");
  if (!principal) return Kstd::Err(principal.error());
  rule.principal = *principal;
  if (given.contains("id")) {
    auto const id = textOf(given, "id");
    if (!id) return Kstd::Err(id.error());
    rule.id = *id;
  }
  auto const reads = isFirst(given, "mode", "read", "write");
  if (!reads) return Kstd::Err(reads.error());
  rule.mode = *reads ? AccessMode::Read : AccessMode::Write;
  auto const permits = isFirst(given, "action", "permit", "deny");
  if (!permits) return Kstd::Err(permits.error());
  rule.permits = *permits;
  auto const path = textOf(given, "path");
  if (!path) return Kstd::Err(path.error());
  auto pattern = patternOf(*path);
  if (!pattern) return Kstd::Err(pattern.error());
  rule.path = std::move(*pattern);
  return rule;
}

} // namespace

AccessRules::OrError AccessRules::parse(std::string_view text) {
  Reading const reading(text);
  auto const fault = [](std::size_t line, std::string const& what) {
    return Kstd::Err(fmt::format("line {}: {}", line, what));
  };
  if (reading.fault) return fault(reading.fault->line, reading.fault->text);
  json const& all = reading.document;
  if (!all.is_object()) return fault(1, "expected an object with 'groups' and 'rules'");
  for (auto const& [name, value] : all.items())
    if (name != "groups" && name != "rules")
      return fault(1, fmt::format("'{}' means nothing here: 'groups' and 'rules' do", name));
  AccessRules made;
  json const groups = all.value("groups", json::object());
  if (!groups.is_object()) return fault(1, "'groups' is no object");
  for (auto const& [name, users] : groups.items()) {
    bool const isGroup =
        !name.empty() && name != "*" && users.is_array() && std::ranges::all_of(users, [](json const& user) {
          return user.is_string() && !user.get<std::string>().empty();
        });
    if (!isGroup) return fault(1, fmt::format("the group '{}' is no list of users", name));
    made.groups_[name] = users.get<std::set<std::string, std::less<>>>();
  }
  json const rules = all.value("rules", json::array());
  if (!rules.is_array()) return fault(1, "'rules' is no list");
  bool const hasLines = reading.ruleLines.size() == rules.size();
  for (std::size_t i = 0; i < rules.size(); ++i) {
    std::size_t const line = hasLines ? reading.ruleLines[i] : 1;
    if (!rules[i].is_object()) return fault(line, fmt::format("rule {} is no object", i + 1));
    auto rule = ruleOf(rules[i]);
    if (!rule) return fault(line, rule.error());
    if (rule->isGroup && rule->principal != "*" && !made.groups_.contains(rule->principal))
      return fault(line, fmt::format("there is no group '{}'", rule->principal));
    rule->line = line;
    made.rules_.push_back(std::move(*rule));
  }
  made.treesMake();
  return made;
}

AccessRules::OrError AccessRules::fromFile(std::string const& path) {
  std::ifstream file(path);
  std::ostringstream text;
  if (!file || !(text << file.rdbuf()))
    return Kstd::Err(fmt::format("cannot read the access rules {}", path));
  auto rules = parse(text.str());
  if (!rules) return Kstd::Err(fmt::format("{}: {}", path, rules.error()));
  return rules;
}

} // namespace Agent
