// A reader of statements: keyword, argument, and how deep they stand. What stands deeper than a substatement
// of the top level's is passed over.
#include "agent/yang/ModuleText.h"

#include <algorithm>
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
      depth += keyword.text == "{" ? 1 : keyword.text == "}" ? -1 : 0;
      continue;
    }
    Tokens::Token const argument = tokens.next();
    if (argument.isEnd) return all;
    if (argument.isMark) {
      depth += argument.text == "{" ? 1 : argument.text == "}" ? -1 : 0;
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

} // namespace Agent
