// Large requests first; one that is refused is halved until what is wrong stands alone.
#include "agent/data/SetRestore.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "agent/context/Context.h"
#include "agent/data/SetRecord.h"
#include "agent/data/SetRun.h"

namespace Agent {
namespace {

constexpr std::size_t kMostAtATime = 10'000; // well within what a request may hold
constexpr std::int64_t kStepNs = 1'000'000;

class Restore {
public:
  explicit Restore(SetRuns& sets) : sets_(sets) {}

  void run(std::span<ConfigMap::value_type const* const> places) {
    grpc::Status const status = carryOut(requestOf(places));
    if (status.ok()) return;
    if (places.size() == 1) return lost.push_back(status.error_message());
    run(places.first(places.size() / 2));
    run(places.subspan(places.size() / 2));
  }

  std::vector<std::string> lost;

  grpc::Status carryOut(gnmi::SetRequest const& request) {
    auto plan = setPlanOf(request);
    if (!plan) return plan.error();
    std::optional<grpc::Status> how;
    sets_.setIs({.plan = std::move(*plan),
                 .done = [&how](grpc::Status const& status, std::int64_t) { how = status; },
                 .source = SetOrder::Source::Store});
    Context& context = sets_.context();
    while (!how)
      context.scheduler()->runUntil(context.clock().monotonicNs() + kStepNs);
    return *how;
  }

private:
  SetRuns& sets_;
};

} // namespace

std::vector<std::string> restore(SetRuns& sets, ConfigMap const& map) {
  Restore restore(sets);
  StoredPlaces const places = inOrder(map);
  std::span<ConfigMap::value_type const* const> rest = places;
  while (!rest.empty()) {
    std::size_t const some = std::min(rest.size(), kMostAtATime);
    restore.run(rest.first(some));
    rest = rest.subspan(some);
  }
  return std::move(restore.lost);
}

Kstd::Result<void, std::string> goBack(SetRuns& sets, std::string const& request) {
  gnmi::SetRequest back;
  back.ParseFromString(request);
  if (grpc::Status const status = Restore(sets).carryOut(back); !status.ok())
    return Kstd::Err(status.error_message());
  return {};
}

} // namespace Agent
