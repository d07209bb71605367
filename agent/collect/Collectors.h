// All collectors of the machine, put together.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Tovak/TaskScheduler.h"
#include "agent/collect/Host.h"
#include "agent/collect/LinkModel.h"
#include "agent/collect/Netlink.h"
#include "agent/collect/Sampler.h"
#include "agent/model/Tree.h"

namespace Agent {

// Fills the tree from the machine and keeps it up to date. Lives on the scheduler thread; whoever made it
// owns it. The tree keeps what it holds when the collectors go.
class Collectors {
public:
  struct Options {
    std::string procRoot = "/proc";
    std::string sysRoot = "/sys";
    std::string etcRoot = "/etc";
    std::int64_t periodNs = 1'000'000'000; // of the samples
    bool watchesLinks = true;              // by netlink
    NetlinkMonitor::Options netlink = {};
    LinkModel::HasCome linkHasCome = nullptr;
  };

  Collectors(std::shared_ptr<Tovak::TaskScheduler> scheduler, Tree const& tree, Options const& options);
  Collectors(Collectors const&) = delete;
  Collectors& operator=(Collectors const&) = delete;

  // Begins; the tree fills in the turns that follow.
  void start();
  // Every source has been read at least once and the links are in sync: what there is to know is in the tree.
  [[nodiscard]] bool isFilled() const;
  // How often events of the kernel were lost, and everything was read anew.
  [[nodiscard]] std::uint64_t overruns() const { return monitor_ ? monitor_->overruns() : 0; }

private:
  void addSources(Tree const& tree);

  Host host_;
  LinkModel links_;
  std::unique_ptr<NetlinkMonitor> monitor_;
  std::shared_ptr<Sampler> sampler_; // before what it reads goes, it goes
};

} // namespace Agent
