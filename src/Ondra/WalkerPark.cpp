// Pausing: what a walker takes along when it is parked, and how it finds its object again.

#include <algorithm>
#include <memory>
#include <utility>

#include "Ondra/Fault.h"
#include "Ondra/IR.h"
#include "Ondra/KelGnmiUtils.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/WalkerTrace.h"

namespace Ondra {

struct FullKelTypeWalker::Parked {
  std::vector<Link> links;
  std::optional<KelKey> keyName;
  std::optional<KelKey> key;
};

KelKey& FullKelTypeWalker::valueModeKey() {
  static KelKey key;
  return key;
}

// Moves everything but the object out of the running walker.
FullKelTypeWalker::FullKelTypeWalker(Parked&& copies, FullKelTypeWalker& running) noexcept
    : prefixPath_(std::move(running.prefixPath_))
    , leafPath_(std::move(running.leafPath_))
    , router_(running.router_)
    , walkQ_(running.walkQ_)
    , syncId_(running.syncId_)
    , walkId_(running.walkId_)
    , objType_(running.objType_)
    , flags_(running.flags_)
    , keyName_(&valueModeKey())
    , rootWalker_(running.rootWalker_)
    , timestamp_(running.timestamp_)
    , attrQ_(std::move(running.attrQ_))
    , resumeKey_(std::move(running.resumeKey_))
    , links_(std::move(copies.links))
    , ownKeyName_(std::move(copies.keyName))
    , ownKey_(std::move(copies.key)) {
  isPlain_ = running.isPlain_;
  if (toggleOndraSyncBundlingEnabled()) {
    ir_ = std::move(running.ir_);
  } // else the Ir belongs to an attribute of the parent, which has been sent: the resumed walker makes its own
  if (ownKeyName_) {
    keyName_ = &*ownKeyName_;
  }
  running.ir_.reset();
  running.gif_.reset();
}

WalkResult FullKelTypeWalker::pause(WalkResult result, KelKey* key, std::shared_ptr<Ir>& ir) {
  // Nothing collected stays held while the walk is parked.
  if (toggleOndraSyncBundlingEnabled()) {
    if (ir_ && !ir_->empty()) {
      routerPush(true);
    }
  } else if (ir && !ir->empty()) {
    routerPush(ir);
    ir->clear();
  }
  // The frames that own its keys are about to go. What copying a key raises finds the walker as it was.
  Parked copies{linksFromPrefix(), {}, {}};
  if (keyName_->inKeyMode()) {
    copies.keyName = *keyName_;
  }
  if (key != nullptr) {
    copies.key = *key;
  }
  addToWalkQ(std::unique_ptr<FullKelTypeWalker>(new FullKelTypeWalker(std::move(copies), *this)));
  return result;
}

std::vector<FullKelTypeWalker::Link> FullKelTypeWalker::linksFromPrefix() const {
  std::vector<Link> links;
  FullKelTypeWalker const* at = this;
  for (; at->parent_ != nullptr; at = at->parent_) {
    Link const& step = at->parent_->step_;
    links.push_back({step.attr, step.key ? step.key->detachedKey() : nullptr});
  }
  // The outermost may itself have been parked before, somewhere below the prefix.
  links.insert(links.end(), at->links_.rbegin(), at->links_.rend());
  std::reverse(links.begin(), links.end());
  return links;
}

// Whether a parked walker has its object again. What is raised on the way to it says that it has not.
bool FullKelTypeWalker::isThereAgain() {
  Kel::Ptr<GifGnmiNotifiee> const notifiee = KelGnmiUtils::lookupGnmiNotifieeMap(prefixPath_);
  if (!notifiee) {
    TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "Failed to find a gNmiNotif for prefix:{}", prefixPath_);
    return false;
  }
  try {
    return takeObject(*notifiee);
  } catch (...) {
    std::string const text = faultText();
    TOVAK_TRACE(walkerTrace(), Tovak::traceLevelError, kWalkerCategory, "{} loses its object: {}",
                debugString(), text);
    return false;
  }
}

// Sets `gif_` from the object at the prefix; says whether what was being walked is still there.
bool FullKelTypeWalker::takeObject(GifGnmiNotifiee const& notifiee) {
  Kel::Ptr<Kel::GenericIf const> at = notifiee.object();
  for (Link const& link : links_) {
    if (!at || !(at->type() == link.attr.ownerType())) {
      return false;
    }
    at = link.attr.genericIfGet(at, link.key);
  }
  if (!at || !(at->type() == objType_)) {
    return false;
  }
  if (!links_.empty()) {
    // What is read from now on may have been changed, and sent with a later time, while the walk was parked.
    AttrStateNode const* const state =
        notifiee.attrStates().queryAttrState(links_.front().attr.id(), links_.front().key);
    timestamp_ = state != nullptr ? state->effectiveTimestamp() : timestamp_;
  }
  gif_ = std::move(at);
  return true;
}

} // namespace Ondra
