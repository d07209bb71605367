// Which sources there are, in which order they are sampled, and which of them only every tenth round.
#include "agent/collect/Collectors.h"

#include <unistd.h>

#include "agent/collect/ComponentSource.h"
#include "agent/collect/InterfaceSource.h"
#include "agent/collect/ProcessSource.h"
#include "agent/collect/SystemSources.h"

namespace Agent {
namespace {

constexpr std::uint64_t kSeldom = 10; // rounds between what changes seldom or answers slowly

std::uint64_t systemFigure(int name, std::uint64_t otherwise) {
  long const value = ::sysconf(name);
  return value > 0 ? static_cast<std::uint64_t>(value) : otherwise;
}

Host hostOf(Collectors::Options const& options) {
  Host host;
  host.proc = TextRoot(options.procRoot);
  host.sys = TextRoot(options.sysRoot);
  host.etc = TextRoot(options.etcRoot);
  host.ticksPerSecond = systemFigure(_SC_CLK_TCK, host.ticksPerSecond);
  host.pageBytes = systemFigure(_SC_PAGESIZE, host.pageBytes);
  return host;
}

} // namespace

Collectors::Collectors(std::shared_ptr<Tovak::TaskScheduler> scheduler, Tree const& tree,
                       Options const& options)
    : host_(hostOf(options))
    , links_(host_, tree.interfaces, scheduler->clock(), options.linkHasCome)
    , sampler_(std::make_shared<Sampler>(scheduler, options.periodNs)) {
  if (options.watchesLinks) monitor_ = std::make_unique<NetlinkMonitor>(scheduler, links_, options.netlink);
  addSources(tree);
}

void Collectors::addSources(Tree const& tree) {
  System const& system = *tree.system;
  // The first two tell the others when the machine started and how much memory it has.
  sampler_->sourceIs(std::make_unique<SystemSource>(host_, tree.system));
  sampler_->sourceIs(std::make_unique<MemorySource>(host_, system.memory));
  sampler_->sourceIs(std::make_unique<InterfaceSource>(host_, tree.interfaces));
  sampler_->sourceIs(std::make_unique<CpuSource>(host_, system.cpus));
  sampler_->sourceIs(std::make_unique<ProcessSource>(host_, system.processes));
  sampler_->sourceIs(std::make_unique<MountSource>(host_, system.mountPoints));
  sampler_->sourceIs(std::make_unique<DnsSource>(host_, system.dns), kSeldom);
  sampler_->sourceIs(std::make_unique<ComponentSource>(host_, tree.components), kSeldom);
}

void Collectors::start() {
  if (monitor_) monitor_->start();
  sampler_->start();
}

bool Collectors::isFilled() const {
  return sampler_->roundsDone() > 0 && (!monitor_ || monitor_->isInSync());
}

} // namespace Agent
