// What a failed assertion says.
#pragma once

#include <string>

#include "Tovak/Assert.h"

// "<handler>: <message>" of the assertion that fails in `run`; "none" when none does.
template <class Run>
std::string assertionIn(Run const& run) {
  Tovak::ScopedAssertHandler const throws;
  try {
    run();
  } catch (Tovak::AssertionError const& error) {
    return error.handlerName() + ": " + error.what();
  }
  return "none";
}
