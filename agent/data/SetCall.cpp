#include <atomic>
#include <memory>
#include <utility>

#include "agent/data/SetRun.h"
#include "agent/data/UnaryCalls.h"
#include "agent/data/UnaryEnd.h"
#include "agent/service/Runtime.h"

namespace Agent {
namespace {

void addResult(gnmi::SetResponse& response, gnmi::UpdateResult::Operation op, gnmi::Path const& path) {
  gnmi::UpdateResult& result = *response.add_response();
  result.set_op(op);
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
}

class SetCall final : public grpc::ServerUnaryReactor {
public:
  SetCall(grpc::CallbackServerContext& context, Runtime& runtime)
      : runtime_(runtime)
      , context_(std::make_shared<UnaryContext>(context))
      , end_(std::make_shared<UnaryEnd>(*this, context_, runtime.limits().stuckNs)) {}

  void start(gnmi::SetRequest const& request, gnmi::SetResponse& response) {
    std::shared_ptr<UnaryEnd> const end = std::move(end_);
    auto plan = setPlanOf(request);
    if (!plan) return end->finish(plan.error());
    answer(request, response);
    runtime_.scheduler()->post([this, end, &response, plan = std::move(*plan)] {
      if (isCancelled_.load(std::memory_order_relaxed))
        return end->finish({grpc::StatusCode::CANCELLED, "the client has left"});
      end->finish(setExecuted(*plan, runtime_, response));
    });
  }

  void OnCancel() override { isCancelled_.store(true, std::memory_order_relaxed); }
  void OnDone() override {
    context_->doneIs();
    delete this;
  }

private:
  Runtime& runtime_;
  std::shared_ptr<UnaryContext> const context_;
  std::shared_ptr<UnaryEnd> end_; // until the call has begun
  std::atomic<bool> isCancelled_ = false;
};

} // namespace

grpc::ServerUnaryReactor* setCall(grpc::CallbackServerContext& context, gnmi::SetRequest const& request,
                                  gnmi::SetResponse& response, Runtime& runtime) {
  auto* const call = new SetCall(context, runtime);
  call->start(request, response);
  return call;
}

} // namespace Agent
