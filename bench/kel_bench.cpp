// The object model beside hand-written C++ over the same data. Each pair measures the same work; the
// difference is the price of the generic access.
#include <benchmark/benchmark.h>

#include "Alloc.h"
#include "Kel/Attr.h"
#include "Kel/Declare.h"
#include "Kel/Notifiee.h"
#include "fixture/Device.h"
#include "fixture/Types.h"

namespace {

using Kel::GenericIf;
using Kel::KelAttr;
using Handle = Kel::Ptr<GenericIf>;
using ConstHandle = Kel::Ptr<GenericIf const>;

constexpr std::size_t kMembers = 1'000'000;

Handle handleTo(Kel::Entity* entity) { return GenericIf::toObject(static_cast<Kel::PtrInterface*>(entity)); }

Kel::Ptr<Fixture::Interface> makeInterface() {
  Fixture::declareTypes();
  auto const interface = Kel::Ptr(new Fixture::Interface());
  interface->mtu = 9000;
  return interface;
}

// --- reading a scalar --------------------------------------------------------------------------------

void BM_KelScalarReadDirect(benchmark::State& state) {
  auto const interface = makeInterface();
  Bench::HeapCallsPerOp const allocs(state);
  for (auto _ : state) {
    benchmark::DoNotOptimize(interface.get());
    benchmark::DoNotOptimize(interface->mtu);
  }
}
BENCHMARK(BM_KelScalarReadDirect);

void readScalar(benchmark::State& state, ConstHandle const& object, KelAttr attr) {
  benchmark::DoNotOptimize(attr.genericIfGet(object));
  Bench::HeapCallsPerOp const allocs(state);
  for (auto _ : state)
    benchmark::DoNotOptimize(*attr.genericIfGet(object)->attrValPtr<std::uint32_t>());
}
void BM_KelScalarReadGeneric(benchmark::State& state) {
  auto const interface = makeInterface();
  readScalar(state, handleTo(interface.get()), Kel::typeOf<Fixture::Interface>().attr("mtu"));
}
BENCHMARK(BM_KelScalarReadGeneric);
void BM_KelScalarReadRuntimeType(benchmark::State& state) {
  auto const type = Fixture::runtimeTypes().interface;
  readScalar(state, type.genericIf(Kel::ArgList()), type.attr("mtu"));
}
BENCHMARK(BM_KelScalarReadRuntimeType);

// --- handles -----------------------------------------------------------------------------------------

void BM_KelHandleToObject(benchmark::State& state) {
  auto const interface = makeInterface();
  benchmark::DoNotOptimize(handleTo(interface.get()));
  Bench::HeapCallsPerOp const allocs(state);
  for (auto _ : state)
    benchmark::DoNotOptimize(handleTo(interface.get()));
}
BENCHMARK(BM_KelHandleToObject);

void BM_KelHandleOfScalar(benchmark::State& state) {
  benchmark::DoNotOptimize(Kel::handleOf<std::uint32_t>(0));
  Bench::HeapCallsPerOp const allocs(state);
  std::uint32_t number = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(Kel::handleOf(++number));
}
BENCHMARK(BM_KelHandleOfScalar);

// --- iterating a collection --------------------------------------------------------------------------

void BM_KelIterateDirect(benchmark::State& state) {
  Kel::KeyedValues<std::uint32_t, std::uint64_t> members;
  for (std::uint32_t i = 0; i < kMembers; ++i)
    members.memberIs(i, i);
  Bench::HeapCallsPerOp const allocs(state);
  for (auto _ : state) {
    std::uint64_t sum = 0;
    for (auto const& [key, node] : members)
      sum += key + node->value;
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kMembers));
}
BENCHMARK(BM_KelIterateDirect)->Unit(benchmark::kMillisecond);

// A table of its own, so that the fixture need not hold a million members.
class Table final : public Kel::EntityOf<Table> {
public:
  Kel::KeyedValues<std::uint32_t, std::uint64_t> members;
};

void BM_KelIterateGeneric(benchmark::State& state) {
  static KelAttr const attr =
      Kel::entityType<Table>("BenchTable").keyed("member", &Table::members).settable().done().attr("member");
  auto const table = Kel::Ptr(new Table());
  for (std::uint32_t i = 0; i < kMembers; ++i)
    table->members.memberIs(i, i);
  ConstHandle const object = handleTo(table.get());
  Bench::HeapCallsPerOp const allocs(state);
  for (auto _ : state) {
    std::uint64_t sum = 0;
    for (auto at = attr.genericIfIteratorConst(object); at; ++at)
      sum += *at.key()->attrValPtr<std::uint32_t>() + *at.ptr()->attrValPtr<std::uint64_t>();
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kMembers));
}
BENCHMARK(BM_KelIterateGeneric)->Unit(benchmark::kMillisecond);

// --- one notification --------------------------------------------------------------------------------

struct Count final : Kel::PtrInterface::NotifieeConst {
  explicit Count(Kel::PtrInterface const* notifier) : NotifieeConst(notifier) {
    hasNotificationActiveIs(true);
    isRegisteredNotifieeIs(true);
  }
  void onAttribute(Kel::AttributeId id, void const*) override { seen += static_cast<std::uint64_t>(id); }
  std::uint64_t seen = 0;
};

void BM_KelNotifyDirect(benchmark::State& state) {
  auto const interface = makeInterface();
  auto const count = Kel::Ptr(new Count(interface.get()));
  Kel::PtrInterface::NotifieeConst* notifiee = count.get();
  Bench::HeapCallsPerOp const allocs(state);
  for (auto _ : state) {
    interface->mtu ^= 1;
    benchmark::DoNotOptimize(notifiee);
    notifiee->onAttribute(3, nullptr);
  }
}
BENCHMARK(BM_KelNotifyDirect);

void BM_KelNotifyBySetter(benchmark::State& state) {
  auto const interface = makeInterface();
  interface->hasNotificationActiveIs(true);
  auto const count = Kel::Ptr(new Count(interface.get()));
  Bench::HeapCallsPerOp const allocs(state);
  for (auto _ : state)
    interface->mtuIs(interface->mtu ^ 1);
  if (count->seen == 0) state.SkipWithError("nobody was told");
}
BENCHMARK(BM_KelNotifyBySetter);

} // namespace
