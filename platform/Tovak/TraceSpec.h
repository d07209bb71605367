// The text that says which traces are switched on.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "Kstd/Result.h"
#include "Tovak/String.h"

namespace Tovak::Impl {

// One entry of a trace spec (see Platform::traceIs): which handlers, and a bit per level.
struct TraceRule {
  String pattern;
  std::uint32_t levels;
};

// The rules of a spec, or a text that names the offending entry.
Kstd::Result<std::vector<TraceRule>, String> parseTraceSpec(std::string_view spec);

// Whether `name` is `pattern`, in which '*' stands for any run of characters and '?' for any one.
bool globMatches(std::string_view pattern, std::string_view name);

} // namespace Tovak::Impl
