// KelTypeBase, KelType: the descriptor of a type as a small value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Desc.h"
#include "Kstd/Export.h"
#include "Kstd/Result.h"

namespace Kel {

class KelAttr;
class KelType;

// What can be asked of a type. A value of pointer size over an immutable descriptor that lives for the
// process; compared by identity. A default-made one is invalid: of the operations below, only the comparison
// and the bool test may be used then.
class KTD_EXPORT KelTypeBase {
public:
  constexpr KelTypeBase() noexcept = default;
  explicit constexpr KelTypeBase(TypeDesc const* desc) noexcept : desc_(desc) {} // null: invalid

  explicit operator bool() const noexcept { return desc_ != nullptr; }
  friend bool operator==(KelTypeBase a, KelTypeBase b) noexcept { return a.desc_ == b.desc_; }
  [[nodiscard]] TypeDesc const& desc() const noexcept { return *desc_; } // what all answers come from

  [[nodiscard]] String const& name() const { return desc_->name; }     // within its module
  [[nodiscard]] String const& module() const { return desc_->module; } // the group that it came with
  [[nodiscard]] TypeKind kind() const { return desc_->kind; }          // what it is
  // One of the model's own scalars.
  [[nodiscard]] bool isBuiltin() const { return desc_->kind == TypeKind::Builtin; }
  [[nodiscard]] BuiltinKind builtinKind() const { return desc_->builtin; }    // None: it is no builtin
  [[nodiscard]] bool isEnum() const { return desc_->kind == TypeKind::Enum; } // an enumeration
  // The integer kind under an enumeration.
  [[nodiscard]] BuiltinKind underlyingKind() const { return desc_->underlying; }
  // In the order of their declaration.
  [[nodiscard]] std::vector<Enumerator> const& enumerators() const { return desc_->enumerators; }
  [[nodiscard]] bool isUnion() const { return desc_->kind == TypeKind::Union; } // one of several alternatives
  // Builtins, enumerations, nominals, unions, structs: no identity, and every one has a default.
  [[nodiscard]] bool isValueType() const { return desc_->isValueType; }
  [[nodiscard]] bool isEntity() const { return desc_->isEntity(); } // has identity, a parent and observers
  [[nodiscard]] bool isDir() const { return desc_->isDir; }         // a directory of entities
  // Housekeeping, no data.
  [[nodiscard]] bool isCollectionControl() const { return desc_->kind == TypeKind::CollectionControl; }
  // Has a text form of its own towards gNMI.
  [[nodiscard]] bool hasGnmiStrRep() const { return desc_->hasGnmiStrRep; }
  [[nodiscard]] bool hasGnmiByteRep() const { return desc_->hasGnmiByteRep; } // has a byte form towards gNMI
  // A text that is JSON.
  [[nodiscard]] bool isJsonString() const { return desc_->builtin == BuiltinKind::JsonString; }
  // A wrapper that holds a reference behind its value attribute, used as a key.
  [[nodiscard]] bool isKeyPtrWrapper() const { return desc_->kind == TypeKind::KeyPtr; }
  [[nodiscard]] bool reportsDelete() const { return desc_->reportsDelete; } // subscribers are told of its end
  [[nodiscard]] bool isRuntime() const { return desc_->isRuntime; }         // there is no C++ class behind it

  // The attribute of that name or id; an invalid one when there is none.
  [[nodiscard]] KelAttr attr(std::string_view name) const;
  [[nodiscard]] KelAttr attr(char const* name) const;
  [[nodiscard]] KelAttr attr(AttributeId id) const;
  // Those of the type it extends included.
  [[nodiscard]] std::size_t attrCount() const { return desc_->attrs.size(); }
  [[nodiscard]] KelAttr attrAt(std::size_t index) const; // in declaration order

  // Walks the attributes of a type in declaration order. Its state is two words that can be kept and gone on
  // from.
  class AttributeQIterator {
  public:
    AttributeQIterator() noexcept = default;
    explicit AttributeQIterator(KelTypeBase type) noexcept : desc_(type.desc_) {} // at the first attribute
    explicit operator bool() const noexcept { return desc_ != nullptr && position_ < desc_->attrs.size(); }
    AttributeQIterator& operator++() noexcept {
      ++position_;
      return *this;
    }
    [[nodiscard]] KelAttr operator*() const noexcept;
    [[nodiscard]] bool started() const noexcept { return desc_ != nullptr; }    // it has a type
    [[nodiscard]] std::uint16_t position() const noexcept { return position_; } // counted from 0

  private:
    TypeDesc const* desc_ = nullptr; // null: invalid
    std::uint16_t position_ = 0;
  };

protected:
  TypeDesc const* desc_ = nullptr; // null: invalid
};

// A type, with the operations that make handles of it.
class KTD_EXPORT KelType : public KelTypeBase {
public:
  using HandleOrText = Kstd::Result<Ptr<GenericIf>, std::string>; // a text says what is wrong

  using KelTypeBase::KelTypeBase;

  // Of a nominal type or a key-pointer wrapper: the attribute that holds the wrapped value. Otherwise
  // invalid.
  [[nodiscard]] KelAttr valAttr() const;

  // A detached value copied from its raw form; without one, the type's default. For the integer kinds the raw
  // form may be a 64-bit integer, of which a narrower type takes the low-order part; a character pointer is
  // the raw form of a `char`. `active` sets the handle's notification flag and has no other effect, here and
  // below. Raises `Kel::Error` for a type that is no value type.
  [[nodiscard]] Ptr<GenericIf> genericIf(void const* raw, bool active = false) const;
  [[nodiscard]] Ptr<GenericIf> genericIf(std::nullptr_t, bool active = false) const;
  // A handle to an object; the object stays alive while the handle does. Null gives null.
  [[nodiscard]] Ptr<GenericIf> genericIf(PtrInterface* object, bool active = false) const;
  [[nodiscard]] Ptr<GenericIf const> genericIf(PtrInterface const* object) const;
  // A value from its text form, as `GenericIf::strRep` prints it; otherwise a text that says what is wrong.
  // Never raises.
  [[nodiscard]] HandleOrText genericIf(String const& text, bool active = false) const;
  template <std::size_t N> // a literal, which is no raw form
  [[nodiscard]] HandleOrText genericIf(char const (&text)[N], bool active = false) const {
    return genericIf(String(text), active);
  }
  // A value from its gNMI string representation: likewise, without the quotation of text forms.
  [[nodiscard]] HandleOrText genericIfFromGnmiString(String const& text, bool active = false) const;
  // A detached, silent object or value from its constructor arguments in constructor order. An argument that
  // is null or missing takes its default. Raises `Kel::Error` for too many arguments or one of another type.
  [[nodiscard]] Ptr<GenericIf> genericIf(ArgList const& args, bool active = false) const;
  // Compares two values of one type. Raises `Kel::Error` for values of different types and for what is no
  // comparison.
  [[nodiscard]] static bool genericIfBooleanOp(GenericIf const& a, AttributeOp op, GenericIf const& b);

  // The attributes that are constructor arguments, in constructor order.
  [[nodiscard]] std::vector<AttrDesc const*> const& ctorArgs() const { return desc_->ctorArgs; }
};

// Announces a module: the group of types that a library brings along. Types name their module; announcing
// twice is harmless.
KTD_EXPORT String kelModuleIs(std::string_view name);
// The module of the builtin types.
[[nodiscard]] KTD_EXPORT String const& coreModule();

} // namespace Kel
