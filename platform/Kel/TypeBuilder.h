// Kel::TypeBuilder: describes a type attribute by attribute. The declarations of C++ classes (Kel/Declare.h)
// end here, and types that exist only at run time are made with it directly.
//
//   Kel::TypeBuilder vlan("my-module", "vlan", Kel::TypeKind::Entity);
//   vlan.attr("id", Kel::builtinType(Kel::BuiltinKind::U16)).ctorArg().keyField();
//   vlan.attr("name", Kel::builtinType(Kel::BuiltinKind::String)).settable().optional();
//   auto const type = vlan.done();   // the type, or a text that names the type, the attribute and the rule that was broken
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Attr.h"
#include "Kel/Desc.h"
#include "Kel/Type.h"
#include "Kstd/Export.h"
#include "Kstd/Result.h"

namespace Kel {

// The type of a builtin.
[[nodiscard]] inline KelType builtinType(BuiltinKind kind) { return KelType(&builtinDesc(kind)); }

// Owned by whoever describes a type; used up by `done`. On the thread that sets things up, before the first
// object is made. What does not fit the kind of the type or of the attribute is told by `done` as a broken
// rule.
class KTD_EXPORT TypeBuilder {
public:
  // A type wholly described at run time: its objects hold slots. Kinds: Struct, Entity.
  TypeBuilder(std::string_view module, std::string_view name, TypeKind kind);
  // Goes on with a descriptor that exists already (of a C++ class); raises `Kel::Error` when it is complete.
  TypeBuilder(std::string_view module, std::string_view name, TypeDesc& desc);
  TypeBuilder(TypeBuilder&&) noexcept;
  ~TypeBuilder();

  // The type itself, incomplete until `done`: for attributes that refer to it.
  [[nodiscard]] KelType type() const { return KelType(desc_); }
  [[nodiscard]] TypeDesc& desc() { return *desc_; } // for what has no operation here

  // --- attributes of a run-time type; the modifiers below apply to the last one --------------------
  TypeBuilder& attr(std::string_view name, KelType type);                         // a value
  TypeBuilder& pointer(std::string_view name, KelType target);                    // a reference
  TypeBuilder& array(std::string_view name, KelType element);                     // a sequence
  TypeBuilder& keyed(std::string_view name, KelType key, KelType value);          // values by key
  TypeBuilder& instantiating(std::string_view name, KelType member);              // one owned entity
  TypeBuilder& instantiating(std::string_view name, KelType key, KelType member); // owned entities by key
  // An attribute with an access of its own. The base of all others.
  AttrDesc& add(std::string_view name, TypeDesc* type, std::unique_ptr<AttrAccess> access);

  // --- modifiers of the last attribute -------------------------------------------------------------
  TypeBuilder& id(AttributeId id);             // default: the position, from 1
  TypeBuilder& ctorArg();                      // a constructor argument; constructor order is attribute order
  TypeBuilder& keyField();                     // carries the key-field mark
  TypeBuilder& index(std::string_view member); // the member attribute that is the key of this collection
  TypeBuilder& settable(bool yes = true);      // generic writers may write it
  TypeBuilder& removable(bool yes = true);     // generic writers may remove its members
  TypeBuilder& optional();                     // can be left without value
  TypeBuilder& embedded();                     // an argument that the constructor makes by itself
  TypeBuilder& gnmiJson();                     // sent as one JSON text
  TypeBuilder& asOneValue();                   // a collection that is read whole
  TypeBuilder& keyScalarNode();                // members are sent by their keys alone
  TypeBuilder& walkAlways();                   // also when only owned entities are looked for

  // --- properties of the type ------------------------------------------------------------------------
  // Text forms of its own towards gNMI; a type with a string representation exposes no value attribute.
  TypeBuilder& gnmiStrRep(std::function<std::string(void const*)> print,
                          std::function<std::optional<std::string>(std::string_view, void*)> parse);
  // A form as bytes: such an attribute cannot be set by clients, nor be a key.
  TypeBuilder& gnmiByteRep(std::function<std::string(void const*)> print);
  TypeBuilder& reportsDelete(bool yes); // subscribers are told of the end
  // Starts from the attributes of the entity type that this one extends; to be called before the first
  // attribute.
  TypeBuilder& extends(TypeDesc const& base);

  // Checks the rules of registration and completes the type. On an error the type stays unusable.
  [[nodiscard]] Kstd::Result<KelType, std::string> done();

private:
  AttrDesc& last();
  // Adds an attribute that is a slot, which takes the space of `Storage`.
  template <class Storage>
  AttrDesc& slot(std::string_view name, KelType type, std::unique_ptr<AttrAccess> access);
  TypeDesc* desc_;
  AttrDesc* last_ = nullptr;
};

// A run-time enumeration: the type, or a text that names the rule that was broken. Nominals and unions are
// declared in C++ only (Kel/Declare.h); a run-time type may have attributes of such types.
[[nodiscard]] KTD_EXPORT Kstd::Result<KelType, std::string>
runtimeEnum(std::string_view module, std::string_view name, std::vector<Enumerator> enumerators);

namespace Impl {
// The rules of registration for one type; none when it keeps them all.
[[nodiscard]] KTD_EXPORT std::optional<std::string> brokenRule(TypeDesc const& type);
} // namespace Impl

} // namespace Kel
