// Mostly one-liners: doubles as big-endian bytes, types of requests as flags, the element that stands for an
// attribute.
#include "Ondra/GnmiUtils.h"

#include <absl/strings/str_join.h>

#include <bit>
#include <cstdint>

#include "Ondra/rules/WalkRules.h"
#include "Tovak/Assert.h"
#include "Tovak/Trace.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra::KelGnmiUtils {
namespace {

Tovak::DebugHandler& debugHandler() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("OndraKelGnmiUtils", false);
  return handler;
}

} // namespace

void populateTimestamp(gnmi::Notification& notification, long timestamp) {
  notification.set_timestamp(timestamp);
}

void pushDelete(gnmi::Notification& notification, Kel::Ptr<Path const> const& path) {
  path->copyToGnmiPath(notification.add_delete_());
}

Tovak::String stringVecJoin(std::vector<Tovak::String> const& texts, Tovak::String const& separator) {
  return absl::StrJoin(texts, separator);
}

std::string encodeDoubleVal(double const& value) {
  auto const bits = std::bit_cast<std::uint64_t>(value);
  std::string bytes(sizeof bits, '\0');
  for (std::size_t i = 0; i < sizeof bits; ++i)
    bytes[i] = static_cast<char>(bits >> (56 - 8 * i));
  return bytes;
}

std::optional<double> decodeDoubleVal(std::string const& bytes) {
  std::uint64_t bits = 0;
  if (bytes.size() != sizeof bits) return std::nullopt;
  for (char const byte : bytes)
    bits = bits << 8 | static_cast<unsigned char>(byte);
  return std::bit_cast<double>(bits);
}

WalkerFlags requestTypeToFlags(RequestType type) {
  switch (type) {
  case RequestType::STREAM: return flagStream;
  case RequestType::ONCE: return flagSnapshot;
  case RequestType::POLL: return flagStream | flagSnapshot;
  }
  Tovak::fmassert(debugHandler(), __FILE__, __func__, __LINE__, "type is a RequestType",
                  "Unrecognized request type:{}", type);
}

Kel::Ptr<PathElem const> const& attrElem(Kel::KelType type, Kel::KelAttr const& attr) {
  return WalkRules::typePlan(type).attrs[attr.desc().index].elem;
}

} // namespace Ondra::KelGnmiUtils
