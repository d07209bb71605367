// What a client says first, before its connection costs more than a descriptor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Agent {

enum class Opening : std::uint8_t { Begun, Whole, Wrong };

// Of a connection in plain text: HTTP/2's preface (RFC 9113, 3.4). Of a TLS connection: a first record with a
// handshake (RFC 8446, 5.1).
[[nodiscard]] Opening openingOf(std::string_view bytes, bool isTls);
// No whole opening is longer.
constexpr std::size_t kLongestOpening = 5 + (std::size_t{1} << 14);

} // namespace Agent
