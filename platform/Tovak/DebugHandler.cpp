// The registry of handlers; rules from the environment or a call switch those that are there and those to
// come.
#include "Tovak/DebugHandler.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include <fmt/format.h>

#include "Tovak/Lock.h"
#include "Tovak/TraceSink.h"
#include "Tovak/TraceSpec.h"

namespace Tovak {

// All handlers of the process and the rules that switch them, those of handlers to come included.
class DebugHandlerRegistry {
public:
  // Never freed: handlers are used until the last static destructor.
  static DebugHandlerRegistry& instance() {
    static auto* const registry = new DebugHandlerRegistry;
    return *registry;
  }

  DebugHandler& handler(std::string_view name, bool levelZeroOn) {
    std::lock_guard const guard(lock_);
    auto found = handlers_.find(name);
    if (found == handlers_.end()) {
      std::uint32_t const defaultMask = (1u << traceLevelError) | (levelZeroOn ? 1u : 0u);
      std::unique_ptr<DebugHandler> made(new DebugHandler(name, defaultMask));
      applyRules(*made);
      found = handlers_.emplace(String(name), std::move(made)).first;
    }
    return *found->second;
  }

  void rulesAre(std::vector<Impl::TraceRule> rules) {
    std::lock_guard const guard(lock_);
    rules_ = std::move(rules);
    for (auto& [name, handler] : handlers_)
      applyRules(*handler);
  }

private:
  DebugHandlerRegistry() {
    char const* const spec = std::getenv(Platform::traceEnvironmentVariable);
    if (!spec) return;
    auto rules = Impl::parseTraceSpec(spec);
    if (rules) {
      rules_ = std::move(rules).value();
      return;
    }
    String const message =
        fmt::format("{} is ignored: {}", Platform::traceEnvironmentVariable, rules.error());
    Impl::emitTrace({"Tovak", traceLevelError, "DebugHandler.cpp", __func__, __LINE__, "", message});
  }

  void applyRules(DebugHandler& handler) const {
    std::uint32_t levels = 0;
    for (Impl::TraceRule const& rule : rules_)
      if (Impl::globMatches(rule.pattern, handler.name())) levels |= rule.levels;
    handler.maskIs(levels ? levels | (1u << traceLevelError) : handler.defaultMask_);
  }

  Locking::Lock lock_;
  std::map<String, std::unique_ptr<DebugHandler>, std::less<>> handlers_; // guarded by lock_
  std::vector<Impl::TraceRule> rules_;                                    // guarded by lock_
};

DebugHandler& Platform::getDebugHandler(std::string_view name, bool levelZeroOn) {
  return DebugHandlerRegistry::instance().handler(name, levelZeroOn);
}

Kstd::Result<void, String> Platform::traceIs(std::string_view spec) {
  auto rules = Impl::parseTraceSpec(spec);
  if (!rules) return Kstd::Err(rules.error());
  DebugHandlerRegistry::instance().rulesAre(std::move(rules).value());
  return {};
}

} // namespace Tovak
