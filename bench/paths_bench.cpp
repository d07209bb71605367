// Paths of 1 to 6 elements with 0 to 2 keys each: hash and equality beside hand-written flat loops over the
// same bytes, text form, conversion to and from gNMI, and the ways in which a walk makes paths.
#include <benchmark/benchmark.h>
#include <google/protobuf/arena.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "Alloc.h"
#include "Ondra/GnmiPath.h"
#include "Ondra/Path.h"
#include "Tovak/HashMix.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace {

using Ondra::Path;
using Ondra::PathElem;
using ConstPath = Kel::Ptr<Path const>;

std::string textOf(std::int64_t elems, std::int64_t keys) {
  static char const* const names[] = {"interfaces",   "interface", "subinterfaces",
                                      "subinterface", "state",     "in-octets"};
  static char const* const groups[] = {"[name=Ethernet1/1]", "[index=4094]"};
  std::string text;
  for (std::int64_t i = 0; i < elems; ++i) {
    text.append("/").append(names[i]);
    for (std::int64_t k = 0; k < keys; ++k)
      text.append(groups[k]);
  }
  return text;
}

// The path of a benchmark's arguments: number of elements, keys per element.
Kel::Ptr<Path> pathOf(benchmark::State const& state) {
  return Path::strToPathIs(textOf(state.range(0), state.range(1)));
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"elems", "keys"});
  for (int const elems : {1, 2, 4, 6})
    for (int const keys : {0, 1, 2})
      benchmark->Args({elems, keys});
}

// A path as one run of bytes: what a flat loop goes over. Pieces are names, key names and values.
struct FlatPath {
  explicit FlatPath(Path const& path) {
    for (auto const& elem : path.elems()) {
      add(elem->name().view());
      for (auto const& node : elem->key()) {
        add(node.key.view());
        add(node.value.view());
      }
    }
  }
  void add(std::string_view piece) {
    bytes.append(piece);
    ends.push_back(static_cast<std::uint32_t>(bytes.size()));
  }

  std::string bytes;
  std::vector<std::uint32_t> ends;
};

void BM_PathHash(benchmark::State& state) {
  ConstPath const path = pathOf(state);
  Bench::HeapCallsPerOp const heap(state);
  for (auto _ : state) {
    benchmark::DoNotOptimize(path.get());
    benchmark::DoNotOptimize(std::hash<ConstPath>()(path));
  }
}
BENCHMARK(BM_PathHash)->Apply(sizes);

// The same, of elements whose hash was never asked for.
void BM_PathHashOfNewElems(benchmark::State& state) {
  ConstPath const path = pathOf(state);
  Bench::HeapCallsPerOp const heap(state);
  for (auto _ : state) {
    for (auto const& elem : path->elems())
      const_cast<PathElem&>(*elem).nameIs(elem->name()); // forgets the hash
    benchmark::DoNotOptimize(std::hash<ConstPath>()(path));
  }
}
BENCHMARK(BM_PathHashOfNewElems)->Apply(sizes);

void BM_FlatHash(benchmark::State& state) {
  FlatPath const flat(*pathOf(state));
  for (auto _ : state) {
    benchmark::DoNotOptimize(flat.bytes.data());
    std::uint64_t hash = Tovak::Impl::HashMix::stateStart;
    std::uint32_t begin = 0;
    for (std::uint32_t const end : flat.ends) {
      Tovak::Impl::HashMix::mix(hash, flat.bytes.data() + begin, end - begin);
      begin = end;
    }
    benchmark::DoNotOptimize(hash);
  }
}
BENCHMARK(BM_FlatHash)->Apply(sizes);

// Two paths that share no element.
void BM_PathEqual(benchmark::State& state) {
  ConstPath const a = pathOf(state);
  ConstPath const b = pathOf(state);
  Bench::HeapCallsPerOp const heap(state);
  for (auto _ : state) {
    benchmark::DoNotOptimize(a.get());
    benchmark::DoNotOptimize(std::equal_to<ConstPath>()(a, b));
  }
}
BENCHMARK(BM_PathEqual)->Apply(sizes);

