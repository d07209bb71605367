// AttrTree::AttrNode: one element of the paths of a Set request, with what the request does to it.
//
// A node is made and marked by insertion (AttrTreeInsert.cpp), prepared once for each phase that touched it
// (AttrTreePrepare.cpp), and committed with the whole tree (AttrTreeCommit.cpp). Nothing but the commit
// writes to the model.
//
// Invariants
// 1. A path whose delete has nothing to delete leaves no trace: new nodes are attached, and operations of old
//    ones changed, only when the whole path is resolved.
// 2. `op` is the operation of the last phase whose paths reached the node. So within a phase the nodes with
//    its operation are those it touched.
// 3. An element of the request's prefix is never remade by a Replace of something beneath it; nor is an
//    entity that a directory holds, nor one that its attribute does not let go, nor one that is referred to.
// 4. `base_` is what the node's children find before this phase: the live object; for an object to be made, a
//    detached prototype made from the same arguments; for a value, the node's own copy of it.
// 5. Whatever the model could refuse is asked in prepare, so that commits do not fail half-way in practice.
// 6. Each write of the commit tells observers, who may change anything, also what was found before. So the
//    commit holds on to places, not to what they held: an entity is used while it stands where it was found,
//    else its place is looked at again; a value is folded again into what its place holds by then. Updates
//    with no place left are an error, deletes are fulfilled.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Memory.h"
#include "Kstd/Export.h"
#include "Kstd/Result.h"
#include "Ondra/AttrTree.h"
#include "Ondra/PlaceSet.h"

namespace Ondra::KelGnmiSet {

class KTD_EXPORT AttrTree::AttrNode {
public:
  using Place = PlaceSet::Place;

  // What is below a node: an element of a path, or a place that has been resolved. Refers to it.
  class Element {
  public:
    Element(gnmi::PathElem const& elem) : elem_(&elem) {} // NOLINT: it stands for it
    Element(Place const& place) : place_(&place) {}       // NOLINT

    [[nodiscard]] gnmi::PathElem const& elem() const { return elem_ != nullptr ? *elem_ : place_->elem(); }
    [[nodiscard]] Place const* place() const { return place_; } // null: a path's

  private:
    gnmi::PathElem const* elem_ = nullptr;
    Place const* place_ = nullptr;
  };

  // What a leaf becomes; without a value, nothing. What it comes to may be known.
  struct Written {
    gnmi::TypedValue const* value = nullptr;
    PlaceSet::Decoded const* decoded = nullptr;
  };

  // The children of a node in insertion order, which is the order of the commit.
  class KTD_EXPORT AttrQueue {
  public:
    struct Child {
      AttrNode* operator->() const { return node.get(); }
      // Of its element, which is read once.
      [[nodiscard]] std::size_t elemHash() const;

      std::unique_ptr<AttrNode> node;
      mutable std::size_t hash; // 0: not known
    };

    AttrQueue();
    ~AttrQueue();

    // Says of an element that it is not there.
    class Gap {
      friend class AttrQueue;
      std::size_t hash = 0; // of the element; 0: not known
      bool isOfPlace = false;
    };

    // The child of that very element, of that singular attribute, of that member; null when there is none.
    [[nodiscard]] AttrNode* get(gnmi::PathElem const& elem) const;
    // The same; null has `gap` set, for `insert`.
    [[nodiscard]] AttrNode* get(Element const& element, Gap& gap) const;
    [[nodiscard]] AttrNode* get(Kel::KelAttr attr) const;
    [[nodiscard]] AttrNode* get(Kel::KelAttr attr, ConstHandle const& key) const;
    // Whether there may be a child of that attribute. REQUIRES a node of the attribute's type.
    [[nodiscard]] bool mayHold(Kel::KelAttr attr) const;
    // Appends a child that is not there: `gap` is that of its element, since whose look-up nothing has been
    // inserted, or made anew when there is none of its attribute.
    void insert(std::unique_ptr<AttrNode> node, Gap const& gap);
    // From here on the queue is as if empty, but for `withPruned`.
    void prune();
    void dropPruned();

    // The children with a key filter.
    [[nodiscard]] std::span<AttrNode* const> wildcards() const;
    [[nodiscard]] Child const* begin() const;
    [[nodiscard]] Child const* end() const;
    [[nodiscard]] std::size_t size() const { return static_cast<std::size_t>(end() - begin()); }
    // Those that were pruned, and then those there are.
    [[nodiscard]] std::span<Child const> withPruned() const;

  private:
    struct Rep;

    std::unique_ptr<Rep> rep_; // null: there has been no child, as most nodes are leaves
  };

  using Elems = google::protobuf::RepeatedPtrField<gnmi::PathElem>;
  using ElemIterator = Elems::const_iterator;

  // Longer paths are refused; bounds the depth of the tree.
  static constexpr std::size_t kMaxPathElems = 128;
  // More key filters below one element are refused; bounds the time that comparing with them takes, each with
  // every member that the request names.
  static constexpr std::size_t kMaxWildcards = 64;

