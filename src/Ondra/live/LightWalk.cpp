// The pass over an entity's attributes, down to its children; and walkers made half-way.
#include "Ondra/live/LightWalk.h"

#include <utility>

#include "Kel/ActivityClock.h"
#include "Kel/Notifiee.h"
#include "Ondra/IR.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/NotifieeMaps.h"
#include "Ondra/live/NotifieeTrace.h"
#include "Ondra/live/ParkedWalks.h"
#include "Ondra/live/Referrers.h"
#include "Ondra/live/Sender.h"
#include "Ondra/live/ShortRoads.h"
#include "Ondra/live/StandIns.h"
#include "Ondra/live/Unsent.h"
#include "Ondra/live/WalkResults.h"
#include "Ondra/live/Watch.h"
#include "Ondra/responses/IrToWire.h"

namespace Ondra {

GifGnmiNotifiee* heldNotifiee(Kel::PtrInterface const& entity, GifGnmiNotifiee const& holder,
                              Kel::AttributeId attr) {
  Kel::NotifieeList* const list = entity.notifieeList();
  if (list == nullptr) return nullptr;
  list->haveMade(entity);
  for (Kel::PtrInterface::NotifieeConst* const member : list->members()) {
    GifGnmiNotifiee* const notifiee = GifGnmiNotifiee::registered(member);
    if (notifiee != nullptr && notifiee->isHeldBy(holder, attr)) return notifiee;
  }
  return nullptr;
}

// Has the time of a singular attribute made, when it has none. (A light type's attributes fit into a mask.)
static void haveTime(WalkRules::AttrPlan const& attr, AttrStateMap& states) {
  std::size_t const position = attr.attr.desc().index;
  if (states.singularTimestamp(position) == 0 && states.commonTimestamp(std::uint64_t{1} << position) == 0)
    static_cast<void>(states.timestampOf(attr.attr.id(), nullptr));
}

// The walker that an entity would have had, at that attribute.
class LightWalk::Walker {
public:
  Walker(FullKelTypeWalker const& above, std::size_t at, Kel::PtrInterface const& object,
         GifGnmiNotifiee& notifiee)
      : walker(notifiee.prefixPath(), above.ir_, Kel::GenericIf::toObject(&object), WalkRules::noPath(),
               above.router_, above.walkQ_, above.flags_, key_, true,
               Kel::activityManagerStatus()->activityLoopExecNsTime()) {
    walker.notifiee_ = Kel::Ptr<GifGnmiNotifiee>(&notifiee);
    walker.syncId_ = above.syncId_;
    walker.walkId_ = above.walkId_;
    walker.isPlain_ = true;
    walker.attrQ_ = Kel::KelTypeBase::AttributeQIterator(walker.objType_);
    for (; at > 0; --at)
      ++walker.attrQ_;
  }

private:
  KelKey key_;

public:
  FullKelTypeWalker walker;
};

// The notifiees of a large tree are cold, as the objects are, which have been fetched before.
static void fetchChildren(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object) {
  for (std::uint32_t const at : plan.children) {
    auto const* const child = static_cast<Kel::PtrInterface const*>(plan.attrs[at].attr.valueAt(object));
    Kel::NotifieeList const* const list = child == nullptr ? nullptr : child->notifieeList();
    if (list == nullptr) continue;
    auto const* const first = reinterpret_cast<char const*>(list->front());
    __builtin_prefetch(first);
    __builtin_prefetch(first + 64);
  }
}

// The object's own notifiee, made when it has none yet. Null when it is not watched any more.
static GifGnmiNotifiee* ownNotifiee(WatchedPlace& place, Kel::PtrInterface const& object) {
  if (place.notifiee() != nullptr) return place.notifiee();
  auto const& entity = static_cast<Kel::Entity const&>(object);
  GifGnmiNotifiee* const notifiee = StandIns::notifieeOf(*place.standIn(), entity);
  if (notifiee != nullptr) place.notifieeIs(*notifiee);
  return notifiee;
}

// It has been made while others had their turn; or time has gone on, which what is left of a new object is to
// have.
static bool needsOwnNotifiee(WatchedPlace const& place, Kel::PtrInterface const& object) {
  if (place.notifiee() != nullptr) return false;
  long const time = place.standIn()->attrStates().keptTime();
  return object.notifieeList()->standIn() != place.standIn() ||
         (place.isNew() && Kel::activityManagerStatus()->activityLoopExecNsTime() != time);
}

static bool isWatched(WatchedPlace& place, Kel::PtrInterface const& object) {
  if (place.notifiee() != nullptr) return place.notifiee()->isRegistered();
  bool const isStoodInFor = object.notifieeList()->standIn() == place.standIn();
  return isStoodInFor ? place.standIn()->isRegistered() : ownNotifiee(place, object) != nullptr;
}

WalkResult LightWalk::walk(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object,
                           GifGnmiNotifiee& notifiee) {
  WatchedPlace place(notifiee);
  return walkAt(plan, object, place);
}

WalkResult LightWalk::walkAt(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object,
                             WatchedPlace& place) {
  if (plan.plainFrom == 0) {
    leaves_.collect(plan, object, place);
    place.walkedIs(plan.attrs.size());
    return sendLast();
  }
  Kel::Ptr<Kel::PtrInterface const> const pin(&object);
  Kel::Ptr<GifGnmiNotifiee> const watching(place.notifiee()); // or it is held where its keeper is
  fetchChildren(plan, object);
  bool isCollecting = false; // begun anew after each child, which sends
  std::uint64_t const interruptions = Unsent::interruptions();
  WalkResult result = WalkResult::Success;
  for (std::size_t at = 0; at < plan.attrs.size(); ++at) {
    WalkRules::AttrPlan const& attr = plan.attrs[at];
    if (attr.isPlainLeaf) {
      if (!std::exchange(isCollecting, true)) leaves_.begin(plan, object, place);
      leaves_.add(at);
      continue;
    }
    void const* const held = attr.isLightHolder ? attr.attr.valueAt(object) : nullptr;
    if (held == nullptr) {
      if (attr.road == WalkRules::Road::Singleton && place.notifiee() != nullptr)
        haveTime(attr, place.notifiee()->attrStates());
      continue;
    }
    isCollecting = false;
    place.walkedIs(at + 1);
    std::optional<WalkResult> walked;
    if (attr.road == WalkRules::Road::Singleton && above_.ir_->empty())
      walked = walkChild(attr, *static_cast<Kel::PtrInterface const*>(held), object, place);
    if (!walked) {
      place.walkedIs(at);
      if (GifGnmiNotifiee* const notifiee = ownNotifiee(place, object))
        return merged(result, goOn(at, object, *notifiee));
      leaves_.drop(place);
      return result;
    }
    result = merged(result, *walked);
    if (interruptions != Unsent::interruptions() && !isWatched(place, object)) {
      leaves_.drop(place);
      return result; // it has ended meanwhile
    }
    if (needsOwnNotifiee(place, object)) ownNotifiee(place, object);
    if (result != WalkResult::Success && !(above_.flags_ & flagNoPause)) {
      if (GifGnmiNotifiee* const notifiee = ownNotifiee(place, object)) park(at + 1, object, *notifiee);
      return result;
    }
  }
  place.walkedIs(plan.attrs.size());
  WalkResult const pushed = sendLast();
  return result == WalkResult::Success ? pushed : result;
}

std::optional<WalkResult> LightWalk::walkChild(WalkRules::AttrPlan const& attr,
                                               Kel::PtrInterface const& child,
                                               Kel::PtrInterface const& object, WatchedPlace& place) {
  WalkRules::TypePlan const& plan = WalkRules::memberPlanOf(attr);
  if (!(child.fwkType() == plan.type)) return std::nullopt;
  auto const& entity = static_cast<Kel::Entity const&>(child);
  GifGnmiNotifiee* standsIn = StandIns::in(*entity.notifieeList(), place.keeper());
  bool const isNew = standsIn == nullptr;
  if (isNew) standsIn = standIn(attr, entity, object, place);
  if (standsIn != nullptr) {
    WatchedPlace below(place, attr, entity, *standsIn, isNew);
    return insideResult(walkAt(plan, child, below));
  }
  GifGnmiNotifiee* const notifiee = ownNotifiee(place, object);
  if (notifiee == nullptr) return std::nullopt;
  GifGnmiNotifiee* held = heldNotifiee(child, *notifiee, attr.attr.id());
  if (held == nullptr) held = watch(attr, entity, object, *notifiee);
  if (held == nullptr) return std::nullopt;
  if (plan.isLight && !held->meetsKeyFields()) return insideResult(walk(plan, child, *held));
  leaves_.moveTo(*above_.ir_);
  Kel::Ptr<Path const> const path = held->prefixPath();
  return ShortRoads(above_, notifiee)
      .walkWatched(Kel::GenericIf::toObject(&child), Kel::Ptr<GifGnmiNotifiee>(held), path, 0, nullptr);
}

// Each reason for a notifiee of its own stands here. Most walks that find something new have just begun to
// watch what it belongs to: that nothing else is at its path is quick to say.
GifGnmiNotifiee* LightWalk::standIn(WalkRules::AttrPlan const& attr, Kel::Entity const& child,
                                    Kel::PtrInterface const& object, WatchedPlace& place) {
  WalkRules::TypePlan const& plan = WalkRules::memberPlanOf(attr);
  GifGnmiNotifiee& keeper = place.keeper();
  bool const mayStandIn = plan.isLight && plan.attrs.size() <= WalkRules::kMostLight // its times fit into one
                          && child.notifieeList()->empty()       // nobody else is to be told
                          && &keeper.router() == &above_.router_ // by this one
                          && Referrers::instance().size() == 0   // nobody shows where it is
                          && !notifieeTrace().isOn(5)            // each has its line
                          && isWatched(place, object)            // unlike one that has ended meanwhile
                          && ShortRoads::isPlaceOf(attr, object, child);
  if (!mayStandIn) return nullptr;
  if (!notifieeMaps->isLatestAndAlone(keeper)) {
    ResponsePath const path(place.path, attr.elem);
    if (notifieeMaps->find(path.get()) != nullptr) return nullptr;
  }
  GifGnmiNotifiee& by = place.notifiee() == nullptr ? *place.standIn() : keeper;
  if (!StandIns::begin(by, child)) return nullptr;
  if (attr.wireElem.empty()) attr.wireElem = wireElems(*attr.leafPath);
  if (place.notifiee() != nullptr) haveTime(attr, keeper.attrStates()); // the child's end is told by it
  return &by;
}

GifGnmiNotifiee* LightWalk::watch(WalkRules::AttrPlan const& attr, Kel::Entity const& child,
                                  Kel::PtrInterface const& object, GifGnmiNotifiee& notifiee) {
  if (!ShortRoads::isPlaceOf(attr, object, child)) return nullptr;
  Kel::Ptr<Path> const path = Path::makePath(notifiee.prefixPath());
  path->push(attr.elem);
  if (notifieeMaps->find(path) != nullptr) return nullptr;
  Kel::Ptr<GifGnmiNotifiee> const made = watchAt(child, path, above_.router_);
  if (!made->isRegistered()) return nullptr;
  ShortRoads::noteHeld(attr, notifiee, *made);
  haveTime(attr, notifiee.attrStates()); // the child's end is told by it
  return made.get();
}

WalkResult LightWalk::send() {
  if (leaves_.empty()) return WalkResult::Success;
  return Sender(above_, Sender::What::Walk).send(leaves_);
}

WalkResult LightWalk::sendLast() {
  WalkResult const pushed = send();
  return pushed == WalkResult::PipeFull ? WalkResult::SuccessWithPipeFull : pushed;
}

WalkResult LightWalk::goOn(std::size_t at, Kel::PtrInterface const& object, GifGnmiNotifiee& notifiee) {
  leaves_.moveTo(*above_.ir_);
  Walker own(above_, at, object, notifiee);
  return own.walker.walk(nullptr);
}

void LightWalk::park(std::size_t at, Kel::PtrInterface const& object, GifGnmiNotifiee& notifiee) {
  Walker own(above_, at, object, notifiee);
  if (!own.walker.ir_->empty()) // of children that were walked by walkers
    own.walker.routerPush(true);
  if (!own.walker.attrQ_) own.walker.flags_ |= flagSkipWalk;
  ParkedWalks::instance().park(ParkedWalks::movedOut(own.walker, nullptr));
}

} // namespace Ondra
