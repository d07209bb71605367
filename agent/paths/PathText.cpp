// A parser by hand that tells where a fault is, the printer with its escapes, and PATH=VALUE, cut at the
// first "=" that is in no key.
#include "agent/paths/PathText.h"

#include <fmt/format.h>

#include <map>
#include <optional>

#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

class Parser {
public:
  explicit Parser(std::string_view text) : text_(text) {}

  Kstd::Result<gnmi::Path, std::string> path() {
    gnmi::Path path;
    takeOrigin(path);
    if (!atEnd() && text_[at_] == '/') ++at_;
    while (!atEnd() && fault_.empty()) {
      elem(*path.add_elem());
      if (!atEnd() && fault_.empty()) {
        ++at_;              // the "/" that ended the element
        if (atEnd()) break; // one at the end says nothing
      }
    }
    if (!fault_.empty()) return Kstd::Err(fmt::format("'{}': {} at position {}", text_, fault_, at_ + 1));
    return path;
  }

private:
  [[nodiscard]] bool atEnd() const { return at_ >= text_.size(); }

  void takeOrigin(gnmi::Path& path) {
    std::size_t const colon = text_.find(":/");
    if (colon == std::string_view::npos ||
        text_.substr(0, colon).find_first_of("/[\\") != std::string_view::npos)
      return;
    path.set_origin(std::string(text_.substr(0, colon)));
    at_ = colon + 1;
  }

  void elem(gnmi::PathElem& elem) {
    elem.set_name(until("/["));
    if (fault_.empty() && elem.name().empty()) fault_ = "an empty name";
    while (fault_.empty() && !atEnd() && text_[at_] == '[') {
      ++at_;
      key(elem);
    }
    if (fault_.empty() && !atEnd() && text_[at_] != '/') fault_ = "'/' or '[' is missing";
  }

  void key(gnmi::PathElem& elem) {
    std::string const name = until("=]");
    if (atEnd() || text_[at_] != '=' || name.empty()) {
      fault_ = "a key is not of the form [NAME=VALUE]";
      return;
    }
    ++at_;
    std::string const value = until("]");
    if (atEnd()) {
      fault_ = "']' is missing";
      return;
    }
    ++at_;
    if (!elem.mutable_key()->insert({name, value}).second) fault_ = fmt::format("a second key '{}'", name);
  }

  // What comes before one of these characters or the end, without its backslashes.
  std::string until(char const* stops) {
    std::string_view const ends(stops);
    std::string taken;
    for (; !atEnd() && ends.find(text_[at_]) == std::string_view::npos; ++at_) {
      if (text_[at_] == '\\' && ++at_ >= text_.size()) {
        fault_ = "nothing follows the backslash";
        return taken;
      }
      taken += text_[at_];
    }
    return taken;
  }

  std::string_view text_;
  std::size_t at_ = 0;
  std::string fault_;
};

void appendEscaped(std::string& to, std::string_view text, std::string_view special) {
  for (char const c : text) {
    if (special.find(c) != std::string_view::npos) to += '\\';
    to += c;
  }
}

void appendElems(std::string& to, gnmi::Path const& path) {
  for (gnmi::PathElem const& elem : path.elem()) {
    to += '/';
    appendEscaped(to, elem.name(), "/[\\");
    for (auto const& [name, value] :
         std::map<std::string, std::string>(elem.key().begin(), elem.key().end())) {
      to += '[';
      appendEscaped(to, name, "=]\\");
      to += '=';
      appendEscaped(to, value, "]\\");
      to += ']';
    }
  }
}

} // namespace

Kstd::Result<gnmi::Path, std::string> pathOf(std::string_view text) { return Parser(text).path(); }

std::string pathText(gnmi::Path const& prefix, gnmi::Path const& path) {
  std::string text = !prefix.origin().empty() ? prefix.origin() : path.origin();
  if (!text.empty()) text += ':';
  std::size_t const head = text.size();
  appendElems(text, prefix);
  appendElems(text, path);
  if (text.size() == head) text += '/';
  return text;
}

std::string pathText(gnmi::Path const& path) { return pathText(gnmi::Path(), path); }

Assignment assignmentOf(std::string_view text) {
  bool inKey = false;
  for (std::size_t i = 0; i < text.size(); ++i)
    if (text[i] == '\\')
      ++i;
    else if (text[i] == '[' && !inKey)
      inKey = true;
    else if (text[i] == ']')
      inKey = false;
    else if (text[i] == '=' && !inKey)
      return {text.substr(0, i), text.substr(i + 1), true};
  return {text, {}, false};
}

} // namespace Agent
