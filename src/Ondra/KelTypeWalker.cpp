// The walk of an object: its attributes in order, the end of the walk, and the descent into what it holds.

#include "Ondra/KelTypeWalker.h"

#include <memory>
#include <utility>

#include "Kel/ActivityClock.h"
#include "Ondra/AttrStateMap.h"
#include "Ondra/Fault.h"
#include "Ondra/IR.h"
#include "Ondra/KelGnmiUtils.h"
#include "Ondra/NotifieeMaps.h"
#include "Ondra/ParkedWalks.h"
#include "Ondra/Referrers.h"
#include "Ondra/Unsent.h"
#include "Ondra/WalkerTrace.h"

namespace Ondra {

FullKelTypeWalker::FullKelTypeWalker(Kel::Ptr<Path const> const& prefixPath, std::shared_ptr<Ir> const& ir,
                                     Kel::Ptr<Kel::GenericIf const> gif, Kel::Ptr<Path> leafPath,
                                     BaseRouter& router, WalkQ* walkQ, WalkerFlags flags, KelKey& key,
                                     bool rootWalker, long timestamp)
    : prefixPath_(prefixPath)
    , ir_(ir)
    , leafPath_(std::move(leafPath))
    , gif_(std::move(gif))
    , router_(router)
    , walkQ_(walkQ)
    , syncId_(walkQ == nullptr ? SyncId() : walkQ->syncWalkId.first)
    , walkId_(walkQ == nullptr ? WalkId() : walkQ->syncWalkId.second)
    , objType_(gif_ ? gif_->type() : Kel::KelType())
    , flags_(flags)
    , keyName_(&key)
    , rootWalker_(rootWalker)
    , timestamp_(timestamp) {
  TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "{}", debugString());
  TOVAK_ASSERT(ir_ || !toggleOndraSyncBundlingEnabled(), walkerTrace(), "ir_ is null");
}

FullKelTypeWalker::~FullKelTypeWalker() {
  if (parkedAs_ != 0) {
    ParkedWalks::instance().unlist(*this);
  }
}

std::string FullKelTypeWalker::debugString() const {
  return fmt::format("FullKelTypeWalker( prefix:{} leaf:{} syncId:{} walkId:{} flags:{})", prefixPath_,
                     leafPath_, syncId_, walkId_, flags_);
}

std::shared_ptr<Ir> FullKelTypeWalker::makeIr() { return Ir::IrIs(); }

WalkResult FullKelTypeWalker::yieldResult() const {
  return walkQ_ != nullptr && walkQ_->shouldYield() ? WalkResult::QuantaExceeded : WalkResult::Success;
}

// The time of the attribute's last change, for the attributes of watched objects; those of values have the walker's.
long FullKelTypeWalker::attrTimestamp(Kel::KelAttr const& attr, Kel::Ptr<Kel::GenericIf const> const& key,
                                      GifGnmiNotifiee* notifiee) const {
  if (notifiee == nullptr || objType_.isValueType() || flags_.has(flagInstantiatingOnly)) {
    return timestamp_;
  }
  return notifiee->attrStates().getAttrState(attr.id(), key).effectiveTimestamp();
}

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
  if (flags_ & flagSkipWalk) {
    return finishSkipped();
  }
  if (key == nullptr && ownKey_) {
    key = &*ownKey_;
  }
  Kel::Ptr<GifGnmiNotifiee> notifiee;
  if (!objType_.isValueType()) { // values are watched by nobody
    notifiee = notifiee_ ? std::move(notifiee_) : KelGnmiUtils::lookupGnmiNotifieeMap(prefixPath_);
  }
  if (!attrQ_.started()) {
    attrQ_ = Kel::KelTypeBase::AttributeQIterator(objType_);
  }
  std::shared_ptr<Ir> ir = ir_;
  Unsent const unsent(*this, ir, notifiee.get());
  WalkRules::TypePlan const& plan = WalkRules::typePlan(objType_);
  Course course{notifiee.get(), key, ir, shortRoads(notifiee.get()), Unsent::interruptions()};
  WalkResult result = WalkResult::Success;
  for (; attrQ_ && !hasEnded(course); ++attrQ_) {
    if (mustPause(result)) {
      TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory,
                  "Pause walk of prefixPath_:{} leafPath_:{} type:{} at:{}", prefixPath_, leafPath_,
                  objType_.name().view(), (*attrQ_).name().view());
      return pause(result, key, ir);
    }
    std::size_t const position = attrQ_.position();
    if (course.shortRoads.leaves && rootWalker_ && position == plan.plainFrom && sendsPlain()) {
      return finish(result, key, ir, notifiee.get(), pushPlain(plan, *gif_->object(), *notifiee));
    }
    WalkRules::AttrPlan const& attr = plan.attrs[position];
    if (attr.road == Road::Skip) {
      continue;
    }
    bool parked = false;
    result = merged(result, walkItem(attr.attr, [&] {
                      return attr.road == Road::Collection ? walkMembers(attr, course, parked)
                                                           : walkAttr(attr, position, course);
                    }));
    if (parked) {
      return result;
    }
    resumeKey_.reset();
  }
  return finish(result, key, ir, notifiee.get());
}

