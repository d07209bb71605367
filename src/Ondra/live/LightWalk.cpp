// The pass over an entity's attributes, down to its children; and walkers made half-way.
#include "Ondra/live/LightWalk.h"

#include <typeinfo>
#include <utility>

#include "Kel/ActivityClock.h"
#include "Kel/Notifiee.h"
#include "Ondra/IR.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/NotifieeMaps.h"
#include "Ondra/live/ParkedWalks.h"
#include "Ondra/live/Sender.h"
#include "Ondra/live/ShortRoads.h"
#include "Ondra/live/Unsent.h"
#include "Ondra/live/WalkResults.h"
#include "Ondra/live/Watch.h"

namespace Ondra {

GifGnmiNotifiee* heldNotifiee(Kel::PtrInterface const& entity, GifGnmiNotifiee const& holder,
                              Kel::AttributeId attr) {
  Kel::NotifieeList const* const list = entity.notifieeList();
  if (list == nullptr) return nullptr;
  for (Kel::PtrInterface::NotifieeConst* const member : list->members()) {
    if (member != nullptr && typeid(*member) == typeid(GifGnmiNotifiee)) {
      auto* const notifiee = static_cast<GifGnmiNotifiee*>(member);
      if (notifiee->isRegistered() && notifiee->isHeldBy(holder, attr)) return notifiee;
    }
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

WalkResult LightWalk::walk(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object,
                           GifGnmiNotifiee& notifiee) {
  if (plan.plainFrom == 0) {
    leaves_.collect(plan, object, notifiee);
    return sendLast();
  }
  Kel::Ptr<Kel::PtrInterface const> const pin(&object);
  Kel::Ptr<GifGnmiNotifiee> const watching(&notifiee);
  fetchChildren(plan, object);
  std::optional<PlainLeaves::Collecting> own; // begun anew after each child, which sends
  std::uint64_t const interruptions = Unsent::interruptions();
  WalkResult result = WalkResult::Success;
  for (std::size_t at = 0; at < plan.attrs.size(); ++at) {
    WalkRules::AttrPlan const& attr = plan.attrs[at];
    if (attr.isPlainLeaf) {
      leaves_.add(own ? *own : own.emplace(leaves_.begin(plan, object, notifiee)), at);
      continue;
    }
    void const* const held = attr.isLightHolder ? attr.attr.valueAt(object) : nullptr;
    if (held == nullptr) {
      if (attr.road == WalkRules::Road::Singleton) haveTime(attr, notifiee.attrStates());
      continue;
    }
    own.reset();
    std::optional<WalkResult> walked;
    if (attr.road == WalkRules::Road::Singleton && above_.ir_->empty())
      walked = walkChild(attr, *static_cast<Kel::PtrInterface const*>(held), object, notifiee);
    if (!walked) return merged(result, goOn(at, object, notifiee));
    result = merged(result, *walked);
    if (interruptions != Unsent::interruptions() && !notifiee.isRegistered())
      return result; // it has ended meanwhile
    if (result != WalkResult::Success && !(above_.flags_ & flagNoPause)) {
      park(at + 1, object, notifiee);
      return result;
    }
  }
  WalkResult const pushed = sendLast();
  return result == WalkResult::Success ? pushed : result;
}

std::optional<WalkResult> LightWalk::walkChild(WalkRules::AttrPlan const& attr,
                                               Kel::PtrInterface const& child,
                                               Kel::PtrInterface const& object, GifGnmiNotifiee& notifiee) {
  WalkRules::TypePlan const& plan = WalkRules::memberPlanOf(attr);
  if (!(child.fwkType() == plan.type)) return std::nullopt;
  GifGnmiNotifiee* held = heldNotifiee(child, notifiee, attr.attr.id());
  if (held == nullptr) held = watch(attr, static_cast<Kel::Entity const&>(child), object, notifiee);
  if (held == nullptr) return std::nullopt;
  if (plan.isLight && !held->meetsKeyFields()) return insideResult(walk(plan, child, *held));
  leaves_.moveTo(*above_.ir_);
  Kel::Ptr<Path const> const path = held->prefixPath();
  return ShortRoads(above_, &notifiee)
      .walkWatched(Kel::GenericIf::toObject(&child), Kel::Ptr<GifGnmiNotifiee>(held), path, 0, nullptr);
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
