// How a scalar of the model is told in gNMI: which field of a TypedValue it becomes, whatever the value is
// written to.
#pragma once

#include <cstdint>
#include <string_view>

#include "Kel/Attr.h"
#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kel/Type.h"
#include "Kstd/Utf8.h"

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

// A text, unless no message can hold it.
template <class Sink>
bool tellText(std::string_view text, Sink& sink) {
  if (!Kstd::isUtf8(text)) [[unlikely]]
    return false;
  sink.stringVal(text);
  return true;
}

// The same for JSON, whose field takes any bytes: what is no UTF-8 is no JSON either.
template <class Sink>
bool tellJson(std::string_view text, Sink& sink) {
  if (!Kstd::isUtf8(text)) [[unlikely]]
    return false;
  sink.jsonVal(text);
  return true;
}

// `kind` says how the bits of the value are to be read: a builtin's own kind, or the integer under an
// enumeration. Inlined, so that a sink can live in registers.
template <class Sink>
[[gnu::always_inline]] inline bool tellBuiltin(Kel::BuiltinKind kind, void const* value, Sink& sink) {
  using enum Kel::BuiltinKind;
  switch (kind) {
  case U8: sink.uintVal(heldBy<std::uint8_t>(value)); break;
  case S8: sink.intVal(heldBy<std::int8_t>(value)); break;
  case U16: sink.uintVal(heldBy<std::uint16_t>(value)); break;
  case S16: sink.intVal(heldBy<std::int16_t>(value)); break;
  case U32: sink.uintVal(heldBy<std::uint32_t>(value)); break;
  case S32: sink.intVal(heldBy<std::int32_t>(value)); break;
  case U64: sink.uintVal(heldBy<std::uint64_t>(value)); break;
  case S64: sink.intVal(heldBy<std::int64_t>(value)); break;
  case Bool: sink.boolVal(heldBy<bool>(value)); break;
  // Sign-extended, whatever the sign of the machine's char: a char with the top bit set comes out near 2^64.
  case Char: sink.uintVal(static_cast<std::uint64_t>(heldBy<signed char>(value))); break;
  case Float: sink.doubleVal(static_cast<double>(heldBy<float>(value))); break;
  case Double: sink.doubleVal(heldBy<double>(value)); break;
  case String: return tellText(heldBy<Kel::String>(value).view(), sink);
  case Bytes: sink.bytesVal(heldBy<Kel::Bytes>(value).view()); break;
  case Seconds: sink.intVal(heldBy<Kel::Seconds>(value).nanoseconds()); break;
  case Time: sink.uintVal(heldBy<Kel::Time>(value).nanoseconds()); break;
  case JsonString: return tellJson(heldBy<Kel::JsonString>(value).text.view(), sink);
  case None: scalarNotSupported();
  }
  return true;
}

} // namespace Impl

// Tells the sink the one field that the value becomes, or nothing for a union or a wrapper that holds
// nothing. A sink has uintVal(uint64), intVal(int64), boolVal(bool), doubleVal(double), and stringVal,
// bytesVal and jsonVal of a text that is valid during the call. False when the value cannot be told: a text
// that is no UTF-8; the sink has not been called then.
template <class Sink>
[[nodiscard]] bool tellScalar(Kel::Ptr<Kel::GenericIf const> const& value, Sink& sink) {
  Kel::TypeDesc const& type = value->type().desc();
  if (type.hasGnmiByteRep) {
    sink.bytesVal(value->gnmiByterep());
    return true;
  }
  if (type.hasGnmiStrRep) return Impl::tellText(value->gnmiStrRep(), sink);
  switch (type.kind) {
  case Kel::TypeKind::Builtin: return Impl::tellBuiltin(type.builtin, value->data(), sink);
  case Kel::TypeKind::Enum: return Impl::tellBuiltin(type.underlying, value->data(), sink);
  case Kel::TypeKind::Nominal:
  case Kel::TypeKind::Union: {
    Kel::Ptr<Kel::GenericIf const> const inner = innerScalar(value);
    return !inner || tellScalar(inner, sink);
  }
  case Kel::TypeKind::Struct:
  case Kel::TypeKind::KeyPtr:
  case Kel::TypeKind::Array:
  case Kel::TypeKind::Entity:
  case Kel::TypeKind::Object:
  case Kel::TypeKind::CollectionControl: break;
  }
  scalarNotSupported();
}

// The same for the raw form of a value.
template <class Sink>
[[nodiscard]] bool tellScalar(Kel::TypeDesc const& type, void const* value, Sink& sink) {
  if (type.kind == Kel::TypeKind::Builtin && !type.hasGnmiStrRep && !type.hasGnmiByteRep) [[likely]]
    return Impl::tellBuiltin(type.builtin, value, sink);
  return tellScalar(Kel::Ptr<Kel::GenericIf const>(Kel::GenericIf::copyOf(type, value)), sink);
}

} // namespace Ondra
