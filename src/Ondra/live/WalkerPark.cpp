// Pausing: what a walker takes along when it is parked, and how it finds its object again.

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include "Ondra/IR.h"
#include "Ondra/KelGnmiUtils.h"
#include "Ondra/live/Fault.h"
#include "Ondra/live/ParkedWalks.h"
#include "Ondra/live/Referrers.h"
#include "Ondra/rules/WalkRules.h"
#include "Ondra/rules/WalkerTrace.h"

namespace Ondra {

struct FullKelTypeWalker::Parked {
  std::vector<Link> links;
  std::optional<KelKey> keyName;
  std::optional<KelKey> key;
};

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
    , keyName_(&KelKey::ofLeaves())
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
  if (ownKeyName_) keyName_ = &*ownKeyName_;
  running.ir_.reset();
  running.gif_.reset();
}

std::unique_ptr<FullKelTypeWalker> ParkedWalks::movedOut(Walker& running, KelKey const* key) {
  Walker::Parked copies{linksFromPrefix(running), {}, {}};
  if (running.keyName_->inKeyMode()) // the frames that own its keys are about to go
    copies.keyName = *running.keyName_;
  if (key != nullptr) copies.key = *key;
  return std::unique_ptr<Walker>(new Walker(std::move(copies), running));
}

std::vector<FullKelTypeWalker::Link> ParkedWalks::linksFromPrefix(Walker const& running) {
  std::vector<Walker::Link> links;
  Walker const* at = &running;
  for (; at->parent_ != nullptr; at = at->parent_) {
    Walker::Link const& step = at->parent_->step_;
    links.push_back({step.attr, step.key ? step.key->detachedKey() : nullptr});
  }
  // The outermost may itself have been parked before, somewhere below the prefix.
  links.insert(links.end(), at->links_.rbegin(), at->links_.rend());
  std::reverse(links.begin(), links.end());
  return links;
}

std::unique_ptr<FullKelTypeWalker> ParkedWalks::next(WalkQ& queue) {
  while (std::unique_ptr<Walker> walker = queue.popWalker()) {
    TOVAK_ASSERT(!walker->gif_, walkerTrace(), "Expected walker->gif_ to be null!");
    if (isThereAgain(*walker)) return walker;
    // What it was walking has gone while it was parked; what others of its walk left in the bundle has not.
    if (walker->rootWalker_ && walker->ir_ && !walker->ir_->empty()) walker->routerPush(true);
  }
  return nullptr;
}

bool ParkedWalks::isThereAgain(Walker& parked) {
  Kel::Ptr<GifGnmiNotifiee> const notifiee = KelGnmiUtils::lookupGnmiNotifieeMap(parked.prefixPath_);
  if (!notifiee) {
    TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "Failed to find a gNmiNotif for prefix:{}",
                parked.prefixPath_);
    return false;
  }
  try {
    return takeObject(parked, *notifiee);
  } catch (...) {
    std::string const text = faultText();
    TOVAK_TRACE(walkerTrace(), Tovak::traceLevelError, kWalkerCategory, "{} loses its object: {}",
                parked.debugString(), text);
    return false;
  }
}

// A key that holds a reference has another text when what it leads to has got another path, or has gone. All
// of the member was told at the new path then, and nothing is left at the old one.
bool ParkedWalks::isAtItsPath(Walker& parked) {
  // An element a link, behind those that the walk of the object began with.
  auto const elems = parked.leafPath_->elems();
  TOVAK_ASSERT(elems.size() >= parked.links_.size(), walkerTrace(), "{} is no way of {} steps",
               parked.leafPath_, parked.links_.size());
  auto const places = elems.last(parked.links_.size());
  for (std::size_t i = 0; i < parked.links_.size(); ++i) {
    Kel::KelAttr const& attr = parked.links_[i].attr;
    WalkRules::AttrPlan const& plan = WalkRules::typePlan(attr.ownerType()).attrs[attr.desc().index];
    if (!plan.keyHoldsReference || !parked.links_[i].key) continue;
    RenderScope const ofNobody(true, nullptr, 0, nullptr);
    KelKey key;
    parked.extractKeyInfo(parked.links_[i].key, attr, key);
    Kel::Ptr<Path> path = Path::PathIs();
    path->push(plan.elem);
    key.updateAndStorePrefix(path, WalkRules::isDirEntries(attr), attr);
    if (!path->elems().back()->isEqual(places[i].get())) return false;
  }
  return true;
}

bool ParkedWalks::takeObject(Walker& parked, GifGnmiNotifiee const& notifiee) {
  Kel::Ptr<Kel::GenericIf const> at = notifiee.object();
  for (Walker::Link const& link : parked.links_) {
    if (!at || !(at->type() == link.attr.ownerType())) return false;
    at = link.attr.genericIfGet(at, link.key);
  }
  if (!at || !(at->type() == parked.objType_) || !isAtItsPath(parked)) return false;
  if (!parked.links_.empty()) {
    // What is read from now on may have been changed, and sent with a later time, while the walk was parked.
    Walker::Link const& first = parked.links_.front();
    AttrStateNode const* const state = notifiee.attrStates().queryAttrState(first.attr.id(), first.key);
    parked.timestamp_ = state != nullptr ? state->effectiveTimestamp() : parked.timestamp_;
  }
  parked.gif_ = std::move(at);
  return true;
}

WalkResult ParkedWalks::resume(WalkQ& queue, Walker& walker) {
  WalkQ::Turn const turn(queue);
  bool const nested = !walker.links_.empty();
  // Of the watched object, in which the value lies.
  Walker::Link const attribute = nested ? walker.links_.front() : Walker::Link();
  Kel::Ptr<GifGnmiNotifiee> const notifiee =
      nested ? KelGnmiUtils::lookupGnmiNotifieeMap(walker.prefixPath_) : nullptr;
  RenderScope const rendering(nested, notifiee.get(), nested ? attribute.attr.id() : 0, attribute.key);
  return walker.walk(nullptr);
}

} // namespace Ondra
