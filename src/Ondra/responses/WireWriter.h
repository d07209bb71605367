// Writes protobuf's wire format from its end to its beginning, so that the length of a message is known when
// it is to be written. The format: protobuf.dev/programming-guides/encoding.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include "Kstd/CopyText.h"

namespace Ondra {

enum class WireType : std::uint8_t { Varint = 0, Fixed64 = 1, Length = 2 };

// The key of a field whose number is below 16: one byte.
[[nodiscard]] constexpr std::uint8_t wireTag(int field, WireType type) noexcept {
  return static_cast<std::uint8_t>(field << 3 | static_cast<int>(type));
}

// What is written comes to stand before what was written earlier. `Self` has `at_`, where writing has got to,
// `end()`, where it began, and `reserve(n)`, after which there is room for n bytes before `at_`.
template <class Self>
class WireFields {
public:
  [[nodiscard]] std::size_t size() const noexcept {
    return static_cast<std::size_t>(self().end() - self().at_);
  }

  // Always inlined: the place of a run stays in registers only where none of this is called.
  [[gnu::always_inline]] void raw(std::string_view text) {
    if (text.empty()) return;
    self().reserve(text.size());
    self().at_ -= text.size();
    Kstd::copyText(self().at_, text);
  }
  [[gnu::always_inline]] void varint(std::uint64_t value) {
    self().reserve(kVarintMax);
    if (value < 1U << 7) [[likely]]
      *--self().at_ = static_cast<std::uint8_t>(value);
    else if (value >> 56 == 0)
      putGroups(value);
    else
      putAllGroups(value); // such are times in nanoseconds
  }
  [[gnu::always_inline]] void tag(std::uint8_t key) {
    self().reserve(1);
    *--self().at_ = key;
  }

  // Writes the last `size` bytes of a block of `Block` bytes: a copy of fixed size, the rest of which is
  // overwritten later.
  template <std::size_t Block>
  [[gnu::always_inline]] void tailOf(std::array<std::uint8_t, Block> const& block, std::size_t size) {
    self().reserve(Block);
    std::memcpy(self().at_ - Block, block.data(), Block);
    self().at_ -= size;
  }

  // Writes two texts with the last `size` bytes of a block between them, all in copies of fixed size.
  // REQUIRES texts before which kStep bytes can be read.
  template <std::size_t Block>
  [[gnu::always_inline]] void around(std::string_view before, std::array<std::uint8_t, Block> const& block,
                                     std::size_t size, std::string_view behind) {
    static_assert(Block <= kStep);
    self().reserve(before.size() + size + behind.size() + kStep);
    if (!behind.empty()) inSteps(behind);
    std::memcpy(self().at_ - Block, block.data(), Block);
    self().at_ -= size;
    inSteps(before);
  }
  static constexpr std::size_t kStep = 32;

  // --- whole fields ----------------------------------------------------------------------------------
  [[gnu::always_inline]] void varintField(std::uint8_t key, std::uint64_t value) {
    varint(value);
    tag(key);
  }
  void fixed64Field(std::uint8_t key, std::uint64_t value) {
    self().reserve(sizeof value + 1);
    for (int shift = 56; shift >= 0; shift -= 8)
      *--self().at_ = static_cast<std::uint8_t>(value >> shift);
    tag(key);
  }
  [[gnu::always_inline]] void textField(std::uint8_t key, std::string_view text) {
    raw(text);
    varint(text.size());
    tag(key);
  }
  // Makes one field of what has been written since there were `sizeBefore` bytes.
  [[gnu::always_inline]] void enclose(std::uint8_t key, std::size_t sizeBefore) {
    varint(size() - sizeBefore);
    tag(key);
  }

private:
  friend Self;
  WireFields() = default;
  [[nodiscard]] Self& self() noexcept { return static_cast<Self&>(*this); }
  [[nodiscard]] Self const& self() const noexcept { return static_cast<Self const&>(*this); }

  static constexpr std::size_t kVarintMax = 10;

  static_assert(std::endian::native == std::endian::little, "words are stored as they are");

  // REQUIRES room for the text and kStep.
  [[gnu::always_inline]] void inSteps(std::string_view text) {
    char const* from = text.data() + text.size();
    std::size_t left = text.size();
    for (; left > kStep; left -= kStep) {
      from -= kStep;
      self().at_ -= kStep;
      std::memcpy(self().at_, from, kStep);
    }
    std::memcpy(self().at_ - kStep, from - kStep, kStep);
    self().at_ -= left;
  }

  static constexpr std::uint64_t kMarks = 0x8080808080808080; // more is to come

