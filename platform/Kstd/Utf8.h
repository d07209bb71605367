// UTF-8 (RFC 3629): what a text must be to go into a message. A reader drops a whole message for one text
// that is not. docs/decisions.md: "What of a text that is no UTF-8?"
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "Kstd/Export.h"

namespace Kstd {

// How many bytes the character at the front of the text has: 1 to 4, or 0 when there is none. REQUIRES a text
// that is not empty.
[[nodiscard]] KTD_EXPORT std::size_t utf8CharacterSize(std::string_view text) noexcept;

namespace Impl {

[[nodiscard]] KTD_EXPORT bool isUtf8Slow(std::string_view text) noexcept;

// Not 0 when a byte of the word is not ASCII.
template <class Word>
[[nodiscard]] inline Word highBits(char const* at) noexcept {
  Word word;
  std::memcpy(&word, at, sizeof word);
  return word & static_cast<Word>(0x8080808080808080);
}

// Of a text of one or two words, which may overlap.
template <class Word>
[[nodiscard]] inline bool isAsciiAtBothEnds(std::string_view text) noexcept {
  char const* const end = text.data() + text.size();
  return (highBits<Word>(text.data()) | highBits<Word>(end - sizeof(Word))) == 0;
}

[[nodiscard]] inline bool isAscii(std::string_view text) noexcept {
  using Word = std::uint64_t;
  while (text.size() > 2 * sizeof(Word)) {
    if (highBits<Word>(text.data()) != 0) return false;
    text.remove_prefix(sizeof(Word));
  }
  if (text.size() >= sizeof(Word)) return isAsciiAtBothEnds<Word>(text);
  if (text.size() >= sizeof(std::uint32_t)) return isAsciiAtBothEnds<std::uint32_t>(text);
  unsigned high = 0;
  for (char const c : text)
    high |= static_cast<unsigned char>(c);
  return high < 0x80;
}

} // namespace Impl

// Whether the whole text is. Nearly all texts are ASCII, which takes an instruction or two for eight bytes.
[[nodiscard]] inline bool isUtf8(std::string_view text) noexcept {
  return Impl::isAscii(text) || Impl::isUtf8Slow(text);
}

} // namespace Kstd
