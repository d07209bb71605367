// A generated tree of any size beside the machine's: /synthetic/port[name], for measuring, and for clients
// that want load.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "Tovak/TaskScheduler.h"
#include "agent/model/Node.h"

namespace Kel {
class Dir;
} // namespace Kel

namespace Agent {

inline constexpr std::size_t kSyntheticLeavesPerPort = 20;

// All leaves are state; the counters are those that TARGET_DEFINED samples.
class SyntheticPort final : public Node<SyntheticPort> {
public:
  Kel::String name; // the key
  std::uint64_t inOctets = 0;
  std::uint64_t inPkts = 0;
  std::uint64_t inUnicastPkts = 0;
  std::uint64_t inMulticastPkts = 0;
  std::uint64_t inErrors = 0;
  std::uint64_t inDiscards = 0;
  std::uint64_t outOctets = 0;
  std::uint64_t outPkts = 0;
  std::uint64_t outUnicastPkts = 0;
  std::uint64_t outMulticastPkts = 0;
  std::uint64_t outErrors = 0;
  std::uint64_t outDiscards = 0;
  Kel::String type{"ethernetCsma"};
  Kel::String description{"abcdefghijkl"};
  Kel::String alias{"mnopqrstuvwx"};
  bool enabled = true;
  bool loopback = false;
  bool tagged = true;
  bool up = true;
};

class SyntheticPorts final : public Node<SyntheticPorts> {
public:
  Kel::KeyedEntities<Kel::String, SyntheticPort> port;
};

// Declares the types and enters "synthetic" among the top levels, once; to be called where `declareTypes` is.
void declareSynthetic();

// The entity "synthetic" in the data root that `root` holds, with as many ports as make about `leaves` leaves
// (at least one). Scheduler thread, before anybody walks: a million leaves take a good part of a second.
[[nodiscard]] Kel::Ptr<SyntheticPorts> syntheticIn(Kel::Dir& root, std::size_t leaves);

// Counts up the ports' counters, one after the other, so many a second in all. Lives on the scheduler thread;
// dropping it ends the changes. The ports must not be removed meanwhile.
class SyntheticChanges {
public:
  // A hundred ticks a second; no tick makes more changes than this, so that it does not hold the thread.
  static constexpr std::size_t maxPerTick = 2'000;

  // REQUIRES perSecond > 0.
  SyntheticChanges(std::shared_ptr<Tovak::TaskScheduler> scheduler, SyntheticPorts& ports,
                   std::size_t perSecond);
  ~SyntheticChanges();
  SyntheticChanges(SyntheticChanges const&) = delete;
  SyntheticChanges& operator=(SyntheticChanges const&) = delete;

private:
  void tick();

  std::shared_ptr<Tovak::TaskScheduler> const scheduler_;
  std::size_t const perSecond_;
  std::vector<Kel::Ptr<SyntheticPort>> ports_;
  std::size_t due_ = 0;  // hundredths of changes that ticks have left over
  std::size_t next_ = 0; // counter of all counters
  Tovak::TimerId timer_;
};

} // namespace Agent
