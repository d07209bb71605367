// JSON as strict readers take it, rewritten for the schema library, whose own reader refuses what is correct
// (pairs of surrogates, a byte order mark) and takes what is not (text behind the end, a name twice).
#pragma once

#include <string>
#include <string_view>

#include "Kstd/Result.h"

namespace Agent {

// The same document with its texts in UTF-8; or what is wrong with it.
[[nodiscard]] Kstd::Result<std::string, std::string> plainJson(std::string_view text);

} // namespace Agent
