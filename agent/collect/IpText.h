// Addresses as the published models write them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Agent {

// Canonical: without a zone, and with nothing of an IPv6 address as a dotted quad. None for what is no
// address.
[[nodiscard]] std::optional<std::string> ipText(std::string_view text);

} // namespace Agent
