// Walks are held while it lives; what waits is told in slices, and freed by the worker.
#include "agent/router/StagedSet.h"

#include <utility>

#include "Tovak/Assert.h"
#include "Tovak/DebugHandler.h"
#include "Tovak/Task.h"
#include "agent/context/Context.h"
#include "agent/router/ChangeListener.h"
#include "agent/router/Router.h"

namespace Agent {

StagedSet::StagedSet(Router& router)
    : router_(router)
    , staging_(std::make_unique<Staging>(router.context().memory().plans)) {
  TOVAK_ASSERT(router.staged_ == nullptr, Tovak::Platform::getDebugHandler("OndraAgent", false),
               "a Set begins while another one is carried out");
  router.stagedSetIs(this);
}

// To let go of much takes its time: the worker does.
StagedSet::~StagedSet() {
  router_.context().worker().post([staging = std::move(staging_)] {});
  router_.stagedSetIs(nullptr);
}

void StagedSet::forget(std::span<std::string const> kept) {
  router_.context().worker().post([forgotten = staging_->drop(kept)] {});
}

bool StagedSet::tellSome(Tovak::Task const& task) {
  if (!staging_->settleSome(task)) return false;
  while (Staging::Response const response = staging_->next()) {
    if (router_.listener_ != nullptr) router_.listener_->changed(response);
    if (task.taskShouldYield()) return false;
  }
  return true;
}

} // namespace Agent
