// The end of a path, and what waits for walks to end.

#include <exception>
#include <vector>

#include "Kel/ActivityClock.h"
#include "Kel/Entity.h"
#include "Ondra/ArenaRespMsg.h"
#include "Ondra/GifNotifiee.h"
#include "Ondra/KelGnmiUtils.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/NotifieeMaps.h"
#include "Ondra/NotifieeTrace.h"
#include "Ondra/Pending.h"
#include "Ondra/Referrers.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra {
namespace {

// 0 for what is no entity, or has gone.
Referrers::Serial serialOf(GifGnmiNotifiee const& notifiee) {
  bool const entity = notifiee.notifier() != nullptr && notifiee.objectType().isEntity();
  return entity ? static_cast<Kel::Entity const*>(notifiee.notifier())->serial() : 0;
}

} // namespace

bool retire(Kel::Ptr<Path const> const& path) {
  WalkScope const unwindFirst;
  std::vector<Kel::Ptr<GifGnmiNotifiee>> const leaving = notifieeMaps->atOrBelow(*path);
  Referrers& referrers = Referrers::instance();
  for (auto notifiee = leaving.rbegin(); notifiee != leaving.rend(); ++notifiee) { // children first
    Referrers::Serial const object = serialOf(**notifiee);
    notifieeMaps->erase(*notifiee);
    referrers.pathChanged(object);
  }
  FullKelTypeWalker::delFromWalkQ(path);
  return !leaving.empty();
}

void forceDelete(BaseRouter& router, Kel::Ptr<Path const> const& path) {
  static Kel::Ptr<Path const> const noPrefix = Path::PathIs();
  Kel::ActivityManagerStatus& clock = *Kel::activityManagerStatus();
  clock.activityLoopExecNsTimeInc(1);
  auto [response, notification] = ArenaRespMsg::createResponse(noPrefix, clock.activityLoopExecNsTime());
  KelGnmiUtils::pushDelete(*notification, path);
  TOVAK_TRACE(notifieeTrace(), 5, kNotifieeCategory, "force gnmi delete msg: {}", response->toString());
  router.push(SyncId(), WalkId(), response);
  clock.activityLoopExecNsTimeInc(1);
}

// --- SilentEnds, WalkScope --------------------------------------------------------------------------------

int SilentEnds::depth_ = 0;
int WalkScope::depth_ = 0;

WalkScope::WalkScope() noexcept : exceptions_(std::uncaught_exceptions()) { ++depth_; }

WalkScope::~WalkScope() noexcept(false) {
  if (--depth_ == 0 && std::uncaught_exceptions() == exceptions_) {
    Pending::instance().run();
  }
}

// --- Pending -------------------------------------------------------------------------------------------

Pending& Pending::instance() {
  static auto* const pending = new Pending();
  return *pending;
}

void Pending::add(GifGnmiNotifiee& notifiee, Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key) {
  Change change{Kel::Ptr<GifGnmiNotifiee>(&notifiee), AttrStateNode(id, key),
                key ? key->detachedKey() : nullptr};
  Count& count = seen_[change];
  if (!count.waiting && count.runs < kMaxRuns) {
    count.waiting = true;
    queue_.push_back(std::move(change));
  }
}

void Pending::run() {
  if (queue_.empty() || running_) {
    return;
  }
  struct Running {
    explicit Running(bool& flag) : flag_(flag) { flag_ = true; }
    ~Running() { flag_ = false; }
    bool& flag_;
  } const running(running_);
  while (!queue_.empty()) {
    Change const change = std::move(queue_.front());
    queue_.pop_front();
    Count& count = seen_[change];
    count.waiting = false;
    ++count.runs;
    change.notifiee->changed(change.what.id(), change.key);
  }
  seen_.clear();
}

void Pending::clear() {
  queue_.clear();
  seen_.clear();
}

} // namespace Ondra
