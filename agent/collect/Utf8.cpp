// In place: each byte that is part of no character becomes a "?".
#include "agent/collect/Utf8.h"

#include <algorithm>
#include <string_view>

#include "Kstd/Utf8.h"

namespace Agent {

void utf8Is(std::span<char> text) {
  if (Kstd::isUtf8({text.data(), text.size()})) return;
  for (std::size_t at = 0; at < text.size();) {
    std::size_t const size = Kstd::utf8CharacterSize({text.data() + at, text.size() - at});
    if (size == 0) text[at] = '?';
    at += std::max<std::size_t>(size, 1);
  }
}

} // namespace Agent
