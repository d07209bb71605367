// The preface of HTTP/2, or the header of the first record of TLS with its length; no byte beyond is looked
// at.
#include "agent/service/FirstBytes.h"

namespace Agent {
namespace {

constexpr std::string_view kPreface = "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n";
constexpr std::size_t kRecordHeader = 5; // the kind, two bytes of version, two of length
constexpr unsigned char kHandshake = 22;

} // namespace

Opening openingOf(std::string_view bytes, bool isTls) {
  if (!isTls) {
    if (bytes.starts_with(kPreface)) return Opening::Whole;
    return kPreface.starts_with(bytes) ? Opening::Begun : Opening::Wrong;
  }
  auto const at = [bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  if (!bytes.empty() && at(0) != kHandshake) return Opening::Wrong;
  if (bytes.size() > 1 && at(1) != 3) return Opening::Wrong;
  if (bytes.size() < kRecordHeader) return Opening::Begun;
  std::size_t const length = kRecordHeader + at(3) * 256U + at(4);
  if (length == kRecordHeader || length > kLongestOpening) return Opening::Wrong;
  return bytes.size() >= length ? Opening::Whole : Opening::Begun;
}

} // namespace Agent
