// Hands the changed interfaces to the thread that writes to the kernel; what the kernel refuses is traced,
// nothing else.
#include "agent/collect/ConfigCarrier.h"

#include <utility>

#include "Tovak/Trace.h"
#include "agent/model/Tree.h"

namespace Agent {
namespace {

Tovak::DebugHandler& trace() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("AgentConfig", false);
  return handler;
}

} // namespace

ConfigCarrier::ConfigCarrier(std::shared_ptr<Tovak::TaskScheduler> scheduler, Tree const& tree)
    : tree_(tree)
    , applier_(std::move(scheduler)) {}

void ConfigCarrier::carry(std::set<std::string> const& interfaces) {
  auto const& there = tree_.interfaces->interface;
  for (std::string const& name : interfaces) {
    Interface const* const interface = there.find(Kel::String(name));
    if (interface == nullptr) continue;
    applier_.apply(linkChangeOf(*interface), [](ConfigApplier::Outcome const& outcome) {
      if (!outcome) TOVAK_TRACE(trace(), 0, "", "{}", outcome.error());
    });
  }
}

} // namespace Agent
