// What the sources of AttrTree::AttrNode share.
#pragma once

#include <utility>
#include <variant>

#include "Kel/Entity.h"
#include "Ondra/set/AttrNode.h"
#include "Ondra/set/SetTrace.h"

namespace Ondra::KelGnmiSet {

[[nodiscard]] inline bool isError(AttrTree::Status const& status) {
  return std::holds_alternative<AttrTree::Error>(status);
}

// Whether it is no part of the model any more. REQUIRES a handle to an entity.
[[nodiscard]] inline bool hasGone(AttrTree::ConstHandle const& entity) {
  return !entity || static_cast<Kel::Entity const*>(entity->object())->isOrphan();
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
  } catch (...) {
    return error(modelError());
  }
}

} // namespace Ondra::KelGnmiSet
