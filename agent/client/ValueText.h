// gNMI values as people read and write them.
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "Kstd/Result.h"

namespace gnmi {
class TypedValue;
} // namespace gnmi

namespace Agent {

// The value as JSON; 64-bit numbers of PROTO keep all digits, bytes are base64. What claims to be JSON and is
// not becomes a string.
[[nodiscard]] nlohmann::ordered_json valueJson(gnmi::TypedValue const& value);

// The value as a text for a terminal: a string bare, everything else as JSON (`indent` < 0: on one line).
// Nothing in it can control the terminal, whatever the server sent.
[[nodiscard]] std::string valueText(gnmi::TypedValue const& value, int indent = -1);

// Control characters, and what is no UTF-8, written as JSON strings would.
[[nodiscard]] std::string printable(std::string_view text);

// What a user wrote for Set: JSON where it is JSON, else a string; "@FILE" is the file's content, which must
// be JSON. Sent as JSON_IETF.
[[nodiscard]] Kstd::Result<gnmi::TypedValue, std::string> valueOf(std::string_view text);

} // namespace Agent
