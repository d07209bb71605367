// Set requests of 1,000 leaf updates, from bytes to bytes: parse, execute, answer. Beside it what the
// messages alone cost.
//
// The model: interfaces of 20 leaves (12 counters, 4 texts, 4 flags) in a nested entity; the updates go to
// every n-th interface, all of its leaves, so that a larger model shows in the lookups.
#include <benchmark/benchmark.h>
#include <google/protobuf/arena.h>

#include <array>
#include <chrono>
#include <string>

#include <fmt/format.h>

#include "Alloc.h"
#include "Kel/Declare.h"
#include "Kel/Dir.h"
#include "Ondra/KelGnmiSetter.h"
#include "Ondra/responses/ArenaBlocks.h"
#include "SetMessages.h"

namespace {

constexpr std::size_t kLeaves = 20;
constexpr std::size_t kUpdates = 1000;

class State final : public Kel::EntityOf<State> {
public:
  std::array<std::uint64_t, 12> counters{};
  std::array<Kel::String, 4> texts;
  std::array<bool, 4> flags{};
};
class Port final : public Kel::EntityOf<Port> {
public:
  Port() { childIs(state); }
  Kel::String name;
  Kel::Ptr<State> state;
};
class Box final : public Kel::EntityOf<Box> {
public:
  void portIs(Kel::String const& name) { memberIs(ports, name)->state->hasNotificationActiveIs(true); }
  Kel::KeyedEntities<Kel::String, Port> ports;
};

// The elements of an array are members side by side; each becomes an attribute of a type made for it.
template <class M, std::size_t N>
void declareEach(Kel::TypeBuilder& builder, std::string const& name, std::array<M, N> State::*array) {
  for (std::size_t i = 0; i < N; ++i) {
    Kel::AttrDesc& attr = builder.add(name + std::to_string(i), &Kel::descOf<M>(),
                                      std::make_unique<Kel::Impl::InPlaceAccess>());
    attr.offset = Kel::Impl::offsetOf(array) + i * sizeof(M);
    builder.settable();
  }
}

void declare() {
  Kel::TypeBuilder state("set-bench", "State", Kel::descOf<State>());
  state.desc().makeObject = [] { return Kel::Ptr<Kel::PtrInterface>(new State()); };
  declareEach(state, "counter", &State::counters);
  declareEach(state, "text", &State::texts);
  declareEach(state, "flag", &State::flags);
  if (auto done = state.done(); !done) Kel::throwError(done.error());
  Kel::entityType<Port>("Port", "set-bench")
      .attr("name", &Port::name)
      .ctorArg()
      .keyField()
      .instantiating("state", &Port::state)
      .done();
  Kel::entityType<Box>("Box", "set-bench").instantiating("port", &Box::ports).index("name").done();
}

// The model with that many leaves, made on first use and kept until another size is wanted.
void modelIs(std::size_t leaves) {
  static std::size_t made = 0;
  static bool const declared = (declare(), true);
  static_cast<void>(declared);
  if (made == leaves) return;
  Kel::globalDir()->entityDel("set-bench");
  Kel::Ptr<Box> const box(new Box());
  Kel::globalDir()->entityIs("set-bench", box);
  for (std::size_t i = 0; i < leaves / kLeaves; ++i)
    box->portIs(Kel::String(fmt::format("port{}", i)));
  made = leaves;
}

std::string requestBytes(std::size_t leaves, std::uint64_t salt, bool isRefused,
                         std::size_t updates = kUpdates) {
  gnmi::SetRequest request;
  std::size_t const ports = leaves / kLeaves;
  std::size_t const used = updates / kLeaves;
  for (std::size_t i = 0; i < updates; ++i) {
    gnmi::Update& update = *request.add_update();
    gnmi::PathElem& port = *update.mutable_path()->add_elem();
    port.set_name("port");
    (*port.mutable_key())["name"] = fmt::format("port{}", i / kLeaves * (ports / used));
    update.mutable_path()->add_elem()->set_name("state");
    gnmi::PathElem& leaf = *update.mutable_path()->add_elem();
    std::size_t const which = i % kLeaves;
    if (which < 12) {
      leaf.set_name(fmt::format("counter{}", which));
      update.mutable_val()->set_uint_val(salt + i);
    } else if (which < 16) {
      leaf.set_name(fmt::format("text{}", which - 12));
      update.mutable_val()->set_string_val(fmt::format("text {:7}", salt + i));
    } else {
      leaf.set_name(fmt::format("flag{}", which - 16));
      update.mutable_val()->set_bool_val((salt + i) % 2 != 0);
    }
  }
  if (isRefused) request.mutable_update(static_cast<int>(updates) - 1)->mutable_val()->set_int_val(-1);
  return request.SerializeAsString();
}

Kel::Ptr<Ondra::Path const> dataRoot() {
  static Kel::Ptr<Ondra::Path const> const root = Ondra::Path::strToPathIs("/set-bench");
  return root;
}

void perLeaf(benchmark::State& state) {
  state.counters["ns/leaf"] = benchmark::Counter(static_cast<double>(state.iterations()) * kUpdates * 1e-9,
                                                 benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// `once` parses the bytes it is given, executes the request, serializes the answer and returns the status.
template <class Once>
void repeat(benchmark::State& state, bool isRefused, Once const& once) {
  auto const leaves = static_cast<std::size_t>(state.range(0));
  modelIs(leaves);
  std::array<std::string, 2> const bytes = {requestBytes(leaves, 0, isRefused),
                                            requestBytes(leaves, 1, isRefused)};
  std::size_t turn = 0;
  std::string answer;
  Bench::HeapCallsPerOp const calls(state);
  for (auto _ : state) {
    grpc::Status const status = once(bytes[turn++ % 2], answer);
    if (status.ok() == isRefused) state.SkipWithError(status.error_message().c_str());
    benchmark::DoNotOptimize(answer.data());
  }
  state.counters["bytes/leaf"] = static_cast<double>(bytes[0].size() + answer.size()) / kUpdates;
  perLeaf(state);
}

void execute(benchmark::State& state, bool isRefused) {
  repeat(state, isRefused, [](std::string const& bytes, std::string& answer) {
    return Bench::executedBytes(dataRoot(), bytes, answer);
  });
}

// The messages in one arena, whose blocks stay warm.
void executeInArena(benchmark::State& state, bool isRefused) {
  google::protobuf::Arena arena(Ondra::ArenaBlocks::arenaOptions());
  repeat(state, isRefused, [&arena](std::string const& bytes, std::string& answer) {
    arena.Reset();
    auto& request = *google::protobuf::Arena::CreateMessage<gnmi::SetRequest>(&arena);
    auto& response = *google::protobuf::Arena::CreateMessage<gnmi::SetResponse>(&arena);
    request.ParseFromString(bytes);
    grpc::Status status = Ondra::KelGnmiSet::Set(dataRoot(), request, response).executeInPlace();
    response.SerializeToString(&answer);
    return status;
  });
}

// What the library does of it: the clock stands while the request is parsed and the answer serialized.
void Set_Execute(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  google::protobuf::Arena arena(Ondra::ArenaBlocks::arenaOptions());
  std::chrono::duration<double> spent{};
  repeat(state, false, [&arena, &spent](std::string const& bytes, std::string& answer) {
    arena.Reset();
    auto& request = *google::protobuf::Arena::CreateMessage<gnmi::SetRequest>(&arena);
    auto& response = *google::protobuf::Arena::CreateMessage<gnmi::SetResponse>(&arena);
    request.ParseFromString(bytes);
    Clock::time_point const begin = Clock::now();
    grpc::Status status = Ondra::KelGnmiSet::Set(dataRoot(), request, response).executeInPlace();
    spent += Clock::now() - begin;
    response.SerializeToString(&answer);
    return status;
  });
  state.counters["s/leaf"] = spent.count() / static_cast<double>(state.iterations() * kUpdates);
}

void Set_UpdateInArena(benchmark::State& state) { executeInArena(state, false); }
void Set_RefuseInArena(benchmark::State& state) { executeInArena(state, true); }
void Set_Update1000(benchmark::State& state) { execute(state, false); }
void Set_Refuse1000(benchmark::State& state) { execute(state, true); }

void Set_MessagesInArena(benchmark::State& state) {
  std::string const bytes = requestBytes(1000, 0, false);
  std::string answer;
  google::protobuf::Arena arena(Ondra::ArenaBlocks::arenaOptions());
  for (auto _ : state) {
    auto& request = *google::protobuf::Arena::CreateMessage<gnmi::SetRequest>(&arena);
    auto& response = *google::protobuf::Arena::CreateMessage<gnmi::SetResponse>(&arena);
    request.ParseFromString(bytes);
    for (gnmi::Update& update : *request.mutable_update()) {
      gnmi::UpdateResult& result = *response.add_response();
      result.set_op(gnmi::UpdateResult::UPDATE);
      result.unsafe_arena_set_allocated_path(update.unsafe_arena_release_path());
    }
    response.SerializeToString(&answer);
    benchmark::DoNotOptimize(answer.data());
    arena.Reset();
  }
  perLeaf(state);
}

void Set_MessagesAlone(benchmark::State& state) {
  std::string const bytes = requestBytes(1000, 0, false);
  std::string answer;
  for (auto _ : state)
    Bench::messagesAlone(bytes, answer);
  perLeaf(state);
}

// One request with an operation for every leaf of the model.
void Set_AMillion(benchmark::State& state) {
  constexpr std::size_t kMany = 1'000'000;
  modelIs(kMany);
  std::string const bytes = requestBytes(kMany, 0, false, kMany);
  for (auto _ : state) {
    gnmi::SetRequest request;
    request.ParseFromString(bytes);
    auto const [response, status] = Ondra::KelGnmiSet::Set(dataRoot(), std::move(request)).execute();
    if (!status.ok() || response.response_size() != static_cast<int>(kMany))
      state.SkipWithError(status.error_message().c_str());
  }
  state.counters["ns/leaf"] = benchmark::Counter(static_cast<double>(state.iterations() * kMany) * 1e-9,
                                                 benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

BENCHMARK(Set_AMillion)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Set_Update1000)->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMicrosecond);
BENCHMARK(Set_Refuse1000)->Arg(1000)->Arg(1000000)->Unit(benchmark::kMicrosecond);
BENCHMARK(Set_UpdateInArena)->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMicrosecond);
BENCHMARK(Set_Execute)->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMicrosecond);
BENCHMARK(Set_RefuseInArena)->Arg(1000)->Arg(1000000)->Unit(benchmark::kMicrosecond);
BENCHMARK(Set_MessagesInArena)->Unit(benchmark::kMicrosecond);
BENCHMARK(Set_MessagesAlone)->Unit(benchmark::kMicrosecond);

} // namespace
