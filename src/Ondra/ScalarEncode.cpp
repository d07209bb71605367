#include "Ondra/ScalarEncode.h"

#include <boost/beast/core/detail/base64.hpp>

#include <cstdint>
#include <string_view>

#include "Kel/Attr.h"
#include "Tovak/Assert.h"
#include "Tovak/Trace.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra {
namespace {

using Handle = Kel::Ptr<Kel::GenericIf const>;

[[noreturn]] void notSupported() {
  Tovak::fmassert(Tovak::Platform::getDebugHandler("OndraIr", false), __FILE__, __func__, __LINE__,
                  "type is scalar", "not supported scalar type");
}

template <class T>
T const& held(Kel::GenericIf const& value) {
  return *static_cast<T const*>(value.data());
}

template <class T>
void setUint(Kel::GenericIf const& value, gnmi::TypedValue& out) {
  out.set_uint_val(static_cast<std::uint64_t>(held<T>(value)));
}
template <class T>
void setInt(Kel::GenericIf const& value, gnmi::TypedValue& out) {
  out.set_int_val(held<T>(value));
}

// Texts are assigned in place: a setter would make a temporary std::string first.
void setString(std::string_view text, gnmi::TypedValue& out) { out.mutable_string_val()->assign(text); }

// `kind` says how the bits of the value are to be read: a builtin's own kind, or the integer under an enumeration.
void setBuiltin(Kel::BuiltinKind kind, Kel::GenericIf const& value, gnmi::TypedValue& out) {
  using Kel::BuiltinKind;
  switch (kind) {
  case BuiltinKind::U8: return setUint<std::uint8_t>(value, out);
  case BuiltinKind::S8: return setInt<std::int8_t>(value, out);
  case BuiltinKind::U16: return setUint<std::uint16_t>(value, out);
  case BuiltinKind::S16: return setInt<std::int16_t>(value, out);
  case BuiltinKind::U32: return setUint<std::uint32_t>(value, out);
  case BuiltinKind::S32: return setInt<std::int32_t>(value, out);
  case BuiltinKind::U64: return setUint<std::uint64_t>(value, out);
  case BuiltinKind::S64: return setInt<std::int64_t>(value, out);
  case BuiltinKind::Bool: return out.set_bool_val(held<bool>(value));
  // Sign-extended, whatever the sign of the machine's char: a char with the top bit set comes out near 2^64.
  case BuiltinKind::Char: return setUint<signed char>(value, out);
  case BuiltinKind::Float: return out.set_double_val(static_cast<double>(held<float>(value)));
  case BuiltinKind::Double: return out.set_double_val(held<double>(value));
  case BuiltinKind::String: return setString(held<Kel::String>(value).view(), out);
  case BuiltinKind::Bytes: out.mutable_bytes_val()->assign(held<Kel::Bytes>(value).view()); return;
  case BuiltinKind::Seconds: return out.set_int_val(held<Kel::Seconds>(value).nanoseconds());
  case BuiltinKind::Time: return out.set_uint_val(held<Kel::Time>(value).nanoseconds());
  case BuiltinKind::JsonString:
    out.mutable_json_val()->assign(held<Kel::JsonString>(value).text.view());
    return;
  case BuiltinKind::None: break;
  }
  notSupported();
}

// What a nominal wraps or a union holds at the moment; null when there is nothing.
Handle inner(Handle const& value) {
  Kel::KelType const type = value->type();
  Kel::KelAttr const attr = type.isUnion() ? Kel::KelAttr::genericIfUnionAlternative(value) : type.valAttr();
  return attr ? attr.genericIfGet(value) : Handle();
}

} // namespace

void extractScalar(gnmi::Notification* notification, Kel::Ptr<Kel::GenericIf const> const& value,
                   gnmi::TypedValue* out) {
  Kel::TypeDesc const& type = value->type().desc();
  if (type.hasGnmiByteRep) {
    out->mutable_bytes_val()->assign(value->gnmiByterep());
    return;
  }
  if (type.hasGnmiStrRep) {
    return setString(value->gnmiStrRep(), *out);
  }
  switch (type.kind) {
  case Kel::TypeKind::Builtin: return setBuiltin(type.builtin, *value, *out);
  case Kel::TypeKind::Enum: return setBuiltin(type.underlying, *value, *out);
  case Kel::TypeKind::Nominal:
  case Kel::TypeKind::Union:
    if (Handle const what = inner(value)) {
      extractScalar(notification, what, out);
    }
    return;
  default: notSupported();
  }
}

void base64Encode(char const* data, unsigned long size, std::string& out) {
  namespace base64 = boost::beast::detail::base64;
  out.resize(base64::encoded_size(size));
  out.resize(base64::encode(out.data(), data, size));
}

} // namespace Ondra
