// The end of a path, and what waits for walks to end.

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include "Kel/ActivityClock.h"
#include "Kel/Entity.h"
#include "Ondra/ArenaRespMsg.h"
#include "Ondra/GifNotifiee.h"
#include "Ondra/KelGnmiUtils.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/NotifieeMaps.h"
#include "Ondra/live/Fault.h"
#include "Ondra/live/NotifieeTrace.h"
#include "Ondra/live/Pending.h"
#include "Ondra/live/Referrers.h"
#include "Ondra/live/Unsent.h"
#include "Ondra/paths/PathOrder.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra {
namespace {

// Takes a notifiee out of the registry, and has references to its object rendered anew where they show its
// path.
void takeOut(Kel::Ptr<GifGnmiNotifiee> const& notifiee) {
  bool const isEntity = notifiee->notifier() != nullptr && notifiee->objectType().isEntity();
  auto const* const entity = isEntity ? static_cast<Kel::Entity const*>(notifiee->notifier()) : nullptr;
  Referrers& referrers = Referrers::instance();
  if (entity == nullptr || referrers.size() == 0) {
    notifieeMaps->erase(notifiee);
    return;
  }
  Referrers::Serial const serial = entity->serial();
  bool const forEver = entity->isOrphan();
  bool const isShown = forEver || notifieeMaps->pathOf(entity) == notifiee->prefixPath();
  notifieeMaps->erase(notifiee);
  if (isShown) forEver ? referrers.objectEnded(serial) : referrers.pathChanged(serial);
}

} // namespace

bool retire(Kel::Ptr<Path const> const& path) {
  WalkScope const unwindFirst;
  bool wasWatched = false;
  tellOrEnd([&] {
    static_cast<void>(notifieeMaps->find(path)); // makes what is only stood in for there
    std::vector<Kel::Ptr<GifGnmiNotifiee>> const leaving = notifieeMaps->atOrBelow(*path);
    wasWatched = !leaving.empty();
    for (auto notifiee = leaving.rbegin(); notifiee != leaving.rend(); ++notifiee) // children first
      takeOut(*notifiee);
    FullKelTypeWalker::delFromWalkQ(path);
  });
  return wasWatched;
}

void forceDelete(BaseRouter& router, Kel::Ptr<Path const> const& path) {
  static Kel::Ptr<Path const> const noPrefix = Path::PathIs();
  tellOrEnd([&] {
    Unsent::sendBefore(path);
    Kel::ActivityManagerStatus& clock = *Kel::activityManagerStatus();
    // docs/decisions.md: "In which order does a path end?"
    clock.activityLoopExecNsTimeInc(1);
    auto [response, notification] = ArenaRespMsg::createResponse(noPrefix, clock.activityLoopExecNsTime());
    KelGnmiUtils::pushDelete(*notification, path);
    TOVAK_TRACE(notifieeTrace(), 5, kNotifieeCategory, "force gnmi delete msg: {}", response->toString());
    static_cast<void>(
        handOver([&, &response = response] { return router.push(SyncId(), WalkId(), response); }));
  });
}

// --- SilentEnds, WalkScope --------------------------------------------------------------------------------

int SilentEnds::depth_ = 0;
int WalkScope::depth_ = 0;

WalkScope::WalkScope() noexcept : exceptions_(std::uncaught_exceptions()) { ++depth_; }

WalkScope::~WalkScope() noexcept(false) {
  if (--depth_ == 0 && std::uncaught_exceptions() == exceptions_) Pending::instance().run();
}

// --- Pending -------------------------------------------------------------------------------------------

Pending& Pending::instance() {
  static auto* const pending = new Pending();
  return *pending;
}

void Pending::add(GifGnmiNotifiee& notifiee, Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key,
                  Cause cause) {
  Change change{Kel::Ptr<GifGnmiNotifiee>(&notifiee), AttrStateNode(id, key),
                key ? key->detachedKey() : nullptr};
  if (cause == Cause::Path && links_ > kMaxPathLinks) {
    TOVAK_TRACE(notifieeTrace(), 4, kNotifieeCategory,
                "paths that hold each other are not followed further: {}", notifiee.prefixPath());
    return;
  }
  auto const [at, isNew] = waiting_.try_emplace(change, links_);
  if (!isNew) {
    at->second = std::min(at->second, links_);
  } else if (links_ <= kMaxLinks) {
    queue_.push_back(std::move(change));
  } else {
    TOVAK_TRACE(notifieeTrace(), 4, kNotifieeCategory, "changes whenever it is sent, told later: {}",
                notifiee.prefixPath());
    later_.push_back(std::move(change));
  }
}

void Pending::addSharers(GifGnmiNotifiee& notifiee, Kel::AttributeId id, Kel::Ptr<Path const> const& path) {
  shared_.insert({Kel::Ptr<GifGnmiNotifiee>(&notifiee), id, path});
}

bool Pending::Shared::operator<(Shared const& other) const {
  if (notifiee != other.notifiee) // by age, so that what happens can be repeated
    return notifiee->serial() < other.notifiee->serial();
  return id != other.id ? id < other.id : comparePaths(*path, *other.path) < 0;
}

void Pending::run() {
  if (running_ || (queue_.empty() && later_.empty() && shared_.empty())) // nothing waits after most changes
    return;
  struct Running {
    explicit Running(Pending& theQueue) : queue(theQueue) { queue.running_ = true; }
    ~Running() {
      queue.running_ = false;
      queue.links_ = 0;
    }
    Pending& queue;
  } const running(*this);
  for (; !later_.empty(); later_.pop_front()) {
    waiting_[later_.front()] = 0;
    queue_.push_back(std::move(later_.front()));
  }
  while (!queue_.empty() || !shared_.empty()) {
    if (queue_.empty()) {
      Shared const shared = *shared_.begin();
      shared_.erase(shared_.begin());
      shared.notifiee->sharersChanged(shared.id, shared.path);
      continue;
    }
    Change const change = std::move(queue_.front());
    queue_.pop_front();
    auto const waited = waiting_.find(change);
    links_ = waited->second + 1;
    waiting_.erase(waited);
    change.notifiee->changed(change.what.id(), change.key);
  }
}

void Pending::clear() {
  queue_.clear();
  later_.clear();
  waiting_.clear();
  shared_.clear();
}

} // namespace Ondra
