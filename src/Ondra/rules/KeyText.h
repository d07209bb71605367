// The texts of scalar values as key fields have them, and back.
#pragma once

#include <string>
#include <string_view>

#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kel/Type.h"
#include "Kstd/Result.h"

namespace Ondra {

// Of a builtin value. `escape`: a "__" in a text gets a backslash before it. A kind that cannot be a key is a
// fatal assertion.
[[nodiscard]] std::string builtinKeyText(Kel::GenericIf const& value, bool escape);

// Base64.
[[nodiscard]] std::string bytesKeyText(std::string_view bytes);

// A key of a scalar type from its text: the inverse of what key fields are written as. What cannot be a key,
// and what the model refuses, is the text of an error.
[[nodiscard]] Kstd::Result<Kel::Ptr<Kel::GenericIf>, std::string> keyOfText(Kel::KelType type,
                                                                            std::string const& text);

// An enumerator by its name.
[[nodiscard]] Kstd::Result<Kel::Ptr<Kel::GenericIf>, std::string> enumOfName(Kel::KelType type,
                                                                             std::string const& name);

// A string, by itself or under a name of its own.
[[nodiscard]] bool isTextType(Kel::KelType type);

// A string that is empty; null is none.
[[nodiscard]] bool isEmptyText(Kel::Ptr<Kel::GenericIf const> const& value);

} // namespace Ondra
