#include "agent/data/ConfigCarrier.h"

#include "Tovak/Trace.h"
#include "agent/service/Runtime.h"

namespace Agent {
namespace {

Tovak::DebugHandler& trace() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("AgentConfig", false);
  return handler;
}

} // namespace

ConfigCarrier::ConfigCarrier(Runtime& runtime) : runtime_(runtime), applier_(runtime.scheduler()) {
  runtime.configChangedIs([this](std::set<std::string> const& interfaces) { carry(interfaces); });
}

ConfigCarrier::~ConfigCarrier() { runtime_.configChangedIs(nullptr); }

void ConfigCarrier::carry(std::set<std::string> const& interfaces) {
  auto const& there = runtime_.tree().interfaces->interface;
  for (std::string const& name : interfaces) {
    Interface const* const interface = there.find(Kel::String(name));
    if (interface == nullptr) continue;
    applier_.apply(linkChangeOf(*interface), [](ConfigApplier::Outcome const& outcome) {
      if (!outcome) TOVAK_TRACE(trace(), 0, "", "{}", outcome.error());
    });
  }
}

} // namespace Agent
