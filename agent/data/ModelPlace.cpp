// Steps from a container to its child or entry by generic access, and whether an entry is the machine's: its
// state has values.
#include "agent/data/ModelPlace.h"

#include <algorithm>

#include "Kel/Dir.h"
#include "Ondra/ScalarEncode.h"
#include "agent/data/PathStates.h"
#include "agent/model/Tree.h"
#include "agent/paths/EntryKey.h"

namespace Agent {
namespace {

constexpr std::size_t kKeysAtATime = 64; // looked up while nothing changes

} // namespace

Handle dataRoot() { return Kel::handleTo(dataRootIn(*Kel::globalDir())); }

Handle containerOf(TypeNode const& child, Handle const& parent) {
  return parent ? child.attr.genericIfGet(parent) : nullptr;
}

Handle keyHandleOf(TypeNode const& list, std::string_view text) {
  return keyHandle(list.attr, keyValues(text, list.keyCount()));
}

Handle entryOf(TypeNode const& list, Handle const& parent, Handle const& key) {
  return parent && key ? list.attr.genericIfGet(parent, key) : nullptr;
}

std::vector<Handle> keysBehind(Kel::KelAttr list, Handle const& parent, Handle const& last) {
  std::vector<Handle> keys;
  auto at = last ? list.genericIfIteratorConst(parent, last) : list.genericIfIteratorConst(parent);
  if (at && last && at.key()->equals(*last)) ++at;
  for (; at && keys.size() < kKeysAtATime; ++at)
    keys.push_back(at.key());
  return keys;
}

Kel::KelAttr keyCopyOf(TypeNode const& container) {
  for (TypeNode const& child : container.children())
    if (child.leaf() != nullptr && child.leaf()->isKeyCopy) return child.attr;
  return {};
}

bool isEntryConfig(TypeNode const& child) {
  return !child.isList() && child.isObject() && child.attr.isRemovable() && keyCopyOf(child);
}

namespace {

// A leaf-list is always there; it has a value when it has entries.
bool hasValue(Kel::KelAttr leaf, Handle const& object) {
  return leaf.isArray() ? static_cast<bool>(leaf.genericIfIteratorConst(object))
                        : leaf.genericIfExist(object);
}

// Whether anything at or below an object is state, beside copies of keys.
bool holdsState(TypeNode const& type, Handle const& object) {
  return std::ranges::any_of(type.children(), [&object](TypeNode const& child) {
    if (LeafInfo const* const leaf = child.leaf())
      return !leaf->isConfig && !leaf->isKeyCopy && hasValue(child.attr, object);
    if (!child.isList()) {
      Handle const below = containerOf(child, object);
      return below && holdsState(child, below);
    }
    for (auto keys = keysBehind(child.attr, object, nullptr); !keys.empty();
         keys = keysBehind(child.attr, object, keys.back())) {
      if (child.isState) return true;
      for (Handle const& key : keys) {
        Handle const entry = entryOf(child, object, key);
        if (entry && holdsState(child, entry)) return true;
      }
    }
    return false;
  });
}

} // namespace

bool isOfMachine(TypeNode const& list, Handle const& entry) {
  if (list.type.isRuntime()) return entry && holdsState(list, entry);
  auto const state = list.child("state");
  Handle const object = state ? containerOf(*state, entry) : nullptr;
  if (!object) return false;
  return std::ranges::any_of(state->children(), [&object](TypeNode const& child) {
    return child.leaf() != nullptr && !child.leaf()->isKeyCopy && hasValue(child.attr, object);
  });
}

bool lacksConfig(TypeNode const& list, Handle const& entry) {
  return std::ranges::any_of(list.children(), [&entry](TypeNode const& child) {
    return child.leaf() == nullptr && isEntryConfig(child) && leafInfo(keyCopyOf(child))->isConfig &&
           !containerOf(child, entry);
  });
}

std::optional<gnmi::TypedValue> valueOf(TypeNode const& leaf, Handle const& object) {
  Kel::KelAttr const attr = leaf.attr;
  Handle const value = attr.genericIfGet(object);
  if (!value) return std::nullopt;
  gnmi::TypedValue told;
  if (!attr.isScalarArray()) {
    if (!Ondra::extractScalar(nullptr, value, &told)) return std::nullopt;
  } else {
    for (Handle const& element : attr.genericIfMembers(value))
      if (!Ondra::extractScalar(nullptr, element, told.mutable_leaflist_val()->add_element()))
        return std::nullopt;
  }
  // A union that holds nothing, and a leaf-list without entries, are not there.
  if (told.value_case() == gnmi::TypedValue::VALUE_NOT_SET) return std::nullopt;
  return told;
}

bool containerIsAt(gnmi::Path const& path) {
  TypeNode node = TypeNode::root();
  Handle object = dataRoot();
  for (gnmi::PathElem const& elem : path.elem()) {
    auto const child = node.child(elem.name());
    if (!child) return false;
    Handle next;
    if (child->isList()) {
      std::vector<std::string> values;
      for (std::size_t i = 0; i < child->keyCount(); ++i)
        values.push_back(elem.key().at(child->key(i).name().str()));
      next = entryOf(*child, object, keyHandle(child->attr, values));
    } else {
      next = containerOf(*child, object);
      if (!next) next = child->attr.genericIfSet(Kel::GenericIf::toObject(object->object()), Kel::ArgList());
    }
    if (!next) return false;
    object = next;
    node = *child;
  }
  return true;
}

bool isContainerThere(RequestPath const& path) {
  TypeNode node = TypeNode::root();
  Handle object = dataRoot();
  for (RequestElem const& elem : path.elems) {
    auto const child = node.child(elem.name);
    if (!child || child->leaf() != nullptr) return false;
    if (child->isList()) {
      auto const key = keyOf(elem, *child);
      object = key && *key ? entryOf(*child, object, keyHandleOf(*child, **key)) : nullptr;
      if (!object) return false;
    } else {
      // Of types made at run time, containers that mean nothing by themselves stand there once they hold
      // something: for those who ask they are always there.
      object = containerOf(*child, object);
      bool const isImplied = child->type.isRuntime() && !child->attr.isRemovable();
      if (!object && !isImplied) return false;
    }
    node = *child;
  }
  return true;
}

} // namespace Agent
