// The short road of a change: one plain leaf, from its attribute to its response, without a walker and
// without an Ir.

#include "Ondra/live/KelTypeNotifWalker.h"
#include "Ondra/live/PlainLeaves.h"
#include "Ondra/live/Sender.h"
#include "Ondra/live/ShortRoads.h"

namespace Ondra {

bool KelTypeNotifWalker::tellOwnLeaf(GifGnmiNotifiee& notifiee, Kel::PtrInterface const& object,
                                     Kel::AttributeId id) {
  Kel::KelAttr const attr = notifiee.objectType().attr(absoluteId(id));
  if (!attr || notifiee.meetsKeyFields() || notifiee.notifFlags().has(flagNoPush) || ShortRoads::isTraced())
    return false;
  Plan const& plan = WalkRules::typePlan(notifiee.objectType()).attrs[attr.desc().index];
  void const* const value =
      plan.isPlainLeaf && !plan.isPrinted ? WalkRules::plainValue(plan, object) : nullptr;
  if (value == nullptr ||
      (plan.isEntityName && plan.isText && static_cast<Kel::String const*>(value)->empty()))
    return false;
  long const timestamp = notifiee.attrStates().changedSingular(attr.desc().index);
  PlainLeaf const leaf{timestamp, &plan, plan.valueType, value};
  ResponsePath const path(notifiee.prefixPath());
  WirePlace const place{notifiee.wirePrefix()};
  return Sender::sendChange(notifiee.router(), {timestamp, path, place, {&leaf, 1}});
}

} // namespace Ondra
