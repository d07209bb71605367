// Kel::TypeBuilder: describes a type attribute by attribute. The declarations of C++ classes (Kel/Declare.h)
// end here, and types that exist only at run time are made with it directly.
//
//   Kel::TypeBuilder vlan("my-module", "vlan", Kel::TypeKind::Entity);
//   vlan.attr("id", Kel::builtinType(Kel::BuiltinKind::U16)).ctorArg().keyField();
//   vlan.attr("name", Kel::builtinType(Kel::BuiltinKind::String)).settable().optional();
//   auto const type = vlan.done();   // the type, or a text that names the type, the attribute and the rule that was broken
//
// The raw form of a run-time value (`GenericIf::data`, `KelAttr::valueAt`): of an enumeration the smallest
// integer kind that holds its numbers (`KelType::underlyingKind`), of a nominal that of what it wraps, of a
// structure its values, each at the offset of its attribute. Unions, arrays and collections are read through
// the generic operations alone.
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
  // A type wholly described at run time. Kinds: Struct, Entity, Union (each attribute is an alternative),
  // Nominal and KeyPtr (the one attribute, a value or a reference, is what they wrap).
  TypeBuilder(std::string_view module, std::string_view name, TypeKind kind);
  // Goes on with a descriptor that exists already (of a C++ class); raises `Kel::Error` when it is complete.
  TypeBuilder(std::string_view module, std::string_view name, TypeDesc& desc);
  TypeBuilder(TypeBuilder&&) noexcept;
  ~TypeBuilder();

  // The type itself, incomplete until `done`: for attributes that refer to it.
  [[nodiscard]] KelType type() const { return KelType(desc_); }
  [[nodiscard]] TypeDesc& desc() { return *desc_; } // for what has no operation here

  // --- attributes of a run-time type; the modifiers below apply to the last one --------------------
  TypeBuilder& attr(std::string_view name, KelType type);                // a value
  TypeBuilder& pointer(std::string_view name, KelType target);           // a reference
  TypeBuilder& array(std::string_view name, KelType element);            // a sequence
  TypeBuilder& keyed(std::string_view name, KelType key, KelType value); // values by key
  TypeBuilder& instantiating(std::string_view name, KelType member);     // one owned entity
  // Owned entities by key. Members repeat the fields of a structured key that they have an attribute of, by
  // name and type, with the key-field mark: these get their values from the key whenever a member is made.
  TypeBuilder& instantiating(std::string_view name, KelType key, KelType member);
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
  // An argument that the constructor makes by itself; the one owned entity of a run-time type: made when its
  // owner gets its place.
  TypeBuilder& embedded();
  TypeBuilder& gnmiJson();      // sent as one JSON text
  TypeBuilder& asOneValue();    // a collection that is read whole
  TypeBuilder& keyScalarNode(); // members are sent by their keys alone
  TypeBuilder& walkAlways();    // also when only owned entities are looked for

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
  // Adds an attribute that `done` gives a slot in the raw form.
  AttrDesc& slot(std::string_view name, KelType type, std::unique_ptr<AttrAccess> access);
  TypeDesc* desc_;
  AttrDesc* last_ = nullptr;
};

// Run-time types in one call: the type, or a text that names the rule that was broken.
using TypeOrText = Kstd::Result<KelType, std::string>;
// A part of such a type.
struct Part {
  std::string_view name; // of the attribute
  KelType type;          // of its value
};
// The default is the first enumerator.
[[nodiscard]] KTD_EXPORT TypeOrText runtimeEnum(std::string_view module, std::string_view name,
                                                std::vector<Enumerator> enumerators);
// A name of its own for a builtin or an enumeration.
[[nodiscard]] KTD_EXPORT TypeOrText runtimeNominal(std::string_view module, std::string_view name,
                                                   Part const& wrapped);
// One of several scalars; the default is that of the first. None takes what a later one sends.
[[nodiscard]] KTD_EXPORT TypeOrText runtimeUnion(std::string_view module, std::string_view name,
                                                 std::vector<Part> const& alternatives);
// A structure to be the key of a collection: ordered by its fields, the first one first, each a constructor
// argument.
[[nodiscard]] KTD_EXPORT TypeOrText runtimeKey(std::string_view module, std::string_view name,
                                               std::vector<Part> const& fields);

namespace Impl {
// The rules of registration for one type; none when it keeps them all.
[[nodiscard]] KTD_EXPORT std::optional<std::string> brokenRule(TypeDesc const& type);
// Why a type cannot be a key; none when it can.
[[nodiscard]] std::optional<std::string_view> unfitAsKey(TypeDesc const& key);
} // namespace Impl

} // namespace Kel
