// The loop of a walk: the attributes of one object in order, and the end of the walk or its pause.

#include <memory>
#include <utility>

#include "Ondra/IR.h"
#include "Ondra/KelGnmiUtils.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/live/Fault.h"
#include "Ondra/live/LightWalk.h"
#include "Ondra/live/ParkedWalks.h"
#include "Ondra/live/Referrers.h"
#include "Ondra/live/ShortRoads.h"
#include "Ondra/live/Unsent.h"
#include "Ondra/live/WalkResults.h"
#include "Ondra/rules/KeyText.h"
#include "Ondra/rules/WalkRules.h"
#include "Ondra/rules/WalkerTrace.h"

namespace Ondra {

// A walker going over its object, from where it stands. What is here stays the same meanwhile.
class FullKelTypeWalker::Run {
public:
  Run(FullKelTypeWalker& walker, KelKey* key)
      : walker_(walker)
      , key_(key)
      , notifiee_(notifieeOf(walker))
      , ir_(walker.ir_)
      , unsent_(walker, ir_, notifiee_.get())
      , plan_(WalkRules::typePlan(walker.objType_))
      , shortRoads_(walker, notifiee_.get())
      , interruptions_(Unsent::interruptions()) {}

  // All of it, and from where the walker stands.
  WalkResult goAll();
  WalkResult go();

private:
  using Road = WalkRules::Road;
  using Plan = WalkRules::AttrPlan;

  [[nodiscard]] static Kel::Ptr<GifGnmiNotifiee> notifieeOf(FullKelTypeWalker& walker) {
    if (walker.objType_.isValueType()) return nullptr; // values are watched by nobody
    return walker.notifiee_ ? std::move(walker.notifiee_)
                            : KelGnmiUtils::lookupGnmiNotifieeMap(walker.prefixPath_);
  }
  // Walks one item: what is raised in it costs the item; when nobody has asked meanwhile whether the slice is
  // used up, it is asked.
  template <class Walk>
  WalkResult walkItem(Kel::KelAttr const& attr, Walk const& walk);
  // The object has ended while it was walked: what was collected since is of nobody.
  [[nodiscard]] bool hasEnded() const;
  [[nodiscard]] bool isLeftOut(Plan const& plan) const;
  WalkResult walkAttr(Plan const& plan, std::size_t position);
  WalkResult walkSingleton(Plan const& plan);
  WalkResult walkMembers(Plan const& plan);
  WalkResult walkMember(Plan const& plan, Kel::GenericIf::Iterator const& member);
  [[nodiscard]] bool mustPause(WalkResult result) const noexcept {
    return result != WalkResult::Success && !(walker_.flags_ & flagNoPause);
  }
  WalkResult pause(WalkResult result);
  // `pushed`: of what the short roads have sent.
  WalkResult finish(WalkResult result, WalkResult pushed);

  FullKelTypeWalker& walker_;
  KelKey* const key_;
  Kel::Ptr<GifGnmiNotifiee> const notifiee_;
  std::shared_ptr<Ir> ir_; // of a walker without one: made when it is needed
  Unsent const unsent_;
  WalkRules::TypePlan const& plan_;
  ShortRoads shortRoads_;
  std::uint64_t const interruptions_; // at its beginning
  bool parked_ = false;
};

WalkResult FullKelTypeWalker::walk(KelKey* key) {
  TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory,
              "{} Start prefixPath_:{} leafPath_:{} ir_:{} objType:{} keyName_:{} syncId_:{} walkId_:{} "
              "flags_:{} rootWalker_:{} addKeyScalar:{}",
              debugString(), prefixPath_, leafPath_, static_cast<void const*>(ir_.get()),
              objType_ ? objType_.name().view() : std::string_view("null"), KelKey::toString(*keyName_),
              syncId_, walkId_, flags_, rootWalker_, key != nullptr);
  TOVAK_ASSERT(gif_, walkerTrace(),
               "walk with a gif_ == nullptr! prefixPath_:{} leafPath_:{} objType:{} flags_:{}", prefixPath_,
               leafPath_, objType_ ? objType_.name().view() : std::string_view("null"), flags_);
  if (flags_ & flagSkipWalk) { // its attributes are done: it waited for the children it left behind
    TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "Skipping walk of {} at:{}", prefixPath_,
                objType_.name().view());
    if (toggleOndraSyncBundlingEnabled() && rootWalker_ && ir_ && !ir_->empty()) routerPush(true);
    return WalkResult::Success;
  }
  Run run(*this, key == nullptr && ownKey_ ? &*ownKey_ : key);
  if (attrQ_.started()) return run.go();
  attrQ_ = Kel::KelTypeBase::AttributeQIterator(objType_);
  return run.goAll();
}

