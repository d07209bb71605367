// Preparing the attribute tree for a phase: values are folded into copies, what will be made is made once to
// try, and everything that the model could refuse is asked. Nothing is written to the model here.
#include "Kel/Access.h"
#include <algorithm>

#include "Kel/Dir.h"
#include "Ondra/PathFormat.h"
#include "Ondra/set/AttrNode.h"
#include "Ondra/set/AttrNodeImpl.h"
#include "Ondra/set/SetTrace.h"

namespace Ondra::KelGnmiSet {

using Kel::KelAttr;
using Kel::KelType;

AttrTree::AttrNode::AttrNode(Element const& element, KelObject&& object)
    : element_(element)
    , object_(std::move(object))
    , kind_(getTypeKind(isArray() ? object_.attr.memberType() : object_.type())) {}

AttrTree::AttrNode::AttrNode(Element const& element, KelType parentType, KelAttr leaf)
    : element_(element)
    , kind_(TypeKind::Scalar) {
  object_.parentType = parentType;
  object_.attr = leaf;
}

AttrTree::AttrNode::~AttrNode() = default;

void AttrTree::AttrNode::opIs(SetOp op) {
  op_ = op;
  trail_.reset();
}

AttrTree::Error AttrTree::AttrNode::error(std::string message, grpc::StatusCode code) const {
  Error made{code, {}, std::move(message)};
  made.add(elem());
  return made;
}

bool AttrTree::AttrNode::isFixedAtCreation() const {
  KelAttr const attr = object_.attr;
  return attr.isCtorArg() || attr.isKeyField() ||
         (parent_->object_.attr && parent_->object_.attr.indexAttr() == attr);
}

bool AttrTree::AttrNode::isRemovable() const {
  if (!isInDir()) return object_.attr.isInstantiating() && object_.attr.isRemovable();
  auto const* const dir = dynamic_cast<Kel::Dir const*>(parent_->object_.object->object());
  return dir != nullptr && dir->isRemovable(elem().name());
}

bool AttrTree::AttrNode::isRemade() const {
  if (op_ != SetOp::Replace || onPrefix_) return false;
  return !isEntity() || (!isInDir() && isRemovable());
}

AttrTree::ConstHandle AttrTree::AttrNode::current() const {
  return parent_->base_ ? object_.attr.genericIfGet(parent_->base_, object_.key()) : nullptr;
}

AttrTree::Status AttrTree::AttrNode::processLeafElem(Written const& value) {
  if (value.decoded != nullptr) {
    bool const fits = std::ranges::all_of(*value.decoded, [this](Handle const& one) {
      return one && one->type() == object_.attr.memberType();
    });
    TOVAK_ASSERT(fits && (isArray() || value.decoded->size() == 1), setTrace,
                 "The value of '{}' is of another type", elem());
    if (isArray())
      members_ = *value.decoded;
    else
      newValue_ = value.decoded->front();
    hasNewValue_ = true;
    return true;
  }
  if (isArray()) {
    TOVAK_TRACE(setTrace, 6, "", "Leaf element '{}' is an array of scalar values", elem());
    auto decoded = gnmiToGifArray(object_.attr.memberType(), *value.value);
    if (auto* const text = std::get_if<std::string>(&decoded))
      return error(std::move(*text), grpc::StatusCode::INVALID_ARGUMENT);
    members_ = std::get<std::vector<Handle>>(std::move(decoded));
    hasNewValue_ = true;
    return true;
  }
  TOVAK_TRACE(setTrace, 6, "", "Leaf element '{}' is a scalar value", elem());
  auto decoded = gnmiToKelValue(object_.attr.memberType(), *value.value);
  if (!decoded) return error(std::move(decoded).error(), grpc::StatusCode::INVALID_ARGUMENT);
  newValue_ = std::move(decoded).value();
  hasNewValue_ = true;
  return true;
}

AttrTree::Status AttrTree::AttrNode::prepareTree(SetOp op) {
  TOVAK_TRACE(setTrace, 3, "", "Prepare tree rooted at '{}' for {} op", elem(), op);
  base_ = object_.object;
  return prepareChildren(op);
}

AttrTree::Status AttrTree::AttrNode::prepareChildren(SetOp op) {
  bool const isQuiet = !stepsAreTraced();
  for (auto const& child : children_) {
    if (isQuiet && child->isPlainWrite()) continue;
    if (auto status = child->prepare(op); isError(status)) return status;
  }
  return true;
}

AttrTree::Status AttrTree::AttrNode::prepare(SetOp op) {
  TOVAK_TRACE(setTrace, 5, "", "Prepare '{}' for {} op: Start", elem(), op);
  Status status = guarded([&] {
    return isScalar() ? prepareScalar(op) : isEntity() ? prepareEntity(op) : prepareValue(op);
  });
  if (!isError(status)) TOVAK_TRACE(setTrace, 5, "", "Prepare '{}' for {} op: End", elem(), op);
  return status;
}

AttrTree::Status AttrTree::AttrNode::prepareScalar(SetOp op) {
  if (op_ != op) return true; // no path of this phase came here
  if (op != SetOp::Delete) {
    TOVAK_TRACE(setTrace, 8, "", "Scalar is already prepared");
    return checkWrite();
  }
  if (auto status = checkDelete(); isError(status)) return status;
  if (object_.attr.isKeyed() || isArray()) return true;
  TOVAK_TRACE(setTrace, 8, "", "Using a default value of the scalar");
  return valueAfterDelete();
}

AttrTree::Status AttrTree::AttrNode::valueAfterDelete() {
  newValue_.reset();
  if (!object_.attr.isOptional()) {
    auto value = defaultKelObject(object_.attr.memberType());
    if (!value) return error(std::move(value).error());
    newValue_ = std::move(value).value();
  }
  hasNewValue_ = true;
  return true;
}

AttrTree::Status AttrTree::AttrNode::prepareEntity(SetOp op) {
  if (op_ != op) return true;
  if (deleted_) return checkDelete();
  // Below an object that will be made, what there is now is of no matter.
  isFresh_ = parent_->isFresh_;
  base_ = isFresh_ ? current() : object_.object;
  if (!base_ || isRemade()) {
    isFresh_ = true;
    if (auto status = makePrototype(op); isError(status)) return status;
  }
  TOVAK_TRACE(setTrace, 6, "", "Prepare sub-attrs of composite '{}': Start", elem());
  if (auto status = prepareChildren(op); isError(status)) return status;
  TOVAK_TRACE(setTrace, 6, "", "Prepare sub-attrs of composite '{}': End", elem());
  TOVAK_TRACE(setTrace, 5, "", "Composite '{}' is an Entity, so return without committing its sub-attrs",
              elem());
  return true;
}

AttrTree::Status AttrTree::AttrNode::makePrototype(SetOp op) {
  if (!object_.attr.isInstantiating()) return error(fmt::format("Path element '{}' is not set", elem()));
  // Values that the constructor takes are folded before there is a prototype, from what their own
  // construction gives.
  base_.reset();
  for (auto const& child : children_) {
    bool const isValueArg = child->object_.attr.isCtorArg() && !child->isScalar() && !child->isEntity();
    if (!isValueArg) continue;
    if (auto status = child->prepare(op); isError(status)) return status;
  }
  KelType const type = object_.attr.memberType();
  auto args = prepareConstructorArgs(type);
  if (!args) return std::move(args).error();
  made_ = std::make_unique<Made>(Made{std::move(args).value()});
  base_ = type.genericIf(made_->args);
  if (object_.key() && !object_.attr.indexAttr())
    Kel::Impl::keyInto(object_.attr.desc(), *object_.key(), *Kel::entityAt(base_));
  return checkIndex(base_);
}

AttrTree::Status AttrTree::AttrNode::prepareValue(SetOp op) {
  if (op_ != op) {
    TOVAK_TRACE(setTrace, 6, "", "Skip {} for '{}' as it's stagged for previous op {}", op, elem(), op_);
    return true;
  }
  if (deleted_) {
    if (auto status = checkDelete(); isError(status)) return status;
    if (object_.attr.isKeyed()) return true;
    TOVAK_TRACE(setTrace, 6, "", "Composite '{}' itself should be deleted", elem());
    TOVAK_TRACE(setTrace, 6, "", "Using default value for Nominal '{}'", elem());
    return valueAfterDelete();
  }
  if (auto status = openValue(); isError(status)) return status;
  TOVAK_TRACE(setTrace, 6, "", "Prepare sub-attrs of composite '{}': Start", elem());
  if (auto status = prepareChildren(op); isError(status)) return status;
  TOVAK_TRACE(setTrace, 6, "", "Prepare sub-attrs of composite '{}': End", elem());
  TOVAK_TRACE(setTrace, 5, "", "Finalize Nominal '{}' for op {} by committing its sub-attrs", elem(), op);
  if (auto status = foldParts(); isError(status)) return status;
  object_.object = newValue_; // what the next phase finds here
  if (auto status = checkIndex(newValue_); isError(status)) return status;
  return checkWrite();
}

AttrTree::Status AttrTree::AttrNode::openValue() {
  if (isRemade()) {
    newValue_.reset();
    hasNewValue_ = false;
    isAnew_ = true;
    children_.dropPruned();
  } else if (!hasNewValue_) {
    if (ConstHandle const found = current()) {
      TOVAK_TRACE(setTrace, 9, "", "Making a non-const copy of the Value type object");
      newValue_ = found->clone();
      hasNewValue_ = true;
    }
  }
  if (!hasNewValue_) {
    TOVAK_TRACE(setTrace, 6, "", "Instantiating a new composite '{}'", elem());
    if (auto status = instantiateValue(); isError(status)) return status;
  }
  base_ = newValue_;
  return true;
}

AttrTree::Status AttrTree::AttrNode::instantiateValue() {
  TOVAK_TRACE(setTrace, 6, "", "Working on '{}'", elem());
  KelAttr const attr = object_.attr;
  hasNewValue_ = true;
  auto args = prepareConstructorArgs(attr.memberType());
  if (!args) return std::move(args).error();
  newValue_ = attr.memberType().genericIf(args.value());
  if (KelAttr const index = attr.indexAttr(); index && object_.key())
    index.genericIfSet(newValue_, nullptr, object_.key());
  return true;
}

AttrTree::Status AttrTree::AttrNode::foldParts() {
  TOVAK_TRACE(setTrace, 6, "", "Working on composite '{}'", elem());
  if (!newValue_) { // an earlier phase has left it without value
    TOVAK_TRACE(setTrace, 6, "", "Instantiating a new composite '{}'", elem());
    if (auto status = instantiateValue(); isError(status)) return status;
  }
  TOVAK_TRACE(setTrace, 6, "", "Committing sub-attrs of composite '{}'", elem());
  return commitChildren(newValue_);
}

AttrTree::Status AttrTree::AttrNode::checkWrite() {
  KelAttr const attr = object_.attr;
  unchanged_ = false;
  if (attr.isSettable()) return true;
  if (isFixedAtCreation()) {
    if (!parent_->base_)
      return true; // the arguments of a prototype are being gathered; it is asked again when there is one
    auto status = checkUnchanged(parent_->base_);
    unchanged_ = !isError(status);
    return status;
  }
  return error(fmt::format("Attribute '{}' of Type '{}' cannot be set", attr.name().view(),
                           attr.ownerType().name().view()));
}

AttrTree::Status AttrTree::AttrNode::checkUnchanged(ConstHandle const& parent) const {
  KelAttr const attr = object_.attr;
  ConstHandle const found = attr.genericIfGet(parent, object_.key());
  ConstHandle const wanted = isArray() ? ConstHandle(arrayValue()) : ConstHandle(newValue_);
  if (found && wanted && found->equals(*wanted)) return true;
  return error(fmt::format("Attribute '{}' of Type '{}' is fixed when the object is made", attr.name().view(),
                           attr.ownerType().name().view()));
}

AttrTree::Status AttrTree::AttrNode::checkDelete() const {
  KelAttr const attr = object_.attr;
  bool const isAllowed = !attr.isInstantiating() ? attr.isSettable()
                         : object_.hasFilter()   ? attr.isRemovable()
                                                 : isRemovable();
  if (isAllowed) return true;
  return error(
      fmt::format("Element '{}' of Type '{}' cannot be deleted", elem(), attr.ownerType().name().view()));
}

AttrTree::Status AttrTree::AttrNode::checkIndex(ConstHandle const& member) const {
  KelAttr const index = object_.attr.indexAttr();
  if (!index || !object_.key()) return true;
  ConstHandle const own = index.genericIfGet(member);
  if (own && own->equals(*object_.key())) return true;
  return error(fmt::format("Attribute '{}' of element '{}' must equal its key", index.name().view(), elem()));
}

Kstd::Result<Kel::ArgList, AttrTree::Error> AttrTree::AttrNode::prepareConstructorArgs(KelType type) {
  TOVAK_TRACE(setTrace, 6, "", "Preparing constructor args for '{}'", elem());
  Kel::ArgList args;
  for (Kel::AttrDesc const* const desc : type.ctorArgs()) {
    KelAttr const arg(desc);
    TOVAK_TRACE(setTrace, 6, "", "Checking constructor arg '{}'", arg.name().view());
    auto value = constructorArg(arg);
    if (!value) return std::move(value).error();
    args.push_back(std::move(value).value());
    TOVAK_ASSERT(args.back() || arg.isEmbedded() || arg.isPointer(), setTrace,
                 "Constructor argument {} of element {} is nullptr", arg.name().view(), elem());
  }
  return args;
}

Kstd::Result<AttrTree::ConstHandle, AttrTree::Error> AttrTree::AttrNode::constructorArg(KelAttr arg) {
  if (object_.attr.isKeyed() && object_.attr.indexAttr() == arg) {
    TOVAK_TRACE(setTrace, 6, "", "Constructor arg is the internal key of '{}'", elem());
    TOVAK_ASSERT(object_.key(), setTrace,
                 "Expecting key object to be created for internally keyed collection");
    return object_.key();
  }
  if (AttrNode const* const child = children_.get(arg); child != nullptr && child->hasNewValue_) {
    ConstHandle value = child->isArray() ? child->arrayValue() : child->newValue_;
    if (value) {
      TOVAK_TRACE(setTrace, 6, "", "Constructor arg found in the request as sub-element of '{}'", elem());
      return value;
    }
  }
  if (arg.isEmbedded()) {
    TOVAK_TRACE(setTrace, 6, "", "Constructor arg is embedded attribute");
    return ConstHandle(); // the constructor makes it by itself
  }
  TOVAK_TRACE(setTrace, 6, "", "Constructor arg not found in the request, so using default value");
  if (arg.isPointer() && arg.isOptional()) return ConstHandle(); // a reference has no other default than none
  auto value = defaultKelObject(arg.type());
  if (!value) return error(std::move(value).error());
  return ConstHandle(std::move(value).value());
}

void AttrTree::AttrNode::pruneSubTree() {
  trail_.reset();
  TOVAK_TRACE(setTrace, 9, "", "Prune tree rooted at '{}'", elem());
  if (!isEntity()) {
    children_.prune();
    return;
  }
  for (auto const& child : children_)
    child->pruneSubTree();
}

} // namespace Ondra::KelGnmiSet
