// The model's error: what an operation that cannot complete raises.
#pragma once

#include <stdexcept>
#include <string>

#include "Kstd/Export.h"

namespace Kel {

// Carries a text that a person can act on: the type, the attribute, the offending text and what was expected.
class KTD_EXPORT Error : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// Raised when an entity is made in a directory with arguments that its type does not take.
class KTD_EXPORT NewEntityArgsError : public Error {
public:
  using Error::Error;
};

// Raises `Kel::Error`.
[[noreturn]] KTD_EXPORT void throwError(std::string text);
// For `catch (...)`: the text of the exception in hand, whatever it is. A failed assertion, which throws in
// tests only, goes on.
[[nodiscard]] KTD_EXPORT std::string raisedText();
// The same where host code was told of what has happened already: its exception is traced and ends there.
KTD_EXPORT void traceRaised(char const* who);
// Raises `NewEntityArgsError`: how many arguments the type takes, and how many there were.
[[noreturn]] KTD_EXPORT void throwNewEntityArgsException(std::string const& typeName, std::size_t expected,
                                                         std::size_t found);

} // namespace Kel
