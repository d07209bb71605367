// Committing the attribute tree: the only place from which a Set request writes to the model.
#include <limits>

#include "Kel/Entity.h"
#include "Ondra/PathFormat.h"
#include "Ondra/set/AttrNode.h"
#include "Ondra/set/AttrNodeImpl.h"
#include "Ondra/set/SetTrace.h"

namespace Ondra::KelGnmiSet {

using Kel::KelAttr;
using Kel::KelType;

namespace {

// A handle to write through; of an object a second one, of a detached value the very one.
AttrTree::Handle writable(AttrTree::ConstHandle const& object) {
  return Kel::GenericIf::toObject(object->object());
}

// The live entity behind a handle; null for none.
Kel::Entity const* entityOf(AttrTree::Handle const& object) {
  return object ? static_cast<Kel::Entity const*>(object->object()) : nullptr;
}

template <class T>
bool storeMinimum(void* to) {
  *static_cast<T*>(to) = std::numeric_limits<T>::min();
  return true;
}

// Sets a value of the type to the least of its order, where that is known.
bool setMinimum(KelType type, AttrTree::Handle const& value) {
  using Kel::BuiltinKind;
  void* const raw = value->data();
  switch (type.isBuiltin() ? type.builtinKind() : BuiltinKind::None) {
  case BuiltinKind::S8: return storeMinimum<std::int8_t>(raw);
  case BuiltinKind::S16: return storeMinimum<std::int16_t>(raw);
  case BuiltinKind::S32: return storeMinimum<std::int32_t>(raw);
  case BuiltinKind::S64: return storeMinimum<std::int64_t>(raw);
  case BuiltinKind::U8:
  case BuiltinKind::U16:
  case BuiltinKind::U32:
  case BuiltinKind::U64:
  case BuiltinKind::Bool:
  case BuiltinKind::String:
  case BuiltinKind::Bytes: return true; // the default is the least
  case BuiltinKind::Char:
  case BuiltinKind::Float:
  case BuiltinKind::Double:
  case BuiltinKind::Seconds:
  case BuiltinKind::Time:
  case BuiltinKind::JsonString:
  case BuiltinKind::None: break;
  }
  return false;
}

// A filter on the first fields of a structured key bounds the members that can match to one range of the key
// order.
class KeyRange {
public:
  KeyRange(KelType keyType, AttrTree::MultipleKeys::Filter const& filter) {
    while (bound_ < filter.size() && filter[bound_].first == keyType.attrAt(bound_))
      ++bound_;
    if (bound_ == 0 || !keyType.isValueType()) {
      bound_ = 0;
      return;
    }
    AttrTree::Handle const start = keyType.genericIf(nullptr);
    for (std::size_t i = 0; i < keyType.attrCount(); ++i) {
      KelAttr const field = keyType.attrAt(i);
      if (i < bound_) {
        field.genericIfSet(start, nullptr, filter[i].second);
        continue;
      }
      AttrTree::Handle const least = defaultValue(field);
      if (!least || !setMinimum(field.memberType(), least)) {
        bound_ = 0;
        return;
      }
      field.genericIfSet(start, nullptr, least);
    }
    start_ = start;
  }

  // The key to start at; null for the first member.
  [[nodiscard]] AttrTree::ConstHandle const& start() const { return start_; }
  // Whether the key lies behind the range.
  [[nodiscard]] bool isPast(AttrTree::MultipleKeys::Filter const& filter,
                            AttrTree::ConstHandle const& key) const {
    if (!start_) return false;
    AttrTree::MultipleKeys::Filter const leading(filter.begin(),
                                                 filter.begin() + static_cast<std::ptrdiff_t>(bound_));
    return !AttrTree::applyKeyFilter(leading, key);
  }

private:
  static AttrTree::Handle defaultValue(KelAttr field) {
    bool const isPlain = !field.isCollection() && !field.isOptional() && !field.isPointer();
    return isPlain && field.memberType().isValueType() ? field.memberType().genericIf(nullptr) : nullptr;
  }

