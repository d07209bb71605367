// Text and JSON forms of values of any kind.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Kel/Desc.h"

namespace Kel::Impl {

enum class Quotation {
  Literal, // strings between double quotation marks, enumerators between apostrophes: parses back
  Plain,   // without them: what travels over gNMI
};

[[nodiscard]] std::string print(TypeDesc const& type, void const* at, Quotation quotation);
// Reads a literal into `to`, which holds a constructed value. Answers with what is wrong, or with nothing.
[[nodiscard]] std::optional<std::string> parse(TypeDesc const& type, std::string_view text, void* to);
// The same from a gNMI string representation.
[[nodiscard]] std::optional<std::string> parsePlain(TypeDesc const& type, std::string_view text, void* to);

// A value or object as JSON: integers as numbers, structures and entities as objects of what is set, arrays as lists, keyed
// collections as objects by key, references and everything else as texts.
[[nodiscard]] std::string toJson(GenericIf const& value);
// One attribute of an object as JSON; none when it is not set.
[[nodiscard]] std::optional<std::string> attrToJson(AttrDesc const& attr, Ptr<GenericIf const> const& obj);

} // namespace Kel::Impl
