// A node is sought by its place among its siblings of the same name: a tree keeps these in the order in which
// they were read, while it sorts the names among each other.
#include "agent/yang/DocumentLines.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <libyang/libyang.h>
#include <nlohmann/json.hpp>

#include "agent/yang/CountingLines.h"

namespace Agent {
namespace {

// One node on the way.
struct Step {
  std::string_view module;
  std::string_view name;
  bool isOfParentsModule = false;
  bool isMany = false;      // an entry, or an instance of a leaf-list
  std::size_t position = 0; // among these

  // In JSON a member is qualified where its module is not its parent's, and may be elsewhere.
  [[nodiscard]] bool isNamed(std::string_view member) const {
    std::size_t const colon = member.find(':');
    if (colon == member.npos) return isOfParentsModule && member == name;
    return member.substr(0, colon) == module && member.substr(colon + 1) == name;
  }
};

// From the top. Empty where another module's node has the name beside it: in XML only namespaces differ.
std::vector<Step> wayTo(lyd_node const& node, bool isXml) {
  std::vector<Step> way;
  for (lyd_node const* each = &node; each != nullptr; each = lyd_parent(each)) {
    lysc_node const& schema = *each->schema;
    lyd_node const* const parent = lyd_parent(each);
    Step step{.module = schema.module->name,
              .name = schema.name,
              .isOfParentsModule = parent != nullptr && parent->schema->module == schema.module,
              .isMany = (schema.nodetype & (LYS_LIST | LYS_LEAFLIST)) != 0};
    bool isBefore = true;
    for (lyd_node const* other = lyd_first_sibling(each); other != nullptr; other = other->next) {
      if (other == each) isBefore = false;
      if (other->schema == &schema)
        step.position += isBefore ? 1 : 0;
      else if (isXml && other->schema->name == step.name)
        return {};
    }
    way.push_back(step);
  }
  std::ranges::reverse(way);
  return way;
}

// The parser's events; the names of its methods are the parser's, which ends when one of them gives false.
class JsonSearch {
public:
  JsonSearch(std::vector<Step> const& way, LinesRead const& read) : way_(way), read_(read) {}

  std::size_t line = 0;

  bool null() { return begins(read_.count); }
  bool boolean(bool) { return begins(read_.count); }
  bool number_integer(std::int64_t) { return begins(read_.beforeNumber()); }
  bool number_unsigned(std::uint64_t) { return begins(read_.beforeNumber()); }
  bool number_float(double, std::string const&) { return begins(read_.beforeNumber()); }
  bool string(std::string&) { return begins(read_.count); }
  static bool binary(nlohmann::json::binary_t&) { return false; }
  bool start_object(std::size_t) { return begins(read_.count) && opened(false); }
  bool start_array(std::size_t) { return begins(read_.count) && opened(true); }
  bool end_object() { return closed(); }
  bool end_array() { return closed(); }
  bool key(std::string& name) {
    std::size_t const at = levels_.back().at;
    isNext_ = at < way_.size() && way_[at].isNamed(name);
    return !isNext_ || way_[at].isMany || goesOn(at, read_.count);
  }
  static bool parse_error(std::size_t, std::string const&, nlohmann::json::exception const&) { return false; }

private:
  static constexpr std::size_t kAside = static_cast<std::size_t>(-1);

  struct Level {
    std::size_t at; // what is in it is this step, or aside
    bool isArray;
    std::size_t count = 0; // of its elements
  };

  bool goesOn(std::size_t at, std::size_t linesBefore) {
    if (at + 1 < way_.size()) return true;
    line = linesBefore + 1;
    return false;
  }
  // Of a value: what is in it, if anything can be.
  bool begins(std::size_t linesBefore) {
    below_ = levels_.empty() ? 0 : kAside;
    bool const isNext = std::exchange(isNext_, false);
    if (levels_.empty()) return true;
    Level& level = levels_.back();
    if (!level.isArray) {
      if (isNext) below_ = way_[level.at].isMany ? level.at : level.at + 1;
    } else if (level.at != kAside && level.count++ == way_[level.at].position) {
      below_ = level.at + 1;
      return goesOn(level.at, linesBefore);
    }
    return true;
  }
  bool opened(bool isArray) {
    levels_.push_back({.at = below_, .isArray = isArray});
    return true;
  }
  bool closed() {
    levels_.pop_back();
    return true;
  }

  std::vector<Step> const& way_;
  LinesRead const& read_;
  std::vector<Level> levels_;
  std::size_t below_ = 0;
  bool isNext_ = false; // what comes is the value of the member that is the next step
};

std::size_t lineInJson(std::vector<Step> const& way, std::string_view document) {
  LinesRead read;
  JsonSearch search(way, read);
  CountingLines const begin(document.data(), read), end(document.data() + document.size(), read);
  nlohmann::json::sax_parse(begin, end, &search);
  return search.line;
}

// Of a document that has been read: it is well formed.
std::size_t lineInXml(std::vector<Step> const& way, std::string_view document) {
  std::size_t at = 0, depth = 0, found = 0; // steps of the way that are open
  std::size_t count = 0;                    // elements of the next step's name that were passed
  auto const skip = [&](std::string_view mark, std::string_view end) {
    if (!document.substr(at).starts_with(mark)) return false;
    at = document.find(end, at + mark.size());
    return true;
  };
  for (; (at = document.find('<', at)) < document.size(); ++at) {
    if (skip("<!--", "-->") || skip("<![CDATA[", "]]>") || skip("<?", "?>")) continue;
    if (document[at + 1] == '/') {
      --depth;
      continue;
    }
    std::size_t const begin = at;
    std::string_view name = document.substr(at + 1, document.find_first_of(" \t\r\n/>", at) - at - 1);
    name.remove_prefix(name.find(':') + 1);
    for (char quote = '\0'; quote != '\0' || document[at] != '>'; ++at)
      if (quote == '\0' && (document[at] == '"' || document[at] == '\''))
        quote = document[at];
      else if (document[at] == quote)
        quote = '\0';
    if (depth == found && name == way[found].name && count++ == way[found].position) {
      count = 0;
      if (++found == way.size())
        return 1 + static_cast<std::size_t>(std::ranges::count(document.substr(0, begin), '\n'));
    }
    if (document[at - 1] != '/') ++depth;
  }
  return 0;
}

} // namespace

std::size_t lineOf(lyd_node const& node, std::string_view document, bool isXml) {
  std::vector<Step> const way = wayTo(node, isXml);
  if (way.empty()) return 0;
  return isXml ? lineInXml(way, document) : lineInJson(way, document);
}

} // namespace Agent