WalkResult FullKelTypeWalker::Run::goAll() {
  return shortRoads_.toWhole(plan_) ? LightWalk(walker_).walk(plan_, *walker_.gif_->object(), *notifiee_)
                                    : go();
}

WalkResult FullKelTypeWalker::Run::go() {
  FullKelTypeWalker& walker = walker_;
  std::size_t const plainFrom = shortRoads_.plainFrom(plan_);
  WalkResult result = WalkResult::Success;
  WalkResult pushed = WalkResult::Success;
  for (; walker.attrQ_ && !hasEnded(); ++walker.attrQ_) {
    if (mustPause(result)) {
      TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory,
                  "Pause walk of prefixPath_:{} leafPath_:{} type:{} at:{}", walker.prefixPath_,
                  walker.leafPath_, walker.objType_.name().view(), (*walker.attrQ_).name().view());
      return pause(result);
    }
    std::size_t const position = walker.attrQ_.position();
    if (position == plainFrom && walker.ir_->empty()) {
      pushed = shortRoads_.pushPlain(plan_, *walker.gif_->object(), *notifiee_);
      break;
    }
    Plan const& attr = plan_.attrs[position];
    if (attr.road == Road::Skip) continue;
    result = merged(result, walkItem(attr.attr, [&] {
                      return attr.road == Road::Collection ? walkMembers(attr) : walkAttr(attr, position);
                    }));
    if (parked_) return result;
    walker.resumeKey_.reset();
  }
  return finish(result, pushed);
}

template <class Walk>
WalkResult FullKelTypeWalker::Run::walkItem(Kel::KelAttr const& attr, Walk const& walk) {
  WalkQ const* const queue = walker_.walkQ_;
  bool const asks = queue != nullptr && queue->task;
  std::uint64_t const questions = asks ? queue->questions() : 0;
  WalkResult result = WalkResult::Success;
  try {
    result = walk();
  } catch (...) {
    walker_.leaveOut(attr);
  }
  bool const asked = !asks || walker_.walkQ_->questions() != questions || !walker_.valueMode();
  return asked || result != WalkResult::Success ? result : walker_.yieldResult();
}

bool FullKelTypeWalker::Run::hasEnded() const {
  if (interruptions_ == Unsent::interruptions() || !notifiee_ || notifiee_->isRegistered() ||
      walker_.flags_.has(flagInstantiatingOnly)) [[likely]]
    return false;
  if (ir_) ir_->drop(*walker_.prefixPath_);
  return true;
}

bool FullKelTypeWalker::Run::isLeftOut(Plan const& plan) const {
  if (plan.road == Road::Unsupported) {
    TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "{} {}", walker_.debugString(),
                WalkRules::whyUnsupported(plan.attr));
    return true;
  }
  if (walker_.flags_.has(flagInstantiatingOnly) && walker_.valueMode()) { // a key is always told whole
    bool const always = plan.road == Road::Singleton || plan.attr.walkAlways();
    return !plan.attr.isInstantiating() || !always;
  }
  return plan.isEntityName && isEmptyText(plan.attr.genericIfGet(walker_.gif_)) &&
         !WalkRules::metKeyField(walker_.objType_, plan.attr, *walker_.prefixPath_, walker_.leafPath_);
}

WalkResult FullKelTypeWalker::Run::walkAttr(Plan const& plan, std::size_t position) {
  if (shortRoads_.toLeaves() && plan.isOwnLeaf) return shortRoads_.walkOwnLeaf(plan, position);
  return isLeftOut(plan) ? WalkResult::Success : walkSingleton(plan);
}

WalkResult FullKelTypeWalker::Run::walkSingleton(Plan const& plan) {
  FullKelTypeWalker& walker = walker_;
  if (plan.isPlainHolder && shortRoads_.toHeld()) {
    if (auto const result = shortRoads_.walkChild(plan, plan.attr.genericIfGet(walker.gif_))) return *result;
  }
  GifGnmiNotifiee* const notifiee = notifiee_.get();
  long const timestamp = walker.attrTimestamp(plan.attr, nullptr, notifiee);
  Kel::Ptr<Path> const leafPath = WalkRules::attrLeafPath(walker.leafPath_, plan);
  Kel::Ptr<Kel::GenericIf const> value = plan.readsValue ? plan.attr.genericIfGet(walker.gif_) : nullptr;
  if (plan.isEntityName && isEmptyText(value)) value.reset(); // only the key field that it meets is told
  walker.step_ = {plan.attr, nullptr};
  bool const renders = plan.rendersReferences && !walker.objType_.isValueType();
  RenderScope const rendering(renders, notifiee, plan.attr.id(), walker.step_.key);
  return walker.walkSingletonAttr(plan.attr, value, notifiee, timestamp, leafPath, key_, ir_);
}

