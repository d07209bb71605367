// The short roads of a walk over what an earlier walk has been over: plain leaves of a watched object, and entities whose path is
// known from their notifiee. They send exactly what the long roads send, and leave the same behind; a walk that is traced, or whose
// virtual operations may be others, takes the long ones.

#include <typeinfo>

#include "Kel/ActivityClock.h"
#include "Kel/Entity.h"
#include "Kel/Notifiee.h"
#include "Ondra/IR.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/NotifieeMaps.h"
#include "Ondra/PlainLeaves.h"
#include "Ondra/ScalarEncode.h"
#include "Ondra/WalkerTrace.h"

namespace Ondra {
namespace {

constexpr std::size_t kLine = 64;
constexpr std::size_t kObjectLines = 6;
constexpr std::size_t kNotifieeLines = 3;

} // namespace

bool FullKelTypeWalker::isTraced() {
  constexpr std::uint32_t kLevels = (1U << 10) - 1; // 0 to 9: not the error level
  return ((walkerTrace().mask() | AttrStateMap::traceMask()) & kLevels) != 0;
}

// Each reason for a long road stands here, and only here. They stay what they are while a walker walks.
FullKelTypeWalker::ShortRoads FullKelTypeWalker::shortRoads(GifGnmiNotifiee const* notifiee) const {
  ShortRoads open;
  open.watched = ir_ && toggleOndraSyncBundlingEnabled() // what is collected goes into one Ir, in order
                 && !flags_.has(flagInstantiatingOnly)   // such a walk ends notifiees
                 && !isTraced();                         // every step has its line
  open.held = open.watched && notifiee != nullptr        // it knows what it holds, and times
              && isPlain_                                // no operation means something else
              && valueMode() && flags_.has(flagSnapshot) &&
              leafPath_->empty();                         // leaves, under the prefix itself
  open.leaves = open.held && !notifiee->meetsKeyFields(); // no leaf is renamed or brings others along
  return open;
}

bool FullKelTypeWalker::sendsPlain() const { return ir_->empty() && !(flags_ & flagNoPush); }

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
  if (plan.isPrinted) [[unlikely]] {
    value = printed(value);
  }
  ir_->addNode(timestamp, prefixPath_).addLeaf(plan.leafPath, std::move(value));
  return walkQ_ != nullptr && walkQ_->task ? routerPush(false) : WalkResult::Success;
}

namespace {

// The notifiee of an entity that the holder has by that attribute, if a walk has noted it; else null. Valid until it is taken out.
GifGnmiNotifiee* heldNotifiee(Kel::PtrInterface const& entity, GifGnmiNotifiee const& holder,
                              Kel::AttributeId attr) {
  Kel::NotifieeList const* const list = entity.notifieeList();
  if (list == nullptr) {
    return nullptr;
  }
  for (Kel::PtrInterface::NotifieeConst* const member : list->members()) {
    if (member != nullptr && typeid(*member) == typeid(GifGnmiNotifiee)) {
      auto* const notifiee = static_cast<GifGnmiNotifiee*>(member);
      if (notifiee->isRegistered() && notifiee->isHeldBy(holder, attr)) {
        return notifiee;
      }
    }
  }
  return nullptr;
}

void prefetchLines(void const* from, std::size_t lines) {
  for (std::size_t at = 0; at < lines; ++at) {
    __builtin_prefetch(static_cast<char const*>(from) + at * kLine);
  }
}

} // namespace

// The members of a large collection are cold. Each is fetched in the steps in which its parts are found: the object, three members
// before its turn; its notifiee; then what these two point to.
void FullKelTypeWalker::fetchAhead(WalkRules::AttrPlan const& plan, Kel::GenericIf::Iterator const& member) {
  if (Kel::PtrInterface const* const object = member.objectAhead(3)) {
    prefetchLines(object, kObjectLines);
  }
  if (Kel::PtrInterface const* const object = member.objectAhead(2)) {
    if (Kel::NotifieeList const* const list = object->notifieeList()) {
      prefetchLines(list->front(), kNotifieeLines);
    }
  }
  if (Kel::PtrInterface const* const object = member.objectAhead(1)) {
    Kel::NotifieeList const* const list = object->notifieeList();
    Kel::PtrInterface::NotifieeConst const* const first = list == nullptr ? nullptr : list->front();
    if (first != nullptr && typeid(*first) == typeid(GifGnmiNotifiee)) {
      static_cast<GifGnmiNotifiee const*>(first)->prefetch();
    }
    if (object->fwkType() == plan.attr.memberType()) {
      PlainLeaves::prefetch(WalkRules::typePlan(plan.attr.memberType()), *object);
    }
  }
}

// Sends an entity that the object holds by that attribute, when it has plain leaves alone and a walk has noted it.
std::optional<WalkResult> FullKelTypeWalker::pushPlainChild(WalkRules::AttrPlan const& plan,
                                                            Kel::PtrInterface const* child,
                                                            GifGnmiNotifiee const& notifiee) {
  // A derived type may have what the plan does not know of.
  if (child == nullptr || !sendsPlain() || !(child->fwkType() == plan.attr.memberType())) {
    return std::nullopt;
  }
  WalkRules::TypePlan const& leaves = WalkRules::typePlan(plan.attr.memberType());
  GifGnmiNotifiee* const held =
      leaves.plainFrom == 0 ? heldNotifiee(*child, notifiee, plan.attr.id()) : nullptr;
  if (held == nullptr || held->meetsKeyFields()) {
    return std::nullopt;
  }
  return pushPlain(leaves, *child, *held);
}

// Walks an entity that the object holds by that attribute, when a walk has noted it.
std::optional<WalkResult> FullKelTypeWalker::walkChild(WalkRules::AttrPlan const& plan,
                                                       Kel::Ptr<Kel::GenericIf const> const& child,
                                                       GifGnmiNotifiee const& notifiee) {
  if (!child || !(child->type() == plan.attr.memberType())) {
    return std::nullopt;
  }
  if (auto const pushed = pushPlainChild(plan, child->object(), notifiee)) {
    return pushed;
  }
  Kel::Ptr<GifGnmiNotifiee> held(heldNotifiee(*child->object(), notifiee, plan.attr.id()));
  if (!held) {
    return std::nullopt;
  }
  Kel::Ptr<Path const> const path = held->prefixPath();
  return walkWatched(child, std::move(held), path, 0, nullptr);
}

void FullKelTypeWalker::noteHeld(Kel::KelAttr const& attr, Kel::Ptr<Kel::GenericIf const> const& child,
                                 Kel::Ptr<Path const> const& path, GifGnmiNotifiee const* notifiee) const {
  if (notifiee == nullptr || !child || !child->type().isEntity() ||
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
  walker.syncId_ = syncId_;
  walker.walkId_ = walkId_;
  walker.isPlain_ = true;
  return insideResult(walker.walk(key));
}

} // namespace Ondra
