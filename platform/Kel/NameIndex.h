// The attributes of a type by name.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <string_view>

#include "Kel/Desc.h"

namespace Kel {

struct TypeDesc::NameIndex {
  absl::flat_hash_map<std::string_view, AttrDesc const*> byName; // the names lie in the attributes
};

} // namespace Kel
