// How a scalar of the model is told in gNMI: which field of a TypedValue it becomes, whatever the value is written to.
#pragma once

#include <cstdint>
#include <string_view>

#include "Kel/Attr.h"
#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kel/Type.h"

namespace Ondra {

// A fatal assertion: the value is of no scalar type.
[[noreturn]] void scalarNotSupported();

// What a nominal wraps or a union holds at the moment; null when there is nothing.
[[nodiscard]] Kel::Ptr<Kel::GenericIf const> innerScalar(Kel::Ptr<Kel::GenericIf const> const& value);

namespace Impl {

template <class T>
T const& heldBy(void const* value) {
  return *static_cast<T const*>(value);
}

// `kind` says how the bits of the value are to be read: a builtin's own kind, or the integer under an enumeration.
template <class Sink>
void tellBuiltin(Kel::BuiltinKind kind, void const* value, Sink& sink) {
  using enum Kel::BuiltinKind;
  switch (kind) {
  case U8: return sink.uintVal(heldBy<std::uint8_t>(value));
  case S8: return sink.intVal(heldBy<std::int8_t>(value));
  case U16: return sink.uintVal(heldBy<std::uint16_t>(value));
  case S16: return sink.intVal(heldBy<std::int16_t>(value));
  case U32: return sink.uintVal(heldBy<std::uint32_t>(value));
  case S32: return sink.intVal(heldBy<std::int32_t>(value));
  case U64: return sink.uintVal(heldBy<std::uint64_t>(value));
  case S64: return sink.intVal(heldBy<std::int64_t>(value));
  case Bool: return sink.boolVal(heldBy<bool>(value));
  // Sign-extended, whatever the sign of the machine's char: a char with the top bit set comes out near 2^64.
  case Char: return sink.uintVal(static_cast<std::uint64_t>(heldBy<signed char>(value)));
  case Float: return sink.doubleVal(static_cast<double>(heldBy<float>(value)));
  case Double: return sink.doubleVal(heldBy<double>(value));
  case String: return sink.stringVal(heldBy<Kel::String>(value).view());
  case Bytes: return sink.bytesVal(heldBy<Kel::Bytes>(value).view());
  case Seconds: return sink.intVal(heldBy<Kel::Seconds>(value).nanoseconds());
  case Time: return sink.uintVal(heldBy<Kel::Time>(value).nanoseconds());
  case JsonString: return sink.jsonVal(heldBy<Kel::JsonString>(value).text.view());
  case None: break;
  }
  scalarNotSupported();
}

} // namespace Impl

// Tells the sink the one field that the value becomes, or nothing for a union or a wrapper that holds nothing. A sink has
// uintVal(uint64), intVal(int64), boolVal(bool), doubleVal(double), and stringVal, bytesVal and jsonVal of a text that is valid
// during the call.
template <class Sink>
void tellScalar(Kel::Ptr<Kel::GenericIf const> const& value, Sink& sink) {
  Kel::TypeDesc const& type = value->type().desc();
  if (type.hasGnmiByteRep) {
    return sink.bytesVal(value->gnmiByterep());
  }
  if (type.hasGnmiStrRep) {
    return sink.stringVal(value->gnmiStrRep());
  }
  switch (type.kind) {
  case Kel::TypeKind::Builtin: return Impl::tellBuiltin(type.builtin, value->data(), sink);
  case Kel::TypeKind::Enum: return Impl::tellBuiltin(type.underlying, value->data(), sink);
  case Kel::TypeKind::Nominal:
  case Kel::TypeKind::Union:
    if (Kel::Ptr<Kel::GenericIf const> const inner = innerScalar(value)) {
      tellScalar(inner, sink);
    }
    return;
  default: scalarNotSupported();
  }
}

// The same for the raw form of a value.
template <class Sink>
void tellScalar(Kel::TypeDesc const& type, void const* value, Sink& sink) {
  if (type.kind == Kel::TypeKind::Builtin && !type.hasGnmiStrRep && !type.hasGnmiByteRep) [[likely]] {
    return Impl::tellBuiltin(type.builtin, value, sink);
  }
  tellScalar(Kel::Ptr<Kel::GenericIf const>(Kel::GenericIf::copyOf(type, value)), sink);
}

} // namespace Ondra
