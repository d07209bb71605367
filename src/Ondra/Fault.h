// What becomes of an exception that the host's code raises while the library runs it: printers, accessors and iterators of the model,
// routers, observers. It costs the one thing at hand, which is traced with the exception's text; everything else goes on.
// docs/walks.md says for each kind of thing what that means. A lack of memory (std::bad_alloc) is no fault of one thing: it passes
// through to whoever called the library.
// docs/decisions.md: "What does an exception of the host's code cost?"
#pragma once

#include <string>

namespace Ondra {

// The text of the exception that is being handled, "unknown exception" for one that has none. Raises std::bad_alloc again, and what
// stands for a failed assertion in tests. REQUIRES to be called in a handler.
[[nodiscard]] std::string faultText();

// A router has thrown the exception that is being handled: traced.
void responseLost();

// Hands a response to a router by `push`, and says whether it takes more. A router that throws has lost the response. It counts as taken:
// a walk that waited for room would be woken by nobody.
template <class Push>
[[nodiscard]] bool handOver(Push const& push) {
  try {
    return push();
  } catch (...) {
    responseLost();
    return true;
  }
}

} // namespace Ondra
