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

namespace Ondra {

enum class WireType : std::uint8_t { Varint = 0, Fixed64 = 1, Length = 2 };

// The key of a field whose number is below 16: one byte.
[[nodiscard]] constexpr std::uint8_t wireTag(int field, WireType type) noexcept {
  return static_cast<std::uint8_t>(field << 3 | static_cast<int>(type));
}

// Its storage grows to what is needed and stays. What is written comes to stand before what was written
// earlier.
class WireWriter {
public:
  // Empties it.
  void clear() noexcept { at_ = capacity_; }
  [[nodiscard]] std::size_t size() const noexcept { return capacity_ - at_; }
  // Takes back what has been written since there were so many bytes.
  void cutTo(std::size_t size) noexcept { at_ = capacity_ - size; }
  // What has been written, the latest first. Valid until the next operation.
  [[nodiscard]] std::span<std::uint8_t const> bytes() const noexcept { return {buffer_.get() + at_, size()}; }

  void raw(std::string_view text) {
    if (text.empty()) return;
    reserve(text.size());
    at_ -= text.size();
    copyText(buffer_.get() + at_, text.data(), text.size());
  }
  void varint(std::uint64_t value) {
    reserve(kVarintMax);
    if (value < 1U << 7) [[likely]] {
      buffer_[--at_] = static_cast<std::uint8_t>(value);
    } else if (value >> 56 == 0) {
      putGroups(value);
    } else {
      std::size_t const size = groups(value);
      at_ -= size;
      std::uint8_t* out = buffer_.get() + at_;
      for (; value >= 1U << 7; value >>= 7)
        *out++ = static_cast<std::uint8_t>(value | 1U << 7);
      *out = static_cast<std::uint8_t>(value);
    }
  }
  void tag(std::uint8_t key) {
    reserve(1);
    buffer_[--at_] = key;
  }

  // Writes the last `size` bytes of a block of `Block` bytes: a copy of fixed size, the rest of which is
  // overwritten later.
  template <std::size_t Block>
  void tailOf(std::array<std::uint8_t, Block> const& block, std::size_t size) {
    reserve(Block);
    std::memcpy(buffer_.get() + at_ - Block, block.data(), Block);
    at_ -= size;
  }

  // --- whole fields ----------------------------------------------------------------------------------
  void varintField(std::uint8_t key, std::uint64_t value) {
    varint(value);
    tag(key);
  }
  void fixed64Field(std::uint8_t key, std::uint64_t value) {
    reserve(sizeof value + 1);
    for (int shift = 56; shift >= 0; shift -= 8)
      buffer_[--at_] = static_cast<std::uint8_t>(value >> shift);
    tag(key);
  }
  void textField(std::uint8_t key, std::string_view text) {
    raw(text);
    varint(text.size());
    tag(key);
  }
  // Makes one field of what has been written since there were `sizeBefore` bytes.
  void enclose(std::uint8_t key, std::size_t sizeBefore) {
    varint(size() - sizeBefore);
    tag(key);
  }

private:
  static constexpr std::size_t kVarintMax = 10;
  static constexpr std::size_t kFirstCapacity = 16 * 1024;

  static_assert(std::endian::native == std::endian::little, "words are stored as they are");

  // Of 7 bits; one at least.
  static std::size_t groups(std::uint64_t value) noexcept {
    return (static_cast<std::size_t>(std::bit_width(value | 1)) + 6) / 7;
  }
  // A value below 2^56 without a branch for each of its groups: they are spread over the bytes of a word, all
  // but the last marked, and the word is stored so that it ends where writing has got to.
  void putGroups(std::uint64_t value) {
    std::size_t const size = groups(value);
    std::uint64_t word = (value & 0x0fffffff) | (value & 0x00fffffff0000000) << 4;
    word = (word & 0x00003fff00003fff) | (word & 0x0fffc0000fffc000) << 2;
    word = (word & 0x007f007f007f007f) | (word & 0x3f803f803f803f80) << 1;
    word |= 0x8080808080808080 & ((std::uint64_t{1} << 8 * (size - 1)) - 1);
    word <<= 8 * (8 - size);
    std::memcpy(buffer_.get() + at_ - sizeof word, &word, sizeof word);
    at_ -= size;
  }
  // The library's copy is a call, and most texts are short: two words that may overlap do.
  static void copyText(std::uint8_t* to, char const* from, std::size_t size) noexcept {
    if (size > 16)
      std::memcpy(to, from, size);
    else if (size >= 8)
      copyEnds<std::uint64_t>(to, from, size);
    else if (size >= 4)
      copyEnds<std::uint32_t>(to, from, size);
    else
      for (std::size_t i = 0; i < size; ++i)
        to[i] = static_cast<std::uint8_t>(from[i]);
  }
  template <class Word>
  static void copyEnds(std::uint8_t* to, char const* from, std::size_t size) noexcept {
    Word first;
    Word last;
    std::memcpy(&first, from, sizeof first);
    std::memcpy(&last, from + size - sizeof last, sizeof last);
    std::memcpy(to, &first, sizeof first);
    std::memcpy(to + size - sizeof last, &last, sizeof last);
  }

  void reserve(std::size_t bytes) {
    if (at_ < bytes) [[unlikely]]
      grow(bytes);
  }
  void grow(std::size_t bytes) {
    std::size_t const used = size();
    std::size_t const capacity = std::bit_ceil(std::max(kFirstCapacity, used + bytes + capacity_));
    auto grown = std::make_unique_for_overwrite<std::uint8_t[]>(capacity);
    if (used > 0) std::memcpy(grown.get() + (capacity - used), buffer_.get() + at_, used);
    buffer_ = std::move(grown);
    capacity_ = capacity;
    at_ = capacity - used;
  }

  std::unique_ptr<std::uint8_t[]> buffer_;
  std::size_t capacity_ = 0;
  std::size_t at_ = 0; // what has been written begins here and goes to the end of the buffer
};

} // namespace Ondra
