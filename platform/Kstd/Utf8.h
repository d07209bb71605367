// UTF-8 (RFC 3629): what a text must be to go into a message. A reader drops a whole message for one text that is not.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "Kstd/Export.h"

namespace Kstd {

// How many bytes the character at the front of the text has: 1 to 4, or 0 when there is none. REQUIRES a text that is not empty.
[[nodiscard]] KTD_EXPORT std::size_t utf8CharacterSize(std::string_view text) noexcept;

namespace Impl {

[[nodiscard]] KTD_EXPORT bool isUtf8Slow(std::string_view text) noexcept;

// Whether a byte of the word is not ASCII.
template <class Word>
[[nodiscard]] inline Word highBits(char const* at) noexcept {
  Word word;
  std::memcpy(&word, at, sizeof word);
  return word & static_cast<Word>(0x8080808080808080);
}

// By words that may overlap at the end.
template <class Word>
[[nodiscard]] inline bool isAsciiBy(std::string_view text) noexcept {
  char const* const last = text.data() + text.size() - sizeof(Word);
  Word high = highBits<Word>(last);
  for (char const* at = text.data(); at < last; at += sizeof(Word)) {
    high |= highBits<Word>(at);
  }
  return high == 0;
}

[[nodiscard]] inline bool isAscii(std::string_view text) noexcept {
  if (text.size() >= sizeof(std::uint64_t)) {
    return isAsciiBy<std::uint64_t>(text);
  }
  if (text.size() >= sizeof(std::uint32_t)) {
    return isAsciiBy<std::uint32_t>(text);
  }
  unsigned high = 0;
  for (char const c : text) {
    high |= static_cast<unsigned char>(c);
  }
  return high < 0x80;
}

} // namespace Impl

// Whether the whole text is. Nearly all texts are ASCII, which takes an instruction or two for eight bytes.
[[nodiscard]] inline bool isUtf8(std::string_view text) noexcept {
  return Impl::isAscii(text) || Impl::isUtf8Slow(text);
}

} // namespace Kstd
