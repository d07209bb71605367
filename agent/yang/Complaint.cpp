// The library tells places as text; of what is missing in an entry, only the schema of it.
#include "agent/yang/Complaint.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <span>
#include <vector>

#include <fmt/format.h>
#include <libyang/libyang.h>

namespace Agent {

std::string placeOf(lyd_node const& node) {
  std::unique_ptr<char, void (*)(void*)> const path(lyd_path(&node, LYD_PATH_STD, nullptr, 0), &std::free);
  return path == nullptr ? std::string() : path.get();
}

namespace {

// The place in an entry of what each entry must hold: the first entry that does not hold enough of it. Empty
// where a condition or a choice has a say.
std::string placeOfMissing(ly_ctx const& context, lyd_node const& data, std::string const& place) {
  lysc_node const* const wanted = lys_find_path(&context, nullptr, place.c_str(), 0);
  if (wanted == nullptr || wanted->parent != lysc_data_parent(wanted)) return {};
  std::vector<lysc_node const*> way; // from the top
  for (lysc_node const* node = wanted; node != nullptr; node = lysc_data_parent(node)) {
    if (lysc_has_when(node) != nullptr) return {};
    way.insert(way.begin(), node);
  }
  std::uint32_t const needed =
      wanted->nodetype == LYS_LIST       ? reinterpret_cast<lysc_node_list const*>(wanted)->min
      : wanted->nodetype == LYS_LEAFLIST ? reinterpret_cast<lysc_node_leaflist const*>(wanted)->min
                                         : 1;
  auto const search = [&](auto const& self, lyd_node const* first, lyd_node const* parent,
                          std::span<lysc_node const* const> rest) -> std::string {
    std::uint32_t found = 0;
    for (lyd_node const* node = first; node != nullptr; node = node->next) {
      if (node->schema != rest.front()) continue;
      ++found;
      if (rest.size() == 1) continue;
      if (std::string below = self(self, lyd_child(node), node, rest.subspan(1)); !below.empty())
        return below;
    }
    if (rest.size() > 1 || found >= needed || parent == nullptr) return {};
    return fmt::format("{}/{}", placeOf(*parent), wanted->name);
  };
  return search(search, &data, nullptr, way);
}

} // namespace

// Of the forms "Line number 3.", "/a:b/c" and "Schema location "/a:b", data location "/a:b", line number 3.",
// any part of which may be missing.
Complaint Complaint::of(char const* words, char const* where) {
  Complaint made{.words = words == nullptr ? "it does not fit the modules" : words, .place = {}, .line = 0};
  std::string_view rest = where == nullptr ? "" : where;
  if (rest.starts_with('/')) {
    made.place = rest;
    return made;
  }
  std::string_view const number = "ine number ";
  if (std::size_t const at = rest.rfind(number); at != rest.npos) {
    std::from_chars(rest.data() + at + number.size(), rest.data() + rest.size(), made.line);
    rest = rest.substr(0, at);
  }
  if (std::size_t const at = rest.find("ata location"); at != rest.npos) rest.remove_prefix(at);
  std::size_t const begin = rest.find('"'), end = rest.rfind('"');
  if (begin != end) made.place = rest.substr(begin + 1, end - begin - 1);
  return made;
}

std::string Complaint::text() const { return place.empty() ? words : fmt::format("{}: {}", place, words); }

std::string Complaint::textIn(std::string_view file) const {
  return line == 0 ? fmt::format("{}: {}", file, text()) : fmt::format("{}:{}: {}", file, line, text());
}

Complaint lastComplaint(ly_ctx const& context, lyd_node const* data) {
  ly_err_item const* const first = ly_err_first(&context);
  if (first == nullptr) return Complaint::of(nullptr, nullptr);
  ly_err_item const& last = *first->prev;
  Complaint made = Complaint::of(last.msg, last.path);
  bool const isOfSchema =
      last.path != nullptr && std::string_view(last.path).find("ata location") == std::string_view::npos;
  if (data == nullptr || !isOfSchema || made.place.empty()) return made;
  if (std::string place = placeOfMissing(context, *data, made.place); !place.empty())
    made.place = std::move(place);
  return made;
}

} // namespace Agent
