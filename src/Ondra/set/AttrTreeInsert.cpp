// Recording the paths of a request in the attribute tree.
#include <algorithm>
#include <optional>
#include <span>

#include <boost/container/small_vector.hpp>

#include "Kel/Entity.h"
#include "Kstd/SameText.h"
#include "Ondra/KelGnmiSetter.h"
#include "Ondra/PathFormat.h"
#include "Ondra/set/AttrNode.h"
#include "Ondra/set/AttrNodeImpl.h"
#include "Ondra/set/SetTrace.h"

namespace Ondra::KelGnmiSet {

using gnmi::PathElem;
using Kel::KelAttr;
using Kel::KelType;

// One path on its way into the tree. Resolves element by element, first along nodes that are there, then
// along new ones that hang together but not yet in the tree; `finish` attaches them (invariant 1 of
// AttrNode.h).
class AttrTree::AttrNode::Insertion {
public:
  // From the node on that has been reached along the trail.
  Insertion(AttrNode& root, Followed const& followed, SetOp op)
      : root_(root)
      , node_(followed.node)
      , op_(op)
      , followed_(followed.elements) {}

  // What became of one step.
  enum class Step : std::uint8_t { Taken, Dropped, Failed };

  // The path: all elements that are left, then the end. Adds nothing to the tree.
  [[nodiscard]] Step take(ElemIterator prefixBegin, ElemIterator prefixEnd, ElemIterator pathBegin,
                          ElemIterator pathEnd, gnmi::TypedValue const* value);
  // The same of all places of a way.
  [[nodiscard]] Step take(std::span<Place const* const> way, Written const& value);
  // Puts the path into the tree.
  void finish();
  // Leaves the way of a path of that length to the next one. REQUIRES that it is in the tree.
  void leaveTrail(std::size_t length);
  // The session learns of the entities that were named, whether or not the request succeeds.
  void recordDirtyPaths() const;

  // REQUIRES a step that has failed.
  [[nodiscard]] Error takeError() { return *std::move(error_); }
  Step fail(std::string message);

private:
  // Whether the path can go on beneath the node reached.
  [[nodiscard]] bool enter();
  // On to the child that the element names.
  [[nodiscard]] Step descend(Element const& element, bool onPrefix);
  // The end of the path: marks the node, or decodes the value into it.
  [[nodiscard]] Step end(Written const& value);
  Step existingChild(AttrNode& child, bool onPrefix);
  Step newChild(Element const& element, bool onPrefix);
  // Goes on to a child that is new.
  void add(std::unique_ptr<AttrNode> child, bool onPrefix);
  // The singular attribute that the element names, when no child is of it; else, and while steps are traced,
  // invalid.
  [[nodiscard]] KelAttr unusedAttr(Element const& element) const;
  // Whether the place can be used by this operation.
  [[nodiscard]] Step checkPlace(Element const& element, KelObject& place);
  [[nodiscard]] Step checkEmptyPlace(Element const& element, KelObject const& place);
  [[nodiscard]] bool isDeletedByWildcard(KelObject const& place) const;
  Step failAsDeleted(Element const& element);
  [[nodiscard]] bool nodeIsInTree() const { return !head_; }