void BM_FlatEqual(benchmark::State& state) {
  FlatPath const a(*pathOf(state));
  FlatPath const b(*pathOf(state));
  for (auto _ : state) {
    benchmark::DoNotOptimize(a.bytes.data());
    bool equal = a.ends.size() == b.ends.size();
    std::uint32_t begin = 0;
    for (std::size_t i = 0; equal && i < a.ends.size(); ++i) {
      equal = a.ends[i] == b.ends[i] &&
              std::memcmp(a.bytes.data() + begin, b.bytes.data() + begin, a.ends[i] - begin) == 0;
      begin = a.ends[i];
    }
    benchmark::DoNotOptimize(equal);
  }
}
BENCHMARK(BM_FlatEqual)->Apply(sizes);

// Texts: the text that is returned comes from the general heap, and nothing else does.
void BM_PathPrint(benchmark::State& state) {
  ConstPath const path = pathOf(state);
  Bench::HeapCallsPerOp const heap(state);
  for (auto _ : state)
    benchmark::DoNotOptimize(path->toString());
}
BENCHMARK(BM_PathPrint)->Apply(sizes);

void BM_PathParse(benchmark::State& state) {
  std::string const text = textOf(state.range(0), state.range(1));
  ConstPath const held = Path::strToPathIs(text); // its texts are interned already, as those of a model are
  Bench::HeapCallsPerOp const heap(state);
  for (auto _ : state)
    benchmark::DoNotOptimize(Path::strToPathIs(text));
}
BENCHMARK(BM_PathParse)->Apply(sizes);

// The same of texts that nobody holds: each is interned and forgotten again.
void BM_PathParseUnknown(benchmark::State& state) {
  std::string const text = textOf(state.range(0), state.range(1));
  static_cast<void>(Path::strToPathIs(text));
  Bench::HeapCallsPerOp const heap(state);
  for (auto _ : state)
    benchmark::DoNotOptimize(Path::strToPathIs(text));
}
BENCHMARK(BM_PathParseUnknown)->Apply(sizes);

void BM_GnmiPathIs(benchmark::State& state) {
  ConstPath const path = pathOf(state);
  gnmi::Path message;
  path->copyToGnmiPath(&message);
  Bench::HeapCallsPerOp const heap(state);
  for (auto _ : state)
    benchmark::DoNotOptimize(Path::gnmiPathIs(message));
}
BENCHMARK(BM_GnmiPathIs)->Apply(sizes);

// Into a message on an arena with a block of its own, as responses are made.
void BM_CopyToGnmiPath(benchmark::State& state) {
  ConstPath const path = pathOf(state);
  std::vector<char> block(64 * 1024);
  google::protobuf::ArenaOptions options;
  options.initial_block = block.data();
  options.initial_block_size = block.size();
  google::protobuf::Arena arena(options);
  Bench::HeapCallsPerOp const heap(state);
  for (auto _ : state) {
    auto* const message = google::protobuf::Arena::CreateMessage<gnmi::Path>(&arena);
    path->copyToGnmiPath(message);
    benchmark::DoNotOptimize(message);
    arena.Reset();
  }
}
BENCHMARK(BM_CopyToGnmiPath)->Apply(sizes);

// The leaf path of a walk: a new path out of elements that exist.
void BM_MakeAndPushShared(benchmark::State& state) {
  ConstPath const path = pathOf(state);
  std::vector<Path::ElemPtr> const elems(path->elems().begin(), path->elems().end());
  Bench::HeapCallsPerOp const heap(state);
  for (auto _ : state) {
    Kel::Ptr<Path> const made = Path::PathIs();
    for (Path::ElemPtr const& elem : elems)
      made->push(elem);
    benchmark::DoNotOptimize(made.get());
  }
}
BENCHMARK(BM_MakeAndPushShared)->Apply(sizes);

void BM_JoinPath(benchmark::State& state) {
  ConstPath const prefix = Path::strToPathIs("/openconfig/interfaces");
  ConstPath const leaf = pathOf(state);
  static_cast<void>(Path::joinPath(prefix, leaf));
  Bench::HeapCallsPerOp const heap(state);
  for (auto _ : state)
    benchmark::DoNotOptimize(Path::joinPath(prefix, leaf));
}
BENCHMARK(BM_JoinPath)->Apply(sizes);

} // namespace
