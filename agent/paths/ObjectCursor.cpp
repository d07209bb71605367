// Each call goes down from the root to the place where the last one stood, and on from there. Also what it
// has passed, what lies ahead.
#include "agent/paths/ObjectCursor.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "Kel/Dir.h"
#include "Ondra/GnmiUtils.h"
#include "Ondra/KeyDecoder.h"
#include "Ondra/PathElem.h"
#include "agent/model/Tree.h"
#include "agent/paths/EntryKey.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

using Handle = Kel::Ptr<Kel::GenericIf const>;
using Kind = Pattern::Elem::Kind;

Kel::Ptr<Ondra::PathElem const> nameElem(std::string_view name) {
  return Ondra::PathElem::PathElemIs(Kel::String(name));
}

Kel::Ptr<Ondra::PathElem const> memberElem(Kel::KelAttr attr, Handle const& key) {
  Kel::Ptr<Ondra::PathElem> const elem = Ondra::PathElem::PathElemIs(attr.name());
  if (Kel::KelAttr const index = attr.indexAttr()) {
    elem->keyIs(index.name(), Kel::String(key->gnmiStrRep()));
    return elem;
  }
  std::vector<std::string> const values = keyTexts(attr, *key);
  for (std::size_t i = 0; i < values.size(); ++i)
    elem->keyIs(attr.keyType().attrAt(i).name(), Kel::String(values[i]));
  return elem;
}

// The position of a key leaf among those of a list; as many as there are when it has none of that name.
std::size_t keyPosition(Kel::KelAttr list, std::string_view name) {
  if (Kel::KelAttr const index = list.indexAttr()) return index.name().view() == name ? 0 : 1;
  std::size_t at = 0;
  while (at < list.keyType().attrCount() && list.keyType().attrAt(at).name().view() != name)
    ++at;
  return at;
}
std::size_t keyCountOf(Kel::KelAttr list) { return list.indexAttr() ? 1 : list.keyType().attrCount(); }

// The values of a list's keys, as the element gives them; none for those that it leaves open.
std::vector<std::optional<std::string>> wantedKeys(Pattern::Elem const& elem, Kel::KelAttr list) {
  std::vector<std::optional<std::string>> wanted(keyCountOf(list));
  for (auto const& [name, value] : elem.keys)
    wanted[keyPosition(list, name)] = value;
  return wanted;
}

bool hasKeys(std::vector<std::string> const& values, std::vector<std::optional<std::string>> const& wanted) {
  for (std::size_t i = 0; i < wanted.size(); ++i)
    if (wanted[i] && *wanted[i] != values[i]) return false;
  return true;
}

// Whether the attribute is one that an element can stand for.
bool isMeant(Pattern::Elem const& elem, Kel::KelAttr attr) {
  if (!attr.isInstantiating()) return false;
  return elem.keys.empty() || (attr.isKeyed() && std::ranges::all_of(elem.keys, [attr](auto const& key) {
                                 return keyPosition(attr, key.first) < keyCountOf(attr);
                               }));
}

} // namespace

ObjectCursor::Result ObjectCursor::next() {
  Kel::Ptr<Kel::Entity> const root = Kel::globalDir()->entity(kOrigin);
  object_.reset();
  path_.reset();
  elems_.clear();
  budget_ = kMembersAtATime;
  if (!root) return Result::End;
  return descend(0, root, std::exchange(started_, true));
}

ObjectCursor::Result ObjectCursor::descend(std::size_t depth, Kel::Ptr<Kel::Entity> const& object,
                                           bool onTheWay) {
  if (depth == pattern_.objectDepth()) {
    if (onTheWay && wasFound_) return Result::End;
    object_ = object;
    path_ = Ondra::Path::PathIs();
    path_->push(nameElem(kOrigin));
    for (Kel::Ptr<Ondra::PathElem const> const& elem : elems_)
      path_->push(elem);
    standing_.resize(depth);
    wasFound_ = true;
    return Result::Found;
  }
  onTheWay = onTheWay && depth < standing_.size();
  Pattern::Elem const& elem = pattern_.elems()[depth];
  Handle const handle = Kel::GenericIf::toObject(static_cast<Kel::PtrInterface const*>(object.get()));
  if (elem.kind == Kind::Name) {
    Kel::KelAttr const attr = object->fwkType().attr(std::string_view(elem.name));
    return attr && isMeant(elem, attr) ? descendAttr(depth, handle, attr, onTheWay) : Result::End;
  }
  std::size_t const count = object->fwkType().attrCount();
  for (std::size_t at = onTheWay ? standing_[depth].position : 0; at < count; ++at, onTheWay = false) {
    Kel::KelAttr const attr = object->fwkType().attrAt(at);
    if (!isMeant(elem, attr)) continue;
    if (Result const result = descendAttr(depth, handle, attr, onTheWay); result != Result::End)
      return result;
  }
  return Result::End;
}

