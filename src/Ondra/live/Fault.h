// What becomes of an exception that the host's code raises while the library runs it: printers, accessors and
// iterators of the model, routers, observers. It costs the one thing at hand, which is traced with the
// exception's text; everything else goes on. docs/walks.md says for each kind of thing what that means. A
// lack of memory (std::bad_alloc) is no fault of one thing: it passes through to whoever called the library,
// or ends the process where nobody would learn of it. docs/decisions.md: "What does an exception of the
// host's code cost?", "And `std::bad_alloc`?"
#pragma once

#include <exception>
#include <new>
#include <string>

namespace Ondra {

// The text of the exception that is being handled, "unknown exception" for one that has none. Raises
// std::bad_alloc again, and what stands for a failed assertion in tests. REQUIRES to be called in a handler.
[[nodiscard]] std::string faultText();

// Tells of a change. Nobody who changes the model learns what its observers raise, and the subscriber would
// be wrong for ever: where there is no memory to tell it, the process ends.
template <class Tell>
void tellOrEnd(Tell const& tell) {
  try {
    tell();
  } catch (std::bad_alloc const&) {
    std::terminate();
  }
}

// A router has thrown the exception that is being handled: traced.
void responseLost();

// Hands a response to a router by `push`, and says whether it takes more. A router that throws has lost the
// response. It counts as taken: a walk that waited for room would be woken by nobody.
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
