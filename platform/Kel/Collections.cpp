// Only the weak references to entities, by their anchors; the collections are templates of the header.
#include "Kel/Collections.h"

#include "Kel/EntityAnchor.h"

namespace Kel {
namespace {

EntityAnchor const* anchorOf(Ptr<PtrInterface const> const& held) noexcept {
  return static_cast<EntityAnchor const*>(held.get());
}

} // namespace

EntityRef::EntityRef(Entity const& entity) : anchor_(&entity.anchor()) {}

EntityRef EntityRef::fromWeak(GenericIf const& handle) {
  EntityRef ref;
  ref.anchor_ = Ptr<PtrInterface const>(&handle.owner());
  return ref;
}

Entity* EntityRef::entity() const noexcept { return anchor_ ? anchorOf(anchor_)->entity() : nullptr; }

Ptr<GenericIf const> EntityRef::handle() const {
  if (!anchor_) return nullptr;
  return GenericIf::weak(anchorOf(anchor_)->type(), *anchor_);
}

std::uint64_t EntityRef::serial() const noexcept { return anchor_ ? anchorOf(anchor_)->serial() : 0; }

} // namespace Kel
