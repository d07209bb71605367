// KelAttrBase, KelAttr: the descriptor of an attribute as a small value, with the generic operations on
// objects.
#pragma once

#include <boost/container/small_vector.hpp>
#include <cstddef>
#include <string>
#include <vector>

#include "Kel/GenericIf.h"
#include "Kel/Type.h"
#include "Kstd/Export.h"

namespace Kel {

// What can be asked of an attribute. Valid for the life of the process; compared by identity.
class KTD_EXPORT KelAttrBase {
public:
  constexpr KelAttrBase() noexcept = default;
  explicit constexpr KelAttrBase(AttrDesc const* desc) noexcept : desc_(desc) {} // null: invalid

  explicit operator bool() const noexcept { return desc_ != nullptr; }
  friend bool operator==(KelAttrBase a, KelAttrBase b) noexcept { return a.desc_ == b.desc_; }
  [[nodiscard]] AttrDesc const& desc() const noexcept { return *desc_; } // what all answers come from

  [[nodiscard]] AttributeId id() const { return desc_->id; }                // within its type
  [[nodiscard]] String const& name() const { return desc_->name; }          // likewise
  [[nodiscard]] KelType ownerType() const { return KelType(desc_->owner); } // that declares it
  // Of the value; of an array, the array's.
  [[nodiscard]] KelType type() const { return KelType(desc_->type); }
  [[nodiscard]] KelType memberType() const { return KelType(desc_->memberType); } // of a collection
  // Of a keyed collection; invalid otherwise.
  [[nodiscard]] KelType keyType() const { return KelType(desc_->keyType); }
  // Of a keyed collection whose members carry their own key: the member attribute that is the key. Otherwise
  // invalid.
  [[nodiscard]] KelAttr indexAttr() const;
  // Of a collection whose keys are structures outside of the members: the field of the key that this member
  // attribute repeats, having its name, its type and the key-field mark. Otherwise invalid.
  [[nodiscard]] KelAttr keyFieldOf(KelAttrBase memberAttr) const;

  [[nodiscard]] bool isCollection() const { return desc_->isCollection; } // of whatever kind
  [[nodiscard]] bool isKeyed() const { return desc_->isKeyed; }           // members have keys
  [[nodiscard]] bool isOrdered() const { return desc_->isOrdered; }       // iterates in an order of the keys
  [[nodiscard]] bool isStack() const { return desc_->isStack; }           // last in, first out
  [[nodiscard]] bool isArray() const { return desc_->isArray; }           // members by number
  [[nodiscard]] bool isScalarArray() const { return desc_->isScalarArray; } // an array of scalars: one leaf
  [[nodiscard]] bool isInstantiating() const { return desc_->isInstantiating; } // owns the entities it holds
  [[nodiscard]] bool isPointer() const { return desc_->isPointer; } // refers to entities that live elsewhere
  [[nodiscard]] bool isGnmiJsonString() const { return desc_->isGnmiJsonString; } // sent as one JSON text
  // A collection that is read whole.
  [[nodiscard]] bool readsAsOneValue() const { return desc_->readsAsOneValue; }
  // Also when only owned entities are looked for.
  [[nodiscard]] bool walkAlways() const { return desc_->walkAlways; }
  // Members are sent by their keys alone.
  [[nodiscard]] bool isKeyScalarNode() const { return desc_->isKeyScalarNode; }
  [[nodiscard]] bool isKeyField() const { return desc_->isKeyField; } // the key of the entry, or a part of it
  [[nodiscard]] bool isOptional() const { return desc_->isOptional; } // can be left without value
  [[nodiscard]] bool isEmbedded() const {
    return desc_->isEmbedded;
  } // a constructor argument that the constructor makes by itself
  [[nodiscard]] bool isCtorArg() const { return desc_->isCtorArg; } // taken by the constructor
  // Whether `genericIfSet` may write it. Attributes of value types always may.
  [[nodiscard]] bool isSettable() const { return desc_->isSettable; }
  [[nodiscard]] bool isRemovable() const { return desc_->isRemovable; } // generic writers may remove members
  [[nodiscard]] bool isOperation() const { return desc_->isOperation; } // is called, not read

