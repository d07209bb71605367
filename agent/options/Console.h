// What the program has to speak to: its standard streams, which may be closed, full, or read by nobody.
#pragma once

#include <cstdio>
#include <string_view>

namespace Agent {

// Standard descriptors that are closed become /dev/null, or a socket would get their number and what is
// printed. To be called first.
void standardStreamsAreOpen();

// Prints as far as that goes: that nobody can hear it is no reason to end.
void say(std::FILE* to, std::string_view text);

// `code`, or the code of a failed call where all went well but standard output has not taken what was
// printed.
[[nodiscard]] int codeAfterPrinting(int code);

} // namespace Agent