  // The lower eight groups, spread over the bytes of a word.
  [[gnu::always_inline]] static std::uint64_t spread(std::uint64_t value) noexcept {
    std::uint64_t word = (value & 0x0fffffff) | (value & 0x00fffffff0000000) << 4;
    word = (word & 0x00003fff00003fff) | (word & 0x0fffc0000fffc000) << 2;
    return (word & 0x007f007f007f007f) | (word & 0x3f803f803f803f80) << 1;
  }
  // A value below 2^56 without a branch for each of its groups: all but the last are marked, and the word is
  // stored so that it ends where writing has got to.
  [[gnu::always_inline]] void putGroups(std::uint64_t value) {
    std::size_t const size = (static_cast<std::size_t>(std::bit_width(value | 1)) + 6) / 7;
    std::uint64_t word = spread(value) | (kMarks & ((std::uint64_t{1} << 8 * (size - 1)) - 1));
    word <<= 8 * (8 - size);
    std::memcpy(self().at_ - sizeof word, &word, sizeof word);
    self().at_ -= size;
  }
  // Any other: eight marked groups, and the rest of it in one byte, or with its uppermost bit in two.
  [[gnu::always_inline]] void putAllGroups(std::uint64_t value) {
    std::uint64_t const top = value >> 56;
    if (top >> 7 != 0) *--self().at_ = 1;
    *--self().at_ = static_cast<std::uint8_t>(top); // marked by that bit
    std::uint64_t const word = spread(value) | kMarks;
    self().at_ -= sizeof word;
    std::memcpy(self().at_, &word, sizeof word);
  }
};

// Its storage grows to what is needed and stays.
class WireWriter : public WireFields<WireWriter> {
public:
  // Empties it.
  void clear() noexcept { at_ = end(); }
  // Takes back what has been written since there were so many bytes.
  void cutTo(std::size_t size) noexcept { at_ = end() - size; }
  // What has been written, the latest first. Valid until the next operation.
  [[nodiscard]] std::span<std::uint8_t const> bytes() const noexcept { return {at_, size()}; }

private:
  friend class WireFields<WireWriter>;
  friend class WireRun;
  static constexpr std::size_t kFirstCapacity = 16 * 1024;

  [[nodiscard]] std::uint8_t* end() const noexcept { return buffer_.get() + capacity_; }
  [[gnu::always_inline]] void reserve(std::size_t bytes) {
    if (static_cast<std::size_t>(at_ - buffer_.get()) < bytes) [[unlikely]]
      grow(bytes);
  }
  [[gnu::noinline]] void grow(std::size_t bytes) {
    std::size_t const used = size();
    std::size_t const capacity = std::bit_ceil(std::max(kFirstCapacity, used + bytes + capacity_));
    auto grown = std::make_unique_for_overwrite<std::uint8_t[]>(capacity);
    if (used > 0) std::memcpy(grown.get() + (capacity - used), at_, used);
    buffer_ = std::move(grown);
    capacity_ = capacity;
    at_ = end() - used;
  }

  std::unique_ptr<std::uint8_t[]> buffer_;
  std::size_t capacity_ = 0;
  std::uint8_t* at_ = nullptr; // what has been written begins here and goes to the end of the buffer
};

// Goes on where a writer is, with its place in registers: a writer's own lies in memory, and is read and
// stored with every field, because the bytes written might be those that it is kept in. The writer is not to
// be used before the run is finished; of one that is not, nothing has been written.
class WireRun : public WireFields<WireRun> {
public:
  explicit WireRun(WireWriter& out) noexcept : out_(out), place_(placeOf(out)), at_(out.at_) {}
  WireRun(WireRun const&) = delete;
  WireRun& operator=(WireRun const&) = delete;

  // Ends the run: what it has written is the writer's.
  void finish() noexcept { out_.at_ = at_; }
  // Goes on after what the writer was given meanwhile.
  void resume() noexcept {
    place_ = placeOf(out_);
    at_ = out_.at_;
  }

private:
  friend class WireFields<WireRun>;
  struct Place {
    std::uint8_t* begin;
    std::uint8_t* end;
  };
  static Place placeOf(WireWriter const& out) noexcept { return {out.buffer_.get(), out.end()}; }

  [[nodiscard]] std::uint8_t* end() const noexcept { return place_.end; }
  [[gnu::always_inline]] void reserve(std::size_t bytes) {
    if (static_cast<std::size_t>(at_ - place_.begin) < bytes) [[unlikely]] {
      finish();
      out_.grow(bytes); // of the writer, which does not know of the run
      resume();
    }
  }

  WireWriter& out_;
  Place place_;
  std::uint8_t* at_;
};

} // namespace Ondra