  template <class H>
  friend H AbslHashValue(H h, KelAttrBase const& a) {
    return H::combine(std::move(h), a.desc_);
  }

protected:
  AttrDesc const* desc_ = nullptr; // null: invalid
};

// An attribute, with its generic operations. `obj` must be a handle to an object of the attribute's owner
// type (or one that extends it), else they raise `Kel::Error`. A null handle is the answer for what is not
// set; it is no error.
class KTD_EXPORT KelAttr : public KelAttrBase {
public:
  using ConstHandle = Ptr<GenericIf const>; // read through
  using Handle = Ptr<GenericIf>;            // written through

  using KelAttrBase::KelAttrBase;

  // The value (the whole array value of an array); the member under `key` for a keyed collection. Scalars are
  // copied into the handle, other values are referred to in place and stay alive with the handle.
  [[nodiscard]] ConstHandle genericIfGet(ConstHandle const& obj, ConstHandle const& key = {}) const;
  // Whether what it holds can be read without a handle, where it lies.
  [[nodiscard]] bool readsInPlace() const noexcept { return desc_->access->readsInPlace(); }
  // Reads so: what `AttrAccess::valueAt` gives, null when there is nothing. Valid until the object changes.
  // REQUIRES an object of the attribute's owner type (unchecked).
  [[nodiscard]] void const* valueAt(PtrInterface const& object) const noexcept {
    return desc_->access->valueAt(*desc_, &object);
  }
  // Whether that is always `AttrDesc::offset` bytes into the object.
  [[nodiscard]] bool liesAtOffset() const noexcept { return desc_->access->liesAtOffset(); }
  // Whether a collection holds a member under `key`; for a singular attribute, whether it is set.
  [[nodiscard]] bool genericIfExist(ConstHandle const& obj, ConstHandle const& key = {}) const;
  // Writes the attribute or the member under `key`, and notifies when that changed something.
  void genericIfSet(Handle const& obj, ConstHandle const& key, ConstHandle const& value) const;
  // Makes a member (or the one value) of an instantiating attribute from constructor arguments, removing the
  // one it replaces. The key is the member's index attribute; for a collection with its keys outside the
  // members use the second form.
  Handle genericIfSet(Handle const& obj, ArgList const& args) const;
  Handle genericIfSet(Handle const& obj, ConstHandle const& key, ArgList const& args) const;
  // Removes the member under `key`, or clears a singular attribute: to null when it can be left without
  // value, otherwise to its type's default. Deleting what is not there is silent.
  void genericIfDel(Handle const& obj, ConstHandle const& key = {}) const;
  // On an array value (not on its owner), append, clear, list:
  void genericIfAdd(Handle const& array, ConstHandle const& value) const;
  void genericIfRemove(Handle const& array) const;
  [[nodiscard]] std::vector<ConstHandle> genericIfMembers(ConstHandle const& array) const;
  // Number of members of a collection.
  [[nodiscard]] std::size_t genericIfCount(ConstHandle const& obj) const;
  // Calls an operation attribute.
  ConstHandle genericIfCall(ConstHandle const& obj, ArgList const& args) const;

  // The members of the collection in key order (arrays: by index); from the first member not before
  // `startKey` on:
  [[nodiscard]] GenericIf::Iterator genericIfIterator(Handle const& obj) const;
  [[nodiscard]] GenericIf::Iterator genericIfIteratorConst(ConstHandle const& obj) const;
  [[nodiscard]] GenericIf::Iterator genericIfIteratorConst(ConstHandle const& obj,
                                                           ConstHandle const& startKey) const;

  // `value` is a union: the attribute of its active alternative; invalid when it has none.
  [[nodiscard]] static KelAttr genericIfUnionAlternative(ConstHandle const& value);
  // The attribute's whole value as a JSON text, or null when it is not set.
  [[nodiscard]] ConstHandle genericIfGnmiJsonString(ConstHandle const& obj) const;
};

inline KelAttr KelTypeBase::AttributeQIterator::operator*() const noexcept {
  return KelAttr(desc_->attrs[position_].get());
}

} // namespace Kel
