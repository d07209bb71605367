// Subscribing in tests: a call against an in-process server, read message by message or applied to a map as a
// collector does.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/ServiceTesting.h"

namespace ServiceTesting {

// One client call. Its reads run on gRPC's threads and gather; `paused` stops them. The test's thread settles
// the scheduler meanwhile.
class Subscriber final : private grpc::ClientBidiReactor<gnmi::SubscribeRequest, gnmi::SubscribeResponse> {
public:
  Subscriber(Bench& bench, std::shared_ptr<grpc::Channel> const& channel, bool paused = false);
  ~Subscriber() override; // cancels what is still open

  void send(gnmi::SubscribeRequest const& request);
  void halfClose();
  void cancel() { context_.TryCancel(); }
  void readOn(); // after a pause

  // The next message; fails the test and gives an empty one when none comes or the call has ended.
  gnmi::SubscribeResponse next();
  // All up to and with the next sync, applied; the number of updates before it.
  int untilSync();
  // Applies what comes until `done`.
  [[nodiscard]] bool applyUntil(std::function<bool()> const& done);
  // The status, once the call has ended.
  grpc::Status status();
  [[nodiscard]] bool ended();

  // "path" -> "value" as a collector has it, by all that has been applied; paths with their origin when there
  // is one.
  std::map<std::string, std::string> tree;
  std::map<std::string, std::int64_t> stamps;
  std::vector<std::string> complaints; // about times that go back, doubled paths, wildcards, missing stamps
  std::vector<std::string> deletes;
  int syncs = 0;
  std::uint64_t duplicates = 0;
  void apply(gnmi::SubscribeResponse const& response);

private:
  void OnReadDone(bool ok) override;
  void OnWriteDone(bool ok) override;
  void OnDone(grpc::Status const& status) override;
  [[nodiscard]] bool take(gnmi::SubscribeResponse& into);

  Bench& bench_;
  grpc::ClientContext context_;
  std::unique_ptr<gnmi::gNMI::Stub> stub_;
  gnmi::SubscribeResponse reading_;
  std::mutex mutex_;
  std::deque<gnmi::SubscribeResponse> arrived_;
  std::deque<gnmi::SubscribeRequest> toSend_;
  bool sending_ = false;
  bool halfCloses_ = false;
  bool paused_;
  bool held_ = true; // the reactor's own hold, so that operations may be started from the test
  std::optional<grpc::Status> status_;
};

// A list of subscriptions, built by name.
struct Request {
  gnmi::SubscriptionList::Mode mode = gnmi::SubscriptionList::ONCE;
  gnmi::Encoding encoding = gnmi::PROTO;
  gnmi::SubscribeRequest request = {};

  Request& add(std::string_view path, gnmi::SubscriptionMode subscriptionMode = gnmi::ON_CHANGE,
               std::uint64_t sampleNs = 0, std::uint64_t heartbeatNs = 0, bool suppress = false);
  Request& updatesOnly();
  [[nodiscard]] gnmi::SubscribeRequest const& done();
};
[[nodiscard]] inline Request once() { return {}; }
[[nodiscard]] inline Request stream() { return {.mode = gnmi::SubscriptionList::STREAM}; }
[[nodiscard]] inline Request poll() { return {.mode = gnmi::SubscriptionList::POLL}; }
[[nodiscard]] gnmi::SubscribeRequest pollNow();

} // namespace ServiceTesting
