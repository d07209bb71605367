// Texts of the machine as clients may see them. Names of files, processes and links are bytes to the kernel,
// and it cuts some of them short; a message with a text that is no UTF-8 cannot be read by its client at all.
#pragma once

#include <span>

namespace Agent {

// Makes a text valid UTF-8, in place: each byte that is part of no character becomes '?'.
void utf8Is(std::span<char> text);

} // namespace Agent
