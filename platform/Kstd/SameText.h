// Comparison of texts most of which are short.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace Kstd {

namespace Impl {

template <class Word>
[[gnu::always_inline]] inline Word differing(char const* a, char const* b) noexcept {
  Word left;
  Word right;
  std::memcpy(&left, a, sizeof left);
  std::memcpy(&right, b, sizeof right);
  return left ^ right;
}

template <class Word>
[[gnu::always_inline]] inline bool haveSameEnds(std::string_view a, std::string_view b) noexcept {
  std::size_t const last = a.size() - sizeof(Word);
  return (differing<Word>(a.data(), b.data()) | differing<Word>(a.data() + last, b.data() + last)) == 0;
}

} // namespace Impl

// The C library's comparison is a call: two words that may overlap do for a short text.
[[gnu::always_inline]] inline bool sameText(std::string_view a, std::string_view b) noexcept {
  if (a.size() != b.size()) return false;
  if (a.size() > 16) return std::memcmp(a.data(), b.data(), a.size()) == 0;
  if (a.size() >= 8) return Impl::haveSameEnds<std::uint64_t>(a, b);
  if (a.size() >= 4) return Impl::haveSameEnds<std::uint32_t>(a, b);
  for (std::size_t i = 0; i < a.size(); ++i)
    if (a[i] != b[i]) return false;
  return true;
}

} // namespace Kstd