ObjectCursor::Result ObjectCursor::descendAttr(std::size_t depth, Handle const& object, Kel::KelAttr attr,
                                               bool onTheWay) {
  if (attr.isKeyed()) return descendMembers(depth, object, attr, onTheWay);
  Handle const value = attr.genericIfGet(object);
  std::size_t const position = attr.desc().index;
  return descendInto(depth, position, nullptr, value, Ondra::KelGnmiUtils::attrElem(object->type(), attr),
                     onTheWay);
}

ObjectCursor::Result ObjectCursor::descendMembers(std::size_t depth, Handle const& object, Kel::KelAttr attr,
                                                  bool onTheWay) {
  Pattern::Elem const& elem = pattern_.elems()[depth];
  std::size_t const position = attr.desc().index;
  std::vector<std::optional<std::string>> const wanted = wantedKeys(elem, attr);
  bool const isOpen = elem.keys.empty();
  if (!isOpen && std::ranges::all_of(wanted, [](auto const& each) { return each.has_value(); })) {
    std::vector<std::string> values;
    values.reserve(wanted.size());
    for (auto const& each : wanted)
      values.push_back(*each);
    Handle const key = keyHandle(attr, values);
    if (!key) return Result::End; // of another list that "*" stands for
    return descendInto(depth, position, key, attr.genericIfGet(object, key), memberElem(attr, key), onTheWay);
  }
  Handle const start = onTheWay ? standing_[depth].key : nullptr;
  for (auto it = start ? attr.genericIfIteratorConst(object, start) : attr.genericIfIteratorConst(object); it;
       ++it, onTheWay = false) {
    Handle const key = it.key();
    bool const here = onTheWay && start && key->equals(*start);
    if (!here && budget_-- == 0) return pauseBefore(depth, position, key);
    if (!isOpen && !hasKeys(keyTexts(attr, *key), wanted)) continue;
    Result const result = descendInto(depth, position, key, it.ptr(), memberElem(attr, key), here);
    if (result != Result::End) return result;
  }
  return Result::End;
}

ObjectCursor::Result ObjectCursor::descendInto(std::size_t depth, std::size_t position, Handle const& key,
                                               Handle const& value, Kel::Ptr<Ondra::PathElem const> elem,
                                               bool onTheWay) {
  auto* const object = value ? dynamic_cast<Kel::Entity*>(value->object()) : nullptr;
  if (object == nullptr) return Result::End;
  elems_.push_back(std::move(elem));
  Result const result = descend(depth + 1, Kel::Ptr<Kel::Entity>(object), onTheWay);
  if (result == Result::End)
    elems_.pop_back();
  else
    standing_[depth] = {position, key ? key->detachedKey() : nullptr};
  return result;
}

Ondra::WalkReach ObjectCursor::reach(PathView const& path) const {
  using Reach = Ondra::WalkReach;
  if (!started_) return Reach::Ahead;
  for (std::size_t depth = 0; depth < standing_.size(); ++depth) {
    Pattern::Elem const& wanted = pattern_.elems()[depth];
    if (wanted.kind != Kind::Name || depth >= path.size()) return Reach::Unknown;
    if (path[depth].name() != wanted.name) return Reach::Passed; // never to be found
    Handle const& key = standing_[depth].key;
    if (!key) continue;
    if (path[depth].key_size() != 1) return Reach::Unknown; // of several keys
    std::string const& text = path[depth].key().begin()->second;
    if (!wanted.keys.empty()) {
      if (text != wanted.keys.front().second) return Reach::Passed;
      continue;
    }
    auto const read = Ondra::KelGnmiSet::AttrTree::KeyDecoder::createScalarKey(key->type(), text);
    if (!read.ok()) return Reach::Unknown;
    if (int const order = read.value()->compare(*key); order != 0)
      return order < 0 ? Reach::Passed : Reach::Ahead;
  }
  return wasFound_ ? Reach::Passed : Reach::Ahead;
}

// Stands before a member that has not been looked at.
ObjectCursor::Result ObjectCursor::pauseBefore(std::size_t depth, std::size_t position, Handle const& key) {
  standing_.resize(depth + 1);
  standing_[depth] = {position, key->detachedKey()};
  wasFound_ = false;
  return Result::Paused;
}

} // namespace Agent
