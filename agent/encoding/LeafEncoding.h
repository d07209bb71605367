// Leaf values as the clients asked for them: a value as the library sends it (typed scalars, enumerations as
// their names) is written as JSON or, by RFC 7951, as JSON_IETF. Pure: any thread.
#pragma once

#include <string>
#include <string_view>

#include "agent/model/Schema.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

// The encodings that Get and Subscribe offer: JSON, JSON_IETF, PROTO.
[[nodiscard]] bool isEncodingSupported(gnmi::Encoding encoding);

// Rewrites `value` in place: `json_val` or `json_ietf_val` with the bare value of the leaf; PROTO leaves it
// as it is, but for what is held as a text and told as something else (`Impl::isToldOtherwise`). REQUIRES an
// encoding that is supported.
void leafEncodingIs(gnmi::TypedValue& value, LeafInfo const& leaf, gnmi::Encoding encoding);

// Appends the same as JSON text. `isIetf`: 64-bit numbers and decimals are strings, identities carry their
// module.
void appendLeafJson(std::string& to, gnmi::TypedValue const& value, LeafInfo const& leaf, bool isIetf);

// The value of a list's key leaf, from its text in a path.
void appendKeyJson(std::string& to, std::string_view text, LeafInfo const& leaf, bool isIetf);

// Appends a JSON string. What is not UTF-8 becomes the replacement character.
void appendJsonString(std::string& to, std::string_view text);

} // namespace Agent
