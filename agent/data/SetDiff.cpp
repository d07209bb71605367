#include "agent/data/SetDiff.h"

#include <utility>

#include "agent/data/LeafValue.h"
#include "agent/data/ModelPlace.h"
#include "agent/model/Tree.h"
#include "agent/paths/OutPath.h"
#include "agent/paths/Pattern.h"

namespace Agent {

SetDiff::SetDiff(SetPlan& plan) {
  for (RequestPath const& path : plan.deletes)
    markDeleted(plan.root, nullptr, PathStates(path));
  below(&plan.root, plan.root.type, nullptr, false);
}

// --- deletes ----------------------------------------------------------------------------------------------------

void SetDiff::markDeleted(PlanNode& node, Handle const& object, PathStates const& states) {
  if (states.isEnd()) {
    node.isCleared = true;
    return; // whatever lies below goes too
  }
  for (TypeNode const& child : node.type.children()) {
    PathStates const next = states.belowAny(child);
    if (next.isDead() || !hasWritable(child)) continue;
    if (child.isList()) {
      markDeletedEntries(node, object, child, states);
    } else if (child.leaf() != nullptr) {
      if (next.isEnd()) node.childIs(child).isCleared = true;
    } else if (Handle const below = containerOf(child, object)) {
      markDeleted(node.childIs(child), below, next);
    }
  }
}

void SetDiff::markDeletedEntries(PlanNode& node, Handle const& object, TypeNode const& list,
                                 PathStates const& states) {
  auto const mark = [&](std::string_view text, Handle const& entry) {
    PathStates const next = states.below(list, text);
    if (entry && !next.isDead()) markDeleted(node.childIs(list, text), entry, next);
  };
  if (auto const text = states.onlyKey(list)) {
    mark(*text, entryOf(list, object, keyHandleOf(list, *text)));
    return;
  }
  for (auto it = list.attr.genericIfIteratorConst(object); it; ++it)
    mark(it.key()->gnmiStrRep(), it.ptr());
}

// --- comparing --------------------------------------------------------------------------------------------------

void SetDiff::below(PlanNode const* node, TypeNode const& type, Handle const& object, bool isCleared) {
  isCleared = isCleared || (node != nullptr && node->isCleared);
  if (isCleared && (object || type.isRoot())) {
    for (TypeNode const& child : type.children()) {
      if (!hasWritable(child)) continue;
      PlanNode const* const planned = node == nullptr || child.isList() ? nullptr : node->child(child.name);
      if (child.isList()) {
        clearedList(node, child, object);
      } else if (child.leaf() != nullptr) {
        leaf(planned, child, object, true);
      } else {
        container(planned, child, object, true);
      }
    }
    return;
  }
  if (node == nullptr) return;
  for (auto const& child : node->children()) {
    if (child->type.isList()) {
      entry(child.get(), child->type, child->key, keyHandleOf(child->type, child->key), object, false);
    } else if (child->type.leaf() != nullptr) {
      leaf(child.get(), child->type, object, false);
    } else {
      container(child.get(), child->type, object, false);
    }
  }
}

void SetDiff::container(PlanNode const* node, TypeNode const& type, Handle const& parent, bool isCleared) {
  Handle const object = containerOf(type, parent);
  if (!object && node == nullptr) return;
  bool const isNamed = node != nullptr && node->isNamed;
  if (isCleared && isStateKept_ && !isNamed && isEntryConfig(type)) {
    if (!object) return;
    enter(type);
    *removals.add_delete_() = path_;
    leave();
    if (interface_ != nullptr) interfaces.insert(*interface_);
    return;
  }
  bool const isValue = type.attr && !type.attr.isInstantiating();
  std::size_t const undoBefore = undo.size();
  int const writesBefore = writes.update_size();
  enter(type);
  if (parent && (isValue || !object)) remember(parent, type.attr, nullptr);
  if (parent && !object && isNamed && isEntryConfig(type)) {
    writeKey(keyCopyOf(type), node->nearestKey()); // which makes it, whatever else is written
    if (interface_ != nullptr) interfaces.insert(*interface_);
  }
  valuesEntered_ += isValue ? 1 : 0;
  below(node, type, object, isCleared);
  valuesEntered_ -= isValue ? 1 : 0;
  leave();
  if (!object && writes.update_size() == writesBefore) undo.resize(undoBefore); // nothing will be made
}

void SetDiff::clearedList(PlanNode const* parentNode, TypeNode const& list, Handle const& parent) {
  for (auto it = list.attr.genericIfIteratorConst(parent); it; ++it) {
    std::string const text = it.key()->gnmiStrRep();
    entry(parentNode == nullptr ? nullptr : parentNode->child(list.name, text), list, text, it.key(), parent,
          true);
  }
  if (parentNode == nullptr) return;
  for (auto const& child : parentNode->children()) {
    if (!(child->type.attr == list.attr)) continue;
    Handle const key = keyHandleOf(list, child->key);
    if (!entryOf(list, parent, key)) entry(child.get(), list, child->key, key, parent, true);
  }
}

void SetDiff::entry(PlanNode const* node, TypeNode const& list, std::string_view keyText, Handle const& key,
                    Handle const& parent, bool isCleared) {
  bool const isNamed = node != nullptr && node->isNamed;
  Handle const object = entryOf(list, parent, key);
  if (!object && !isNamed) return;
  bool const isInterface = list.type == Kel::typeOf<Interface>();
  std::string const name(keyText);
  if (isInterface) interface_ = &name;
  enter(list, keyText);
  bool const isHit = (isCleared || (node != nullptr && node->isCleared)) && list.isWritableList();
  bool const wasStateKept = std::exchange(isStateKept_, isHit && isOfMachine(list, object));
  if (isHit && !isNamed && !isStateKept_) {
    *removals.add_delete_() = path_;
    if (interface_ != nullptr) interfaces.insert(*interface_);
    gone.push_back(pathBytes(PathView(path_, 0)));
  } else {
    bool const isValue = !list.attr.isInstantiating();
    if (parent && (isValue || !object)) remember(parent, list.attr, key);
    if (!object) {
      made.push_back(pathBytes(PathView(path_, 0)));
      writeKey(list.key(), keyText); // which makes it
    }
    valuesEntered_ += isValue ? 1 : 0;
    below(node, list, object, isCleared);
    valuesEntered_ -= isValue ? 1 : 0;
  }
  isStateKept_ = wasStateKept;
  leave();
  if (isInterface) interface_ = nullptr;
}

void SetDiff::writeKey(Kel::KelAttr key, std::string_view text) {
  gnmi::Update& update = *writes.add_update();
  *update.mutable_path() = path_;
  update.mutable_path()->add_elem()->set_name(key.name().str());
  if (auto value = keyValueOf(*leafInfo(key), text)) *update.mutable_val() = std::move(*value);
}

void SetDiff::leaf(PlanNode const* node, TypeNode const& type, Handle const& object, bool isCleared) {
  bool const hasValue = node != nullptr && node->value.has_value();
  bool const isReset = !hasValue && (isCleared || (node != nullptr && node->isCleared));
  if (isReset &&
      (!object || !type.isWritableLeaf() || type.leaf()->isKeyCopy || !type.attr.genericIfExist(object)))
    return;
  if (!hasValue && !isReset) return;
  if (object) remember(object, type.attr, nullptr);
  if (interface_ != nullptr) interfaces.insert(*interface_);
  enter(type);
  if (hasValue) {
    gnmi::Update& update = *writes.add_update();
    *update.mutable_path() = path_;
    *update.mutable_val() = *node->value;
  } else {
    *resets.add_delete_() = path_;
  }
  leave();
}

void SetDiff::remember(Handle const& object, Kel::KelAttr attr, Handle const& key) {
  if (valuesEntered_ != 0) return;
  Handle const old = attr.genericIfExist(object, key) ? attr.genericIfGet(object, key) : nullptr;
  undo.push_back({.object = Kel::GenericIf::toObject(object->object()),
                  .attr = attr,
                  .key = key,
                  .old = old ? Handle(old->clone()) : nullptr});
}

void SetDiff::enter(TypeNode const& type, std::string_view keyText) {
  gnmi::PathElem& elem = *path_.add_elem();
  elem.set_name(type.name.data(), type.name.size());
  if (type.isList()) (*elem.mutable_key())[type.key().name().str()] = std::string(keyText);
}

} // namespace Agent
