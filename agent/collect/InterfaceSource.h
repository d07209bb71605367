// The counters of the interfaces, from /proc/net/dev.
// docs/decisions.md: "Counters come from `/proc/net/dev`"
#pragma once

#include "agent/collect/Host.h"
#include "agent/collect/ProcText.h"
#include "agent/collect/Sampler.h"
#include "agent/model/Interface.h"

namespace Agent {

// One interface a step. Interfaces that the tree does not hold (yet) are left alone: links come and go by
// their own events. The kernel counts multicast for receive only and broadcast not at all, so that the split
// by kind of address stays without value.
class InterfaceSource final : public SampleSource {
public:
  InterfaceSource(Host& host, Kel::Ptr<Interfaces> interfaces)
      : host_(host)
      , interfaces_(std::move(interfaces)) {}
  void begin(SampleTime const& now) override;
  bool advance() override;

private:
  void write(NetDevLine const& line);

  Host& host_;
  Kel::Ptr<Interfaces> interfaces_;
  LineReader lines_;
};

} // namespace Agent
