// Two timers of the scheduler: signs of life, and what is served.
#include "agent/service/ServiceManager.h"

#include <systemd/sd-daemon.h>

#include <string>
#include <utility>

#include <fmt/format.h>

#include "agent/context/Context.h"
#include "agent/context/Tally.h"
#include "agent/service/Calls.h"

namespace Agent {
namespace {

constexpr std::int64_t kStatusNs = 5'000'000'000;

void tell(std::string const& state) { ::sd_notify(0, state.c_str()); }

} // namespace

struct ServiceManager::Signs {
  Tovak::TimerId life;
  Tovak::TimerId status;
  std::string text; // as told last
};

ServiceManager::ServiceManager(Context& context, Calls& calls)
    : context_(context)
    , signs_(std::make_shared<Signs>()) {
  tell("READY=1");
  std::uint64_t usec = 0;
  bool const isWatched = ::sd_watchdog_enabled(0, &usec) > 0;
  context_.scheduler()->post([&context, &calls, isWatched, usec, signs = signs_] {
    Tovak::TaskScheduler& scheduler = *context.scheduler();
    if (isWatched)
      signs->life =
          scheduler.timerEvery(static_cast<std::int64_t>(usec) * 1'000 / 2 + 1, [] { tell("WATCHDOG=1"); });
    auto const status = [&calls, &tally = context.tally(), told = signs.get()] {
      std::uint64_t begun = 0;
      for (std::size_t method = 0; method < Tally::methodNames.size(); ++method)
        begun += tally.begun(method);
      std::string text = fmt::format("STATUS={} streams, {} calls so far", calls.count(), begun);
      if (std::exchange(told->text, text) != text) tell(text);
    };
    status();
    signs->status = scheduler.timerEvery(kStatusNs, status);
  });
}

void ServiceManager::readingBegins() {
  tell(fmt::format("RELOADING=1\nMONOTONIC_USEC={}", context_.clock().monotonicNs() / 1'000));
}
void ServiceManager::readingEnds() { tell("READY=1"); }

ServiceManager::~ServiceManager() {
  tell("STOPPING=1");
  context_.scheduler()->post([scheduler = context_.scheduler().get(), signs = signs_] {
    scheduler->timerDel(signs->life);
    scheduler->timerDel(signs->status);
  });
}

} // namespace Agent
