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

// A value or object as JSON, always one that can be read: integers as numbers, structures and entities as
// objects of what is set, arrays as lists, keyed collections as objects by key, JSON as it is (null when it
// is empty), references and everything else, JSON that is none too, as texts. What is no number and what is
// not UTF-8 cannot be told: null, and the replacement character.
[[nodiscard]] std::string toJson(GenericIf const& value);
// One attribute of an object as JSON; none when it is not set.
[[nodiscard]] std::optional<std::string> attrToJson(AttrDesc const& attr, Ptr<GenericIf const> const& obj);

// Whether a text is one JSON value (RFC 8259), at most 128 levels deep.
[[nodiscard]] bool isJson(std::string_view text);

} // namespace Kel::Impl
