// The small types that walks, their tasks and their routers share.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <fmt/core.h>

#include "Kstd/Export.h"
#include "Tovak/Id64.h"

namespace Ondra {

// What a walking operation says to its caller. Whatever is not Success means: stop here.
enum class WalkResult : std::uint8_t {
  Success = 0,             // done, or nothing to do
  SuccessWithPipeFull = 1, // done, but the router's pipe filled up on the way
  PipeFull = 2,            // stopped: the router takes no more
  QuantaExceeded = 3,      // stopped: the time slice is used up
};

// The name of the enumerator; the text lives for the process. Any other value is a fatal assertion.
[[nodiscard]] KTD_EXPORT std::string_view walkResultToStringView(WalkResult result);

// How a walk is to be done: a set of the bits named below.
class WalkerFlags {
public:
  constexpr WalkerFlags() noexcept = default;
  // Of the flags below, as bits.
  constexpr explicit WalkerFlags(std::uint16_t bits) noexcept : bits_(bits) {}

  // As a number, for printing.
  [[nodiscard]] constexpr std::uint16_t bits() const noexcept { return bits_; }
  // Some bit is set: `if (flags & flagStream)`.
  constexpr explicit operator bool() const noexcept { return bits_ != 0; }
  // All of these bits are set.
  [[nodiscard]] constexpr bool has(WalkerFlags all) const noexcept {
    return (bits_ & all.bits_) == all.bits_;
  }

  friend constexpr WalkerFlags operator|(WalkerFlags a, WalkerFlags b) noexcept {
    return WalkerFlags(static_cast<std::uint16_t>(a.bits_ | b.bits_));
  }
  friend constexpr WalkerFlags operator&(WalkerFlags a, WalkerFlags b) noexcept {
    return WalkerFlags(static_cast<std::uint16_t>(a.bits_ & b.bits_));
  }
  friend constexpr WalkerFlags operator~(WalkerFlags a) noexcept {
    return WalkerFlags(static_cast<std::uint16_t>(~a.bits_));
  }
  constexpr WalkerFlags& operator|=(WalkerFlags other) noexcept { return *this = *this | other; }
  constexpr WalkerFlags& operator&=(WalkerFlags other) noexcept { return *this = *this & other; }
  friend constexpr bool operator==(WalkerFlags, WalkerFlags) noexcept = default;

  // 16 digits 0 or 1, most significant first.
  [[nodiscard]] std::string toString() const { return fmt::format("{:016b}", bits_); }

private:
  std::uint16_t bits_ = 0;
};

inline constexpr WalkerFlags flagNoPush{0x01};      // pushes report success and send nothing
inline constexpr WalkerFlags flagStream{0x02};      // for a subscription that goes on: STREAM, POLL
inline constexpr WalkerFlags flagSnapshot{0x04};    // everything is sent, not only what owned entities need
inline constexpr WalkerFlags flagNotif{0x08};       // of a notification that is sent
inline constexpr WalkerFlags flagSkipWalk{0x10};    // the attributes are done: the last push only
inline constexpr WalkerFlags flagNoPause{0x20};     // goes on to the end, whatever the results
inline constexpr WalkerFlags flagNotifSecond{0x40}; // of a notifiee whose second flag is set
inline constexpr WalkerFlags flagInstantiatingOnly{0x80}; // owned entities only, to end their notifiees

// The mode of a subscription, numbered as on the wire. Printed as its number.
enum class RequestType : std::uint32_t {
  STREAM = 0,
  ONCE = 1,
  POLL = 2,
};

// A walk is named by the subscription whose responses it makes and by a number of its own, not 0 if it can be
// parked.
using Tovak::Id64;
struct _SyncId;
struct _WalkId;
using SyncId = Id64<_SyncId>; // of a subscription; 0: of changes
using WalkId = Id64<_WalkId>; // 0: cannot be parked

} // namespace Ondra

template <>
struct fmt::formatter<Ondra::WalkerFlags> {
  constexpr auto parse(format_parse_context& context) { return context.begin(); }
  template <typename Context>
  auto format(Ondra::WalkerFlags flags, Context& context) const {
    return fmt::format_to(context.out(), "{:016b}", flags.bits());
  }
};

template <>
struct fmt::formatter<Ondra::WalkResult> {
  constexpr auto parse(format_parse_context& context) { return context.begin(); }
  template <typename Context>
  auto format(Ondra::WalkResult result, Context& context) const {
    return fmt::format_to(context.out(), "{}", Ondra::walkResultToStringView(result));
  }
};

template <>
struct fmt::formatter<Ondra::RequestType> {
  constexpr auto parse(format_parse_context& context) { return context.begin(); }
  template <typename Context>
  auto format(Ondra::RequestType type, Context& context) const {
    return fmt::format_to(context.out(), "{}", static_cast<std::uint32_t>(type));
  }
};
