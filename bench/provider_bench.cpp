// Sets of 1,000 leaves of state by a process of the device's own, from bytes to bytes: planned, carried out,
// answered; the short way, which they take, and the whole one. What gRPC and the sockets take is not in it,
// nor is telling subscribers, of whom there are none. Beside it what the messages alone cost.
//
// The model is demo/yang's: sensors with four leaves of state, two of them in a container of their own.
#include <benchmark/benchmark.h>
#include <google/protobuf/arena.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "Alloc.h"
#include "Kel/Dir.h"
#include "Kel/Error.h"
#include "ProviderMessages.h"
#include "SetMessages.h"
#include "agent/data/SetPlan.h"
#include "agent/data/SetRun.h"
#include "agent/data/StatePlan.h"
#include "agent/service/Runtime.h"
#include "agent/yang/YangModel.h"

namespace {

// The agent with that model, driven by hand.
class Providers {
public:
  Providers() {
    Kel::globalDir()->entityDel(Agent::kOrigin);
    static auto const model =
        Agent::YangModel::load({.folders = {KTD_SOURCE_DIR "/demo/yang"}, .modules = {}});
    if (!model) Kel::throwError(model.error());
    runtime_ = std::make_unique<Agent::Runtime>(Agent::Context::Options());
  }
  ~Providers() {
    runtime_.reset();
    Kel::globalDir()->entityDel(Agent::kOrigin);
  }

  grpc::Status set(std::string const& bytes, std::string& answer) {
    auto made = Agent::statePlanOf(bytes);
    if (!made) return {grpc::StatusCode::INTERNAL, "this is not for the short way"};
    answer.assign(reinterpret_cast<char const*>(made->answer.begin()), made->answer.size());
    return carriedOut(std::move(made->plan));
  }
  grpc::Status setByMessages(std::string const& bytes, std::string& answer) {
    google::protobuf::Arena arena;
    auto& request = *google::protobuf::Arena::CreateMessage<gnmi::SetRequest>(&arena);
    auto& response = *google::protobuf::Arena::CreateMessage<gnmi::SetResponse>(&arena);
    request.ParseFromString(bytes);
    auto plan = Agent::setPlanOf(request, nullptr, Agent::Writer::Provider);
    if (!plan) return plan.error();
    for (gnmi::Update& update : *request.mutable_update()) {
      gnmi::UpdateResult& result = *response.add_response();
      result.set_op(gnmi::UpdateResult::UPDATE);
      result.unsafe_arena_set_allocated_path(update.mutable_path());
    }
    response.SerializeToString(&answer);
    return carriedOut(*std::move(plan));
  }

private:
  grpc::Status carriedOut(std::unique_ptr<Agent::SetPlan> plan) {
    std::optional<grpc::Status> ended;
    runtime_->sets().setIs(
        {.plan = std::move(plan), .done = [&ended](grpc::Status const& how, std::int64_t) { ended = how; }});
    runtime_->context().scheduler()->runUntilIdle();
    return ended.value_or(grpc::Status::CANCELLED);
  }

  std::unique_ptr<Agent::Runtime> runtime_;
};

void repeat(benchmark::State& state, auto const& once) {
  auto const order = static_cast<Provider::Order>(state.range(0));
  std::array<std::string, 2> const bytes = {Provider::requestBytes(order, 0),
                                            Provider::requestBytes(order, 1)};
  std::string answer;
  std::size_t turn = 0;
  for (std::string const& each : bytes)
    if (grpc::Status const status = once(each, answer); !status.ok())
      state.SkipWithError(status.error_message().c_str());
  Bench::HeapCallsPerOp const calls(state);
  for (auto _ : state) {
    static_cast<void>(once(bytes[turn++ % 2], answer));
    benchmark::DoNotOptimize(answer.data());
  }
  state.counters["ns/leaf"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * Provider::kLeaves * 1e-9,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void Provider_Set(benchmark::State& state) {
  Providers agent;
  repeat(state, [&agent](std::string const& bytes, std::string& answer) { return agent.set(bytes, answer); });
}
void Provider_SetByMessages(benchmark::State& state) {
  Providers agent;
  repeat(state, [&agent](std::string const& bytes, std::string& answer) {
    return agent.setByMessages(bytes, answer);
  });
}
void Provider_MessagesAlone(benchmark::State& state) {
  repeat(state, [](std::string const& bytes, std::string& answer) {
    Bench::messagesAlone(bytes, answer);
    return grpc::Status::OK;
  });
}

// Processor time of all threads: what a Set leaves behind goes on another one.
BENCHMARK(Provider_Set)->ArgName("jumping")->Arg(0)->Arg(1)->MeasureProcessCPUTime();
BENCHMARK(Provider_SetByMessages)->ArgName("jumping")->Arg(0)->Arg(1)->MeasureProcessCPUTime();
BENCHMARK(Provider_MessagesAlone)->ArgName("jumping")->Arg(0)->Arg(1)->MeasureProcessCPUTime();

} // namespace
