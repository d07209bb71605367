// What the sources of AttrTree::AttrNode share.
#pragma once

#include <utility>
#include <variant>

#include "Kel/Error.h"
#include "Ondra/AttrNode.h"

namespace Ondra::KelGnmiSet {

[[nodiscard]] inline bool isError(AttrTree::Status const& status) {
  return std::holds_alternative<AttrTree::Error>(status);
}

template <class Work>
AttrTree::Status AttrTree::AttrNode::guarded(Work const& work) const {
  try {
    if constexpr (std::is_void_v<decltype(work())>) {
      work();
      return true;
    } else {
      return work();
    }
  } catch (Kel::Error const& raised) {
    return error(raised.what());
  }
}

} // namespace Ondra::KelGnmiSet
