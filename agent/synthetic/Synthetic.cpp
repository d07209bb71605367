// The types, the tree with its first values, and a timer that moves counters round robin at the rate that was
// asked for.
#include "agent/synthetic/Synthetic.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "Kel/Dir.h"
#include "Tovak/Assert.h"
#include "Tovak/DebugHandler.h"
#include "agent/model/Shape.h"
#include "agent/model/Tree.h"

namespace Agent {
namespace {

constexpr std::string_view kModule = "ondra-synthetic";
constexpr std::string_view kName = "synthetic";
constexpr std::size_t kTicksPerSecond = 100;

using Counter = std::uint64_t SyntheticPort::*;
constexpr std::array<std::pair<std::string_view, Counter>, 12> kCounters = {{
    {"in-octets", &SyntheticPort::inOctets},
    {"in-pkts", &SyntheticPort::inPkts},
    {"in-unicast-pkts", &SyntheticPort::inUnicastPkts},
    {"in-multicast-pkts", &SyntheticPort::inMulticastPkts},
    {"in-errors", &SyntheticPort::inErrors},
    {"in-discards", &SyntheticPort::inDiscards},
    {"out-octets", &SyntheticPort::outOctets},
    {"out-pkts", &SyntheticPort::outPkts},
    {"out-unicast-pkts", &SyntheticPort::outUnicastPkts},
    {"out-multicast-pkts", &SyntheticPort::outMulticastPkts},
    {"out-errors", &SyntheticPort::outErrors},
    {"out-discards", &SyntheticPort::outDiscards},
}};

void declareTypesOnce() {
  declareTypes();
  Kel::kelModuleIs(kModule);
  auto port = eventShape<SyntheticPort>("SyntheticPort", kModule);
  port.key("name", &SyntheticPort::name);
  for (auto const& [name, counter] : kCounters)
    port.leaf(name, counter).sampled();
  port.leaf("type", &SyntheticPort::type)
      .leaf("description", &SyntheticPort::description)
      .leaf("alias", &SyntheticPort::alias)
      .leaf("enabled", &SyntheticPort::enabled)
      .leaf("loopback", &SyntheticPort::loopback)
      .leaf("tagged", &SyntheticPort::tagged)
      .leaf("up", &SyntheticPort::up)
      .done();
  eventShape<SyntheticPorts>("SyntheticPorts", kModule).list("port", &SyntheticPorts::port, "name").done();
  topLevelIs({.name = kName, .type = Kel::typeOf<SyntheticPorts>(), .module = kModule});
  publishedModelIs({.name = kModule, .organization = "Ondra", .version = "1.0.0"});
}

} // namespace

void declareSynthetic() {
  static bool const once = [] {
    declareTypesOnce();
    return true;
  }();
  static_cast<void>(once);
}

Kel::Ptr<SyntheticPorts> syntheticIn(Kel::Dir& root, std::size_t leaves) {
  declareSynthetic();
  auto const made = Kel::staticPtrCast<SyntheticPorts>(topIn(root, kName));
  std::size_t const count = std::max<std::size_t>(leaves / kSyntheticLeavesPerPort, 1);
  for (std::size_t i = 0; i < count; ++i) {
    Kel::Ptr<SyntheticPort> const port =
        made->entryIs(&SyntheticPorts::port, Kel::String(fmt::format("ethernet{:06}", i)));
    for (auto const& [name, counter] : kCounters)
      port->leafIs(counter, i * 1'000 + name.size());
  }
  return made;
}

SyntheticChanges::SyntheticChanges(std::shared_ptr<Tovak::TaskScheduler> scheduler, SyntheticPorts& ports,
                                   std::size_t perSecond)
    : scheduler_(std::move(scheduler))
    , perSecond_(perSecond) {
  TOVAK_ASSERT(perSecond > 0, Tovak::Platform::getDebugHandler("OndraAgent", false), "no rate of changes");
  for (auto const& [name, port] : ports.port)
    ports_.push_back(port);
  timer_ = scheduler_->timerEvery(1'000'000'000 / kTicksPerSecond, [this] { tick(); });
}

SyntheticChanges::~SyntheticChanges() { scheduler_->timerDel(timer_); }

void SyntheticChanges::tick() {
  due_ += perSecond_;
  std::size_t const changes = std::min(due_ / kTicksPerSecond, maxPerTick);
  due_ %= kTicksPerSecond;
  for (std::size_t i = 0; i < changes && !ports_.empty(); ++i) {
    SyntheticPort& port = *ports_[next_ % ports_.size()];
    Counter const counter = kCounters[next_ / ports_.size() % kCounters.size()].second;
    port.leafIs(counter, port.*counter + 1);
    ++next_;
  }
}

} // namespace Agent
