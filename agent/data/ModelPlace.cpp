// Steps from a container to its child or entry by generic access, and whether an entry is the machine's: its
// state has values.
#include "agent/data/ModelPlace.h"

#include <algorithm>

#include "Kel/Dir.h"
#include "Ondra/KeyDecoder.h"
#include "agent/data/PathStates.h"
#include "agent/model/Tree.h"

namespace Agent {

Handle containerOf(TypeNode const& child, Handle const& parent) {
  if (child.attr) return parent ? child.attr.genericIfGet(parent) : nullptr;
  Kel::Ptr<Kel::Entity> const root = Kel::globalDir()->entity(kOrigin);
  auto const* const dir = dynamic_cast<Kel::Dir const*>(root.get());
  Kel::Ptr<Kel::Entity> const entity = dir == nullptr ? nullptr : dir->entity(child.name);
  return Kel::GenericIf::toObject(static_cast<Kel::PtrInterface const*>(entity.get()));
}

Handle keyHandleOf(TypeNode const& list, std::string_view text) {
  auto key = Ondra::KelGnmiSet::AttrTree::KeyDecoder::createScalarKey(list.attr.keyType(), std::string(text));
  return key ? Handle(std::move(*key)) : nullptr;
}

Handle entryOf(TypeNode const& list, Handle const& parent, Handle const& key) {
  return parent && key && list.attr.genericIfExist(parent, key) ? list.attr.genericIfGet(parent, key)
                                                                : nullptr;
}

Kel::KelAttr keyCopyOf(TypeNode const& container) {
  for (TypeNode const& child : container.children()) {
    if (child.leaf() != nullptr && child.leaf()->isKeyCopy) return child.attr;
  }
  return {};
}

bool isEntryConfig(TypeNode const& child) {
  return child.attr && !child.isList() && child.isObject() && child.attr.isRemovable() && keyCopyOf(child);
}

bool isOfMachine(TypeNode const& list, Handle const& entry) {
  auto const state = list.child("state");
  Handle const object = state ? containerOf(*state, entry) : nullptr;
  if (!object) return false;
  return std::ranges::any_of(state->children(), [&object](TypeNode const& child) {
    return child.leaf() != nullptr && !child.leaf()->isKeyCopy && child.attr.genericIfExist(object);
  });
}

bool isContainerThere(RequestPath const& path) {
  TypeNode node = TypeNode::root();
  Handle object;
  for (RequestElem const& elem : path.elems) {
    auto const child = node.child(elem.name);
    if (!child || child->leaf() != nullptr) return false;
    if (child->isList()) {
      auto const key = keyOf(elem, *child);
      object = key && *key ? entryOf(*child, object, keyHandleOf(*child, **key)) : nullptr;
    } else {
      object = containerOf(*child, object);
    }
    if (!object) return false;
    node = *child;
  }
  return true;
}

} // namespace Agent
