// Leaf values as the clients asked for them: a value as the library sends it (typed scalars, enumerations as
// their names) is written as JSON or, by RFC 7951, as JSON_IETF. Pure: any thread.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "agent/model/Schema.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

// The encodings that Get and Subscribe offer: JSON, JSON_IETF, PROTO.
[[nodiscard]] bool isEncodingSupported(gnmi::Encoding encoding);

// Rewrites `value` in place: `json_val` or `json_ietf_val` with the bare value of the leaf; PROTO leaves it
// as it is, but for what is held as a text and told as something else (`Impl::isToldOtherwise`). REQUIRES an
// encoding that is supported.
void leafEncodingIs(gnmi::TypedValue& value, LeafInfo const& leaf, gnmi::Encoding encoding);

// Appends the same as JSON text. `isIetf`: 64-bit numbers and decimals are strings, identities carry their
// module.
void appendLeafJson(std::string& to, gnmi::TypedValue const& value, LeafInfo const& leaf, bool isIetf);

// The same of a value that is a text.
void appendNameJson(std::string& to, std::string_view name, LeafInfo const& leaf, bool isIetf);

// The value of a list's key leaf, from its text in a path.
void appendKeyJson(std::string& to, std::string_view text, LeafInfo const& leaf, bool isIetf);

// Whether a number of the leaf is a string by RFC 7951. A union's numbers follow its alternatives.
[[nodiscard]] bool isNumberText(LeafInfo const& leaf);

// Appends an integer, in quotes where it is a text.
template <class Number>
void appendNumber(std::string& to, Number number, bool isText) {
  fmt::format_int const digits(number);
  if (isText) to += '"';
  to.append(digits.data(), digits.size());
  if (isText) to += '"';
}

// Whether a text stands in a JSON string as it is: ASCII, and nothing to escape.
[[nodiscard]] inline bool isPlainJsonText(std::string_view text) {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  constexpr std::uint64_t kTops = kOnes << 7;
  // The top bit of some byte is set when there is a byte of the kind; where there is none, of none.
  auto const hasOther = [](std::uint64_t bytes) {
    std::uint64_t const quotes = bytes ^ (kOnes * '"');
    std::uint64_t const escapes = bytes ^ (kOnes * '\\');
    return ((bytes | (bytes - kOnes * 0x20) | (quotes - kOnes) | (escapes - kOnes)) & kTops) != 0;
  };
  char const* at = text.data();
  std::size_t left = text.size();
  for (; left >= 8; at += 8, left -= 8) {
    std::uint64_t bytes;
    std::memcpy(&bytes, at, 8);
    if (hasOther(bytes)) return false;
  }
  for (; left > 0; ++at, --left) {
    auto const byte = static_cast<unsigned char>(*at);
    if (byte < 0x20 || byte > 0x7f || byte == '"' || byte == '\\') return false;
  }
  return true;
}

// Appends a JSON string. What is not UTF-8 becomes the replacement character.
void appendJsonString(std::string& to, std::string_view text);

} // namespace Agent