  // What the element refers to must outlive the node.
  AttrNode(Element const& element, KelObject&& object);
  // The leaf of a singular attribute of scalars.
  AttrNode(Element const& element, Kel::KelType parentType, Kel::KelAttr leaf);
  ~AttrNode();
  AttrNode(AttrNode const&) = delete;
  AttrNode& operator=(AttrNode const&) = delete;

  [[nodiscard]] gnmi::PathElem const& elem() const { return element_.elem(); }
  [[nodiscard]] KelObject const& object() const { return object_; }
  [[nodiscard]] SetOp op() const { return op_; }
  [[nodiscard]] bool deleted() const { return deleted_; }
  [[nodiscard]] bool onPrefix() const { return onPrefix_; }
  [[nodiscard]] AttrQueue const& children() const { return children_; }

  // --- for the driver, on the root -------------------------------------------------------------------------
  void opIs(SetOp op);
  // Records one path of the request. The elements and the value (null: none) must outlive the tree.
  [[nodiscard]] Status insertPathSuffix(ElemIterator prefixBegin, ElemIterator prefixEnd,
                                        ElemIterator pathBegin, ElemIterator pathEnd,
                                        gnmi::TypedValue const* value, SetOp op);
  // The same of a place, which must outlive the tree, like the value. A tree is of paths or of places.
  [[nodiscard]] Status insertPlace(Place const& place, Written const& value, SetOp op);
  [[nodiscard]] Status prepareTree(SetOp op);
  void pruneSubTree();
  [[nodiscard]] Status commitTree();

  static void* operator new(std::size_t size) { return Kel::kelMemAlloc(size); }
  static void operator delete(void* block, std::size_t size) noexcept { Kel::kelMemFree(block, size); }

private:
  class Insertion;
  struct Trail;
  struct Made;
  // How far the trail goes a path's way.
  struct Followed {
    AttrNode* node = nullptr; // the last one, or the root
    std::size_t elements = 0;
  };

  // --- what the node is ------------------------------------------------------------------------------------
  [[nodiscard]] bool isScalar() const { return kind_ == TypeKind::Scalar; }
  [[nodiscard]] bool isEntity() const { return kind_ == TypeKind::Composite && object_.type().isEntity(); }
  [[nodiscard]] bool isInDir() const { return object_.parentType && object_.parentType.isDir(); }
  [[nodiscard]] bool isArray() const { return object_.attr && object_.attr.isArray(); }
  // Of the attribute that keys the member of which this node is a part, or of its constructor.
  [[nodiscard]] bool isFixedAtCreation() const;
  // Whether generic writers may remove the entity here.
  [[nodiscard]] bool isRemovable() const;
  // Whether this operation makes the composite anew (invariant 3).
  [[nodiscard]] bool isRemade() const;
  [[nodiscard]] Error error(std::string message, grpc::StatusCode code = grpc::StatusCode::NOT_FOUND) const;
  // Of most nodes: a value for a singular leaf that may be written. What there is to prepare of it has been
  // done when it was decoded.
  [[nodiscard]] bool isPlainWrite() const {
    return op_ != SetOp::Delete && isScalar() && object_.attr.desc().isPlainlySet && !isArray();
  }
  // Runs work with the model, which may be nested; what host code raises becomes an error of this node.
  template <class Work>
  [[nodiscard]] Status guarded(Work const& work) const;

  // --- insertion -------------------------------------------------------------------------------------------
  template <class Take>
  [[nodiscard]] Status insert(std::size_t length, Followed const& followed, SetOp op, Take const& take);
  // Follows the path before as far as this one begins alike, and moves the iterators as far. Of the root.
  [[nodiscard]] Followed followTrail(ElemIterator& prefixBegin, ElemIterator prefixEnd,
                                     ElemIterator& pathBegin, ElemIterator pathEnd, SetOp op);
  [[nodiscard]] Followed followTrail(std::span<Place const* const> way, SetOp op);
  // Null: there is none for this operation, or steps are traced, which those that are taken at once are not.
  [[nodiscard]] Trail const* trailOf(SetOp op) const;
  // What most paths come to: a leaf beside that of the path before. Makes it below this node, which is on the
  // trail. False, and nothing done, when it is a plain write that goes wrong, or something else.
  [[nodiscard]] bool insertPlain(gnmi::PathElem const& elem, gnmi::TypedValue const& value, Trail& trail);
  // The place below `parent`, as `getNextPlace` finds it by name.
  [[nodiscard]] static Kstd::Result<KelObject, KelLookupError> placeBelow(KelObject const& parent,
                                                                          Place const& place);
  [[nodiscard]] Status processLeafElem(Written const& value);

