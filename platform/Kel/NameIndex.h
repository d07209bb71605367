// The attributes of a type by name.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <functional>
#include <string_view>
#include <utility>

#include "Kel/Allocator.h"
#include "Kel/Desc.h"

namespace Kel {

struct TypeDesc::NameIndex {
  absl::flat_hash_map<std::string_view, AttrDesc const*, absl::Hash<std::string_view>, std::equal_to<>,
                      EndingAllocator<std::pair<std::string_view const, AttrDesc const*>>>
      byName; // the names lie in the attributes
};

} // namespace Kel
