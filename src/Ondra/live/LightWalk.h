// Ondra::LightWalk: the short road over a whole subtree of watched entities that are made of plain leaves and
// of each other. Real trees are: a list entry is a dozen containers of a few leaves each.
//
// Such an entity is walked where it lies, without a walker, handles, or an Ir. What is sent, in which order,
// and what is parked, is what its walker would send and park. A walker is made where one is needed: to be
// parked, or to go on from the attribute where something else than the above is met. What nobody watches is
// watched on the way, by the notifiee at hand where that will do (StandIns.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "Kel/Entity.h"
#include "Kel/PtrInterface.h"
#include "Kel/Scalars.h"
#include "Ondra/GifNotifiee.h"
#include "Ondra/WalkTypes.h"
#include "Ondra/live/PlainLeaves.h"
#include "Ondra/live/WatchedPlace.h"
#include "Ondra/rules/WalkRules.h"

namespace Ondra {

class FullKelTypeWalker;

// The notifiee of an entity that the holder has by that attribute, if a walk has noted it; else null. Valid
// until it is taken out.
[[nodiscard]] GifGnmiNotifiee* heldNotifiee(Kel::PtrInterface const& entity, GifGnmiNotifiee const& holder,
                                            Kel::AttributeId attr);

// In the name of the walker of the entity above. Scheduler thread only.
class LightWalk {
public:
  explicit LightWalk(FullKelTypeWalker& above) : above_(above), leaves_(PlainLeaves::shared()) {
    leaves_.clear(); // of a walk whose router walks in turn
  }

  // Walks the entity and all below it; the result is that of a walker's `walk`. REQUIRES a light type
  // (`TypePlan::isLight`), which is the object's own, and a path that no attribute meets a key field of.
  WalkResult walk(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object,
                  GifGnmiNotifiee& notifiee);

private:
  class Walker;

  // The same wherever it is watched.
  WalkResult walkAt(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object, WatchedPlace& place);
  // A child of the object by that attribute, of whatever type; nothing when it is for a walker to find out
  // how it is watched.
  [[nodiscard]] std::optional<WalkResult> walkChild(WalkRules::AttrPlan const& attr,
                                                    Kel::PtrInterface const& child,
                                                    Kel::PtrInterface const& object, WatchedPlace& place);
  // Begins to watch it through the notifiee that watches the object, and returns that; null where it will not
  // do.
  [[nodiscard]] GifGnmiNotifiee* standIn(WalkRules::AttrPlan const& attr, Kel::Entity const& child,
                                         Kel::PtrInterface const& object, WatchedPlace& place);
  // Begins to watch it, where nobody does at its path; else null.
  [[nodiscard]] GifGnmiNotifiee* watch(WalkRules::AttrPlan const& attr, Kel::Entity const& child,
                                       Kel::PtrInterface const& object, GifGnmiNotifiee& notifiee);
  // Sends what has been collected, in between and at the end of an entity.
  WalkResult send();
  WalkResult sendLast();
  // The entity has a walker from that attribute on.
  WalkResult goOn(std::size_t at, Kel::PtrInterface const& object, GifGnmiNotifiee& notifiee);
  // Leaves a walker behind that goes on at that attribute, or has nothing left to do.
  void park(std::size_t at, Kel::PtrInterface const& object, GifGnmiNotifiee& notifiee);

  FullKelTypeWalker& above_;
  PlainLeaves& leaves_; // collected, not sent: nothing of the host's has run since
};

} // namespace Ondra
