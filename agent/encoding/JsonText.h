// JSON texts of clients, read with every doubt: any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "Kstd/Result.h"

namespace Agent {

inline constexpr std::size_t kMaxJsonDepth = 128; // objects and arrays within each other

// The document, or what is wrong with it: no JSON, invalid UTF-8, something behind the end, a member twice in
// one object, nested too deeply.
[[nodiscard]] Kstd::Result<nlohmann::json, std::string> jsonOf(std::string_view text);

} // namespace Agent