template <class Walk>
WalkResult FullKelTypeWalker::walkItem(Kel::KelAttr const& attr, Walk const& walk) {
  bool const asks = walkQ_ != nullptr && walkQ_->task;
  std::uint64_t const questions = asks ? walkQ_->questions() : 0;
  WalkResult result;
  try {
    result = walk();
  } catch (...) {
    result = leaveOut(attr);
  }
  bool const asked = !asks || walkQ_->questions() != questions || !valueMode();
  return asked || result != WalkResult::Success ? result : yieldResult();
}

WalkResult FullKelTypeWalker::leaveOut(Kel::KelAttr const& attr) {
  if (!valueMode()) {
    throw;
  }
  std::string const text = faultText();
  TOVAK_TRACE(walkerTrace(), Tovak::traceLevelError, kWalkerCategory, "{} skipping {}: {}", debugString(),
              attr.name().view(), text);
  leftOut_ = true;
  return WalkResult::Success;
}

bool FullKelTypeWalker::hasEnded(Course const& course) const {
  if (course.interruptions == Unsent::interruptions() || course.notifiee == nullptr ||
      course.notifiee->isRegistered() || flags_.has(flagInstantiatingOnly)) [[likely]] {
    return false;
  }
  if (course.ir) {
    course.ir->drop(*prefixPath_);
  }
  return true;
}

bool FullKelTypeWalker::isLeftOut(WalkRules::AttrPlan const& plan) const {
  if (plan.road == Road::Unsupported) {
    TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "{} {}", debugString(),
                WalkRules::whyUnsupported(plan.attr));
    return true;
  }
  if (flags_.has(flagInstantiatingOnly) && valueMode()) { // a key is always told whole
    bool const always = plan.road == Road::Singleton || plan.attr.walkAlways();
    return !plan.attr.isInstantiating() || !always;
  }
  return plan.isEntityName && isEmptyText(plan.attr.genericIfGet(gif_)) &&
         !WalkRules::metKeyField(objType_, plan.attr, *prefixPath_, leafPath_);
}

bool FullKelTypeWalker::isEmptyText(Kel::Ptr<Kel::GenericIf const> const& value) {
  Kel::String const* const text = value ? value->attrValPtr<Kel::String>() : nullptr;
  return text != nullptr && text->empty();
}

WalkResult FullKelTypeWalker::walkAttr(WalkRules::AttrPlan const& plan, std::size_t position,
                                       Course& course) {
  if (course.shortRoads.leaves && plan.isOwnLeaf) {
    return walkOwnLeaf(plan, position, *course.notifiee);
  }
  return isLeftOut(plan) ? WalkResult::Success : walkSingleton(plan, course);
}

WalkResult FullKelTypeWalker::walkSingleton(WalkRules::AttrPlan const& plan, Course& course) {
  GifGnmiNotifiee* const notifiee = course.notifiee;
  if (plan.isPlainHolder && course.shortRoads.held) {
    if (auto const result = walkChild(plan, plan.attr.genericIfGet(gif_), *notifiee)) {
      return *result;
    }
  }
  long const timestamp = attrTimestamp(plan.attr, nullptr, notifiee);
  Kel::Ptr<Path> const leafPath = WalkRules::attrLeafPath(leafPath_, plan);
  Kel::Ptr<Kel::GenericIf const> value = plan.readsValue ? plan.attr.genericIfGet(gif_) : nullptr;
  if (plan.isEntityName && isEmptyText(value)) {
    value.reset(); // only the key field that it meets is told
  }
  step_ = {plan.attr, nullptr};
  bool const renders = plan.rendersReferences && !objType_.isValueType();
  RenderScope const rendering(renders, notifiee, plan.attr.id(), step_.key);
  return walkSingletonAttr(plan.attr, value, notifiee, timestamp, leafPath, course.key, course.ir);
}

WalkResult FullKelTypeWalker::walkMembers(WalkRules::AttrPlan const& plan, Course& course, bool& parked) {
  if (isLeftOut(plan)) {
    return WalkResult::Success;
  }
  Kel::GenericIf::Iterator member = resumeKey_ ? plan.attr.genericIfIteratorConst(gif_, resumeKey_)
                                               : plan.attr.genericIfIteratorConst(gif_);
  WalkResult result = WalkResult::Success;
  for (; member && !hasEnded(course); ++member) {
    if (mustPause(result)) {
      Kel::Ptr<Kel::GenericIf const> const next = member.key();
      TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory,
                  "Pause walk type:{} at collection:{} after syncing keyGif:{}", objType_.name().view(),
                  plan.attr.name().view(), next->strRep());
      resumeKey_ = next->detachedKey();
      result = pause(result, course.key, course.ir);
      parked = true;
      return result;
    }
    result = merged(result, walkItem(plan.attr, [&] { return walkMember(plan, member, course); }));
  }
  return result;
}

