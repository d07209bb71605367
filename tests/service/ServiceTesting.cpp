// The bench settles its scheduler until something holds, for at most 20 s; the server listens on a free
// loopback port.
#include "service/ServiceTesting.h"

#include "Kel/ActivityClock.h"
#include "Kel/Dir.h"
#include "Ondra/GnmiPath.h"
#include "Ondra/Path.h"

namespace ServiceTesting {

void clearModel() { Kel::globalDir()->entityDel(Agent::kOrigin); }

Bench::Bench(Agent::Limits const& limits)
    : clock_(1'000'000'000, Kel::activityManagerStatus()->activityLoopExecNsTime() + 1'000'000'000) {
  clearModel();
  runtime_ = std::make_unique<Agent::Runtime>(Agent::Context::Options{.limits = limits, .clock = &clock_});
}

Bench::~Bench() = default;

void Bench::settle() { runtime_->context().scheduler()->runUntilIdle(); }

void Bench::advance(std::int64_t ns) {
  runtime_->context().scheduler()->runUntil(clock_.monotonicNs() + ns);
  settle();
}

bool Bench::settleUntil(std::function<bool()> const& done) {
  auto const giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!done()) {
    if (std::chrono::steady_clock::now() > giveUp) return false;
    settle();
    std::this_thread::yield();
  }
  return true;
}

Kel::Ptr<Agent::Interface> Bench::addInterface(std::string_view name, std::uint16_t mtu) {
  Kel::Ptr<Agent::Interface> const made =
      tree().interfaces->entryIs(&Agent::Interfaces::interface, Kel::String(name));
  made->state->leafIs(&Agent::InterfaceState::mtu, mtu);
  made->state->containerIs(&Agent::InterfaceState::counters)->leafIs(&Agent::InterfaceCounters::inOctets, 0);
  return made;
}

gnmi::Path path(std::string_view text) {
  gnmi::Path made;
  Ondra::Path::strToPathIs(text)->copyToGnmiPath(&made);
  return made;
}

std::string text(gnmi::Path const& path) { return Ondra::pathToStr(path, 0, true); }

std::string text(gnmi::Path const& prefix, gnmi::Path const& path) { return text(prefix) + text(path); }

Server::Server(Agent::Runtime& runtime, std::shared_ptr<Agent::Gate> gate, Agent::Writer writer)
    : service_(runtime, std::move(gate), writer) {
  int port = 0;
  grpc::ServerBuilder builder;
  builder.AddListeningPort("127.0.0.1:0", grpc::InsecureServerCredentials(), &port);
  builder.RegisterService(&service_);
  server_ = builder.BuildAndStart();
  grpc::ChannelArguments args;
  args.SetInt(GRPC_ARG_HTTP2_BDP_PROBE, 0); // a window that stays small: who does not read is noticed soon
  channel_ = grpc::CreateCustomChannel("127.0.0.1:" + std::to_string(port),
                                       grpc::InsecureChannelCredentials(), args);
}

Server::~Server() {
  server_->Shutdown(std::chrono::system_clock::now());
  server_->Wait();
}

} // namespace ServiceTesting
