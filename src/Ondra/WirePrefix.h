// Ondra::WirePrefix: the elements of a watched path as bytes of a gNMI path, kept with whoever watches.
#pragma once

#include "Kel/String.h"

namespace Ondra {

// Containers of one tree share what their paths have in common: one without keys has an element that all
// objects of its type share, below the elements of its parent.
struct WirePrefix {
  Kel::Bytes bytes;            // of the elements that are its own; empty until an encoder has made them
  WirePrefix* above = nullptr; // whose elements come before; lives as long. Null: all are its own
};

} // namespace Ondra
