// Types whose objects answer generic access themselves, through a dispatcher and iterator hooks of their own.
//
// A library that brings classes with operations (as the path types do) registers them here: the attribute is
// named, and every generic access to it arrives at the type's dispatcher together with the attribute's id.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Attr.h"
#include "Kel/GenericIf.h"
#include "Kel/TypeBuilder.h"
#include "Kstd/Export.h"

namespace Kel {

// The dispatcher's three answers.
enum class AttributeOpResult : std::uint8_t {
  Done,         // the request was handled
  NotSupported, // the attribute does not have this operation
  NotHandled,   // the attribute is not the type's own; it is left to the base type
};

// All functions run on the scheduler thread. A collection's iteration state is the type's own, made by
// `create` (at the first member, or at the first not before `start`) and given back to `del`. It keeps to the
// states of `Cursor` but for the last, Ended, which is seen to here: after `nonNull` has once said no, no
// other function is called but `del`.
struct TypeHooks {
  // Answers one access in `result`; what it raises is the error of whoever asked.
  using AttributeOpFn = AttributeOpResult (*)(PtrInterface* object, AttributeId attribute,
                                              GenericIf::AttributeOp op, ArgList const& args,
                                              Ptr<GenericIf const>& result);
  // The functions of an iteration, by the state that `create` made.
  struct Iteration {
    // State of a new iteration, see `TypeHooks`.
    void* (*create)(PtrInterface const* object, AttributeId attribute, GenericIf const* start) = nullptr;
    void (*increment)(void* state) = nullptr;              // to the next member
    bool (*nonNull)(void* state) = nullptr;                // there is a member
    void (*del)(void* state) = nullptr;                    // called once for each state
    Ptr<GenericIf const> (*key)(void* state) = nullptr;    // of the member
    Ptr<GenericIf const> (*object)(void* state) = nullptr; // its value
  };

  // Arguments by operation: Get, Delete and Contains take the key (nothing for a value attribute), Set the
  // key and the value (the value alone for a value attribute), Count nothing, Call the operation's arguments.
  // Get answers with the value or null, Count and Contains with a U64 and a Bool.
  AttributeOpFn genericIfAttributeOp = nullptr;
  Iteration iteration; // of all collection attributes
  // Makes a detached object from constructor arguments; without it there are no generic constructions.
  std::function<Ptr<PtrInterface>(ArgList const&)> construct;
  // Makes an entity for a directory.
  std::function<Ptr<PtrInterface>(String const& name, ArgList const& args)> newEntityForDir;
};

// Registers such a type. Ids count from 1 in the order of the calls.
class KTD_EXPORT HookedType {
public:
  // `kind`: Object or Entity.
  HookedType(std::string_view module, std::string_view name, TypeDesc& desc, TypeKind kind,
             TypeHooks const& hooks);
  // An attribute that is called: its result and arguments are the dispatcher's affair.
  HookedType& operation(std::string_view name, std::vector<std::string> argNames = {});
  // A singular attribute. `settable`: generic writers may set it.
  HookedType& value(std::string_view name, KelType type, bool settable);
  // A keyed collection with its keys outside of the members.
  HookedType& collection(std::string_view name, KelType key, KelType value, bool settable);
  HookedType& ctorArg(); // the last value attribute is a constructor argument
  KelType done();        // raises `Kel::Error` when a rule of registration is broken

private:
  TypeBuilder builder_;
  TypeHooks const* hooks_;
};

} // namespace Kel
