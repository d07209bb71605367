// A Set on its way: planned on the worker, carried out on the scheduler; the answer repeats the request's
// paths.
#include <atomic>
#include <memory>
#include <utility>

#include "agent/context/Context.h"
#include "agent/data/SetAccess.h"
#include "agent/data/SetRun.h"
#include "agent/service/Audit.h"
#include "agent/service/Gate.h"
#include "agent/service/UnaryCalls.h"
#include "agent/service/UnaryEnd.h"

namespace Agent {
namespace {

// Where both lie in one arena, and so end together, the answer refers to the request's own path.
void addResult(gnmi::SetResponse& response, gnmi::UpdateResult::Operation op, gnmi::Path const& path) {
  gnmi::UpdateResult& result = *response.add_response();
  result.set_op(op);
  if (path.GetArena() != nullptr && path.GetArena() == response.GetArena())
    result.unsafe_arena_set_allocated_path(const_cast<gnmi::Path*>(&path));
  else
    *result.mutable_path() = path;
}

// The answer to a request that has been carried out, but for its timestamp.
void answer(gnmi::SetRequest const& request, gnmi::SetResponse& response) {
  if (request.has_prefix()) *response.mutable_prefix() = request.prefix();
  for (gnmi::Path const& path : request.delete_())
    addResult(response, gnmi::UpdateResult::DELETE, path);
  for (gnmi::Update const& update : request.replace())
    addResult(response, gnmi::UpdateResult::REPLACE, update.path());
  for (gnmi::Update const& update : request.update())
    addResult(response, gnmi::UpdateResult::UPDATE, update.path());
  for (gnmi::Update const& update : request.union_replace())
    addResult(response, gnmi::UpdateResult::UNION_REPLACE, update.path());
}

// What a request becomes, JSON texts taken apart above all, against its own size.
constexpr std::size_t kPlanFactor = 12;

class SetCall final : public grpc::ServerUnaryReactor {
public:
  SetCall(grpc::CallbackServerContext& context, Guest const& guest, SetRuns& sets, Writer writer)
      : sets_(sets)
      , writer_(writer)
      , access_(guest.rights.writes)
      , context_(std::make_shared<UnaryContext>(context))
      , end_(std::make_shared<UnaryEnd>(*this, context_, sets.context())) {}

  // Planning is for neither gRPC's threads nor the scheduler's: it takes as long as the request is large.
  void start(SetMessage const& message, gnmi::SetResponse& response, Audit* audit,
             grpc::CallbackServerContext const& context) {
    gnmi::SetRequest const& request = message.request;
    if (audit != nullptr) {
      end_->toldIs([audit, caller = Audit::Caller(context), &request, &clock = sets_.context().clock(),
                    begun = sets_.context().clock().monotonicNs()](grpc::Status const& status) {
        audit->set(caller, request, status, clock.monotonicNs() - begun);
      });
    }
    std::shared_ptr<UnaryEnd> const end = std::move(end_);
    auto share = std::make_shared<ByteBudget::Share>(sets_.context().memory().plans);
    if (!share->growTo(kPlanFactor * message.bytes))
      return end->finish({grpc::StatusCode::RESOURCE_EXHAUSTED, "too many Sets wait: try again later"});
    sets_.context().worker().post([this, end, &request, &response, share = std::move(share)]() mutable {
      auto extensions = SetExtensions::of(request);
      if (!extensions) return end->finish(extensions.error());
      auto plan = setPlanOf(request, &isCancelled_, writer_);
      if (!plan) return end->finish(plan.error());
      if (grpc::Status const status = permission(request, **plan); !status.ok()) return end->finish(status);
      answer(request, response);
      sets_.context().scheduler()->post([this, end, &response, plan = std::move(*plan),
                                         extensions = std::move(*extensions),
                                         kept = std::move(share)]() mutable {
        auto const done = [end, &response, kept = std::move(kept)](grpc::Status const& status,
                                                                   std::int64_t timestamp) {
          response.set_timestamp(timestamp);
          end->finish(status);
        };
        sets_.setIs({std::move(plan), &isCancelled_, done, std::move(extensions)});
      });
    });
  }

  void OnCancel() override { isCancelled_.store(true, std::memory_order_relaxed); }
  void OnDone() override {
    context_->doneIs();
    delete this;
  }

private:
  [[nodiscard]] grpc::Status permission(gnmi::SetRequest const& request, SetPlan const& plan) const {
    if (!access_) return grpc::Status::OK;
    // To confirm or cancel what others have set, or to become the master, is for those who may set something.
    if (request.extension_size() > 0 && access_->root().cover() == Pattern::Cover::None)
      return {grpc::StatusCode::PERMISSION_DENIED, "you may not write anything"};
    return mayWrite(*access_, plan);
  }

  SetRuns& sets_;
  Writer const writer_;
  std::shared_ptr<RuleTree const> const access_; // null: everything may be written
  std::shared_ptr<UnaryContext> const context_;
  std::shared_ptr<UnaryEnd> end_; // until the call has begun
  std::atomic<bool> isCancelled_ = false;
};

} // namespace

grpc::ServerUnaryReactor* setCall(grpc::CallbackServerContext& context, Guest const& guest,
                                  SetMessage const& message, gnmi::SetResponse& response, SetRuns& sets,
                                  Writer writer, Audit* audit) {
  auto* const call = new SetCall(context, guest, sets, writer);
  call->start(message, response, audit, context);
  return call;
}

} // namespace Agent
