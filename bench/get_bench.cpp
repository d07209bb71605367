// A Get of a generated tree in JSON, from the order to the text of its answer, beside hand-written code that
// writes the same text from the same objects.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "Interfaces.h"
#include "Kel/Dir.h"
#include "Measures.h"
#include "Twins.h"
#include "agent/data/GetRun.h"
#include "agent/service/Runtime.h"
#include "agent/synthetic/Synthetic.h"

namespace {

// The agent without collectors, driven by hand.
class IdleAgent {
public:
  IdleAgent() {
    Kel::globalDir()->entityDel(Agent::kOrigin);
    Agent::Context::Options options;
    options.limits.getBytes = std::size_t{1} << 32;
    Agent::declareSynthetic();
    runtime_ = std::make_unique<Agent::Runtime>(options);
  }
  ~IdleAgent() {
    runtime_.reset();
    Kel::globalDir()->entityDel(Agent::kOrigin);
  }

  [[nodiscard]] grpc::ByteBuffer get(gnmi::GetRequest const& request) {
    auto order = Agent::GetOrder::of(request);
    auto const run = std::make_shared<Agent::GetRun>(runtime_->router(), std::move(order).value(), "");
    grpc::Status status(grpc::StatusCode::UNKNOWN, "not done");
    run->start([&status](grpc::Status const& told) { status = told; });
    runtime_->context().scheduler()->runUntilIdle();
    if (!status.ok()) return {};
    return run->takeResponse();
  }

private:
  std::unique_ptr<Agent::Runtime> runtime_;
};

void getAll(benchmark::State& state, IdleAgent& agent, char const* top, std::size_t leaves) {
  gnmi::GetRequest request;
  request.add_path()->add_elem()->set_name(top);
  grpc::ByteBuffer json = agent.get(request);
  state.counters["bytes/leaf"] = static_cast<double>(json.Length()) / static_cast<double>(leaves);
  if (json.Length() < leaves * 8) state.SkipWithError("the answer is not whole");
  Bench::PerLeaf const perLeaf(state, leaves);
  for (auto _ : state)
    json = agent.get(request);
}

void BM_GetJson(benchmark::State& state) {
  auto const leaves = static_cast<std::size_t>(state.range(0));
  IdleAgent agent;
  auto const ports = Agent::syntheticIn(*Kel::globalDir(), leaves);
  getAll(state, agent, "synthetic", leaves);
}

void Small_GetJson(benchmark::State& state) {
  IdleAgent agent;
  Bench::InterfaceTree const tree(static_cast<std::size_t>(state.range(0)));
  getAll(state, agent, "interfaces", tree.leaves());
}

// What requests and answers need to know of a type's nodes, for its twin.
void recordsInto(Kel::KelType twin, Kel::KelType declared) {
  for (std::size_t i = 0; i < declared.attrCount(); ++i) {
    auto const* const record = Agent::Impl::nodeRecord(declared.attrAt(i));
    if (record == nullptr || Agent::Impl::nodeRecord(twin.attrAt(i)) != nullptr) continue;
    Agent::Impl::nodeRecordIs(twin.attrAt(i), *record);
    if (!record->isLeaf) recordsInto(twin.attrAt(i).memberType(), declared.attrAt(i).memberType());
  }
}

// The same interfaces, of the agent's types or of their run-time twins: Twins.h.
template <Bench::Flavour kFlavour>
void Twins_GetJson(benchmark::State& state) {
  auto const leaves = static_cast<std::size_t>(state.range(0));
  bool const isDeclared = kFlavour == Bench::Flavour::Declared;
  char const* const name = isDeclared ? "interfaces" : "twin-interfaces";
  Agent::declareTypes();
  auto const declared = Kel::typeOf<Agent::Interfaces>();
  auto const twin = Fixture::runtimeTwin(declared);
  recordsInto(twin, declared);
  Agent::topLevelIs({.name = "twin-interfaces", .type = twin, .module = "openconfig-interfaces"});
  IdleAgent agent;
  Bench::TwinTree::fill(Kel::handleTo(Agent::topIn(*Kel::globalDir(), name)), leaves);
  getAll(state, agent, name, leaves / Bench::kLeavesPerInterface * Bench::kLeavesPerInterface);
}

void BM_FloorJson(benchmark::State& state) {
  auto const leaves = static_cast<std::size_t>(state.range(0));
  IdleAgent const agent;
  auto const ports = Agent::syntheticIn(*Kel::globalDir(), leaves);
  std::string json;
  Bench::PerLeaf const perLeaf(state, leaves);
  for (auto _ : state) {
    json.clear();
    auto const out = std::back_inserter(json);
    json += R"({"port":[)";
    char const* separator = "";
    for (auto const& [name, port] : ports->port) {
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
}

void Small_FloorJson(benchmark::State& state) {
  std::vector<Bench::FlatInterface> const all =
      Bench::flatInterfaces(static_cast<std::size_t>(state.range(0)));
  std::size_t const leaves = all.size() * Bench::kLeavesPerInterface;
  std::string json;
  {
    Bench::PerLeaf const perLeaf(state, leaves);
    for (auto _ : state) {
      json.clear();
      json += R"({"interface":[)";
      char const* separator = "";
      for (Bench::FlatInterface const& one : all) {
        fmt::format_to(
            std::back_inserter(json),
            R"({}{{"name":"{}","config":{{"name":"{}","mtu":{},"loopback-mode":"{}","description":"{}","enabled":{}}},)"
            R"("state":{{"name":"{}"}},"hold-time":{{"config":{{"up":{},"down":{}}},"state":{{"up":{},"down":{}}}}}}})",
            separator, one.name, one.name, one.mtu, one.loopbackMode, one.description, one.enabled, one.name,
            one.up, one.down, one.stateUp, one.stateDown);
        separator = ",";
      }
      json += "]}";
      benchmark::DoNotOptimize(json.data());
    }
  }
  state.counters["bytes/leaf"] = static_cast<double>(json.size()) / static_cast<double>(leaves);
}

BENCHMARK(BM_GetJson)->ArgName("leaves")->Arg(1'000)->Arg(100'000)->Arg(1'000'000);
BENCHMARK(BM_FloorJson)->ArgName("leaves")->Arg(1'000)->Arg(100'000)->Arg(1'000'000);
BENCHMARK(Small_GetJson)->ArgName("leaves")->Arg(1'000)->Arg(100'000)->Arg(1'000'000);
BENCHMARK_TEMPLATE(Twins_GetJson, Bench::Flavour::Declared)
    ->Name("Twins_GetJson/Declared")
    ->ArgName("leaves")
    ->Arg(1'000)
    ->Arg(100'000);
BENCHMARK_TEMPLATE(Twins_GetJson, Bench::Flavour::Runtime)
    ->Name("Twins_GetJson/Runtime")
    ->ArgName("leaves")
    ->Arg(1'000)
    ->Arg(100'000);
BENCHMARK(Small_FloorJson)->ArgName("leaves")->Arg(1'000)->Arg(100'000)->Arg(1'000'000);

} // namespace
