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

// Runs the scheduler until what `begin` begins has been told.
template <class Begin>
grpc::Status await(SetRuns& sets, Begin begin) {
  std::optional<grpc::Status> how;
  begin([&how](grpc::Status const& status, std::int64_t) { how = status; });
  Context& context = sets.context();
  while (!how)
    context.scheduler()->runUntil(context.clock().monotonicNs() + kStepNs);
  return *how;
}

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
    return await(sets_, [&](auto done) {
      sets_.setIs({.plan = std::move(*plan), .done = std::move(done), .source = SetOrder::Source::Store});
    });
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

std::vector<std::string> carryLinks(SetRuns& sets, std::set<std::string> const& links) {
  std::vector<std::string> refused;
  auto const carried = [&sets](std::set<std::string> const& some) {
    return await(sets, [&](auto done) { sets.linksAre(some, std::move(done)); });
  };
  if (links.empty() || carried(links).ok()) return refused;
  for (std::string const& link : links)
    if (grpc::Status const status = carried({link}); !status.ok()) refused.push_back(status.error_message());
  return refused;
}

Kstd::Result<void, std::string> goBack(SetRuns& sets, std::string const& request) {
  gnmi::SetRequest back;
  back.ParseFromString(request);
  if (grpc::Status const status = Restore(sets).carryOut(back); !status.ok())
    return Kstd::Err(status.error_message());
  return {};
}

} // namespace Agent
