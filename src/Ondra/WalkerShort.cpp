// The short roads of a walk over what an earlier walk has been over: plain leaves of a watched object, and entities whose path is
// known from their notifiee. They send exactly what the long roads send, and leave the same behind; a walk that is traced takes the
// long ones.

#include "Kel/ActivityClock.h"
#include "Kel/Entity.h"
#include "Ondra/IR.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/NotifieeMaps.h"
#include "Ondra/WalkerTrace.h"

namespace Ondra {
namespace {

// Objects that are walked one after the other are cold. How far into one it is worth looking ahead.
constexpr std::size_t kLine = 64;
constexpr std::size_t kPrefetchedLines = 5;

} // namespace

bool FullKelTypeWalker::isTraced() {
  constexpr std::uint32_t kLevels = (1U << 10) - 1; // 0 to 9: not the error level
  return ((walkerTrace().mask() | AttrStateMap::traceMask()) & kLevels) != 0;
}

bool FullKelTypeWalker::takesShortRoads(GifGnmiNotifiee const* notifiee) const {
  return notifiee != nullptr && ir_ && toggleOndraSyncBundlingEnabled() && valueMode() &&
         (flags_ & (flagSnapshot | flagInstantiatingOnly)) == flagSnapshot && !isTraced();
}

// A scalar whose own handle is the leaf's value, of a watched object.
WalkResult FullKelTypeWalker::walkOwnLeaf(WalkRules::AttrPlan const& plan, std::size_t position,
                                          GifGnmiNotifiee& notifiee) {
  Kel::Ptr<Kel::GenericIf const> value = plan.attr.genericIfGet(gif_);
  if (plan.isEntityName && isEmptyText(value)) {
    return WalkResult::Success;
  }
  long timestamp = notifiee.attrStates().singularTimestamp(position);
  if (timestamp == 0) [[unlikely]] { // the entry is made even when nothing is sent
    timestamp = notifiee.attrStates().getAttrState(plan.attr.id(), nullptr).effectiveTimestamp();
  }
  if (!value) {
    return WalkResult::Success;
  }
  ir_->addNode(timestamp, prefixPath_).addLeaf(plan.leafPath, std::move(value));
  return walkQ_ != nullptr && walkQ_->task ? routerPush(false) : WalkResult::Success;
}

// The notifiee of an entity that the object holds by that attribute, if a walk has noted it.
Kel::Ptr<GifGnmiNotifiee> FullKelTypeWalker::watchedChild(WalkRules::AttrPlan const& plan,
                                                          Kel::Ptr<Kel::GenericIf const> const& child,
                                                          GifGnmiNotifiee const& notifiee) const {
  if (!child ||
      !(child->type() == plan.attr.memberType())) { // a derived type may have what the plan does not know of
    return nullptr;
  }
  Kel::PtrInterface const* const object = child->object();
  for (std::size_t at = 1; at <= kPrefetchedLines;
       ++at) { // meanwhile its values come, of which all will be read
    __builtin_prefetch(reinterpret_cast<char const*>(object) + at * kLine);
  }
  GifGnmiNotifiee* const held = notifieeMaps->findHeld(object, notifiee, plan.attr.id());
  if (held != nullptr) {
    held->attrStates().prefetch();
  }
  return Kel::Ptr<GifGnmiNotifiee>(held);
}

void FullKelTypeWalker::noteHeld(Kel::KelAttr const& attr, Kel::Ptr<Kel::GenericIf const> const& child,
                                 Kel::Ptr<Path const> const& path, GifGnmiNotifiee const* notifiee) const {
  if (notifiee == nullptr || !child->type().isEntity() ||
      !WalkRules::typePlan(objType_).attrs[attr.desc().index].isPlainHolder) {
    return;
  }
  auto const& entity = static_cast<Kel::Entity const&>(*child->object());
  bool const isItsPlace = entity.parent() == gif_->object() && entity.parentAttr() == attr;
  if (GifGnmiNotifiee* const held = isItsPlace ? notifieeMaps->find(&entity, path) : nullptr) {
    held->heldByIs(*notifiee, attr.id());
  }
}

// The entity at the path is watched: its walk needs no WalkInfo, and its path is not looked up.
WalkResult FullKelTypeWalker::walkWatched(Kel::Ptr<Kel::GenericIf const> const& entity,
                                          Kel::Ptr<GifGnmiNotifiee> notifiee,
                                          Kel::Ptr<Path const> const& path, long timestamp, KelKey* key) {
  WalkScope const scope;
  KelKey keyName;
  FullKelTypeWalker walker(path, ir_, entity, WalkRules::noPath(), router_, walkQ_, flags_, keyName, true,
                           timestamp != 0 ? timestamp
                                          : Kel::activityManagerStatus()->activityLoopExecNsTime());
  walker.notifiee_ = std::move(notifiee);
  return insideResult(walker.walk(key));
}

} // namespace Ondra
