// A bit for each element that may come next, stepped at every node; also how elements match names and keys.
#include "agent/data/PathStates.h"

#include <algorithm>
#include <vector>

#include <fmt/format.h>

#include "agent/encoding/LeafValue.h"
#include "agent/paths/EntryKey.h"

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

namespace {

// What an element gives for each key of a list; none for what it leaves open.
using Keys = std::vector<std::optional<std::string>>;

Kstd::Result<Keys, std::string> keysOf(RequestElem const& elem, TypeNode const& list) {
  if (!list.isList()) {
    if (elem.keys.empty()) return Keys();
    return Kstd::Err(fmt::format("'{}' is no list and has no keys", list.name));
  }
  Keys keys(list.keyCount());
  for (auto const& [name, text] : elem.keys) {
    std::size_t at = 0;
    while (at < keys.size() && list.keyName(at) != name)
      ++at;
    if (at == keys.size()) {
      return Kstd::Err(keys.size() == 1 ? fmt::format("the key of '{}' is '{}'", list.name, list.keyName())
                                        : fmt::format("'{}' has no key '{}'", list.name, name));
    }
    if (text == kAnyName) continue;
    auto key = keyTextOf(text, list, at);
    if (!key) return Kstd::Err(std::move(key).error());
    keys[at] = *std::move(key);
  }
  return keys;
}

bool hasKeys(Keys const& wanted, TypeNode const& list, std::string_view key) {
  if (wanted.size() == 1) return !wanted.front() || *wanted.front() == key;
  if (std::ranges::none_of(wanted, [](auto const& each) { return each.has_value(); })) return true;
  std::vector<std::string> const values = keyValues(key, list.keyCount());
  for (std::size_t i = 0; i < wanted.size(); ++i)
    if (wanted[i] && *wanted[i] != values[i]) return false;
  return true;
}

} // namespace

Kstd::Result<std::string, std::string> keyTextOf(std::string_view text, TypeNode const& list,
                                                 std::size_t at) {
  LeafInfo const* const info = leafInfo(list.key(at));
  if (info == nullptr) return std::string(text);
  auto key = keyTextOf(*info, text);
  // Whatever is taken here has a place in the model.
  if (key && !isKeyText(list.key(at).memberType(), *key))
    return Kstd::Err(fmt::format("key '{}' of '{}' cannot be '{}'", list.keyName(at), list.name, *key));
  if (key) return key;
  return Kstd::Err(fmt::format("key '{}' of '{}': {}", list.keyName(at), list.name, key.error()));
}

Kstd::Result<std::optional<std::string>, std::string> keyOf(RequestElem const& elem, TypeNode const& list) {
  if (elem.keys.empty()) return std::optional<std::string>();
  auto const keys = keysOf(elem, list);
  if (!keys) return Kstd::Err(keys.error());
  std::vector<std::string> values;
  for (auto const& each : *keys) {
    if (!each) return std::optional<std::string>();
    values.push_back(*each);
  }
  return std::optional<std::string>(joinedKey(values));
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
    auto const wanted = keysOf(elem, node);
    if (wanted && (anyKey || hasKeys(*wanted, node, key))) next.add(at + 1);
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
