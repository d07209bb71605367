// Changing names and keys, which forgets the hash; keys are compared in any order, the same order being the
// guess.
#include "Ondra/PathElem.h"

#include <utility>

#include "Ondra/paths/ElemHash.h"

namespace Ondra {

Kel::Ptr<PathElem> PathElem::PathElemIs(Kel::String const& name) {
  Kel::Ptr<PathElem> elem(new PathElem());
  elem->hasNotificationActiveIs(true);
  elem->name_ = name.dedup();
  return elem;
}

Kel::Ptr<PathElem> PathElem::makePathElem(Kel::Ptr<PathElem const> const& elem) {
  Kel::Ptr<PathElem> copy = PathElemIs(elem->name_);
  for (KeyMapType::Node const& node : elem->key_)
    copy->keyIs(node.key, node.value);
  return copy;
}

void PathElem::nameIs(Kel::String const& name) {
  name_ = name.dedup();
  hash_ = kHashUnknown;
}

void PathElem::keyIs(Kel::String const& key, Kel::String const& value) {
  hash_ = kHashUnknown;
  if (KeyMapType::Node* const node = key_.lookup(key))
    node->value = value.dedup();
  else
    key_.insert(key.dedup(), value.dedup());
}

Kel::String PathElem::keyDel(Kel::String const& key) {
  KeyMapType::Node* const node = key_.lookup(key);
  if (node == nullptr) return {};
  hash_ = kHashUnknown;
  Kel::String const held = node->key; // `key` may be the member's own
  Kel::String value = std::move(node->value);
  key_.del(held);
  return value;
}

void PathElem::keyDelAll() {
  key_.deleteAll();
  hash_ = kHashUnknown;
}

// REQUIRES: as many keys in `other`.
bool PathElem::keysEqual(PathElem const& other) const {
  KeyMapType::Node const* guess = other.key_.begin(); // elements made alike hold their keys in the same order
  if (key_.size() == 1) [[likely]] {
    KeyMapType::Node const& only = *key_.begin();
    return only.key == guess->key && only.value == guess->value;
  }
  for (KeyMapType::Node const& node : key_) {
    KeyMapType::Node const* const twin = guess->key == node.key ? guess : other.key_.lookup(node.key);
    if (twin == nullptr || !(twin->value == node.value)) return false;
    ++guess;
  }
  return true;
}

std::uint64_t PathElem::computeHash() const {
  ElemHash hash(name_.view());
  for (KeyMapType::Node const& node : key_)
    hash.key(node.key.view(), node.value.view());
  return hash_ = hash.value(!key_.empty());
}

} // namespace Ondra
