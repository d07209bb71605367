// A line of the file a step. The counters go to the interface and to its unit 0; those of checksum errors are
// in a file of their own.
#include "agent/collect/InterfaceSource.h"

#include <fmt/format.h>

namespace Agent {
namespace {

template <class Counters>
void writeCommon(Counters& counters, NetDevLine const& line) {
  counters.leafIs(&CommonCounters::inOctets, line.inOctets);
  counters.leafIs(&CommonCounters::inPkts, line.inPkts);
  counters.leafIs(&CommonCounters::inMulticastPkts, line.inMulticastPkts);
  counters.leafIs(&CommonCounters::inErrors, line.inErrors);
  counters.leafIs(&CommonCounters::inDiscards, line.inDiscards);
  counters.leafIs(&CommonCounters::outOctets, line.outOctets);
  counters.leafIs(&CommonCounters::outPkts, line.outPkts);
  counters.leafIs(&CommonCounters::outErrors, line.outErrors);
  counters.leafIs(&CommonCounters::outDiscards, line.outDiscards);
}

} // namespace

void InterfaceSource::begin(SampleTime const&) { lines_.open(host_.proc.path("net/dev")); }

bool InterfaceSource::advance() {
  std::string_view text;
  if (!lines_.next(text)) return false;
  if (auto const line = netDevLine(text)) write(*line);
  return true;
}

void InterfaceSource::write(NetDevLine const& line) {
  Interface* const interface = interfaces_->interface.find(Kel::String(line.name));
  if (interface == nullptr || !interface->state->ifindex) return; // not a link of this machine
  auto const counters = interface->state->containerIs(&InterfaceState::counters);
  writeCommon(*counters, line);
  auto const crcErrors = host_.sys.number(fmt::format("class/net/{}/statistics/rx_crc_errors", line.name));
  counters->leafIs(&InterfaceCounters::inFcsErrors, crcErrors);
  if (Subinterface* const unit = interface->subinterfaces->subinterface.find(0))
    writeCommon(*unit->state->containerIs(&SubinterfaceState::counters), line);
}

} // namespace Agent