  // --- prepare ---------------------------------------------------------------------------------------------
  [[nodiscard]] Status prepare(SetOp op);
  [[nodiscard]] Status prepareScalar(SetOp op);
  [[nodiscard]] Status prepareEntity(SetOp op);
  [[nodiscard]] Status prepareValue(SetOp op);
  [[nodiscard]] Status prepareChildren(SetOp op);
  // Makes the arguments and the prototype of an entity that the commit will make.
  [[nodiscard]] Status makePrototype(SetOp op);
  // Sets the node's own copy of a value that is about to be changed.
  [[nodiscard]] Status openValue();
  // Makes the value anew, out of its parts and defaults.
  [[nodiscard]] Status instantiateValue();
  // Puts the parts into the node's own copy.
  [[nodiscard]] Status foldParts();
  // The value that a delete leaves in a singular place.
  [[nodiscard]] Status valueAfterDelete();
  // Refuses a write, or a delete, that the model would refuse.
  [[nodiscard]] Status checkWrite();
  [[nodiscard]] Status checkDelete() const;
  [[nodiscard]] Status checkIndex(ConstHandle const& member) const;
  // What the parent holds in this place before this phase.
  [[nodiscard]] ConstHandle current() const;

  // --- commit ----------------------------------------------------------------------------------------------
  [[nodiscard]] Status commit(Handle const& parent);
  // Into a copy of a value.
  [[nodiscard]] Status commitChildren(Handle const& target);
  // Into the live entity, `newValue_`.
  [[nodiscard]] Status commitToEntity();
  [[nodiscard]] Status commitEntity(Handle const& parent);
  [[nodiscard]] Status commitValue(Handle const& parent);
  // The entity in this place of `parent`; null when there is none any more.
  [[nodiscard]] Handle standingIn(Handle const& parent) const;
  // The same from the data root down.
  [[nodiscard]] Handle standing();
  // Puts the changes of all phases into the value that this place of `parent` holds by now.
  [[nodiscard]] Status foldInto(Handle const& parent);
  // What cannot change has been set to what it is: is it still?
  [[nodiscard]] Status checkUnchanged(ConstHandle const& parent) const;
  // Of entities:
  [[nodiscard]] Status updateComposite(Handle const& parent);
  [[nodiscard]] Status replaceComposite(Handle const& parent);
  [[nodiscard]] Status deleteComposite(Handle const& parent);
  [[nodiscard]] Status instantiateObject(Handle const& parent);
  [[nodiscard]] Status replaceScalarArray(Handle const& parent);
  [[nodiscard]] Status deleteScalarArray(Handle const& parent);
  [[nodiscard]] Status doWildcardDelete(Handle const& parent, MultipleKeys::Filter const& filter);
  [[nodiscard]] Kstd::Result<Kel::ArgList, Error> prepareConstructorArgs(Kel::KelType type);
  [[nodiscard]] Kstd::Result<ConstHandle, Error> constructorArg(Kel::KelAttr arg);
  // The array value that the decoded members make.
  [[nodiscard]] Handle arrayValue() const;

  Element element_;
  AttrNode* parent_ = nullptr;
  KelObject object_;
  TypeKind kind_;
  SetOp op_ = SetOp::Delete;
  bool deleted_ = false;
  bool onPrefix_ = false;
  bool hasNewValue_ = false; // `newValue_` counts; null then stands for "without value"
  bool unchanged_ = false;   // sets what cannot change to what it is: nothing to commit
  bool isAnew_ = false;      // of a value: nothing of what there is stays
  bool isFresh_ = false;     // will be, or is part of, an object that does not exist before the commit
  Handle
      newValue_; // of a scalar the decoded value, of a value its copy, of an entity the object being committed
  std::vector<Handle> members_;  // of an array
  ConstHandle base_;             // invariant 4
  std::unique_ptr<Made> made_;   // of an entity that the commit makes
  std::unique_ptr<Trail> trail_; // of the root
  AttrQueue children_;
};

// The way of a path inserted in this phase, but for its last node: of the last one, or of one before whose
// way that went along. Its nodes were found fit to be passed by this operation, and only deletes change that:
// a path that begins alike, as the next one of a sorted request does, begins at the last node they share.
struct AttrTree::AttrNode::Trail {
  // A node, and its element taken apart: it is compared with each path that comes.
  struct Step {
    AttrNode* node = nullptr;
    std::string_view name;
    std::string_view key;
    std::string_view value;
    bool hasKey = false;
    bool isPlain = false; // one key at most

    void nodeIs(AttrNode& passed);
    [[nodiscard]] bool isOf(gnmi::PathElem const& elem) const;
  };

  SetOp op = SetOp::Delete;
  std::vector<Step> steps;
  // Requests name the attributes of one object after the other in the same order: by the index of an
  // attribute in its type, the one that came next.
  std::array<Kel::KelAttr, 64> followers;
  std::size_t lastAttr = 0;

  // The type's attribute of that name; first tries the one that came next the time before.
  [[nodiscard]] Kel::KelAttr attrNamed(std::string_view name, Kel::KelType type);
};

// What an entity is made from. (The detached one that was made of it to try is `base_`.)
struct AttrTree::AttrNode::Made {
  Kel::ArgList args;
};

} // namespace Ondra::KelGnmiSet
