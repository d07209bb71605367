// Walkers: what they are made of, and the descent into what an object holds.

#include "Ondra/KelTypeWalker.h"

#include <memory>
#include <string>
#include <utility>

#include "Ondra/AttrStateMap.h"
#include "Ondra/IR.h"
#include "Ondra/NotifieeMaps.h"
#include "Ondra/live/Fault.h"
#include "Ondra/live/ParkedWalks.h"
#include "Ondra/live/ShortRoads.h"
#include "Ondra/rules/WalkerTrace.h"

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
  if (parkedAs_ != 0) ParkedWalks::instance().unlist(*this);
}

std::string FullKelTypeWalker::debugString() const {
  return fmt::format("FullKelTypeWalker( prefix:{} leaf:{} syncId:{} walkId:{} flags:{})", prefixPath_,
                     leafPath_, syncId_, walkId_, flags_);
}

WalkResult FullKelTypeWalker::yieldResult() const {
  return walkQ_ != nullptr && walkQ_->shouldYield() ? WalkResult::QuantaExceeded : WalkResult::Success;
}

// The time of the attribute's last change, for the attributes of watched objects; those of values have the
// walker's.
long FullKelTypeWalker::attrTimestamp(Kel::KelAttr const& attr, Kel::Ptr<Kel::GenericIf const> const& key,
                                      GifGnmiNotifiee* notifiee) const {
  if (notifiee == nullptr || objType_.isValueType() || flags_.has(flagInstantiatingOnly)) return timestamp_;
  return notifiee->attrStates().timestampOf(attr.id(), key);
}

void FullKelTypeWalker::leaveOut(Kel::KelAttr const& attr) {
  if (!valueMode()) throw;
  std::string const text = faultText();
  TOVAK_TRACE(walkerTrace(), Tovak::traceLevelError, kWalkerCategory, "{} skipping {}: {}", debugString(),
              attr.name().view(), text);
  leftOut_ = true;
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
  if (ShortRoads roads(*this, nullptr); roads.toWatched()) {
    if (Kel::Ptr<GifGnmiNotifiee> watched{notifieeMaps->find(object, path)})
      return roads.walkWatched(gif, std::move(watched), path, timestamp, key);
  }
  auto walkInfo = std::allocate_shared<WalkInfo>(Kel::MemAllocator<WalkInfo>(), router_, syncWalkId(), path,
                                                 object, flags_);
  walkInfo->timeStampToUse = timestamp;
  return walkObjectInternal(walkInfo, walkQ_, key,
                            toggleOndraSyncBundlingEnabled() ? ir_ : std::shared_ptr<Ir>());
}

} // namespace Ondra