WalkResult FullKelTypeWalker::Run::walkMembers(Plan const& plan) {
  if (isLeftOut(plan)) return WalkResult::Success;
  Kel::GenericIf::Iterator member = walker_.resumeKey_
                                        ? plan.attr.genericIfIteratorConst(walker_.gif_, walker_.resumeKey_)
                                        : plan.attr.genericIfIteratorConst(walker_.gif_);
  WalkResult result = WalkResult::Success;
  for (; member && !hasEnded(); ++member) {
    if (mustPause(result)) {
      Kel::Ptr<Kel::GenericIf const> const next = member.key();
      TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory,
                  "Pause walk type:{} at collection:{} after syncing keyGif:{}",
                  walker_.objType_.name().view(), plan.attr.name().view(), next->strRep());
      walker_.resumeKey_ = next->detachedKey();
      result = pause(result);
      parked_ = true;
      return result;
    }
    result = merged(result, walkItem(plan.attr, [&] { return walkMember(plan, member); }));
  }
  return result;
}

WalkResult FullKelTypeWalker::Run::walkMember(Plan const& plan, Kel::GenericIf::Iterator const& member) {
  bool const shortRoad = plan.isPlainHolder && shortRoads_.toHeld();
  if (shortRoad) {
    if (auto const pushed = shortRoads_.pushMember(plan, member)) return *pushed;
    if (auto const begun = shortRoads_.beginMember(plan, member)) return *begun;
  }
  Kel::Ptr<Kel::GenericIf const> const value = member.ptr();
  if (!value) return WalkResult::Success; // gone since it was looked for
  if (shortRoad) {
    if (auto const walked = shortRoads_.walkChild(plan, value)) return *walked;
  }
  Kel::Ptr<Kel::GenericIf const> const memberKey = member.key();
  walker_.step_ = {plan.attr, memberKey};
  bool const renders = plan.rendersReferences && !walker_.objType_.isValueType();
  RenderScope const rendering(renders, notifiee_.get(), plan.attr.id(), memberKey);
  return walker_.walkCollectionAttr(plan.attr, memberKey, value, notifiee_.get(), ir_);
}

WalkResult FullKelTypeWalker::Run::pause(WalkResult result) {
  // Nothing collected stays held while the walk is parked.
  if (toggleOndraSyncBundlingEnabled()) {
    if (walker_.ir_ && !walker_.ir_->empty()) walker_.routerPush(true);
  } else if (ir_ && !ir_->empty()) {
    walker_.routerPush(ir_);
    ir_->clear();
  }
  ParkedWalks::instance().park(ParkedWalks::movedOut(walker_, key_));
  return result;
}

WalkResult FullKelTypeWalker::Run::finish(WalkResult result, WalkResult pushed) {
  FullKelTypeWalker& walker = walker_;
  if (notifiee_ && walker.rootWalker_ && walker.flags_.has(flagInstantiatingOnly)) {
    SilentEnds const silent(walker.flags_.has(flagNoPush));
    notifiee_->onZeroReferences();
  }
  if (toggleOndraSyncBundlingEnabled()) {
    if (walker.rootWalker_ && walker.ir_ && !walker.ir_->empty()) pushed = walker.routerPush(true);
  } else if (!walker.ir_ && ir_ && !ir_->empty()) {
    TOVAK_TRACE(walkerTrace(), 8, kWalkerCategory, "{} push user-defined value message",
                walker.debugString());
    pushed = walker.routerPush(ir_);
    ir_.reset();
  }
  if (result == WalkResult::Success) {
    // All is sent: a pipe that is full now holds up those who come after, not this walk.
    return pushed == WalkResult::PipeFull && walker.rootWalker_ ? WalkResult::SuccessWithPipeFull : pushed;
  }
  if (!mustPause(result)) return result;
  TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "Pause walk of type:{} Children are paused",
              walker.objType_.name().view());
  walker.flags_ |= flagSkipWalk;
  return pause(result);
}

} // namespace Ondra
