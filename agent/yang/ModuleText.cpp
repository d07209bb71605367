// A reader of statements: keyword, argument, and how deep they stand. What stands deeper than a substatement
// of the top level's is passed over.
#include "agent/yang/ModuleText.h"

#include <algorithm>
#include <array>
#include <span>
#include <tuple>
#include <utility>

namespace Agent {
namespace {

// The tokens of a text: words, quoted strings without their quotes, and ";", "{", "}".
class Tokens {
public:
  explicit Tokens(std::string_view text) : text_(text) {}

  struct Token {
    std::string_view text;
    bool isMark = false; // ";", "{" or "}"
    bool isEnd = false;

    [[nodiscard]] int deeper() const { return !isMark || isEnd ? 0 : text == "{" ? 1 : text == "}" ? -1 : 0; }
  };

  Token next() {
    skipBlanks();
    if (text_.empty()) return {.text = {}, .isMark = true, .isEnd = true};
    char const first = text_.front();
    if (first == ';' || first == '{' || first == '}') return {.text = take(1), .isMark = true};
    if (first == '"' || first == '\'') return {.text = quoted(first)};
    std::size_t const end = text_.find_first_of(" \t\r\n;{}");
    return {.text = take(std::min(end, text_.size()))};
  }

private:
  std::string_view take(std::size_t count) {
    std::string_view const taken = text_.substr(0, count);
    text_.remove_prefix(std::min(count, text_.size()));
    return taken;
  }
  void skipTo(std::string_view end) {
    std::size_t const at = text_.find(end, 2);
    text_.remove_prefix(at == text_.npos ? text_.size() : at + end.size());
  }
  void skipBlanks() {
    for (;;) {
      text_.remove_prefix(std::min(text_.find_first_not_of(" \t\r\n"), text_.size()));
      if (text_.starts_with("//"))
        skipTo("\n");
      else if (text_.starts_with("/*"))
        skipTo("*/");
      else
        return;
    }
  }
  std::string_view quoted(char quote) {
    std::size_t end = 1;
    while (end < text_.size() && text_[end] != quote)
      end += quote == '"' && text_[end] == '\\' ? 2 : 1;
    std::string_view const whole = take(std::min(end + 1, text_.size()));
    return whole.size() < 2 ? std::string_view() : whole.substr(1, whole.size() - 2);
  }

  std::string_view text_;
};

} // namespace

ModuleText ModuleText::of(std::string_view text) {
  ModuleText all;
  Tokens tokens(text);
  std::string_view above; // the statement of the top level that is open
  int depth = 0;
  for (;;) {
    Tokens::Token const keyword = tokens.next();
    if (keyword.isEnd) return all;
    if (keyword.isMark) {
      depth += keyword.deeper();
      continue;
    }
    Tokens::Token const argument = tokens.next();
    if (argument.isEnd) return all;
    if (argument.isMark) {
      depth += argument.deeper();
      continue;
    }
    if (depth == 0 && all.name.empty() && (keyword.text == "module" || keyword.text == "submodule")) {
      all.name = argument.text;
      all.isSubmodule = keyword.text == "submodule";
    } else if (depth == 1) {
      above = keyword.text;
      if (keyword.text == "revision") all.revision = std::max(all.revision, std::string(argument.text));
      if (keyword.text == "prefix") all.prefix = argument.text;
      if (keyword.text == "import") all.imports.emplace_back(std::string(), argument.text);
      if (keyword.text == "identity")
        all.identities.push_back({.name = std::string(argument.text), .bases = {}});
    } else if (depth == 2) {
      if (above == "import" && keyword.text == "prefix") all.imports.back().first = argument.text;
      if (above == "identity" && keyword.text == "base")
        all.identities.back().bases.emplace_back(argument.text);
    }
  }
}

namespace {

// A statement that a path goes through. Nodes of the data have no keyword: any of theirs is meant.
struct Step {
  std::string_view keyword;
  std::string_view argument;

  [[nodiscard]] bool isOf(std::string_view written, std::string_view name) const {
    static constexpr std::array<std::string_view, 11> kNodes = {
        "container", "leaf",   "leaf-list", "list",   "choice",      "case",
        "anydata",   "anyxml", "rpc",       "action", "notification"};
    bool const fits =
        keyword.empty() ? std::ranges::find(kNodes, written) != kNodes.end() : keyword == written;
    return fits && argument == name;
  }
};

std::vector<Step> stepsOf(std::string_view path) {
  std::vector<Step> steps;
  while (path.starts_with('/')) {
    path.remove_prefix(1);
    std::size_t const colon = path.find_first_of(":/'[");
    if (colon != path.npos && path[colon] == ':') path.remove_prefix(colon + 1);
    if (path.starts_with('{')) { // {augment='/b'}
      std::size_t const equals = std::min(path.find("='"), path.size()), end = path.find("'}", equals);
      if (end == path.npos) break;
      steps.push_back({path.substr(1, equals - 1), path.substr(equals + 2, end - equals - 2)});
      path.remove_prefix(end + 2);
    } else {
      std::size_t const end = std::min(path.find('/'), path.size());
      steps.push_back({.keyword = {}, .argument = path.substr(0, end)});
      path.remove_prefix(end);
    }
  }
  return steps;
}

// How many of the steps are found one in the other, and where the statement of the last of them begins.
std::pair<std::size_t, std::size_t> deepest(std::string_view text, std::span<Step const> steps) {
  Tokens tokens(text);
  std::size_t found = 0, at = 0;
  int depth = 0;
  for (;;) {
    Tokens::Token const keyword = tokens.next();
    Tokens::Token const argument = keyword.isMark ? keyword : tokens.next();
    if (argument.isEnd) return {found, at};
    if (argument.isMark) {
      depth += argument.deeper();
      if (depth <= static_cast<int>(found) && found > 0) return {found, at}; // the last one ends
      continue;
    }
    if (depth != static_cast<int>(found) + 1 || !steps[found].isOf(keyword.text, argument.text)) continue;
    at = static_cast<std::size_t>(keyword.text.data() - text.data());
    if (++found == steps.size()) return {found, at};
  }
}

} // namespace

std::size_t lineOf(std::string_view text, std::string_view path) {
  std::vector<Step> steps = stepsOf(path);
  if (steps.empty()) return 0;
  auto [found, at] = deepest(text, steps);
  while (found > 0 && found < steps.size() && steps[found - 1].keyword == "uses") { // it goes on in there
    steps.erase(steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(found) - 1);
    steps.front().keyword = "grouping";
    auto const inside = deepest(text, steps);
    if (inside.first <= 1) break;
    std::tie(found, at) = inside;
  }
  return found == 0 ? 0 : 1 + static_cast<std::size_t>(std::ranges::count(text.substr(0, at), '\n'));
}

} // namespace Agent
