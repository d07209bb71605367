// The text of what was raised, for traces. Failed assertions and a lack of memory pass on.
#include "Ondra/live/Fault.h"

#include <exception>
#include <new>

#include "Ondra/rules/WalkerTrace.h"
#include "Tovak/Assert.h"

namespace Ondra {

std::string faultText() {
  try {
    throw;
  } catch (std::bad_alloc const&) {
    throw;
  } catch (Tovak::AssertionError const&) {
    throw; // of whoever tests assertions: all others end in them
  } catch (std::exception const& error) {
    return error.what();
  } catch (...) {
    return "unknown exception";
  }
}

void responseLost() {
  std::string const text = faultText();
  TOVAK_TRACE(walkerTrace(), Tovak::traceLevelError, kWalkerCategory, "a router lost a response: {}", text);
}

} // namespace Ondra
