// The schema library's arrays as ranges.
#pragma once

#include <span>

#include <libyang/libyang.h>

namespace Agent {

// Of a sized array of the library's; null is an empty one.
template <class T>
[[nodiscard]] std::span<T> sized(T* array) {
  return {array, array == nullptr ? 0 : *(reinterpret_cast<LY_ARRAY_COUNT_TYPE const*>(array) - 1)};
}

// The type that a leafref points to, through as many as there are; any other type itself.
[[nodiscard]] inline lysc_type const& pointedAt(lysc_type const& type) {
  lysc_type const* at = &type;
  while (at->basetype == LY_TYPE_LEAFREF)
    at = reinterpret_cast<lysc_type_leafref const*>(at)->realtype;
  return *at;
}

} // namespace Agent
