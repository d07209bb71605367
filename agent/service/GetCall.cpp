// A Get on its way: from gRPC's thread to the scheduler, which reads, and back to one of gRPC's, which writes
// the texts.
#include <memory>
#include <string>
#include <utility>

#include <grpc/support/time.h>
#include <grpcpp/alarm.h>
#include <grpcpp/server_context.h>

#include "agent/context/Context.h"
#include "agent/data/GetRun.h"
#include "agent/paths/RequestParts.h"
#include "agent/router/Router.h"
#include "agent/service/Gate.h"
#include "agent/service/UnaryCalls.h"
#include "agent/service/UnaryEnd.h"

namespace Agent {
namespace {

class GetCall final : public grpc::ServerUnaryReactor {
public:
  GetCall(grpc::CallbackServerContext& context, grpc::ByteBuffer& response, Router& router)
      : response_(response)
      , scheduler_(router.context().scheduler())
      , address_(addressOf(context.peer()))
      , context_(std::make_shared<UnaryContext>(context))
      , end_(std::make_shared<UnaryEnd>(*this, context_, router.context())) {}

  void start(Guest const& guest, gnmi::GetRequest const& request, Router& router) {
    std::shared_ptr<UnaryEnd> const end = std::move(end_); // the run's from now on
    auto order = GetOrder::of(request);
    if (!order) return end->finish(order.error());
    order->access = guest.rights.reads;
    auto const run = std::make_shared<GetRun>(router, std::move(*order), address_);
    run_ = run;
    shares_ = run->shares();
    scheduler_->post([this, run, end] {
      run->start([this, end, weak = std::weak_ptr(run)](grpc::Status const& status) {
        if (!status.ok()) return end->finish(status);
        // The texts are written on one of gRPC's threads; they may take longer than a slice.
        alarm_.Set(gpr_time_0(GPR_CLOCK_MONOTONIC), [this, end, read = weak.lock()](bool) mutable {
          response_ = read->takeResponse();
          read.reset(); // the alarm would keep it until the client has the answer
          end->finish(grpc::Status::OK);
        });
      });
    });
  }

  void OnCancel() override {
    scheduler_->post([run = run_.lock()] {
      if (run) run->cancel();
    });
  }
  void OnDone() override {
    context_->doneIs();
    delete this;
  }

private:
  grpc::ByteBuffer& response_;
  std::shared_ptr<Tovak::TaskScheduler> const scheduler_;
  std::string const address_;
  std::shared_ptr<UnaryContext> const context_;
  std::shared_ptr<void const> shares_; // of the answer, until the client has it
  std::shared_ptr<UnaryEnd> end_;      // until the call has begun
  std::weak_ptr<GetRun> run_;
  grpc::Alarm alarm_;
};

} // namespace

grpc::ServerUnaryReactor* getCall(grpc::CallbackServerContext& context, Guest const& guest,
                                  gnmi::GetRequest const& request, grpc::ByteBuffer& response,
                                  Router& router) {
  auto* const call = new GetCall(context, response, router);
  call->start(guest, request, router);
  return call;
}

} // namespace Agent
