#include "agent/collect/Utf8.h"

#include <algorithm>
#include <cstddef>

namespace Agent {
namespace {

// How many bytes the character at the front has; 0 when there is none.
std::size_t characterSize(std::span<char const> text) {
  auto const byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  unsigned char const first = byte(0);
  if (first < 0x80) return 1;
  std::size_t const size = first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : first < 0xf5 ? 4 : 0;
  if (size == 0 || size > text.size()) return 0;
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
  }
  // Longer than need be, halves of pairs, beyond the last character.
  bool const isWrong = (first == 0xe0 && byte(1) < 0xa0) || (first == 0xed && byte(1) >= 0xa0) ||
                       (first == 0xf0 && byte(1) < 0x90) || (first == 0xf4 && byte(1) >= 0x90);
  return isWrong ? 0 : size;
}

} // namespace

void utf8Is(std::span<char> text) {
  auto const isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
  auto at = static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isAscii) - text.begin());
  while (at < text.size()) {
    std::size_t const size = characterSize(text.subspan(at));
    if (size == 0) text[at] = '?';
    at += std::max<std::size_t>(size, 1);
  }
}

} // namespace Agent
