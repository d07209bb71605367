// What texts are held to beyond their type: the lengths and patterns of the published types. A leaf names one
// where it is declared. docs/decisions.md: "Which values may be configured?"
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Kstd/Result.h"

namespace re2 {
class RE2;
} // namespace re2

namespace Agent {

// Immutable; those below live for the process. Any thread. A check takes time in proportion to the text,
// whatever it holds.
struct TextRules {
  std::string_view name; // of the published type
  std::size_t minLength = 0;
  std::size_t maxLength = SIZE_MAX;  // in characters
  re2::RE2 const* pattern = nullptr; // of the whole text

  // The error says what is wrong with a text.
  [[nodiscard]] Kstd::Result<void, std::string> check(std::string_view text) const;
};

[[nodiscard]] TextRules const& domainName();
[[nodiscard]] TextRules const& ipv4Address();
[[nodiscard]] TextRules const& ipv6Address();
[[nodiscard]] TextRules const& ipAddress();     // either of them
[[nodiscard]] TextRules const& listenAddress(); // one of them, or ANY
[[nodiscard]] TextRules const& macAddress();
[[nodiscard]] TextRules const& physAddress(); // of a link of any kind
[[nodiscard]] TextRules const& dateAndTime();

} // namespace Agent
