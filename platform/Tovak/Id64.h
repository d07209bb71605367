// Tovak::Id64: a number that names something, of a type of its own.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include <fmt/core.h>

namespace Tovak {

// A 64-bit unsigned identifier. The tag type, which need not be complete, keeps identifiers of different
// things apart at compile time. Made from a number only explicitly; the default is 0. A plain value.
template <typename Tag>
class Id64 {
public:
  constexpr Id64() = default;
  // Of that number.
  constexpr explicit Id64(std::uint64_t value) : value_(value) {}

  constexpr std::uint64_t value() const { return value_; } // the number

  friend constexpr bool operator==(Id64, Id64) = default;
  friend constexpr auto operator<=>(Id64, Id64) = default;

  template <typename H>
  friend H AbslHashValue(H state, Id64 id) {
    return H::combine(std::move(state), id.value_);
  }

private:
  std::uint64_t value_ = 0;
};

} // namespace Tovak

template <typename Tag>
struct std::hash<Tovak::Id64<Tag>> {
  size_t operator()(Tovak::Id64<Tag> id) const noexcept { return std::hash<std::uint64_t>()(id.value()); }
};

// Prints the number; takes no format options.
template <typename Tag>
struct fmt::formatter<Tovak::Id64<Tag>> {
  constexpr auto parse(format_parse_context& context) { return context.begin(); }

  template <typename Context>
  auto format(Tovak::Id64<Tag> id, Context& context) const {
    return fmt::format_to(context.out(), "{}", id.value());
  }
};
