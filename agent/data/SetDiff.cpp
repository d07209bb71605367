// First marks what the deletes clear, then walks plan and model side by side; each difference becomes a
// write and a step back.
#include "agent/data/SetDiff.h"

#include <algorithm>
#include <span>
#include <utility>

#include <fmt/format.h>

#include "Ondra/AttrTree.h"
#include "Tovak/Task.h"
#include "agent/data/ModelPlace.h"
#include "agent/encoding/LeafValue.h"
#include "agent/model/Tree.h"
#include "agent/paths/EntryKey.h"
#include "agent/paths/OutPath.h"
#include "agent/paths/Pattern.h"

namespace Agent {

namespace {

constexpr int kPartSize = 64; // leaves of a part: about a millisecond

// Bytes, which the library does not take from gNMI; the leaf's own rules have let them in.
std::optional<SetParts::PlaceSet::Decoded> decodedBytes(Kel::KelAttr attr, gnmi::TypedValue const& value) {
  if (!attr || attr.memberType().builtinKind() != Kel::BuiltinKind::Bytes) return std::nullopt;
  SetParts::PlaceSet::Decoded decoded;
  auto const add = [&decoded](gnmi::TypedValue const& one) {
    if (one.has_bytes_val()) decoded.push_back(Kel::handleOf(Kel::Bytes(one.bytes_val())));
    return one.has_bytes_val();
  };
  bool const isWhole =
      value.has_leaflist_val() ? std::ranges::all_of(value.leaflist_val().element(), add) : add(value);
  return isWhole ? std::optional(std::move(decoded)) : std::nullopt;
}

} // namespace

void SetParts::deleteIs(Way const& way) {
  Place const& place = placeIs(way);
  parts.back().deleteIs(place);
}
void SetParts::updateIs(Way const& way, gnmi::TypedValue value) {
  Place const& place = placeIs(way);
  if (auto decoded = decodedBytes(way.back().type->attr, value))
    parts.back().updateIs(place, std::move(value), *std::move(decoded));
  else
    parts.back().updateIs(place, std::move(value));
}

void SetParts::forEach(absl::FunctionRef<void(Place const&, gnmi::TypedValue const*)> visit) const {
  for (PlaceSet const& part : parts) {
    for (Place const* const place : part.deletes())
      visit(*place, nullptr);
    for (PlaceSet::Write const& write : part.updates())
      visit(*write.place, &write.value);
  }
}

std::string bytesOf(Ondra::KelGnmiSet::PlaceSet::Place const& place) {
  std::string bytes = place.above() == nullptr ? std::string() : bytesOf(*place.above());
  appendElemBytes(bytes, place.elem());
  return bytes;
}

// Begins with the steps that the last way has in common with this one.
SetParts::Place const& SetParts::placeIs(Way const& way) {
  static auto* const dataRoot =
      new Kel::Ptr<Ondra::Path const>(Ondra::Path::strToPathIs(fmt::format("/{}", kOrigin)));
  if (size_++ % kPartSize == 0) {
    parts.emplace_back(*dataRoot);
    last_.clear();
  }
  PlaceSet& part = parts.back();
  std::size_t common = 0;
  while (common < std::min(last_.size(), way.size()) && last_[common].first == way[common].number)
    ++common;
  last_.resize(common);
  Place const* place = common == 0 ? &part.root() : last_.back().second;
  for (WayStep const& step : std::span(way).subspan(common)) {
    place = &part.placeIs(*place, step.type->attr, step.key);
    last_.emplace_back(step.number, place);
  }
  return *place;
}

Steps SetDiff::run() {
  for (RequestPath const& path : plan_.deletes)
    co_await markDeleted(plan_.root, dataRoot(), PathStates(path));
  co_await below(&plan_.root, plan_.root.type, dataRoot(), false);
}

// --- deletes -----------------------------------------------------------------------------------------------

Steps SetDiff::markDeleted(PlanNode& node, Handle object, PathStates states) {
  co_await Steps::pauseIf(task_.taskShouldYield());
  if (states.isEnd()) {
    node.isCleared = true;
    co_return; // whatever lies below goes too
  }
  for (TypeNode const& child : node.type.children()) {
    PathStates const next = states.belowAny(child);
    if (next.isDead() || !hasWritable(child, node.writer)) continue;
    if (child.isList()) {
      co_await markDeletedEntries(node, object, child, states);
    } else if (child.leaf() != nullptr) {
      if (next.isEnd()) node.childIs(child).isCleared = true;
    } else if (Handle const below = containerOf(child, object)) {
      co_await markDeleted(node.childIs(child), below, next);
    }
  }
}

Steps SetDiff::markDeletedEntries(PlanNode& node, Handle object, TypeNode list, PathStates states) {
  if (auto const text = states.onlyKey(list)) {
    Handle const entry = entryOf(list, object, keyHandleOf(list, *text));
    PathStates const next = states.below(list, *text);
    if (entry && !next.isDead()) co_await markDeleted(node.childIs(list, *text), entry, next);
    co_return;
  }
  for (auto keys = keysBehind(list.attr, object, nullptr); !keys.empty();
       keys = keysBehind(list.attr, object, keys.back())) {
    for (Handle const& key : keys) {
      std::string const text = keyText(list.attr, *key);
      PathStates const next = states.below(list, text);
      if (next.isDead()) continue;
      if (Handle const entry = entryOf(list, object, key))
        co_await markDeleted(node.childIs(list, text), entry, next);
    }
    co_await Steps::pauseIf(task_.taskShouldYield());
  }
}

// --- comparing ---------------------------------------------------------------------------------------------

Steps SetDiff::below(PlanNode const* node, TypeNode type, Handle object, bool isCleared) {
  if (node != nullptr && node->isCleared) cleared.push_back(pathHere());
  isCleared = isCleared || (node != nullptr && node->isCleared);
  shapes = shapes || isCleared;
  if (isCleared && object) {
    for (TypeNode const& child : type.children()) {
      if (!hasWritable(child, plan_.root.writer)) continue;
      PlanNode const* const planned = node == nullptr || child.isList() ? nullptr : node->child(child.name);
      if (child.isList())
        co_await clearedList(node, child, object);
      else if (child.leaf() != nullptr)
        leaf(planned, child, object, true);
      else
        co_await container(planned, child, object, true);
    }
    co_return;
  }
  if (node == nullptr) co_return;
  for (auto const& child : node->children()) {
    if (child->type.isList() && takePlainEntry(*child, object)) {
      // and that was all
    } else if (child->type.isList()) {
      co_await entry(child.get(), child->type, child->key, keyHandleOf(child->type, child->key), object,
                     false);
    } else if (child->type.leaf() != nullptr) {
      leaf(child.get(), child->type, object, false);
    } else {
      co_await container(child.get(), child->type, object, false);
    }
    co_await Steps::pauseIf(task_.taskShouldYield());
  }
}

Steps SetDiff::container(PlanNode const* node, TypeNode type, Handle parent, bool isCleared) {
  Handle const object = containerOf(type, parent);
  if (!object && node == nullptr) co_return;
  bool const isNamed = node != nullptr && node->isNamed;
  shapes = shapes || !object;
  if (isCleared && isStateKept_ && !isNamed && isEntryConfig(type)) {
    if (!object) co_return;
    enter(type);
    removals.deleteIs(way_);
    leave();
    if (interface_ != nullptr) interfaces.insert(*interface_);
    co_return;
  }
  bool const isPresence = type.isPresence();
  if (isPresence && object && !isNamed && (isCleared || (node != nullptr && node->isCleared))) {
    enter(type);
    removals.deleteIs(way_);
    gone.push_back(pathHere());
    leave();
    co_return;
  }
  bool const isValue = !type.attr.isInstantiating();
  std::size_t const undoBefore = undo.size();
  std::size_t const writesBefore = writes.size();
  enter(type);
  if (parent && (isValue || !object)) remember(parent, type.attr, nullptr);
  // A declared entry that is made makes it itself; one of a type made at run time does not.
  if ((parent || type.type.isRuntime()) && !object && isNamed && isEntryConfig(type)) {
    writeCopies(*node, type); // which makes it, whatever else is written
    if (interface_ != nullptr) interfaces.insert(*interface_);
  }
  valuesEntered_ += isValue ? 1 : 0;
  co_await below(node, type, object, isCleared);
  valuesEntered_ -= isValue ? 1 : 0;
  bool const isMade = !object && isPresence && isNamed;
  if (isMade && writes.size() == writesBefore) presences.push_back(pathHere());
  leave();
  if (!object && !isMade && writes.size() == writesBefore) undo.resize(undoBefore); // nothing will be made
}

Steps SetDiff::clearedList(PlanNode const* parentNode, TypeNode list, Handle parent) {
  for (auto keys = keysBehind(list.attr, parent, nullptr); !keys.empty();
       keys = keysBehind(list.attr, parent, keys.back())) {
    for (Handle const& key : keys) {
      std::string const text = keyText(list.attr, *key);
      PlanNode const* const planned = parentNode == nullptr ? nullptr : parentNode->child(list.name, text);
      co_await entry(planned, list, text, key, parent, true);
    }
    co_await Steps::pauseIf(task_.taskShouldYield());
  }
  if (parentNode == nullptr) co_return;
  for (auto const& child : parentNode->children()) {
    if (!(child->type.attr == list.attr)) continue;
    Handle const key = keyHandleOf(list, child->key);
    if (!entryOf(list, parent, key)) co_await entry(child.get(), list, child->key, key, parent, true);
    co_await Steps::pauseIf(task_.taskShouldYield());
  }
}

Steps SetDiff::entry(PlanNode const* node, TypeNode list, std::string entryKey, Handle key, Handle parent,
                     bool isCleared) {
  bool const isNamed = node != nullptr && node->isNamed;
  Handle const object = entryOf(list, parent, key);
  if (!object && !isNamed) co_return;
  bool const isInterface = list.type == Kel::typeOf<Interface>();
  if (isInterface) interface_ = &entryKey;
  enter(list, entryKey, key);
  bool const isHit =
      (isCleared || (node != nullptr && node->isCleared)) && list.isWritableList(plan_.root.writer);
  shapes = shapes || isHit || !object;
  bool const wasStateKept =
      std::exchange(isStateKept_, isHit && plan_.root.writer == Writer::Client && isOfMachine(list, object));
  if (isHit && !isNamed && !isStateKept_) {
    removals.deleteIs(way_);
    if (interface_ != nullptr) interfaces.insert(*interface_);
    gone.push_back(pathHere());
  } else {
    if (isStateKept_ && !isNamed && list.type.isRuntime()) left.push_back(pathHere());
    bool const isValue = !list.attr.isInstantiating();
    if (parent && (isValue || !object)) remember(parent, list.attr, key);
    if (!object) {
      if (parent && valuesEntered_ == 0) undo.back().made = made.size();
      made.push_back({pathHere(), ClientEntries::bytesOf(list)});
      for (std::size_t i = 0; i < list.keyCount(); ++i) // which makes it
        writeKey(list.key(i), keyValue(entryKey, list.keyCount(), i));
    }
    if (isNamed && list.type.isRuntime() && plan_.root.writer == Writer::Client)
      makeConfig(*node, list, object);
    valuesEntered_ += isValue ? 1 : 0;
    co_await below(node, list, object, isCleared);
    valuesEntered_ -= isValue ? 1 : 0;
  }
  isStateKept_ = wasStateKept;
  leave();
  if (isInterface) interface_ = nullptr;
}

// The keys of what is configured point into its container of configuration, which the plan need not name.
void SetDiff::makeConfig(PlanNode const& entry, TypeNode const& list, Handle const& object) {
  for (TypeNode const& child : list.children()) {
    if (child.leaf() != nullptr || !isEntryConfig(child) || !leafInfo(keyCopyOf(child))->isConfig ||
        (object && containerOf(child, object)))
      continue;
    PlanNode const* const planned = entry.child(child.name);
    if (planned != nullptr && planned->isNamed) continue;
    if (object) remember(object, child.attr, nullptr);
    enter(child);
    writeCopies(entry, child);
    leave();
  }
}

void SetDiff::writeCopies(PlanNode const& below, TypeNode const& config) {
  for (TypeNode const& copy : config.children())
    if (copy.leaf() != nullptr && copy.leaf()->isKeyCopy)
      writeKey(copy.attr, below.nearestKey(copy.leaf()->keyName));
}

void SetDiff::writeKey(Kel::KelAttr key, std::string_view text) {
  TypeNode leaf;
  leaf.attr = key;
  leaf.name = key.name().view();
  enter(leaf);
  writes.updateIs(way_, keyValueOf(*leafInfo(key), text).valueOr(gnmi::TypedValue()));
  leave();
}

void SetDiff::leaf(PlanNode const* node, TypeNode const& type, Handle const& object, bool isCleared) {
  bool const hasValue = node != nullptr && node->value.has_value();
  bool const isReset = !hasValue && (isCleared || (node != nullptr && node->isCleared));
  if (isReset && (!object || !type.isWritableLeaf(plan_.root.writer) || type.leaf()->isKeyCopy ||
                  !type.attr.genericIfExist(object)))
    return;
  if (!hasValue && !isReset) return;
  shapes = shapes || isReset;
  if (hasValue && takePlain(type, object, *node->value)) return;
  if (object) remember(object, type.attr, nullptr);
  if (interface_ != nullptr) interfaces.insert(*interface_);
  enter(type);
  if (hasValue)
    writes.updateIs(way_, *node->value);
  else
    resets.deleteIs(way_);
  leave();
}

bool SetDiff::takePlainEntry(PlanNode const& entry, Handle const& parent) {
  constexpr std::size_t kMost = 32;
  if (plan_.root.writer != Writer::Provider || !entry.type.type.isRuntime()) return false;
  std::size_t const plainBefore = plain.size();
  std::size_t const undoBefore = undo.size();
  if (takeAllPlain(entry, parent, plainBefore + kMost)) return true;
  plain.resize(plainBefore);
  undo.resize(undoBefore);
  return false;
}

bool SetDiff::takeAllPlain(PlanNode const& node, Handle const& parent, std::size_t most) {
  if (node.isCleared || plain.size() == most) return false;
  if (node.type.leaf() != nullptr) return !node.value || takePlain(node.type, parent, *node.value);
  Handle const object = node.type.isList() ? entryOf(node.type, parent, keyHandleOf(node.type, node.key))
                                           : containerOf(node.type, parent);
  return object && std::ranges::all_of(node.children(),
                                       [&](auto const& child) { return takeAllPlain(*child, object, most); });
}

bool SetDiff::takePlain(TypeNode const& type, Handle const& object, gnmi::TypedValue const& value) {
  bool const isPlain = plan_.root.writer == Writer::Provider && object && valuesEntered_ == 0 &&
                       !type.leaf()->isConfig && !type.leaf()->isLeafList &&
                       type.attr.ownerType().isRuntime() && object->type().isEntity();
  if (!isPlain) return false;
  auto decoded = Ondra::KelGnmiSet::AttrTree::gnmiToKelValue(type.attr.memberType(), value);
  if (!decoded) return false;
  if (type.type.isBuiltin() || type.type.isEnum())
    remember(object, type.attr, nullptr, type.attr.genericIfGet(object)); // a copy of its own already
  else
    remember(object, type.attr, nullptr);
  plain.push_back({undo.back().object, type.attr, *std::move(decoded)});
  return true;
}

void SetDiff::remember(Handle const& object, Kel::KelAttr attr, Handle const& key) {
  if (valuesEntered_ != 0) return;
  Handle const there = attr.genericIfExist(object, key) ? attr.genericIfGet(object, key) : nullptr;
  remember(object, attr, key, there ? Handle(there->clone()) : nullptr);
}

void SetDiff::remember(Handle const& object, Kel::KelAttr attr, Handle const& key, Handle old) {
  undo.push_back({.object = Kel::GenericIf::toObject(object->object()),
                  .attr = attr,
                  .key = key,
                  .old = std::move(old),
                  .made = {}});
}

void SetDiff::enter(TypeNode const& type, std::string_view entryKey, Handle const& key) {
  way_.push_back({&type, entryKey, key, ++steps_});
}

std::string SetDiff::pathHere() const {
  gnmi::Path path;
  for (WayStep const& step : way_) {
    TypeNode const& type = *step.type;
    gnmi::PathElem& elem = *path.add_elem();
    elem.set_name(type.name.data(), type.name.size());
    for (std::size_t i = 0, count = type.isList() ? type.keyCount() : 0; i < count; ++i)
      (*elem.mutable_key())[type.key(i).name().str()] = keyValue(step.keyText, count, i);
  }
  return pathBytes(PathView(path, 0));
}

} // namespace Agent
