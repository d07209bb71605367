#include "agent/data/ConfigCarrier.h"

#include <utility>

#include "Tovak/Trace.h"
#include "agent/service/Runtime.h"

namespace Agent {
namespace {

Tovak::DebugHandler& trace() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("AgentConfig", false);
  return handler;
}

// What is to become of a leaf: what is wanted, else what was there before anybody wanted something.
template <class T>
void takeBack(std::optional<T>& wanted, std::optional<T>& before, std::optional<T> const& now) {
  if (!wanted) {
    wanted = std::exchange(before, std::nullopt);
  } else if (!before && now != wanted) {
    before = now;
  }
}

} // namespace

ConfigCarrier::ConfigCarrier(Runtime& runtime) : runtime_(runtime), applier_(runtime.scheduler()) {
  runtime.configChangedIs([this](std::set<std::string> const& interfaces) { carry(interfaces); });
}

ConfigCarrier::~ConfigCarrier() { runtime_.configChangedIs(nullptr); }

LinkChange ConfigCarrier::changeOf(Interface const& interface) {
  LinkChange change = linkChangeOf(interface);
  InterfaceState const& state = *interface.state;
  Before& before = before_[change.name];
  if (before.ifindex != state.ifindex)
    before = {.ifindex = state.ifindex, .mtu = {}, .enabled = {}}; // another link
  takeBack(change.mtu, before.mtu, state.mtu);
  takeBack(change.enabled, before.enabled, state.enabled);
  return change;
}

void ConfigCarrier::carry(std::set<std::string> const& interfaces) {
  auto const& there = runtime_.tree().interfaces->interface;
  std::erase_if(before_, [&there](auto const& one) { return !there.has(Kel::String(one.first)); });
  for (std::string const& name : interfaces) {
    Interface const* const interface = there.find(Kel::String(name));
    if (interface == nullptr) continue;
    applier_.apply(changeOf(*interface), [](ConfigApplier::Outcome const& outcome) {
      if (!outcome) TOVAK_TRACE(trace(), 0, "", "{}", outcome.error());
    });
  }
}

} // namespace Agent
