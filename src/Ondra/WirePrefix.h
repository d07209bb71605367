// Ondra::WirePrefix: the elements of a watched path as bytes of a gNMI path, kept with whoever watches.
//
// The paths of a list's entries differ in the values of their keys and in nothing else, and so do those of
// the containers below them. So the bytes are kept in two parts: the values, each path's own, and the frame
// around them, which all paths share whose values are as long.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>
#include <string_view>

#include "Kel/String.h"
#include "Kstd/Export.h"

namespace Ondra {

// The values of a path's keys, one after the other. 16 bytes, and no storage of their own for short ones:
// where many paths are cold, each address that has to be found first is a wait.
class WireValues {
public:
  // Ends with the values.
  using Block = std::array<std::uint8_t, 16>;

  WireValues() noexcept : short_{} {}
  explicit WireValues(std::string_view values) : short_{} {
    if (values.size() >= short_.size()) {
      new (&long_) Long{kLong, Kel::Bytes(values)};
    } else {
      short_.front() = static_cast<std::uint8_t>(values.size());
      std::copy(values.begin(), values.end(), short_.end() - static_cast<std::ptrdiff_t>(values.size()));
    }
  }
  WireValues(WireValues const& other) noexcept : short_{} { takeFrom(other); }
  WireValues& operator=(WireValues const& other) noexcept {
    if (this == &other) return *this;
    drop();
    takeFrom(other);
    return *this;
  }
  ~WireValues() { drop(); }

  // Valid while they live.
  [[nodiscard]] std::string_view view() const noexcept {
    if (isLong()) return long_.all.view();
    return {reinterpret_cast<char const*>(short_.data()) + short_.size() - short_.front(), short_.front()};
  }
  [[nodiscard]] Block const* block() const noexcept { return isLong() ? nullptr : &short_; } // of short ones
  // Has what lies elsewhere on its way into the cache.
  void prefetch() const noexcept {
    if (isLong()) __builtin_prefetch(long_.all.bytesPtr());
  }

private:
  struct Long {
    std::uint8_t mark;
    Kel::Bytes all;
  };
  static constexpr std::uint8_t kLong = 0xff; // where else the size is

  [[nodiscard]] bool isLong() const noexcept {
    return *reinterpret_cast<std::uint8_t const*>(this) == kLong; // the first byte of either
  }
  void takeFrom(WireValues const& other) noexcept {
    if (other.isLong())
      new (&long_) Long(other.long_);
    else
      new (&short_) Block(other.short_);
  }
  void drop() noexcept {
    if (isLong()) long_.~Long();
  }

  union {
    Block short_;
    Long long_;
  };
};
static_assert(sizeof(WireValues) == 16);

class KTD_EXPORT WirePrefix {
public:
  // Where a value stood in the bytes of a path.
  struct Value {
    std::size_t at;
    std::size_t length;
  };

  WirePrefix() = default;
  // Of the bytes of a path, whose values stand at these places, in order.
  WirePrefix(std::string_view bytes, std::span<Value const> values);

  [[nodiscard]] bool isMade() const noexcept { return !frame_.empty(); } // an encoder has done so
  // Has what lies elsewhere and is not shared on its way into the cache.
  void prefetch() const noexcept { values_.prefetch(); }

  // The bytes, written by a `WireRun`. REQUIRES that it is made.
  template <class Run>
  [[gnu::always_inline]] void putInto(Run& run) const {
    std::string_view const frame = frame_.view();
    std::size_t const gaps = gapCount(frame);
    if (values_.block() == nullptr || gaps != 1) [[unlikely]]
      return putApart(run, frame, gaps);
    Gap const gap = gapOf(frame, 0);
    run.around({frame.data() + kHead, gap.at - kHead}, *values_.block(), gap.length,
               {frame.data() + gap.at, frame.size() - gap.at});
  }

private:
  // A frame begins with the number of its gaps and, of each, where in the frame what comes behind it begins
  // and how long the value is that belongs there. The rest begins behind so many bytes, or more.
  static constexpr std::size_t kHead = 32;
  struct Gap {
    std::uint32_t at;
    std::uint32_t length;
  };
  static std::size_t gapCount(std::string_view frame) noexcept {
    return static_cast<std::uint8_t>(frame.front());
  }
  static constexpr std::size_t gapPlace(std::size_t which) noexcept { return 1 + which * sizeof(Gap); }
  static constexpr std::size_t headSize(std::size_t gaps) noexcept { return std::max(kHead, gapPlace(gaps)); }
  static Gap gapOf(std::string_view frame, std::size_t which) noexcept {
    Gap gap; // NOLINT: as it is stored
    std::memcpy(&gap, frame.data() + gapPlace(which), sizeof gap);
    return gap;
  }
  // The frame of other bytes would be the same.
  [[nodiscard]] bool frames(std::string_view bytes, std::span<Value const> values) const noexcept;
  static Kel::Bytes makeFrame(std::string_view bytes, std::span<Value const> values);
  template <class Run>
  [[gnu::noinline]] void putApart(Run& run, std::string_view frame, std::size_t gaps) const {
    std::string_view values = values_.view();
    for (std::size_t i = gaps; i-- > 0;) {
      Gap const gap = gapOf(frame, i);
      run.raw(frame.substr(gap.at));
      run.raw(values.substr(values.size() - gap.length));
      frame = frame.substr(0, gap.at);
      values.remove_suffix(gap.length);
    }
    run.raw(frame.substr(headSize(gaps)));
  }

  Kel::Bytes frame_; // one of each; empty: not made
  WireValues values_;
};

// The same for a place that has no prefix of its own. On the stack of whoever is there.
struct WirePlace {
  WirePrefix& kept;                 // of the nearest notifiee
  WirePlace const* above = nullptr; // one element less; null: the notifiee's own place
  Kel::Bytes const* elem = nullptr; // that element
};

} // namespace Ondra
