// The weak identity of an entity: outlives it, and then knows it has gone.
#pragma once

#include <cstdint>

#include "Kel/Entity.h"

namespace Kel {

// Made by `Entity::anchor`, owned by the entity and by whoever keeps the identity. The entity clears it when
// it is destroyed.
class EntityAnchor final : public PtrInterface {
public:
  explicit EntityAnchor(Entity const& entity) noexcept
      : entity_(const_cast<Entity*>(&entity))
      , type_(&entity.fwkType().desc())
      , serial_(entity.serial()) {}
  [[nodiscard]] TypeDesc const& type() const noexcept { return *type_; }
  [[nodiscard]] Entity* entity() const noexcept { return entity_; }
  [[nodiscard]] std::uint64_t serial() const noexcept { return serial_; }
  void clear() noexcept { entity_ = nullptr; }

private:
  Entity* entity_;
  TypeDesc const* type_;
  std::uint64_t serial_;
};

} // namespace Kel
