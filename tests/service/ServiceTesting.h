// What the service's tests share: a runtime of their own on a simulated clock, driven by hand, over an empty
// tree.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include <grpcpp/grpcpp.h>

#include "Kel/Ptr.h"
#include "Tovak/Clock.h"
#include "agent/model/Tree.h"
#include "agent/service/Gate.h"
#include "agent/service/GnmiService.h"
#include "agent/service/Runtime.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.grpc.pb.h"

namespace ServiceTesting {

// Forgets the tree of an earlier test. No runtime may exist.
void clearModel();

// A runtime over a fresh tree, on a simulated clock. Nothing runs by itself: `settle` and `advance` run the
// scheduler on the test's thread, together with whatever gRPC's threads post meanwhile.
class Bench {
public:
  explicit Bench(Agent::Limits const& limits = {});
  ~Bench();
  Bench(Bench const&) = delete;
  Bench& operator=(Bench const&) = delete;

  [[nodiscard]] Agent::Runtime& runtime() { return *runtime_; }
  [[nodiscard]] Agent::Tree const& tree() { return runtime_->context().tree(); }
  [[nodiscard]] Tovak::SimulatedClock& clock() { return clock_; }

  // Runs what is scheduled and posted until nothing is.
  void settle();
  // Moves the time on, running the timers on the way.
  void advance(std::int64_t ns);
  // Settles until `done` says so, in real time, at most for 20 s; for what needs gRPC's threads to move. Says
  // whether it did.
  [[nodiscard]] bool settleUntil(std::function<bool()> const& done);

  // An interface with its fixed containers and a few leaves.
  Kel::Ptr<Agent::Interface> addInterface(std::string_view name, std::uint16_t mtu = 1500);

private:
  Tovak::SimulatedClock clock_;
  std::unique_ptr<Agent::Runtime> runtime_;
};

// Starts a call of the callback API, `start(context, told)`, and settles until it has ended.
template <class Start>
grpc::Status awaited(Bench& bench, Start const& start) {
  grpc::ClientContext context;
  std::atomic<bool> ended = false;
  grpc::Status status;
  start(&context, [&](grpc::Status const& told) {
    status = told;
    ended = true;
  });
  EXPECT_TRUE(bench.settleUntil([&] { return ended.load(); }));
  return status;
}

// A path from its text, "/interfaces/interface[name=eth0]/state".
[[nodiscard]] gnmi::Path path(std::string_view text);
// The text of a path or of a prefix and a path.
[[nodiscard]] std::string text(gnmi::Path const& path);
[[nodiscard]] std::string text(gnmi::Path const& prefix, gnmi::Path const& path);

// The agent's service in this process, on a port of its own, and a channel to it. The runtime outlives it.
class Server {
public:
  explicit Server(Agent::Runtime& runtime, std::shared_ptr<Agent::Gate> gate = nullptr,
                  Agent::Writer writer = Agent::Writer::Client);
  ~Server();
  Server(Server const&) = delete;
  Server& operator=(Server const&) = delete;

  [[nodiscard]] std::shared_ptr<grpc::Channel> const& channel() const { return channel_; }

private:
  Agent::GnmiService service_;
  std::unique_ptr<grpc::Server> server_;
  std::shared_ptr<grpc::Channel> channel_;
};

} // namespace ServiceTesting
