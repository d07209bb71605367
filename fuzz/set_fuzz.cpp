// Fuzzes Set requests over the fixture model.
//
// An input that is a SetRequest in protobuf's text form is executed as it is and then with small changes; any other input is a
// stream of choices out of which requests are made for the model. Either way a refused request must leave no change, and nothing
// may crash, assert or leak. With libFuzzer: -DKTD_FUZZ=ON and clang. Without, the ordinary tests replay the corpus.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/text_format.h>

#include "fixture/Populate.h"
#include "ondra/set_random.h"
#include "ondra/set_support.h"

namespace {

using namespace SetTest;

constexpr int kMutations = 12;
constexpr int kRequests = 12;

void executeChecked(Fixture::World const& world, gnmi::SetRequest const& request) {
  auto const top = Kel::Ptr<Kel::Entity>(world.dir());
  Model const before = modelOf(top);
  auto const outcome = execute(request);
  if (outcome.second.ok()) {
    return;
  }
  for (std::string const& change : changes(before, modelOf(top))) {
    std::fprintf(stderr, "refused (%s), yet: %s\n%s\n", outcome.second.error_message().c_str(),
                 change.c_str(), request.DebugString().c_str());
    std::abort();
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  google::protobuf::LogSilencer const silencer;
  Fixture::World const world;
  std::string const input(reinterpret_cast<char const*>(data), size);
  gnmi::SetRequest request;
  if (google::protobuf::TextFormat::ParseFromString(input, &request)) {
    std::mt19937 random(static_cast<std::uint32_t>(size) + (size == 0 ? 0U : data[size / 2]));
    RequestMaker maker(world.device(), [&random](std::size_t bound) { return random() % bound; });
    executeChecked(world, request);
    for (int i = 0; i < kMutations; ++i) {
      maker.mutate(request);
      executeChecked(world, request);
    }
    return 0;
  }
  std::size_t at = 0;
  auto const next = [&]() -> std::size_t { return at < size ? data[at++] : 0; };
  RequestMaker maker(world.device(), [&next](std::size_t bound) {
    std::size_t const low = next();
    return (bound > 256 ? low * 256 + next() : low) % bound;
  });
  for (int i = 0; i < kRequests && at < size; ++i) {
    gnmi::SetRequest made = maker.make();
    executeChecked(world, made);
    maker.mutate(made);
    executeChecked(world, made);
  }
  return 0;
}
