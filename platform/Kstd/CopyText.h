// Copies of texts most of which are short.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace Kstd {

namespace Impl {

template <class Word>
[[gnu::always_inline]] inline void copyEnds(std::uint8_t* to, std::string_view text) noexcept {
  Word first;
  Word last;
  char const* const lastWord = text.data() + text.size() - sizeof last;
  std::memcpy(&first, text.data(), sizeof first);
  std::memcpy(&last, lastWord, sizeof last);
  std::memcpy(to, &first, sizeof first);
  std::memcpy(to + text.size() - sizeof last, &last, sizeof last);
}

} // namespace Impl

// The C library's copy is a call: two words that may overlap do for a short text. Copies into `to`, which has
// room for the text and shares nothing with it.
[[gnu::always_inline]] inline void copyText(std::uint8_t* to, std::string_view text) noexcept {
  if (text.size() > 32)
    std::memcpy(to, text.data(), text.size());
  else if (text.size() >= 16)
    Impl::copyEnds<std::array<std::uint64_t, 2>>(to, text);
  else if (text.size() >= 8)
    Impl::copyEnds<std::uint64_t>(to, text);
  else if (text.size() >= 4)
    Impl::copyEnds<std::uint32_t>(to, text);
  else
    for (std::size_t i = 0; i < text.size(); ++i)
      to[i] = static_cast<std::uint8_t>(text[i]);
}

} // namespace Kstd
