// Values that clients give to leaves, checked against the published type and brought into the one form that
// the library takes: typed scalars of the family of the type, enumerations as their names, leaf-lists. Pure:
// any thread. docs/decisions.md: "Numbers in JSON."
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "Kstd/Result.h"
#include "agent/model/Schema.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

using LeafValue = Kstd::Result<gnmi::TypedValue, std::string>; // or what is wrong with the value

// A typed value. A non-negative `int_val` is a number for unsigned leaves too, a float or decimal one for
// decimals. REQUIRES a value that is no JSON.
[[nodiscard]] LeafValue leafValueOf(LeafInfo const& leaf, gnmi::TypedValue const& value);
// A JSON value, plain or by RFC 7951: 64-bit numbers and decimals may be strings, identities may carry their
// module.
[[nodiscard]] LeafValue leafValueOf(LeafInfo const& leaf, nlohmann::json const& value);
// A key from its text in a path. Which entries there may be is another question: the machine's own may have
// keys that no client could give.
[[nodiscard]] LeafValue keyValueOf(LeafInfo const& leaf, std::string_view text);

// The text of that value: how the model spells the key.
[[nodiscard]] Kstd::Result<std::string, std::string> keyTextOf(LeafInfo const& leaf, std::string_view text);

// Of a union the first member whose values a text in a path may be; null when there is none.
[[nodiscard]] LeafInfo const* keyMemberOf(std::vector<LeafInfo> const& members, std::string_view text);

// Of a union's `members` the first one that takes a value as it is held; null when none does.
[[nodiscard]] LeafInfo const* memberOf(LeafInfo const& leaf, gnmi::TypedValue const& value);

// Whether a text, such as a key's, may be a value of the leaf; what is wrong with it otherwise. The functions
// above ask it of values.
[[nodiscard]] Kstd::Result<void, std::string> textCheck(LeafInfo const& leaf, std::string_view text);

// The text that a value has as a key in a path; of a scalar in the form that the functions above make.
[[nodiscard]] std::string keyTextOf(gnmi::TypedValue const& value);

} // namespace Agent
