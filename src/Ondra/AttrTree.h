// The attribute tree of the write side: what a Set request will do to the object model, laid out before
// anything is changed. Internal to `KelGnmiSet::Set`; its parts have names of their own so that each can be
// tested by itself.
#pragma once

#include <cstdint>
#include <deque>
#include <iosfwd>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <grpcpp/support/status_code_enum.h>

#include "Kel/Attr.h"
#include "Kel/GenericIf.h"
#include "Kstd/Export.h"
#include "Kstd/Result.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra::KelGnmiSet {

// The kinds of operation of a Set request, in the order in which they are applied. Printed by name.
enum class SetOp : std::uint8_t { Delete = 0, Replace = 1, Update = 2 };
KTD_EXPORT std::ostream& operator<<(std::ostream& out, SetOp const& op);

// The parts of the tree, and the pure functions it rests on. Nothing here raises what host code has raised:
// all of it is caught where it can arise and returned as its text. All of it runs on the scheduler thread.
struct KTD_EXPORT AttrTree {
  using Handle = Kel::Ptr<Kel::GenericIf>;
  using ConstHandle = Kel::Ptr<Kel::GenericIf const>;

  // Why a request fails. NOT_FOUND for all that concerns paths, keys, arguments and commits; INVALID_ARGUMENT
  // for a value that does not fit its leaf. The path is relative to the data root and names the element that
  // failed.
  struct Error {
    grpc::StatusCode code = grpc::StatusCode::NOT_FOUND;
    std::deque<gnmi::PathElem> path;
    std::string message;

    // Ends the process where there is no memory: messages do not survive that.
    void add(gnmi::PathElem const& elem) noexcept { path.push_back(elem); }
  };
  // Success (the bool says nothing further), or an error.
  using Status = std::variant<bool, Error>;

  // --- what a path element resolves to ---------------------------------------------------------------------
  struct NoKey {};
  struct SingleKey {
    ConstHandle key;
  };
  // A key with wildcards: the fields that a member's key must have, in the key type's declaration order.
  // Empty: all members.
  struct MultipleKeys {
    using Filter = std::vector<std::pair<Kel::KelAttr, ConstHandle>>;
    Filter filter;
  };
  using Keys = std::variant<NoKey, SingleKey, MultipleKeys>;

  // An object or value, or the place of one that is not there.
  struct KelObject {
    KelObject() = default;
    explicit KelObject(ConstHandle held) : object(std::move(held)) {}

    // Null: a place that holds nothing. Values are referred to where they are; they are copied when they are
    // first changed.
    ConstHandle object;
    // The place: the attribute and the type that it belongs to. Invalid for what was not reached through an
    // attribute.
    Kel::KelType parentType;
    Kel::KelAttr attr;
    Keys keys;

    // The object's own type; of an empty place that of its attribute's members; else invalid.
    [[nodiscard]] Kel::KelType type() const;
    // A reference to an entity that lives elsewhere.
    [[nodiscard]] bool isReference() const { return attr && attr.isPointer() && !attr.isInstantiating(); }
    [[nodiscard]] bool hasFilter() const { return std::holds_alternative<MultipleKeys>(keys); }
    // The single key, or null.
    [[nodiscard]] ConstHandle const& key() const;
  };

  struct KelLookupError {
    bool missing = false; // nothing of that name: a delete of it is no error
    std::string message;
  };

  // Resolves one path element below `parent`. A member or value that is not set gives an empty place.
  [[nodiscard]] static Kstd::Result<KelObject, KelLookupError> getNextKelObject(KelObject const& parent,
                                                                                gnmi::PathElem const& elem);
  // The same where `parent` is a directory.
  [[nodiscard]] static Kstd::Result<KelObject, KelLookupError> getNextObjInDir(KelObject const& dir,
                                                                               gnmi::PathElem const& elem);
  // The first half of `getNextKelObject`: finds the place and decodes its key without reading what it holds
  // (a directory's entry is read all the same).
  [[nodiscard]] static Kstd::Result<KelObject, KelLookupError> getNextPlace(KelObject const& parent,
                                                                            gnmi::PathElem const& elem);
  // The second half: what the place holds. A text when the model refuses to read it.
  [[nodiscard]] static Kstd::Result<ConstHandle, std::string> readPlace(KelObject const& parent,
                                                                        KelObject const& place);

  // Whether a member's key has all the fields that the filter asks for.
  [[nodiscard]] static bool applyKeyFilter(MultipleKeys::Filter const& filter, ConstHandle const& memberKey);

  // --- types and values ------------------------------------------------------------------------------------
  enum class TypeKind : std::uint8_t { Scalar = 0, Composite = 1 };
  // Scalars are where a path may end: unions, enumerations, builtins, nominals, types with a string
  // representation. A path goes on through everything else: structures, entities, and references to these.
  [[nodiscard]] static TypeKind getTypeKind(Kel::KelType type);

  using ValueOrText = Kstd::Result<Handle, std::string>;
  // One value of the type from a gNMI value. Integers are not checked for range: a narrower type takes the
  // low-order part.
  [[nodiscard]] static ValueOrText gnmiToKelValue(Kel::KelType type, gnmi::TypedValue const& value);
  // REQUIRES a union type: asserted. The first alternative that accepts the value wins.
  [[nodiscard]] static ValueOrText decodeUnion(Kel::KelType type, gnmi::TypedValue const& value);
  // The members of an array, each of `type`.
  [[nodiscard]] static std::variant<std::vector<Handle>, std::string>
  gnmiToGifArray(Kel::KelType type, gnmi::TypedValue const& value);
  // An enumerator by its name.
  [[nodiscard]] static ValueOrText enumFromStrRep(Kel::KelType type, std::string const& text);

  class AttrNode;
  class KeyDecoder;
};

// The default of a value type; a text for any other type.
[[nodiscard]] KTD_EXPORT AttrTree::ValueOrText defaultKelObject(Kel::KelType type);

} // namespace Ondra::KelGnmiSet
