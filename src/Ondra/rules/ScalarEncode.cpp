// The sink that fills messages, and how values are unwrapped and printed first; which kind takes which field
// is in ScalarValue.h.
#include "Ondra/ScalarEncode.h"

#include <boost/beast/core/detail/base64.hpp>

#include <cstdint>
#include <string_view>

#include "Ondra/rules/ScalarValue.h"
#include "Tovak/Assert.h"
#include "Tovak/Trace.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra {
namespace {

// Texts are assigned in place: a setter would make a temporary std::string first. Ends the process where
// there is no memory: messages do not survive that.
class MessageSink {
public:
  explicit MessageSink(gnmi::TypedValue& out) noexcept : out_(out) {}
  void uintVal(std::uint64_t value) noexcept { out_.set_uint_val(value); }
  void intVal(std::int64_t value) noexcept { out_.set_int_val(value); }
  void boolVal(bool value) noexcept { out_.set_bool_val(value); }
  void doubleVal(double value) noexcept { out_.set_double_val(value); }
  void stringVal(std::string_view text) noexcept { out_.mutable_string_val()->assign(text); }
  void bytesVal(std::string_view bytes) noexcept { out_.mutable_bytes_val()->assign(bytes); }
  void jsonVal(std::string_view text) noexcept { out_.mutable_json_val()->assign(text); }

private:
  gnmi::TypedValue& out_;
};

} // namespace

void scalarNotSupported() {
  Tovak::fmassert(Tovak::Platform::getDebugHandler("OndraIr", false), __FILE__, __func__, __LINE__,
                  "type is scalar", "not supported scalar type");
}

Kel::Ptr<Kel::GenericIf const> innerScalar(Kel::Ptr<Kel::GenericIf const> const& value) {
  Kel::KelType const type = value->type();
  Kel::KelAttr const attr = type.isUnion() ? Kel::KelAttr::genericIfUnionAlternative(value) : type.valAttr();
  return attr ? attr.genericIfGet(value) : nullptr;
}

Kel::Ptr<Kel::GenericIf const> printed(Kel::Ptr<Kel::GenericIf const> const& value) {
  if (!isPrinted(value->type())) [[likely]]
    return value;
  if (value->type().hasGnmiByteRep()) return Kel::handleOf(Kel::Bytes(value->gnmiByterep()));
  return Kel::handleOf(Kel::String(value->gnmiStrRep()));
}

bool extractScalar(gnmi::Notification* notification, Kel::Ptr<Kel::GenericIf const> const& value,
                   gnmi::TypedValue* out) {
  static_cast<void>(notification);
  MessageSink sink(*out);
  return tellScalar(value, sink);
}

bool extractScalar(Kel::TypeDesc const& type, Kel::BuiltinKind kind, void const* value,
                   gnmi::TypedValue& out) {
  MessageSink sink(out);
  return kind != Kel::BuiltinKind::None ? Impl::tellBuiltin(kind, value, sink)
                                        : tellScalar(type, value, sink);
}

void base64Encode(char const* data, unsigned long size, std::string& out) {
  namespace base64 = boost::beast::detail::base64;
  out.resize(base64::encoded_size(size));
  out.resize(base64::encode(out.data(), data, size));
}

} // namespace Ondra
