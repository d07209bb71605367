// One character at a time, by its first byte; longer spellings than need be and halves of pairs are refused.
#include "Kstd/Utf8.h"

namespace Kstd {

std::size_t utf8CharacterSize(std::string_view text) noexcept {
  auto const byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  unsigned char const first = byte(0);
  if (first < 0x80) return 1;
  std::size_t const size = first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : first < 0xf5 ? 4 : 0;
  if (size == 0 || size > text.size()) return 0;
  for (std::size_t i = 1; i < size; ++i)
    if ((byte(i) & 0xc0) != 0x80) return 0;
  // Longer than need be, halves of pairs, beyond the last character.
  bool const isWrong = (first == 0xe0 && byte(1) < 0xa0) || (first == 0xed && byte(1) >= 0xa0) ||
                       (first == 0xf0 && byte(1) < 0x90) || (first == 0xf4 && byte(1) >= 0x90);
  return isWrong ? 0 : size;
}

bool Impl::isUtf8Slow(std::string_view text) noexcept {
  while (!text.empty()) {
    std::size_t const size = utf8CharacterSize(text);
    if (size == 0) return false;
    text.remove_prefix(size);
  }
  return true;
}

} // namespace Kstd
