// From an Ir to bytes, beside hand-written code that fills the same messages from a flat array: what the Ir,
// its handles and paths, the pool and the encoder cost on top of protobuf. Counters per leaf; "allocs" per
// object.
#include <benchmark/benchmark.h>
#include <google/protobuf/arena.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Alloc.h"
#include "Kel/GenericIf.h"
#include "Ondra/ArenaRespMsg.h"
#include "Ondra/IR.h"
#include "Ondra/Path.h"
#include "Ondra/responses/ArenaBlocks.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace {

using Ondra::ArenaRespMsg;
using Ondra::Path;
using ConstPath = Kel::Ptr<Path const>;

constexpr long kTime = 1'700'000'000'000'000'000;
constexpr std::string_view kText = "abcdefghijkl";

// 12 counters, 4 texts of 12 characters, 4 booleans; the counters lie one level below the others.
struct LeafName {
  char const* container; // null: directly in the object
  char const* name;
};
constexpr std::array<LeafName, 20> kLeaves = {{
    {"counters", "in-octets"},  {"counters", "in-pkts"},   {"counters", "in-errors"},
    {"counters", "out-octets"}, {"counters", "out-pkts"},  {"counters", "out-errs"},
    {"counters", "in-discard"}, {"counters", "out-drops"}, {"counters", "unicast"},
    {"counters", "multicast"},  {"counters", "bcast-in"},  {"counters", "bcast-out"},
    {nullptr, "name"},          {nullptr, "type"},         {nullptr, "description"},
    {nullptr, "alias"},         {nullptr, "enabled"},      {nullptr, "loopback"},
    {nullptr, "tagged"},        {nullptr, "up-state"},
}};
enum class Kind { Counter, Text, Flag };
Kind kindOf(std::size_t leaf) {
  std::size_t const place = leaf % kLeaves.size();
  return place < 12 ? Kind::Counter : place < 16 ? Kind::Text : Kind::Flag;
}

// What a leaf costs, whichever code made it.
class PerLeaf {
public:
  PerLeaf(benchmark::State& state, std::size_t leaves) : state_(state), leaves_(leaves), calls_(state) {}
  ~PerLeaf() {
    auto const count = static_cast<double>(state_.iterations()) * static_cast<double>(leaves_);
    state_.counters["s/leaf"] =
        benchmark::Counter(count, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  }

private:
  benchmark::State& state_;
  std::size_t leaves_;
  Bench::HeapCallsPerOp calls_;
};

class Wire {
public:
  void take(gnmi::SubscribeResponse const& response) {
    std::size_t const size = response.ByteSizeLong();
    if (bytes_.size() < size) bytes_.resize(size);
    response.SerializeWithCachedSizesToArray(bytes_.data());
    benchmark::DoNotOptimize(bytes_.data());
    benchmark::ClobberMemory();
  }

private:
  std::vector<std::uint8_t> bytes_;
};

// --- the floor -----------------------------------------------------------------------------------

struct FlatLeaf {
  LeafName name;
  Kind kind;
  std::uint64_t number;
};

void addElem(gnmi::Path& path, std::string_view name) { path.add_elem()->mutable_name()->assign(name); }

void fillFlat(gnmi::Notification& notification, std::vector<FlatLeaf> const& leaves) {
  notification.set_timestamp(kTime);
  gnmi::Path& prefix = *notification.mutable_prefix();
  prefix.mutable_elem()->Reserve(4);
  addElem(prefix, "openconfig");
  addElem(prefix, "interfaces");
  addElem(prefix, "interface");
  (*prefix.mutable_elem(2)->mutable_key())["name"].assign("eth1/17");
  addElem(prefix, "state");
  notification.mutable_update()->Reserve(static_cast<int>(leaves.size()));
  for (FlatLeaf const& leaf : leaves) {
    gnmi::Update& update = *notification.add_update();
    gnmi::Path& path = *update.mutable_path();
    path.mutable_elem()->Reserve(leaf.name.container == nullptr ? 1 : 2);
    if (leaf.name.container != nullptr) addElem(path, leaf.name.container);
    addElem(path, leaf.name.name);
    gnmi::TypedValue& value = *update.mutable_val();
    switch (leaf.kind) {
    case Kind::Counter: value.set_uint_val(leaf.number); break;
    case Kind::Text: value.mutable_string_val()->assign(kText); break;
    case Kind::Flag: value.set_bool_val(leaf.number != 0); break;
    }
  }
}

void BM_FloorFlatToBytes(benchmark::State& state) {
  auto const count = static_cast<std::size_t>(state.range(0));
  std::vector<FlatLeaf> leaves;
  for (std::size_t i = 0; i < count; ++i)
    leaves.push_back({kLeaves[i % kLeaves.size()], kindOf(i), 1'234'567'890'123 + i});
  google::protobuf::Arena arena(Ondra::ArenaBlocks::arenaOptions());
  Wire wire;
  auto const once = [&] {
    auto* const response = google::protobuf::Arena::CreateMessage<gnmi::SubscribeResponse>(&arena);
    fillFlat(*response->mutable_update(), leaves);
    wire.take(*response);
    arena.Reset();
  };
  once();
  PerLeaf const perLeaf(state, count);
  for (auto _ : state)
    once();
}

// --- the library ---------------------------------------------------------------------------------

class Object {
public:
  explicit Object(std::size_t count)
      : prefix_(Path::strToPathIs("/openconfig/interfaces/interface[name=eth1/17]/state")) {
    for (std::size_t i = 0; i < count; ++i) {
      LeafName const name = kLeaves[i % kLeaves.size()];
      Kel::Ptr<Path> const path = Path::PathIs();
      if (name.container != nullptr) path->addElem()->nameIs(name.container);
      path->addElem()->nameIs(name.name);
      paths_.push_back(path);
    }
  }

