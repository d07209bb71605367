// The mixing of hashes for hash tables.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "Kstd/Export.h"

namespace Tovak::Impl {

// Incremental 64-bit hash mixing for hash tables: each call folds one piece of data into a caller's 64-bit
// state. Functions of their arguments and of the process, usable from any thread.
//
// Pieces are delimited: the length of a piece is mixed with its bytes, so ("ab", "c") and ("a", "bc") differ,
// and mixing an empty piece is not the same as mixing none. Not meant to be stored: the values differ from
// process to process. Keys of hash tables come from clients, who could choose them to collide and hold the
// process up for seconds with one request. So every product has a factor on each side that depends on where
// the process was loaded, which the kernel draws anew each time.
//
// The construction is the multiply-and-fold of Wang Yi's wyhash (final version 4, public domain): 64x64 to
// 128-bit products whose halves are xored, with its published constants, at most 16 bytes costing two
// products. docs/decisions.md: "Is a text's hash the same in every process?"
struct HashMix {
  // Stands somewhere in the library.
  KTD_EXPORT static char const loadedHere;

  // What a state starts at: the 64-bit FNV-1a offset basis.
  static constexpr std::uint64_t stateStart = 0xcbf29ce484222325;

  // Mixes `len` bytes into `state`. `bytes` may be null when `len` is 0.
  static void mix(std::uint64_t& state, void const* bytes, size_t len) {
    auto const* p = static_cast<unsigned char const*>(bytes);
    std::uint64_t a = 0;
    std::uint64_t b = 0;
    if (len <= 16) [[likely]] {
      loadShort(p, len, a, b);
    } else {
      size_t left = len;
      for (; left > 16; left -= 16, p += 16)
        state = fold(load64(p) ^ secret1 ^ processSeed(), load64(p + 8) ^ state ^ processSeed());
      // The last 16 bytes, overlapping what was read: no tail loop.
      a = load64(p + left - 16);
      b = load64(p + left - 8);
    }
    __extension__ using Wide = unsigned __int128;
    Wide const product = static_cast<Wide>(a ^ secret1 ^ processSeed()) * (b ^ state ^ processSeed());
    state = fold(static_cast<std::uint64_t>(product) ^ secret0 ^ len,
                 static_cast<std::uint64_t>(product >> 64) ^ secret1);
  }

  static void mix(std::uint64_t& state, std::string_view text) { mix(state, text.data(), text.size()); }

  // Mixes a word of a length that is known beforehand, so none is mixed: a hash of its own, or a number.
  template <size_t N>
  static void mixFixedLen(std::uint64_t& state, std::uint64_t word) {
    static_assert(N == sizeof(std::uint64_t), "only whole 64-bit words");
    state = fold(word ^ secret1 ^ processSeed(), state ^ secret0 ^ processSeed());
  }

private:
  static constexpr std::uint64_t secret0 = 0xa0761d6478bd642f;
  static constexpr std::uint64_t secret1 = 0xe7037ed1a0b428db;

  // An address, so that it is there before anything is initialized.
  static std::uint64_t processSeed() { return reinterpret_cast<uintptr_t>(&loadedHere) * 0x9e3779b97f4a7c15; }

  static std::uint64_t fold(std::uint64_t a, std::uint64_t b) {
    __extension__ using Wide = unsigned __int128;
    Wide const product = static_cast<Wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
  }

  static std::uint64_t load64(unsigned char const* p) {
    std::uint64_t word;
    std::memcpy(&word, p, sizeof word);
    return word;
  }

  static std::uint64_t load32(unsigned char const* p) {
    std::uint32_t word;
    std::memcpy(&word, p, sizeof word);
    return word;
  }

  // Every byte of a piece of up to 16 bytes lands in `a` or `b`; reads overlap instead of looping.
  static void loadShort(unsigned char const* p, size_t len, std::uint64_t& a, std::uint64_t& b) {
    if (len >= 8) {
      a = load64(p);
      b = load64(p + len - 8);
    } else if (len >= 4) {
      a = load32(p);
      b = load32(p + len - 4);
    } else if (len > 0) {
      a = (std::uint64_t{p[0]} << 16) | (std::uint64_t{p[len >> 1]} << 8) | p[len - 1];
    }
  }
};

} // namespace Tovak::Impl
