// The scalars of the core module: their raw operations and text forms.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Kel/Desc.h"

namespace Kel::Impl {

// The text form of a builtin; `plain` leaves out the quotation marks of a string.
std::string printBuiltin(BuiltinKind kind, void const* at, bool plain);
// Reads a text form into `to`, which holds a constructed value. Answers with what is wrong, or with nothing.
std::optional<std::string> parseBuiltin(TypeDesc const& type, std::string_view text, void* to);
// An integer kind's value, sign-extended, and the way back (the low-order part).
std::int64_t loadInteger(BuiltinKind kind, void const* at);
void storeInteger(BuiltinKind kind, void* at, std::int64_t value);
bool isIntegerKind(BuiltinKind kind);
std::string base64(std::string_view bytes);
std::optional<std::string> fromBase64(std::string_view text);

} // namespace Kel::Impl
