// A Get of a generated tree in JSON, from the order to the text of its answer, beside hand-written code that writes the same text from
// the same objects.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include <fmt/format.h>

#include "Alloc.h"
#include "Kel/Dir.h"
#include "agent/data/GetRun.h"
#include "agent/service/Runtime.h"
#include "agent/synthetic/Synthetic.h"

namespace {

// The agent without collectors, driven by hand.
class GeneratedTree {
public:
  explicit GeneratedTree(std::size_t leaves) {
    Kel::globalDir()->entityDel(Agent::kOrigin);
    Agent::Runtime::Options options;
    options.limits.getBytes = std::size_t{1} << 32;
    runtime_ = std::make_unique<Agent::Runtime>(options);
    Agent::declareSynthetic();
    ports_ = Agent::syntheticIn(*Kel::globalDir(), leaves);
  }
  ~GeneratedTree() {
    runtime_.reset();
    ports_.reset();
    Kel::globalDir()->entityDel(Agent::kOrigin);
  }
  [[nodiscard]] Agent::SyntheticPorts const& ports() const { return *ports_; }

  [[nodiscard]] grpc::ByteBuffer get(gnmi::GetRequest const& request) {
    auto order = Agent::GetOrder::of(request);
    auto const run = std::make_shared<Agent::GetRun>(*runtime_, std::move(order).value(), "");
    grpc::Status status(grpc::StatusCode::UNKNOWN, "not done");
    run->start([&status](grpc::Status const& told) { status = told; });
    runtime_->scheduler()->runUntilIdle();
    if (!status.ok()) return {};
    return run->takeResponse();
  }

private:
  std::unique_ptr<Agent::Runtime> runtime_;
  Kel::Ptr<Agent::SyntheticPorts> ports_;
};

void perLeaf(benchmark::State& state, std::size_t leaves) {
  state.counters["s/leaf"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * static_cast<double>(leaves),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_GetJson(benchmark::State& state) {
  auto const leaves = static_cast<std::size_t>(state.range(0));
  GeneratedTree tree(leaves);
  gnmi::GetRequest request;
  request.add_path()->add_elem()->set_name("synthetic");
  grpc::ByteBuffer json = tree.get(request);
  {
    Bench::HeapCallsPerOp const calls(state);
    for (auto _ : state) {
      json = tree.get(request);
    }
  }
  state.counters["bytes/leaf"] = static_cast<double>(json.Length()) / static_cast<double>(leaves);
  if (json.Length() < leaves * 8) state.SkipWithError("the answer is not whole");
  perLeaf(state, leaves);
}

void BM_FloorJson(benchmark::State& state) {
  auto const leaves = static_cast<std::size_t>(state.range(0));
  GeneratedTree const tree(leaves);
  std::string json;
  for (auto _ : state) {
    json.clear();
    auto const out = std::back_inserter(json);
    json += R"({"port":[)";
    char const* separator = "";
    for (auto const& [name, port] : tree.ports().port) {
      fmt::format_to(out,
                     R"({}{{"name":"{}","in-octets":{},"in-pkts":{},"in-unicast-pkts":{},)"
                     R"("in-multicast-pkts":{},"in-errors":{},"in-discards":{},"out-octets":{},)"
                     R"("out-pkts":{},"out-unicast-pkts":{},"out-multicast-pkts":{},"out-errors":{},)"
                     R"("out-discards":{},"type":"{}","description":"{}","alias":"{}","enabled":{},)"
                     R"("loopback":{},"tagged":{},"up":{}}})",
                     separator, port->name.view(), port->inOctets, port->inPkts, port->inUnicastPkts,
                     port->inMulticastPkts, port->inErrors, port->inDiscards, port->outOctets, port->outPkts,
                     port->outUnicastPkts, port->outMulticastPkts, port->outErrors, port->outDiscards,
                     port->type.view(), port->description.view(), port->alias.view(), port->enabled,
                     port->loopback, port->tagged, port->up);
      separator = ",";
    }
    json += "]}";
    benchmark::DoNotOptimize(json.data());
  }
  perLeaf(state, leaves);
}

BENCHMARK(BM_GetJson)->ArgName("leaves")->Arg(1'000)->Arg(100'000)->Arg(1'000'000);
BENCHMARK(BM_FloorJson)->ArgName("leaves")->Arg(1'000)->Arg(100'000)->Arg(1'000'000);

} // namespace
