// The texts of scalar values as key fields have them.
#pragma once

#include <string>
#include <string_view>

#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"

namespace Ondra {

// Of a builtin value. `escape`: a "__" in a text gets a backslash before it. A kind that cannot be a key is a fatal assertion.
[[nodiscard]] std::string builtinKeyText(Kel::GenericIf const& value, bool escape);

// Base64.
[[nodiscard]] std::string bytesKeyText(std::string_view bytes);

// A string that is empty; null is none.
[[nodiscard]] bool isEmptyText(Kel::Ptr<Kel::GenericIf const> const& value);

} // namespace Ondra