  AttrNode& root_;
  AttrNode* node_;
  SetOp const op_;
  Element const* child_ = nullptr; // looked for below `node_`
  std::size_t const followed_;     // elements
  std::unique_ptr<AttrNode> head_; // the first new node
  AttrNode* attachTo_ = nullptr;
  AttrQueue::Gap gap_;                                   // for it, among the children of `attachTo_`
  boost::container::small_vector<AttrNode*, 16> passed_; // nodes of the tree that the path goes through
  boost::container::small_vector<Kel::Ptr<Kel::Entity>, 2> dirty_;
  std::optional<Error> error_;
};

AttrTree::AttrNode::Insertion::Step AttrTree::AttrNode::Insertion::fail(std::string message) {
  Error& error = error_.emplace();
  error.code = grpc::StatusCode::NOT_FOUND;
  error.message = std::move(message);
  if (node_ != &root_) error.add(node_->elem());
  if (child_ != nullptr) error.add(child_->elem());
  return Step::Failed;
}

AttrTree::AttrNode::Insertion::Step AttrTree::AttrNode::Insertion::failAsDeleted(Element const& element) {
  return fail(fmt::format("Path element '{}' deleted in the same request cannot be used in {} op",
                          element.elem(), op_));
}

bool AttrTree::AttrNode::Insertion::enter() {
  if (node_->object_.hasFilter()) {
    fail(fmt::format("Element '{}' with wildcard must be the leaf of the delete path", node_->elem()));
    return false;
  }
  TOVAK_TRACE(setTrace, 6, "", "Inserting a suffix under element '{}'", node_->elem());
  // docs/decisions.md: "Where does a path through a reference lead?" A value is changed in a copy before the
  // commit; what a reference in it leads to would be changed for good.
  bool const isReferenceInValue = node_->object_.isReference() && !node_->parent_->isEntity();
  if (node_->isScalar() || isReferenceInValue) {
    fail(fmt::format("Leaf element '{}' cannot have a sub-element", node_->elem()));
    return false;
  }
  return true;
}

inline AttrTree::AttrNode::Insertion::Step AttrTree::AttrNode::Insertion::descend(Element const& element,
                                                                                  bool onPrefix) {
  child_ = &element;
  KelAttr const unused = unusedAttr(element);
  if (unused && nodeIsInTree()) gap_ = {}; // it may be that of the element before
  Step step = Step::Taken;
  if (unused && op_ != SetOp::Delete && getTypeKind(unused.memberType()) == TypeKind::Scalar) {
    add(std::make_unique<AttrNode>(element, node_->object_.type(), unused), onPrefix);
  } else {
    AttrNode* const child = nodeIsInTree() && !unused ? node_->children_.get(element, gap_) : nullptr;
    step = child != nullptr ? existingChild(*child, onPrefix) : newChild(element, onPrefix);
  }
  child_ = nullptr;
  return step;
}

KelAttr AttrTree::AttrNode::Insertion::unusedAttr(Element const& element) const {
  KelType const type = node_->object_.type();
  if (element.place() != nullptr || element.elem().key_size() != 0 || !type || type.isDir() ||
      stepsAreTraced())
    return {};
  std::string_view const name = element.elem().name();
  KelAttr const attr = root_.trail_ ? root_.trail_->attrNamed(name, type) : type.attr(name);
  bool const isSingular = attr && !attr.isOperation() && (attr.isArray() || !attr.isCollection());
  return isSingular && !node_->children_.mayHold(attr) ? attr : KelAttr();
}

AttrTree::AttrNode::Insertion::Step AttrTree::AttrNode::Insertion::existingChild(AttrNode& child,
                                                                                 bool onPrefix) {
  if (child.deleted_) TOVAK_TRACE(setTrace, 6, "", "Element '{}' is marked as getting deleted", child.elem());
  if (op_ != SetOp::Delete && (child.deleted_ || isDeletedByWildcard(child.object_)))
    return failAsDeleted(child.element_);
  if (!onPrefix && child.op_ != op_ && child.isEntity()) {
    return fail(fmt::format("Same entity element '{}' cannot be used in multiple ops, {} and {}",
                            child.elem(), child.op_, op_));
  }
  passed_.push_back(&child);
  node_ = &child;
  return Step::Taken;
}

AttrTree::AttrNode::Insertion::Step AttrTree::AttrNode::Insertion::newChild(Element const& element,
                                                                            bool onPrefix) {
  TOVAK_TRACE(setTrace, 8, "", "New child insertion");
  bool const isOfPlace = element.place() != nullptr;
  if (!isOfPlace && (element.elem().name() == "*" || element.elem().name() == "..."))
    return fail(fmt::format("Wildcard '{}' as a path element name is not supported", element.elem().name()));
  auto place =
      isOfPlace ? placeBelow(node_->object_, *element.place()) : getNextPlace(node_->object_, element.elem());
  if (!place) {
    if (op_ == SetOp::Delete && place.error().missing) {
      TOVAK_TRACE(setTrace, 6, "", "Ignoring delete path due to missing element '{}'", element.elem());
      return Step::Dropped;
    }
    return fail(std::move(place.error().message));
  }
  if (nodeIsInTree() && !isOfPlace && place->attr.isKeyed() && !place->hasFilter()) {
    // The same member by another spelling of its key map.
    if (AttrNode* const child = node_->children_.get(place->attr, place->key()))
      return existingChild(*child, onPrefix);
  }
  if (Step const step = checkPlace(element, *place); step != Step::Taken) return step;
  TOVAK_TRACE(setTrace, 8, "", "Inserting new AttrNode for sub-element '{}'", element.elem());
  if (node_->object_.type().isDir() && !place->type().isDir())
    dirty_.push_back(Kel::dynamicPtrCast<Kel::Entity>(Kel::Ptr<Kel::PtrInterface>(place->object->object())));
  add(std::make_unique<AttrNode>(element, *std::move(place)), onPrefix);
  return Step::Taken;
}

void AttrTree::AttrNode::Insertion::add(std::unique_ptr<AttrNode> child, bool onPrefix) {
  child->parent_ = node_;
  child->op_ = op_;
  child->onPrefix_ = onPrefix;
  AttrNode* const made = child.get();
  if (nodeIsInTree()) {
    attachTo_ = node_;
    head_ = std::move(child);
  } else {
    TOVAK_ASSERT(node_->children_.size() == 0, setTrace, "Expecting '{}' to be the first child",
                 child->elem());
    node_->children_.insert(std::move(child), {});
  }
  node_ = made;
}

AttrTree::AttrNode::Insertion::Step AttrTree::AttrNode::Insertion::checkPlace(Element const& element,
                                                                              KelObject& place) {
  KelAttr const attr = place.attr;
  if (place.hasFilter()) {
    if (op_ != SetOp::Delete)
      return fail(fmt::format("Element '{}' with wildcard cannot be used in {} path", element.elem(), op_));
    bool const full = nodeIsInTree() && node_->children_.wildcards().size() >= kMaxWildcards;
    return full ? fail(fmt::format("More than {} elements with wildcards below one element", kMaxWildcards))
                : Step::Taken;
  }
  if (op_ != SetOp::Delete && isDeletedByWildcard(place)) return failAsDeleted(element);
  if (attr.isArray() && getTypeKind(attr.memberType()) == TypeKind::Composite) {
    return fail(fmt::format("Modifying array '{}' of composite type '{}' is not supported", element.elem(),
                            attr.memberType().name().view()));
  }
  // A leaf that gets a value need not be read; one that loses it need only be there.
  if (getTypeKind(attr.isArray() ? attr.memberType() : place.type()) == TypeKind::Scalar) {
    bool const isThere = op_ != SetOp::Delete || attr.genericIfExist(node_->object_.object, place.key());
    return isThere ? Step::Taken : checkEmptyPlace(element, place);
  }
  if (!place.object) {
    auto object = readPlace(node_->object_, place);
    if (!object) return fail(std::move(object).error());
    place.object = std::move(object).value();
  }
  if (op_ != SetOp::Delete && place.isReference() && hasGone(place.object)) place.object.reset();
  return place.object ? Step::Taken : checkEmptyPlace(element, place);
}

AttrTree::AttrNode::Insertion::Step AttrTree::AttrNode::Insertion::checkEmptyPlace(Element const& element,
                                                                                   KelObject const& place) {
  if (op_ == SetOp::Delete) {
    TOVAK_TRACE(setTrace, 6, "", "Ignoring delete path as element '{}' is not set", element.elem());
    return Step::Dropped;
  }
  if (place.attr.isInstantiating() || place.attr.memberType().isValueType()) return Step::Taken;
  return fail(fmt::format("Path element '{}' is not set", element.elem()));
}

bool AttrTree::AttrNode::Insertion::isDeletedByWildcard(KelObject const& place) const {
  if (!nodeIsInTree() || !place.key()) return false;
  for (AttrNode const* const wildcard : node_->children_.wildcards())
    if (wildcard->object_.attr == place.attr &&
        applyKeyFilter(std::get<MultipleKeys>(wildcard->object_.keys).filter, place.key()))
      return true;
  return false;
}

AttrTree::AttrNode::Insertion::Step AttrTree::AttrNode::Insertion::end(Written const& value) {
  TOVAK_TRACE(setTrace, 8, "", "End of the path");
  if (op_ == SetOp::Delete) {
    if (node_ == &root_) return fail("The data root cannot be deleted");
    TOVAK_TRACE(setTrace, 6, "", "Marking leaf element '{}' as getting deleted", node_->elem());
    node_->deleted_ = true;
    return Step::Taken;
  }
  if (!node_->isScalar()) {
    TOVAK_TRACE(setTrace, 6, "", "Found a composite at the end of the path");
    return fail("Path must map to a scalar type");
  }
  if (value.value == nullptr) {
    error_ = node_->error(fmt::format("Expecting a gnmi value in {} op path", op_),
                          grpc::StatusCode::INVALID_ARGUMENT);
    return Step::Failed;
  }
  auto decoded = node_->processLeafElem(value);
  if (auto* const error = std::get_if<Error>(&decoded)) {
    error_ = std::move(*error);
    return Step::Failed;
  }
  return Step::Taken;
}

inline AttrTree::AttrNode::Insertion::Step
AttrTree::AttrNode::Insertion::take(ElemIterator prefixBegin, ElemIterator prefixEnd, ElemIterator pathBegin,
                                    ElemIterator pathEnd, gnmi::TypedValue const* value) {
  bool isOpen = followed_ > 0; // who is on the trail was entered
  for (; prefixBegin != prefixEnd || pathBegin != pathEnd; isOpen = false) {
    if (!isOpen && !enter()) return Step::Failed;
    bool const onPrefix = prefixBegin != prefixEnd;
    PathElem const& elem = onPrefix ? *prefixBegin++ : *pathBegin++;
    if (Step const step = descend(elem, onPrefix); step != Step::Taken) return step;
  }
  return end({value, nullptr});
}

AttrTree::AttrNode::Insertion::Step AttrTree::AttrNode::Insertion::take(std::span<Place const* const> way,
                                                                        Written const& value) {
  for (Place const* const place : way.subspan(followed_)) {
    if (!enter()) return Step::Failed;
    if (Step const step = descend(*place, false); step != Step::Taken) return step;
  }
  return end(value);
}

Kstd::Result<AttrTree::KelObject, AttrTree::KelLookupError>
AttrTree::AttrNode::placeBelow(KelObject const& parent, Place const& place) {
  KelType const type = parent.type();
  if (type && type.attr(place.attr().name().view()) == place.attr() && !type.isDir()) {
    KelObject found;
    found.parentType = type;
    found.attr = place.attr();
    if (place.key()) found.keys = SingleKey{place.key()};
    return found;
  }
  return getNextPlace(parent, place.elem()); // which finds it in a directory, or says why it is not there
}

void AttrTree::AttrNode::Insertion::finish() {
  for (AttrNode* const node : passed_)
    node->op_ = op_;
  if (head_) {
    TOVAK_ASSERT(attachTo_ != nullptr, setTrace, "Expecting a valid node representing sub-element '{}'",
                 head_->elem());
    attachTo_->children_.insert(std::move(head_), gap_);
  }
}

void AttrTree::AttrNode::Insertion::leaveTrail(std::size_t length) {
  if (op_ == SetOp::Delete) {
    root_.trail_.reset();
    return;
  }
  if (!root_.trail_) root_.trail_ = std::make_unique<Trail>();
  root_.trail_->op = op_;
  auto& steps = root_.trail_->steps;
  if (steps.size() != length - 1) steps.resize(length - 1);
  AttrNode* node = node_->parent_;
  for (std::size_t i = length - 1; i > followed_; --i) {
    steps[i - 1].nodeIs(*node);
    node = node->parent_;
  }
}

void AttrTree::AttrNode::Trail::Step::nodeIs(AttrNode& passed) {
  node = &passed;
  if (passed.element_.place() != nullptr) return; // which is compared as it is
  PathElem const& elem = passed.elem();
  auto const& keys = elem.key();
  isPlain = keys.size() <= 1;
  hasKey = !keys.empty();
  name = elem.name();
  if (hasKey) {
    key = keys.begin()->first;
    value = keys.begin()->second;
  }
}

bool AttrTree::AttrNode::Trail::Step::isOf(PathElem const& elem) const {
  if (!isPlain) return node->elem() == elem;
  auto const& keys = elem.key();
  if (!Kstd::sameText(name, elem.name()) || keys.size() != (hasKey ? 1U : 0U)) return false;
  if (!hasKey) return true;
  auto const& [otherKey, otherValue] = *keys.begin();
  return Kstd::sameText(value, otherValue) && Kstd::sameText(key, otherKey);
}

AttrTree::AttrNode::Trail const* AttrTree::AttrNode::trailOf(SetOp op) const {
  return trail_ && trail_->op == op && !stepsAreTraced() ? trail_.get() : nullptr;
}

inline AttrTree::AttrNode::Followed AttrTree::AttrNode::followTrail(ElemIterator& prefixBegin,
                                                                    ElemIterator prefixEnd,
                                                                    ElemIterator& pathBegin,
                                                                    ElemIterator pathEnd, SetOp op) {
  Followed followed{this};
  Trail const* const last = trailOf(op);
  if (last == nullptr) return followed;
  for (Trail::Step const& next : last->steps) {
    bool const onPrefix = prefixBegin != prefixEnd;
    ElemIterator& at = onPrefix ? prefixBegin : pathBegin;
    // The last element is looked at in full: it may not end where others pass.
    bool const isLast =
        onPrefix ? prefixEnd - prefixBegin == 1 && pathBegin == pathEnd : pathEnd - pathBegin <= 1;
    if (isLast || !next.isOf(*at)) break;
    ++at;
    followed = {next.node, followed.elements + 1};
  }
  return followed;
}

AttrTree::AttrNode::Followed AttrTree::AttrNode::followTrail(std::span<Place const* const> way, SetOp op) {
  Followed followed{this};
  Trail const* const last = trailOf(op);
  if (last == nullptr) return followed;
  for (Trail::Step const& next : last->steps) {
    if (followed.elements + 1 >= way.size() || next.node->element_.place() != way[followed.elements]) break;
    followed = {next.node, followed.elements + 1};
  }
  return followed;
}

KelAttr AttrTree::AttrNode::Trail::attrNamed(std::string_view name, KelType type) {
  KelAttr& expected = followers[lastAttr % followers.size()];
  if (!expected || !Kstd::sameText(expected.name().view(), name) || !(expected.ownerType() == type))
    expected = type.attr(name);
  if (expected) lastAttr = expected.desc().index;
  return expected;
}

void AttrTree::AttrNode::Insertion::recordDirtyPaths() const {
  for (auto const& entity : dirty_) {
    auto const recorded = catchModelError([&entity] {
      Kel::String const name = entity->fullName();
      TOVAK_TRACE(setTrace, 6, "", "Adding dirty path '{}'", name.view());
      Kel::Entity::singleton<GnmiSetSessionState>()->dirtyPathIs(name);
      return true;
    });
    if (!recorded)
      TOVAK_TRACE(setTrace, Tovak::traceLevelError, "", "An entity has no name: {}", recorded.error());
  }
}

AttrTree::Status AttrTree::AttrNode::insertPathSuffix(ElemIterator prefixBegin, ElemIterator prefixEnd,
                                                      ElemIterator pathBegin, ElemIterator pathEnd,
                                                      gnmi::TypedValue const* value, SetOp op) {
  auto const length = static_cast<std::size_t>((prefixEnd - prefixBegin) + (pathEnd - pathBegin));
  if (length > kMaxPathElems) {
    Error tooLong{
        grpc::StatusCode::NOT_FOUND,
        {},
        fmt::format("Path of {} elements is too long; at most {} are supported", length, kMaxPathElems)};
    tooLong.add(prefixBegin != prefixEnd ? *prefixBegin : *pathBegin);
    return tooLong;
  }
  Followed const followed = followTrail(prefixBegin, prefixEnd, pathBegin, pathEnd, op);
  bool const isBeside = followed.elements > 0 && followed.elements + 1 == length && pathBegin != pathEnd;
  if (isBeside && value != nullptr && followed.node->insertPlain(*pathBegin, *value, *trail_)) return true;
  return insert(length, followed, op, [&](Insertion& insertion) {
    return insertion.take(prefixBegin, prefixEnd, pathBegin, pathEnd, value);
  });
}

bool AttrTree::AttrNode::insertPlain(PathElem const& elem, gnmi::TypedValue const& value, Trail& trail) {
  KelType const type = object_.type();
  if (elem.key_size() != 0 || !type) return false;
  KelAttr const attr = trail.attrNamed(elem.name(), type);
  if (!attr || !attr.desc().isPlainlySet || attr.isArray() || children_.mayHold(attr)) return false;
  std::unique_ptr<AttrNode> leaf;
  try { // only scalars can be decoded
    auto decoded = gnmiToKelValue(attr.memberType(), value);
    if (!decoded) return false;
    leaf = std::make_unique<AttrNode>(elem, type, attr);
    leaf->newValue_ = std::move(decoded).value();
  } catch (...) {
    return false; // it will go wrong again
  }
  leaf->parent_ = this;
  leaf->op_ = trail.op;
  leaf->hasNewValue_ = true;
  children_.insert(std::move(leaf), {});
  return true;
}

AttrTree::Status AttrTree::AttrNode::insertPlace(Place const& place, Written const& value, SetOp op) {
  boost::container::small_vector<Place const*, 16> way;
  for (Place const* at = &place; at != nullptr; at = at->above())
    way.push_back(at);
  std::ranges::reverse(way);
  Followed const followed = followTrail({way.data(), way.size()}, op);
  return insert(way.size(), followed, op, [&](Insertion& insertion) {
    return insertion.take({way.data(), way.size()}, value);
  });
}

template <class Take>
AttrTree::Status AttrTree::AttrNode::insert(std::size_t length, Followed const& followed, SetOp op,
                                            Take const& take) {
  Insertion insertion(*this, followed, op);
  auto step = Insertion::Step::Failed;
  try {
    step = take(insertion);
  } catch (...) {
    insertion.fail(modelError());
  }
  if (step != Insertion::Step::Dropped) insertion.recordDirtyPaths();
  if (step == Insertion::Step::Failed) return insertion.takeError();
  if (step == Insertion::Step::Taken) {
    insertion.finish();
    insertion.leaveTrail(length);
  }
  return true;
}

} // namespace Ondra::KelGnmiSet
