// Walks as the host describes them (WalkInfo) and as the scheduler runs them (WalkTask).
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"
#include "Kstd/Export.h"
#include "Ondra/BaseRouter.h"
#include "Ondra/Path.h"
#include "Ondra/WalkTypes.h"
#include "Tovak/String.h"
#include "Tovak/Task.h"

namespace Ondra {

using SyncWalkId = std::pair<SyncId, WalkId>; // as a walk is named

// What to walk and for whom. Shared between the host, the task and, for walks inside a walk, the walker that
// made it.
struct KTD_EXPORT WalkInfo {
  // REQUIRES an object (asserted). The object must stay alive until the walk's first slice; after that the
  // walk finds it again through the notifiee of its path.
  WalkInfo(BaseRouter& router, SyncWalkId syncWalkId, Kel::Ptr<Path const> path, Kel::PtrInterface const* obj,
           WalkerFlags flags);
  // The same, shared.
  [[nodiscard]] static std::shared_ptr<WalkInfo> WalkInfoIs(BaseRouter& router, SyncWalkId syncWalkId,
                                                            Kel::Ptr<Path const> path,
                                                            Kel::PtrInterface const* obj, WalkerFlags flags);
  [[nodiscard]] Tovak::String toString() const; // for traces

  BaseRouter& router;                 // not owned; outlives the walk
  SyncWalkId const syncWalkId;        // walk id 0 cannot be parked
  Kel::Ptr<Path const> const path;    // of the object, from the root
  Kel::PtrInterface const* const obj; // not owned, see above
  WalkerFlags const walkerFlags;      // how it is to be done
  std::shared_ptr<Tovak::Task> task;  // stored here by the host once made
  long timeStampToUse = 0;            // for leaves without a time of their own; 0: the activity loop's time
};

// Runs one walk slice by slice. Made by the host, which stores it in `walkInfo->task` and schedules it. After
// a slice that used up its time it schedules itself; after one that found the pipe full it waits for the host
// to schedule it. When the walk is done it tells so through `walkDone` and lets go of the `WalkInfo`; running
// it once more then does nothing. To cancel: deschedule the task, `FullKelTypeWalker::cancelPendingWalk`,
// then clear `walkInfo->task`.
class KTD_EXPORT WalkTask : public Tovak::Task {
public:
  // REQUIRES a scheduler (asserted).
  [[nodiscard]] static std::shared_ptr<WalkTask> WalkTaskIs(std::shared_ptr<Tovak::TaskScheduler> scheduler,
                                                            std::shared_ptr<WalkInfo>& walkInfo,
                                                            Tovak::TaskPriority::PriorityEnum priority);
  // For subclasses of the host. REQUIRES a WalkInfo without a task (asserted).
  WalkTask(std::shared_ptr<Tovak::TaskScheduler> scheduler, std::shared_ptr<WalkInfo>& walkInfo,
           Tovak::TaskPriority::PriorityEnum priority);

  void taskExecute() override;
  // Whether the provider of the data is paused; the walk then does nothing when it is run, and does not run
  // again by itself.
  [[nodiscard]] virtual bool providerPaused() const { return false; }
  // The walk has ended. `streaming`: its subscription goes on after it.
  virtual void walkDone(SyncWalkId const& syncWalkId, bool streaming) {
    static_cast<void>(syncWalkId);
    static_cast<void>(streaming);
  }
  void handleTaskBusy() override {}
  void handleResetStats() override {}

  [[nodiscard]] Tovak::String toString() const; // for traces
  // Null once the walk is done.
  [[nodiscard]] std::shared_ptr<WalkInfo> const& walkInfo() const noexcept { return walkInfo_; }

private:
  std::shared_ptr<WalkInfo> walkInfo_; // gone once the walk is done
  bool walkStarted_ = false;
};

} // namespace Ondra

template <>
struct fmt::formatter<Ondra::SyncWalkId> {
  constexpr auto parse(format_parse_context& context) { return context.begin(); }
  template <typename Context>
  auto format(Ondra::SyncWalkId const& id, Context& context) const {
    return fmt::format_to(context.out(), "{}:{}", id.first, id.second);
  }
};
