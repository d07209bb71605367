// Scalars of the object model as gNMI values.
#pragma once

#include <string>

#include "Kel/Desc.h"
#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kel/Type.h"
#include "Kstd/Export.h"

namespace gnmi {
class Notification;
class TypedValue;
} // namespace gnmi

namespace Ondra {

// Whether values of the type are sent as one leaf: builtins, enumerations, nominals, unions, and whatever has
// a gNMI string or byte representation. All others are walked as objects.
[[nodiscard]] inline bool isScalarType(Kel::KelType const& type) { return type.desc().isScalar(); }

// The text or bytes of such a value are made by the model's code.
[[nodiscard]] inline bool isPrinted(Kel::KelType const& type) {
  return (type.desc().gnmiStrRep && !type.isEnum()) || type.desc().gnmiByteRep;
}
// That text or those bytes, which are sent in its place; any other value as it is. Walks keep leaves in this
// form, so that none of the model's code runs while they are encoded.
[[nodiscard]] Kel::Ptr<Kel::GenericIf const> printed(Kel::Ptr<Kel::GenericIf const> const& value);

// Fills `out` with a value, in this order of precedence: the byte representation of types that have one, the
// string representation (enumerators travel by name), the builtin kind. A nominal is sent as the value it
// wraps, a union as its active alternative; one without any leaves `out` without a value. Durations and times
// are sent in nanoseconds. False, and `out` as it was, when no message can hold the value: a text that is no
// UTF-8.
//
// `value` must not be null. A type that is not scalar is a fatal assertion. `notification` is the one that
// `out` is part of; not used. Texts are copied. Scheduler thread.
KTD_EXPORT bool extractScalar(gnmi::Notification* notification, Kel::Ptr<Kel::GenericIf const> const& value,
                              gnmi::TypedValue* out);

// The same for the raw form of a value. `kind`: how its bits are told, where that is known; else None.
[[nodiscard]] bool extractScalar(Kel::TypeDesc const& type, Kel::BuiltinKind kind, void const* value,
                                 gnmi::TypedValue& out);

// The base64 text (RFC 4648, with padding) of `size` bytes, replacing what `out` held.
KTD_EXPORT void base64Encode(char const* data, unsigned long size, std::string& out);

} // namespace Ondra
