// The generated tree.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

#include "Kel/Dir.h"
#include "Tovak/Clock.h"
#include "agent/model/Schema.h"
#include "agent/model/Tree.h"
#include "agent/synthetic/Synthetic.h"
#include "service/ServiceTesting.h"

namespace Agent {
namespace {

std::uint64_t sumOf(SyntheticPorts const& ports) {
  std::uint64_t sum = 0;
  for (auto const& [name, port] : ports.port)
    sum += port->inOctets + port->inPkts + port->inUnicastPkts + port->outDiscards;
  return sum;
}

TEST(Synthetic, IsATreeLikeTheOthersThatChangesAtTheAskedRate) {
  ServiceTesting::clearModel();
  Tovak::SimulatedClock clock;
  auto const scheduler = std::make_shared<Tovak::TaskScheduler>(clock);
  Kel::Ptr<SyntheticPorts> const ports = syntheticIn(*Kel::globalDir(), 1'000);
  EXPECT_EQ(ports->port.size(), 1'000 / kSyntheticLeavesPerPort);
  EXPECT_EQ(topLevels().back().name, "synthetic");
  std::size_t leaves = 0;
  std::size_t sampled = 0;
  for (Kel::KelTypeBase::AttributeQIterator attr(Kel::typeOf<SyntheticPort>()); attr; ++attr) {
    LeafInfo const* const leaf = leafInfo(*attr);
    ASSERT_NE(leaf, nullptr) << (*attr).name().view();
    ++leaves;
    sampled += leaf->isSampled ? 1 : 0;
  }
  EXPECT_EQ(leaves, kSyntheticLeavesPerPort);
  EXPECT_EQ(sampled, 12U);

  std::uint64_t const before = sumOf(*ports);
  {
    SyntheticChanges const changes(scheduler, *ports,
                                   150); // one and a half a tick: the halves must not get lost
    scheduler->runUntil(clock.monotonicNs() + 1'000'000'000);
    EXPECT_EQ(sumOf(*ports) - before, 150U); // of 50 ports, so that three counters of each have changed
  }
  scheduler->runUntil(clock.monotonicNs() + 1'000'000'000);
  EXPECT_EQ(sumOf(*ports) - before, 150U);
  ServiceTesting::clearModel();
}

} // namespace
} // namespace Agent