WalkResult FullKelTypeWalker::walkMember(WalkRules::AttrPlan const& plan,
                                         Kel::GenericIf::Iterator const& member, Course& course) {
  GifGnmiNotifiee* const notifiee = course.notifiee;
  bool const shortRoad = plan.isPlainHolder && course.shortRoads.held;
  if (shortRoad) {
    fetchAhead(plan, member);
    if (auto const pushed = pushPlainChild(plan, member.objectAhead(0), *notifiee)) {
      return *pushed;
    }
  }
  Kel::Ptr<Kel::GenericIf const> const value = member.ptr();
  if (!value) {
    return WalkResult::Success; // gone since it was looked for
  }
  if (shortRoad) {
    if (auto const walked = walkChild(plan, value, *notifiee)) {
      return *walked;
    }
  }
  Kel::Ptr<Kel::GenericIf const> const memberKey = member.key();
  step_ = {plan.attr, memberKey};
  bool const renders = plan.rendersReferences && !objType_.isValueType();
  RenderScope const rendering(renders, notifiee, plan.attr.id(), memberKey);
  return walkCollectionAttr(plan.attr, memberKey, value, notifiee, course.ir);
}

// A walker whose attributes are done and that waited for the children it left behind.
WalkResult FullKelTypeWalker::finishSkipped() {
  TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "Skipping walk of {} at:{}", prefixPath_,
              objType_.name().view());
  if (toggleOndraSyncBundlingEnabled() && rootWalker_ && ir_ && !ir_->empty()) {
    routerPush(true);
  }
  return WalkResult::Success;
}

WalkResult FullKelTypeWalker::finish(WalkResult result, KelKey* key, std::shared_ptr<Ir>& ir,
                                     GifGnmiNotifiee* notifiee, WalkResult pushed) {
  if (notifiee != nullptr && rootWalker_ && flags_.has(flagInstantiatingOnly)) {
    SilentEnds const silent(flags_.has(flagNoPush));
    notifiee->onZeroReferences();
  }
  if (toggleOndraSyncBundlingEnabled()) {
    if (rootWalker_ && ir_ && !ir_->empty()) {
      pushed = routerPush(true);
    }
  } else if (!ir_ && ir && !ir->empty()) {
    TOVAK_TRACE(walkerTrace(), 8, kWalkerCategory, "{} push user-defined value message", debugString());
    pushed = routerPush(ir);
    ir.reset();
  }
  if (result == WalkResult::Success) {
    // All is sent: a pipe that is full now holds up those who come after, not this walk.
    return pushed == WalkResult::PipeFull && rootWalker_ ? WalkResult::SuccessWithPipeFull : pushed;
  }
  if (!mustPause(result)) {
    return result;
  }
  TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "Pause walk of type:{} Children are paused",
              objType_.name().view());
  flags_ |= flagSkipWalk;
  return pause(result, key, ir);
}

WalkResult FullKelTypeWalker::nextWalker(Kel::Ptr<Kel::GenericIf const> attrGif,
                                         std::shared_ptr<Ir> const& ir, Kel::Ptr<Path> const& leafPath,
                                         KelKey& key, long timestamp, KelKey* keyArg) {
  FullKelTypeWalker child(prefixPath_, ir, std::move(attrGif), leafPath, router_, walkQ_, flags_, key, false,
                          timestamp == 0 ? timestamp_ : timestamp);
  child.parent_ = this;
  child.syncId_ = syncId_;
  child.walkId_ = walkId_;
  TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory,
              "{} attrGif:{} leafPath:{} objType:{} keyName:{} timestamp:{} valueType:{} constructing "
              "FullKelTypeWalker with prefixPath_:{}",
              debugString(), child.gif_ ? child.gif_->strRep() : "null", leafPath,
              child.objType_ ? child.objType_.name().view() : std::string_view("null"), KelKey::toString(key),
              timestamp, child.objType_ && child.objType_.isValueType(), prefixPath_);
  return child.walk(keyArg);
}

WalkResult FullKelTypeWalker::handleInstantiating(Kel::Ptr<Kel::GenericIf const> gif,
                                                  Kel::Ptr<Path const> const& path, long timestamp,
                                                  KelKey* key) {
  auto const* const object = static_cast<Kel::PtrInterface const*>(gif->voidPtrIs(gif->type()));
  if (shortRoads(nullptr).watched) {
    if (Kel::Ptr<GifGnmiNotifiee> watched{notifieeMaps->find(object, path)}) {
      return walkWatched(gif, std::move(watched), path, timestamp, key);
    }
  }
  auto walkInfo = std::allocate_shared<WalkInfo>(Kel::MemAllocator<WalkInfo>(), router_, syncWalkId(), path,
                                                 object, flags_);
  walkInfo->timeStampToUse = timestamp;
  return walkObjectInternal(walkInfo, walkQ_, key,
                            toggleOndraSyncBundlingEnabled() ? ir_ : std::shared_ptr<Ir>());
}

} // namespace Ondra
