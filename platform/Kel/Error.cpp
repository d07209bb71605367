// How errors are raised, the text of whatever was raised, and what observers raise: traced and dropped.
// Failed assertions pass on.
#include "Kel/Error.h"

#include <fmt/core.h>

#include <utility>

#include "Tovak/Assert.h"
#include "Tovak/Trace.h"

namespace Kel {

void throwError(std::string text) { throw Error(text); }

std::string raisedText() {
  try {
    throw;
  } catch (Tovak::AssertionError const&) {
    throw;
  } catch (std::exception const& raised) {
    return raised.what();
  } catch (...) {
    return "something that is no exception was thrown";
  }
}

void traceRaised(char const* who) {
  static Tovak::DebugHandler& trace = Tovak::Platform::getDebugHandler("KelTold", false);
  try {
    std::string const text = raisedText();
    TOVAK_TRACE(trace, Tovak::traceLevelError, who, "Dropped what was raised while it was told: {}", text);
  } catch (Tovak::AssertionError const&) {
    throw;
  } catch (...) { // no memory for the text: whoever is next is told all the same
  }
}

void throwNewEntityArgsException(std::string const& typeName, std::size_t expected, std::size_t found) {
  throw NewEntityArgsError(
      fmt::format("an entity of type '{}' is made in a directory with {} arguments beyond its name; found {}",
                  typeName, expected, found));
}

} // namespace Kel
