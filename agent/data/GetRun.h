// Carries out a Get: reads one path after the other in slices of the scheduler. Scheduler thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <grpcpp/support/byte_buffer.h>
#include <grpcpp/support/status.h>

#include "agent/context/ByteBudget.h"
#include "agent/data/GetAnswer.h"
#include "agent/data/ObjectReading.h"
#include "agent/router/Snapshot.h"

namespace Agent {

class Context;
class Router;

// Keeps itself alive while it reads; the router outlives it. `done` is called once, with as many answers as
// paths when the status is OK.
class GetRun final : public SnapshotSink, public std::enable_shared_from_this<GetRun> {
public:
  using Answers = std::vector<std::unique_ptr<GetAnswer>>;
  using Done = std::function<void(grpc::Status const&)>;

  // `address`: of the peer that asks.
  GetRun(Router& router, GetOrder order, std::string address);
  ~GetRun() override;

  void start(Done done);
  // Stops reading: CANCELLED. Nothing happens when it is done already.
  void cancel();
  // What the answers take of the budgets of all Gets; kept by whoever keeps an answer.
  struct Shares {
    explicit Shares(Context const& context);
    ByteBudget::Share bytes;
    ByteBudget::Share memory;
  };
  [[nodiscard]] std::shared_ptr<Shares const> shares() const { return shares_; }
  // Once done and once, on any one thread: a GetResponse.
  [[nodiscard]] grpc::ByteBuffer takeResponse();

private:
  void notification(gnmi::Notification const& notification) override;
  void done(grpc::Status const& status) override;
  void next();
  void pathIsRead();
  // The answer has, by that and so many bytes beside it. False: by too many.
  [[nodiscard]] bool hasGrown(std::size_t beside);
  void tooLargeIs(std::string text);
  void end(grpc::Status const& status);

  Router& router_;
  Context& context_;
  GetOrder const order_;
  std::string const address_;
  Done done_; // null before the start and once told
  Answers answers_;
  std::shared_ptr<Shares> const shares_;
  std::size_t bytes_ = 0; // of the answers before the last
  bool isTooLarge_ = false;
  bool isReadable_ = true; // the path that is read, itself
  std::size_t memoryBytes_ = 0;
  std::int64_t timestamp_ = 0;             // of the end of the reading, in loop time
  std::shared_ptr<Snapshot> snapshot_;     // refers to this
  std::unique_ptr<ObjectReading> reading_; // likewise
};

} // namespace Agent
