// Ondra::ShortRoads: how a walk goes over what an earlier walk has been over: plain leaves of a watched
// object, and entities whose path is known from their notifiee. They send exactly what the long roads send,
// and leave the same behind.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "Kel/Attr.h"
#include "Kel/Entity.h"
#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Ondra/AttrStateMap.h"
#include "Ondra/GifNotifiee.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/rules/WalkRules.h"
#include "Ondra/rules/WalkerTrace.h"

namespace Ondra {

// Of one walker while it walks. Which roads are open is decided when it is made, and stays. Scheduler thread
// only.
class ShortRoads {
public:
  // `notifiee`: of the walker's object; null when there is none. Both outlive it.
  ShortRoads(FullKelTypeWalker& walker, GifGnmiNotifiee* notifiee);

  // Traces of walks are on.
  [[nodiscard]] static bool isTraced() {
    constexpr std::uint32_t kLevels = (1U << 10) - 1; // 0 to 9: not the error level
    return ((walkerTrace().mask() | AttrStateMap::traceMask()) & kLevels) != 0;
  }

  // To an entity whose path is watched: without a WalkInfo.
  [[nodiscard]] bool toWatched() const noexcept { return watched_; }
  // To an entity that is known by its holder, the walker's object: without its path.
  [[nodiscard]] bool toHeld() const noexcept { return held_; }
  // To leaves: without a walker's general code for values.
  [[nodiscard]] bool toLeaves() const noexcept { return leaves_; }
  // To the whole object, of a light type (LightWalk.h), when nothing waits in the Ir.
  [[nodiscard]] bool toWhole(WalkRules::TypePlan const& plan) const {
    return plain_ && plan.isLight && plan.plainFrom != 0 &&
           plan.attrs.front().road != WalkRules::Road::Collection && sendsPlain();
  }
  // To all that is left of the object from that attribute on: without an Ir, when nothing waits in it. The
  // end of the type when the road is not open.
  [[nodiscard]] std::size_t plainFrom(WalkRules::TypePlan const& plan) const noexcept {
    return plain_ ? plan.plainFrom : plan.attrs.size();
  }

  // A scalar whose own handle is the leaf's value. REQUIRES `toLeaves`.
  WalkResult walkOwnLeaf(WalkRules::AttrPlan const& plan, std::size_t position);
  // The plain leaves of a watched object, all of them at once: what an Ir with nothing else in it would send.
  // REQUIRES that nothing waits to be sent before them.
  WalkResult pushPlain(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object,
                       GifGnmiNotifiee& notifiee);
  // The member where the iterator stands, when it is light (LightWalk.h) and a walk has noted it; has those
  // that follow on their way into the cache. REQUIRES `toHeld`.
  [[nodiscard]] std::optional<WalkResult> pushMember(WalkRules::AttrPlan const& plan,
                                                     Kel::GenericIf::Iterator const& member);
  // The member where the iterator stands, when it is light, its key is one value, and nobody has observed it
  // yet: begins to watch it, and walks it. REQUIRES `toHeld`.
  [[nodiscard]] std::optional<WalkResult> beginMember(WalkRules::AttrPlan const& plan,
                                                      Kel::GenericIf::Iterator const& member);
  // An entity that the object holds by that attribute, when a walk has noted it. REQUIRES `toHeld`.
  [[nodiscard]] std::optional<WalkResult> walkChild(WalkRules::AttrPlan const& plan,
                                                    Kel::Ptr<Kel::GenericIf const> const& child);
  // An entity at a path that is watched. `timestamp` 0: the present. REQUIRES `toWatched`.
  WalkResult walkWatched(Kel::Ptr<Kel::GenericIf const> const& entity, Kel::Ptr<GifGnmiNotifiee> notifiee,
                         Kel::Ptr<Path const> const& path, long timestamp, KelKey* key);

  // Notes of an entity that has been walked that the holder has it by that attribute, if that is so, for the
  // roads of walks to come. `notifiee`: of the holder; may be null.
  static void noteHeld(Kel::GenericIf const& holder, GifGnmiNotifiee* notifiee, Kel::KelAttr const& attr,
                       Kel::Ptr<Kel::GenericIf const> const& child, Kel::Ptr<Path const> const& path);

  // In two steps, of what is at hand: whether the entity has its place there, in the holder; and that it is
  // held so.
  [[nodiscard]] static bool isPlaceOf(WalkRules::AttrPlan const& plan, Kel::PtrInterface const& holder,
                                      Kel::Entity const& entity);
  static void noteHeld(WalkRules::AttrPlan const& plan, GifGnmiNotifiee& holder, GifGnmiNotifiee& held);

private:
  // Nothing waits to be sent before the plain leaves of an object.
  [[nodiscard]] bool sendsPlain() const;
  [[nodiscard]] std::optional<WalkResult> walkLight(WalkRules::AttrPlan const& plan,
                                                    Kel::PtrInterface const* child);
  WalkResult walkLight(WalkRules::TypePlan const& type, Kel::PtrInterface const& child,
                       GifGnmiNotifiee& notifiee);

  FullKelTypeWalker& walker_;
  GifGnmiNotifiee* const notifiee_;
  bool watched_;
  bool held_;
  bool leaves_;
  bool plain_;
};

} // namespace Ondra