  // As a walk does: one handle per leaf, the node asked for each time.
  void addTo(Ondra::Ir& ir) const {
    for (std::size_t i = 0; i < paths_.size(); ++i)
      ir.addNode(kTime, prefix_).addLeaf(paths_[i], handle(i));
  }

private:
  [[nodiscard]] Ondra::IrLeaf::Handle handle(std::size_t i) const {
    switch (kindOf(i)) {
    case Kind::Counter: return Kel::handleOf(std::uint64_t{1'234'567'890'123 + i});
    case Kind::Text: return Kel::handleOf(text_);
    case Kind::Flag: break;
    }
    return Kel::handleOf((i & 1) != 0);
  }

  ConstPath prefix_;
  std::vector<ConstPath> paths_;
  Kel::String text_{kText};
};

void BM_IrFillAndClear(benchmark::State& state) {
  auto const count = static_cast<std::size_t>(state.range(0));
  Object const object(count);
  auto const ir = Ondra::Ir::IrIs();
  object.addTo(*ir);
  ir->clear();
  PerLeaf const perLeaf(state, count);
  for (auto _ : state) {
    object.addTo(*ir);
    ir->clear();
  }
}

void BM_IrToBytes(benchmark::State& state) {
  auto const count = static_cast<std::size_t>(state.range(0));
  Object const object(count);
  auto const ir = Ondra::Ir::IrIs();
  Wire wire;
  auto const once = [&] {
    object.addTo(*ir);
    for (auto const& msg : ir->toSubResp())
      wire.take(*msg->response);
    ir->clear();
  };
  once();
  PerLeaf const perLeaf(state, count);
  for (auto _ : state)
    once();
}

// Object by object, as a walk with many small objects pushes them; `held` responses wait at the router before
// they are let go.
void BM_IrToBytesHeld(benchmark::State& state) {
  auto const count = static_cast<std::size_t>(state.range(0));
  auto const held = static_cast<std::size_t>(state.range(1));
  Object const object(count);
  auto const ir = Ondra::Ir::IrIs();
  Wire wire;
  std::vector<ArenaRespMsg::Ptr> pipe;
  auto const once = [&] {
    object.addTo(*ir);
    for (auto& msg : ir->toSubResp())
      pipe.push_back(std::move(msg));
    ir->clear();
    if (pipe.size() >= held) {
      for (auto const& msg : pipe)
        wire.take(*msg->response);
      pipe.clear();
    }
  };
  for (std::size_t i = 0; i < held; ++i)
    once();
  PerLeaf const perLeaf(state, count);
  for (auto _ : state)
    once();
}

// A node of 1000 leaves would be followed by an empty response: 999.
BENCHMARK(BM_FloorFlatToBytes)->ArgName("leaves")->Arg(1)->Arg(20)->Arg(999);
BENCHMARK(BM_IrFillAndClear)->ArgName("leaves")->Arg(1)->Arg(20)->Arg(999);
BENCHMARK(BM_IrToBytes)->ArgName("leaves")->Arg(1)->Arg(20)->Arg(999);
BENCHMARK(BM_IrToBytesHeld)->ArgNames({"leaves", "held"})->Args({20, 64})->Args({20, 512})->Args({999, 64});

} // namespace
