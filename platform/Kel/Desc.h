// The immutable descriptors behind `KelType` and `KelAttr`: what is known of a type and of an attribute, and
// how their storage is reached.
//
// Invariants
// 1. A descriptor is made once, lives for the life of the process and does not change once its type is
//    complete (`TypeDesc::complete`). Its address is the identity of the type or attribute.
// 2. `attrs` is in declaration order; `AttrDesc::index` is the position there.
// 3. A value of a type has one raw form, wherever it is stored: `ValueOps` work on that form. Scalars have
//    the form of their C++ type, enumerations that of their underlying integer, objects are addressed by
//    their `PtrInterface*`.
// 4. Values of at most `kInlineValueBytes` bytes are held inside their handle; larger ones in a counted box
//    or in place.
#pragma once

#include <boost/container/container_fwd.hpp>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Kel/Ptr.h"
#include "Kel/Scalars.h"
#include "Kel/String.h"
#include "Kstd/Export.h"

namespace Kel {

class Cursor;
class Entity;
class GenericIf;
class KelAttr;
class KelType;
class PtrInterface;
struct AttrDesc;
struct TypeDesc;

inline constexpr std::size_t kInlineValueBytes = 16;

// Values handed to a constructor or an operation, in its order. Null stands for "left out".
using ArgList = boost::container::small_vector<Ptr<GenericIf const>, 8>;

enum class TypeKind : std::uint8_t {
  Builtin,           // a scalar of the core module, see BuiltinKind
  Enum,              // named constants over an integer
  Nominal,           // a name of its own for one builtin or enumeration, reached through the value attribute
  Union,             // one of several alternatives
  Struct,            // a value with attributes
  KeyPtr,            // a value that wraps a reference behind its value attribute
  Array,             // an array attribute's own type
  Entity,            // an object with identity and a place in the tree
  Object,            // a counted object without one
  CollectionControl, // housekeeping of a collection
};

// The generic operations on an attribute, as dispatched to a type's own handler, and the comparisons of two
// values. Users know it as `GenericIf::AttributeOp`.
enum class AttributeOp : std::uint8_t {
  Get,
  Set,
  Delete,
  Count,
  Contains,
  Call,
  Equal,
  NotEqual,
  Less,
  LessEqual,
  Greater,
  GreaterEqual,
};

// The scalars of the core module, by their index in its type table.
enum class BuiltinKind : std::uint8_t {
  None = 0,
  U8 = 1,
  S8 = 2,
  U16 = 3,
  S16 = 4,
  U32 = 5,
  S32 = 6,
  U64 = 7,
  S64 = 8,
  Bool = 9,
  Char = 10,
  Float = 11,
  Double = 12,
  String = 13,
  Bytes = 14,
  Seconds = 21,
  Time = 22,
  JsonString = 23,
};

// What can be done with the raw form of a value. Every function gets the type, so that one function can serve
// many types.
struct ValueOps {
  std::size_t size = 0;
  std::size_t align = 1;
  bool trivial = false;                                   // copied by memcpy, nothing to destroy
  void (*construct)(TypeDesc const&, void* at) = nullptr; // the type's default
  void (*copy)(TypeDesc const&, void* at, void const* from) = nullptr;
  void (*assign)(TypeDesc const&, void* to, void const* from) = nullptr;
  void (*destroy)(TypeDesc const&, void* at) = nullptr;
  int (*compare)(TypeDesc const&, void const* a, void const* b) = nullptr; // a total order; floats by bits
  std::uint64_t (*hash)(TypeDesc const&, void const* at) = nullptr;
};

struct Enumerator {
  String name;
  std::int64_t value;
};

// How one attribute is reached in its objects: what is asked of it, and, in the private half, what a kind of
// storage does about it. Implementations are immutable and shared by all objects of the type. `obj` is a
// handle to an object of the attribute's owner type.
//
// What an attribute permits follows from its descriptor and is checked here, for all kinds of storage alike,
// in this order: whether there is such an operation, whether it takes a key, whether it may be done, whether
// the value is of the right type. What does not pass raises `Kel::Error` and changes nothing.
class KTD_EXPORT AttrAccess {
public:
  virtual ~AttrAccess() = default;
  [[nodiscard]] Ptr<GenericIf const> get(AttrDesc const& attr, GenericIf const& obj,
                                         GenericIf const* key) const;
  [[nodiscard]] bool exist(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const;
  // A null value clears where the attribute can be left without one.
  void set(AttrDesc const& attr, GenericIf& obj, GenericIf const* key, GenericIf const* value) const;
  // Stores a constructor argument into an object that is being made, silently and whether or not it is
  // settable.
  void init(AttrDesc const& attr, GenericIf& obj, GenericIf const& value) const;
  // A member, or the one value, made from constructor arguments.
  Ptr<GenericIf> create(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
                        ArgList const& args) const;
  void del(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const;
  [[nodiscard]] std::size_t count(AttrDesc const& attr, GenericIf const& obj) const;
  // A cursor at the first member not before `start` (at the first of all without one).
  [[nodiscard]] Ptr<Cursor> iterate(AttrDesc const& attr, Ptr<GenericIf const> const& obj,
                                    GenericIf const* start) const;
  [[nodiscard]] Ptr<GenericIf const> call(AttrDesc const& attr, GenericIf const& obj,
                                          ArgList const& args) const;

  // Whether what it holds can be read where it lies: `valueAt` gives the raw form of a singular value or
  // child, of a keyed collection its storage; null when there is none. Valid until the object changes.
  [[nodiscard]] virtual bool readsInPlace() const noexcept { return false; }
  [[nodiscard]] virtual void const* valueAt(AttrDesc const& attr, void const* object) const noexcept;
  // And lies at the attribute's offset in every object.
  [[nodiscard]] virtual bool liesAtOffset() const noexcept { return false; }
  // The handle of a key that an observer was told of by its raw form; null for what has no keys.
  [[nodiscard]] virtual Ptr<GenericIf const> keyHandle(AttrDesc const& attr, void const* rawKey) const;
  // Order and hash of the attribute between two values of a value type, addressed by their raw forms.
  [[nodiscard]] virtual int compare(AttrDesc const& attr, void const* a, void const* b) const;
  [[nodiscard]] virtual std::uint64_t hash(AttrDesc const& attr, void const* at) const;
  // The children that an entity owns through this attribute, for taking a subtree down.
  virtual void visitChildren(AttrDesc const& attr, Entity& owner,
                             std::function<void(Entity&)> const& visit) const;
  // Drops references to other objects that this attribute holds, without telling anybody.
  virtual void dropReferences(AttrDesc const& attr, Entity& owner) const;

protected:
  [[noreturn]] static void notSupported(AttrDesc const& attr, char const* operation);

private:
  // What a kind of storage does, asked for what has passed the checks: `key` is there exactly for a keyed
  // collection, or, to read an array, as its index; `value` is of the attribute's type. What changes the
  // object tells its observers (`Impl::notifyOf`) after the change, and nobody when nothing has changed. What
  // is left out is not supported.
  virtual Ptr<GenericIf const> read(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const;
  virtual bool has(AttrDesc const& attr, GenericIf const& obj,
                   GenericIf const* key) const; // else: whether something is read
  // A null value: leaves the singular attribute without one.
  virtual void store(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
                     GenericIf const* value) const;
  // The same through the class's own setter (`AttrDesc::setter`), for singular attributes of objects of
  // declared classes.
  virtual void storeBySetter(AttrDesc const& attr, GenericIf& obj, GenericIf const* value) const;
  virtual void assign(AttrDesc const& attr, GenericIf& obj, GenericIf const& value) const; // silently
  // Deletes a singular value: else by writing nothing, or the default of its type where it cannot be without
  // one.
  virtual void reset(AttrDesc const& attr, GenericIf& obj) const;
  // Puts the made entity there, in place of what is there.
  virtual void place(AttrDesc const& attr, GenericIf& obj, Entity& owner, GenericIf const* key,
                     Ptr<Entity> const& made) const;
  // Removes a member of a keyed collection, or the child.
  virtual void erase(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const;
  virtual std::size_t size(AttrDesc const& attr, GenericIf const& obj) const;
  virtual Ptr<Cursor> cursor(AttrDesc const& attr, Ptr<GenericIf const> const& obj,
                             GenericIf const* start) const;
  virtual Ptr<GenericIf const> invoke(AttrDesc const& attr, GenericIf const& obj, ArgList const& args) const;

  void write(AttrDesc const& attr, GenericIf& obj, GenericIf const* value) const;
};

struct AttrDesc {
  TypeDesc* owner = nullptr;
  AttributeId id = 0;
  std::uint16_t index = 0;
  String name;
  TypeDesc* type = nullptr;       // the array type of an array, else the member type
  TypeDesc* memberType = nullptr; // of the value, or of a collection's members
  TypeDesc* keyType = nullptr;    // of a keyed collection
  String indexName; // the member attribute that is the key; empty when the key lies outside the member
  std::shared_ptr<AttrAccess> access; // shared with the types that extend the owner
  std::size_t offset = SIZE_MAX;      // of the storage in the raw form, for declared classes
  std::function<void(PtrInterface*, void const* value)> setter; // a class's own setter

  bool isCollection = false;
  bool isKeyed = false;
  bool isOrdered = false;
  bool isStack = false;
  bool isArray = false;          // a sequence indexed by number
  bool isScalarArray = false;    // an array whose members are scalars
  bool isInstantiating = false;  // its members or value are entities that it owns
  bool isPointer = false;        // refers to an object that lives elsewhere
  bool isGnmiJsonString = false; // sent whole as one JSON text
  bool readsAsOneValue = false;  // a collection that is read and sent as one value
  bool walkAlways = false;       // walked also when only owned entities are looked for
  bool isKeyScalarNode = false;  // a member is told by its key fields alone
  bool isKeyField = false;
  bool isOptional = false;
  bool isEmbedded = false; // an argument that the constructor makes by itself
  bool isCtorArg = false;
  bool isSettable = false;
  bool isRemovable = true; // members may be deleted by generic writers
  bool isOperation = false;
  bool isPlainlySet = false; // a singular value that may be written; known when the type is complete
};

struct TypeDesc {
  String name;
  String module;
  TypeKind kind = TypeKind::Struct;
  BuiltinKind builtin = BuiltinKind::None;    // of a builtin
  BuiltinKind underlying = BuiltinKind::None; // integer kind of an enumeration
  bool complete = false;
  bool isValueType = false;
  bool isDir = false;
  bool hasGnmiStrRep = false;
  bool hasGnmiByteRep = false;
  bool reportsDelete = true; // an entity's disappearance is told to subscribers
  bool isRuntime = false;    // described wholly at run time: objects hold slots

  ValueOps ops;
  std::vector<std::unique_ptr<AttrDesc>> attrs;
  std::vector<AttrDesc const*> ctorArgs;
  AttrDesc const* valAttr = nullptr;
  std::vector<Enumerator> enumerators;
  TypeDesc const* elementType = nullptr; // of an array type
  TypeDesc const* base = nullptr;        // the entity type it extends

  // Text forms of types that have their own; null: the kind decides.
  std::function<std::string(void const* at)> gnmiStrRep;
  std::function<std::optional<std::string>(std::string_view text, void* to)>
      fromGnmiString; // error text, or none
  std::function<std::string(void const* at)> gnmiByteRep;

  // Makes a detached object of an entity type, all attributes at their defaults; set by the declaration.
  std::function<Ptr<PtrInterface>()> makeObject;
  // Makes a detached object from constructor arguments; when not set, `makeObject` and the argument
  // attributes do it.
  std::function<Ptr<PtrInterface>(ArgList const&)> makeFromArgs;
  // Makes an entity for a directory.
  std::function<Ptr<PtrInterface>(String const& name, ArgList const&)> newEntityForDir;
  // Array and union values, see the declarations: append, clear, length, element; active alternative.
  struct ArrayOps {
    void (*append)(void* array, GenericIf const& value);
    void (*clear)(void* array);
    std::size_t (*size)(void const* array);
    Ptr<GenericIf const> (*at)(TypeDesc const& element, void const* array, std::size_t index); // detached
  };
  ArrayOps const* arrayOps = nullptr;
  AttrDesc const* (*activeAlternative)(TypeDesc const&, void const* at) = nullptr;

  [[nodiscard]] KTD_EXPORT AttrDesc const* attrByName(std::string_view name) const;
  [[nodiscard]] KTD_EXPORT AttrDesc const* attrById(AttributeId id) const;
  // The attribute whose storage begins at this offset of the raw form; null when there is none.
  [[nodiscard]] AttrDesc const* attrByOffset(std::size_t offset) const {
    return offset < byOffset.size() ? byOffset[offset] : nullptr;
  }

  [[nodiscard]] bool isEntity() const { return kind == TypeKind::Entity; }
  // Whether objects of this type are of that one: it is the same, or a type that this one extends.
  [[nodiscard]] bool isA(TypeDesc const& wanted) const noexcept {
    TypeDesc const* mine = this;
    while (mine != nullptr && mine != &wanted)
      mine = mine->base;
    return mine != nullptr;
  }
  // A scalar is sent as one leaf: everything but structures, arrays and entities.
  [[nodiscard]] bool isScalar() const {
    return kind == TypeKind::Builtin || kind == TypeKind::Enum || kind == TypeKind::Nominal ||
           kind == TypeKind::Union || hasGnmiStrRep || hasGnmiByteRep;
  }

  // Lookup tables, filled when the type is completed.
  std::vector<AttrDesc const*> byOffset;
  std::vector<AttrDesc const*> byId;
  struct NameIndex;
  std::shared_ptr<NameIndex> names;
};

} // namespace Kel
