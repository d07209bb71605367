// A bit for each element that may come next, stepped at every node; also how elements match names and keys.
#include "agent/data/PathStates.h"

#include <fmt/format.h>

#include "agent/encoding/LeafValue.h"

namespace Agent {
namespace {

constexpr std::string_view kAnyName = "*";
constexpr std::string_view kAnyDepth = "...";

} // namespace

bool nameMatches(RequestElem const& elem, TypeNode const& node) {
  if (elem.name == kAnyName || elem.name == node.name) return true;
  return elem.name.size() == node.module.size() + 1 + node.name.size() && elem.name.ends_with(node.name) &&
         elem.name.starts_with(node.module) && elem.name[node.module.size()] == ':';
}

Kstd::Result<std::optional<std::string>, std::string> keyOf(RequestElem const& elem, TypeNode const& list) {
  if (elem.keys.empty()) return std::optional<std::string>();
  if (!list.isList()) return Kstd::Err(fmt::format("'{}' is no list and has no keys", list.name));
  Kel::KelAttr const key = list.key();
  auto const& [name, text] = elem.keys.front();
  if (elem.keys.size() != 1 || name != key.name().view())
    return Kstd::Err(fmt::format("the key of '{}' is '{}'", list.name, key.name().view()));
  if (text == kAnyName) return std::optional<std::string>();
  LeafInfo const* const info = leafInfo(key);
  if (info == nullptr) return std::optional<std::string>(text);
  LeafValue const value = keyValueOf(*info, text);
  if (!value) return Kstd::Err(fmt::format("key '{}' of '{}': {}", name, list.name, value.error()));
  return std::optional<std::string>(keyTextOf(*value));
}

void PathStates::add(std::size_t position) {
  for (;; ++position) {
    states_.set(position);
    if (position == path_->elems.size() || path_->elems[position].name != kAnyDepth) return;
  }
}

PathStates PathStates::stepped(TypeNode const& node, std::string_view key, bool anyKey) const {
  PathStates next(path_, nullptr);
  for (std::size_t at = 0; at < path_->elems.size(); ++at) {
    if (!states_[at]) continue;
    RequestElem const& elem = path_->elems[at];
    if (elem.name == kAnyDepth) {
      next.add(at);
      continue;
    }
    if (!nameMatches(elem, node)) continue;
    auto const wanted = keyOf(elem, node);
    if (wanted && (anyKey || !*wanted || **wanted == key)) next.add(at + 1);
  }
  return next;
}

std::optional<std::string> PathStates::onlyKey(TypeNode const& list) const {
  std::optional<std::string> only;
  for (std::size_t at = 0; at < path_->elems.size(); ++at) {
    if (!states_[at]) continue;
    RequestElem const& elem = path_->elems[at];
    if (elem.name == kAnyDepth) return std::nullopt;
    if (!nameMatches(elem, list)) continue;
    auto const key = keyOf(elem, list);
    if (!key) continue;
    if (!*key || (only && *only != **key)) return std::nullopt;
    only = **key;
  }
  return only;
}

} // namespace Agent
