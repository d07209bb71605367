// Fuzzes Set requests over the fixture model.
//
// An input that is a SetRequest in protobuf's text form is executed as it is and then with small changes; any
// other input is a stream of choices out of which requests are made for the model. Either way a refused
// request must leave no change, and nothing may crash, assert or leak. With libFuzzer: -DKTD_FUZZ=ON and
// clang. Without, the ordinary tests replay the corpus.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/text_format.h>

#include "fixture/Populate.h"
#include "ondra/set_random.h"
#include "ondra/set_support.h"

namespace {

using namespace SetTest;

constexpr int kMutations = 12;
constexpr int kRequests = 12;

// Executes requests one after the other over a world of its own.
class Executor {
public:
  Executor() : model_(modelOf(top())) {}

  [[nodiscard]] Kel::Ptr<Fixture::Device> device() const { return world_.device(); }
  void execute(gnmi::SetRequest const& request) {
    auto const outcome = SetTest::execute(request);
    Model after = modelOf(top());
    for (std::string const& change :
         outcome.second.ok() ? std::vector<std::string>() : changes(model_, after)) {
      std::fprintf(stderr, "refused (%s), yet: %s\n%s\n", outcome.second.error_message().c_str(),
                   change.c_str(), request.DebugString().c_str());
      std::abort();
    }
    model_ = std::move(after);
  }

private:
  [[nodiscard]] Kel::Ptr<Kel::Entity> top() const { return Kel::Ptr<Kel::Entity>(world_.dir()); }
  Fixture::World const world_;
  Model model_; // as the last request left it
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  google::protobuf::LogSilencer const silencer;
  Executor executor;
  std::string const input(reinterpret_cast<char const*>(data), size);
  gnmi::SetRequest request;
  if (google::protobuf::TextFormat::ParseFromString(input, &request)) {
    std::mt19937 random(static_cast<std::uint32_t>(size) + (size == 0 ? 0U : data[size / 2]));
    RequestMaker maker(executor.device(), [&random](std::size_t bound) { return random() % bound; });
    executor.execute(request);
    for (int i = 0; i < kMutations; ++i) {
      maker.mutate(request);
      executor.execute(request);
    }
    return 0;
  }
  std::size_t at = 0;
  auto const next = [&]() -> std::size_t { return at < size ? data[at++] : 0; };
  RequestMaker maker(executor.device(), [&next](std::size_t bound) {
    std::size_t const low = next();
    return (bound > 256 ? low * 256 + next() : low) % bound;
  });
  for (int i = 0; i < kRequests && at < size; ++i) {
    gnmi::SetRequest made = maker.make();
    executor.execute(made);
    maker.mutate(made);
    executor.execute(made);
  }
  return 0;
}
