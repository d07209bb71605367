// Ondra::WirePrefix: the elements of a watched path as bytes of a gNMI path, kept with whoever watches.
#pragma once

#include "Kel/String.h"

namespace Ondra {

// Containers of one tree share what their paths have in common: those below a list entry share its elements,
// and those at the same place below their entries what comes behind these.
struct WirePrefix {
  Kel::Bytes above; // of the elements that come first and are the entry's; empty when `bytes` has all
  Kel::Bytes bytes; // of the others; empty until an encoder has made them
};

// The same for a place that has no prefix of its own. On the stack of whoever is there.
struct WirePlace {
  WirePrefix& kept;                 // of the nearest notifiee
  WirePlace const* above = nullptr; // one element less; null: the notifiee's own place
  Kel::Bytes const* elem = nullptr; // that element
};

} // namespace Ondra
