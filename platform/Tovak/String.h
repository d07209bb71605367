// Tovak::String: the base library's text.
#pragma once

#include <string>

namespace Tovak {

// The base library's text: owned, mutable, 8-bit clean bytes, UTF-8 by convention. It is the standard string,
// so that text passes between the platform, the library and protobuf without a conversion. The object model's
// immutable, shared string is `Kel::String`.
using String = std::string;

} // namespace Tovak