  AttrTree::ConstHandle start_;
  std::size_t bound_ = 0;
};

} // namespace

AttrTree::Status AttrTree::AttrNode::commitTree() {
  TOVAK_TRACE(setTrace, 3, "", "Commit tree rooted at '{}'", elem());
  TOVAK_ASSERT(object_.object, setTrace, "Expecting attribute '{}' to be set", elem());
  newValue_ = writable(object_.object);
  return commitToEntity();
}

AttrTree::Status AttrTree::AttrNode::commitChildren(Handle const& target) {
  for (auto const& child : children_)
    if (auto status = child->commit(target); isError(status)) return status;
  return true;
}

AttrTree::Status AttrTree::AttrNode::commitToEntity() {
  auto const* entity = entityOf(newValue_);
  for (auto const& child : children_) {
    if (entity == nullptr || entity->isOrphan()) [[unlikely]]
      entity = entityOf(standing());
    if (entity == nullptr) [[unlikely]] {
      bool const wentWithIt = child->op_ == SetOp::Delete || (child->unchanged_ && hasNewValue_);
      if (wentWithIt) continue;
      return child->error(
          fmt::format("Path element '{}' was removed while the request was committed", elem()));
    }
    if (auto status = child->commit(newValue_); isError(status)) return status;
  }
  return true;
}

AttrTree::Handle AttrTree::AttrNode::standingIn(Handle const& parent) const {
  // What has a place keeps it until it is removed for good; a reference may come to refer to something else.
  if (!object_.isReference() && object_.object && !hasGone(object_.object)) return writable(object_.object);
  ConstHandle const now = object_.attr.genericIfGet(parent, object_.key());
  return hasGone(now) ? nullptr : writable(now);
}

AttrTree::Handle AttrTree::AttrNode::standing() {
  if (hasGone(newValue_)) {
    Handle const above = parent_ == nullptr ? nullptr : parent_->standing();
    newValue_ = above ? standingIn(above) : nullptr;
  }
  return newValue_;
}

AttrTree::Status AttrTree::AttrNode::commit(Handle const& parent) {
  if (isPlainWrite() && !stepsAreTraced())
    return guarded([&]() -> Status {
      object_.attr.genericIfSet(parent, nullptr, newValue_);
      return true;
    });
  TOVAK_TRACE(setTrace, 5, "", "Commit '{}' to its parent: Start", elem());
  Status status = guarded([&]() -> Status {
    if (auto const* const keys = std::get_if<MultipleKeys>(&object_.keys)) {
      TOVAK_ASSERT(op_ == SetOp::Delete && deleted_, setTrace, "Multiple keys commit for non-delete");
      return doWildcardDelete(parent, keys->filter);
    }
    if (isEntity()) {
      TOVAK_TRACE(setTrace, 6, "", "Commit Entity '{}'", elem());
      return commitEntity(parent);
    }
    if (isArray()) return deleted_ ? deleteScalarArray(parent) : replaceScalarArray(parent);
    TOVAK_TRACE(setTrace, 6, "", "Commit non-Entity '{}'", elem());
    return commitValue(parent);
  });
  if (!isError(status)) TOVAK_TRACE(setTrace, 5, "", "Commit '{}' to its parent: End", elem());
  return status;
}

AttrTree::Status AttrTree::AttrNode::commitEntity(Handle const& parent) {
  switch (op_) {
  case SetOp::Update: return updateComposite(parent);
  case SetOp::Replace: return isRemade() ? replaceComposite(parent) : updateComposite(parent);
  case SetOp::Delete: break;
  }
  return deleteComposite(parent);
}

AttrTree::Status AttrTree::AttrNode::commitValue(Handle const& parent) {
  if (unchanged_) return checkUnchanged(parent);
  if (deleted_) {
    object_.attr.genericIfDel(parent, object_.key());
    return true;
  }
  if (!isScalar() && parent_->isEntity()) return foldInto(parent);
  TOVAK_ASSERT(hasNewValue_, setTrace, "Expecting attribute '{}' to be set", elem());
  object_.attr.genericIfSet(parent, object_.key(), newValue_);
  return true;
}

AttrTree::Status AttrTree::AttrNode::foldInto(Handle const& parent) {
  KelAttr const attr = object_.attr;
  if (!isAnew_) {
    if (ConstHandle const now = attr.genericIfGet(parent, object_.key()))
      newValue_ = now->clone();
    else if (op_ == SetOp::Delete)
      return true; // deletes within do not bring back what another, or an observer, has taken away
    else if (auto status = instantiateValue(); isError(status))
      return status;
    for (auto const& child : children_.withPruned()) {
      bool const isPart = !child->isScalar() && !child->deleted_;
      if (auto status = isPart ? child->foldInto(newValue_) : child->commit(newValue_); isError(status))
        return status;
    }
  }
  attr.genericIfSet(parent, object_.key(), newValue_);
  return true;
}

AttrTree::Status AttrTree::AttrNode::updateComposite(Handle const& parent) {
  TOVAK_TRACE(setTrace, 6, "", "Working on composite '{}'", elem());
  newValue_ = standingIn(parent);
  if (!newValue_ && !made_)
    return error(fmt::format("Path element '{}' was removed while the request was committed", elem()));
  if (!newValue_) {
    TOVAK_TRACE(setTrace, 6, "", "Instantiating a new composite '{}'", elem());
    if (auto status = instantiateObject(parent); isError(status)) return status;
  }
  TOVAK_TRACE(setTrace, 6, "", "Committing sub-attrs of composite '{}'", elem());
  TOVAK_ASSERT(newValue_, setTrace, "Expecting attibute '{}' to be set", elem());
  return commitToEntity();
}

AttrTree::Status AttrTree::AttrNode::replaceComposite(Handle const& parent) {
  TOVAK_TRACE(setTrace, 6, "", "Working on composite '{}'", elem());
  TOVAK_TRACE(setTrace, 6, "", "Instantiating a new composite '{}'", elem());
  // No handle of ours keeps the old object while its observers learn of its end.
  newValue_.reset();
  object_.object.reset();
  if (auto status = instantiateObject(parent); isError(status)) return status;
  TOVAK_ASSERT(newValue_, setTrace, "Expecting new object to be set");
  TOVAK_TRACE(setTrace, 6, "", "Committing sub-attrs of composite '{}'", elem());
  return commitToEntity();
}

AttrTree::Status AttrTree::AttrNode::deleteComposite(Handle const& parent) {
  TOVAK_TRACE(setTrace, 6, "", "Working on composite '{}'", elem());
  if (!deleted_) {
    TOVAK_TRACE(setTrace, 6, "", "Committing sub-attrs of composite '{}'", elem());
    newValue_ = standingIn(parent); // another delete of this request may have taken it away already
    return newValue_ ? commitToEntity() : Status(true);
  }
  TOVAK_TRACE(setTrace, 6, "", "Composite '{}' itself should be deleted", elem());
  TOVAK_TRACE(setTrace, 6, "", "Deleting Entity '{}'", elem());
  TOVAK_ASSERT(parent, setTrace, "Expecting a parent object to delete instantiating attribute");
  object_.object.reset();
  object_.attr.genericIfDel(parent, object_.key());
  return true;
}

AttrTree::Status AttrTree::AttrNode::instantiateObject(Handle const& parent) {
  TOVAK_TRACE(setTrace, 6, "", "Working on '{}'", elem());
  TOVAK_ASSERT(parent, setTrace, "Expecting a parent object to instantiate a new entity");
  TOVAK_ASSERT(made_ != nullptr, setTrace, "Expecting new object to be set");
  KelAttr const attr = object_.attr;
  hasNewValue_ = true;
  bool const keyIsOutside = attr.isKeyed() && !attr.indexAttr();
  newValue_ = keyIsOutside ? attr.genericIfSet(parent, object_.key(), made_->args)
                           : attr.genericIfSet(parent, made_->args);
  return true;
}

AttrTree::Handle AttrTree::AttrNode::arrayValue() const {
  Handle array = object_.attr.type().genericIf(nullptr);
  for (Handle const& member : members_)
    object_.attr.genericIfAdd(array, member);
  return array;
}

AttrTree::Status AttrTree::AttrNode::replaceScalarArray(Handle const& parent) {
  TOVAK_TRACE(setTrace, 6, "", "Working on scalar array '{}'", elem());
  if (unchanged_) return checkUnchanged(parent);
  object_.attr.genericIfSet(parent, nullptr, arrayValue());
  return true;
}

AttrTree::Status AttrTree::AttrNode::deleteScalarArray(Handle const& parent) {
  TOVAK_TRACE(setTrace, 6, "", "Working on scalar array '{}'", elem());
  Handle const array = object_.attr.genericIfGet(parent)->clone();
  object_.attr.genericIfRemove(array);
  object_.attr.genericIfSet(parent, nullptr, array);
  return true;
}

AttrTree::Status AttrTree::AttrNode::doWildcardDelete(Handle const& parent,
                                                      MultipleKeys::Filter const& filter) {
  KelAttr const attr = object_.attr;
  KeyRange const range(attr.keyType(), filter);
  // Each delete tells observers, who may change the collection: first the keys, then the deletes.
  std::vector<ConstHandle> keys;
  auto at = range.start() ? attr.genericIfIteratorConst(parent, range.start())
                          : attr.genericIfIteratorConst(parent);
  for (; at; ++at) {
    ConstHandle key = at.key();
    if (applyKeyFilter(filter, key))
      keys.push_back(std::move(key));
    else if (range.isPast(filter, key))
      break;
  }
  for (ConstHandle const& key : keys)
    attr.genericIfDel(parent, key);
  return true;
}

} // namespace Ondra::KelGnmiSet
