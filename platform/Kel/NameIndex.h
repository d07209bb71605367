// The attributes of a type by name.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstddef>
#include <string_view>
#include <utility>

#include "Kel/Allocator.h"
#include "Kel/Declare.h"
#include "Kel/Desc.h"
#include "Kstd/SameText.h"

namespace Kel {

struct TypeDesc::NameIndex {
  struct Hash {
    std::size_t operator()(std::string_view name) const noexcept {
      return Impl::hashBytes(name.data(), name.size());
    }
  };
  struct Same {
    bool operator()(std::string_view a, std::string_view b) const noexcept { return Kstd::sameText(a, b); }
  };

  absl::flat_hash_map<std::string_view, AttrDesc const*, Hash, Same,
                      EndingAllocator<std::pair<std::string_view const, AttrDesc const*>>>
      byName; // the names lie in the attributes
};

} // namespace Kel
