// Agent::SelfReport: writes what the agent knows of itself into the model, as the machine's values are.
//
// 1. Once a second, and of the streams so many at a time: what it costs to tell does not grow with the calls.
//    So a stream that watches these figures makes them change once a second, and no faster.
// 2. A stream is there from the first round that finds it until the first one that does not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

#include "Tovak/TaskScheduler.h"
#include "agent/model/Figures.h"

namespace Agent {

class Call;
class Runtime;
class SubscribeStream;
class TimeHistogram;

// Made before the scheduler runs, dropped when it has ended. The runtime outlives it.
class SelfReport {
public:
  static constexpr std::int64_t everyNs = 1'000'000'000;
  static constexpr std::size_t streamsAtATime = 64; // as many again may come, or go

  explicit SelfReport(Runtime& runtime);
  ~SelfReport();
  SelfReport(SelfReport const&) = delete;
  SelfReport& operator=(SelfReport const&) = delete;

private:
  struct Open {
    SubscribeStream const* stream;
    Call const* call;
  };
  using Streams = std::map<std::uint64_t, Open>;

  void tell();
  void tellCalls();
  void tellMemory();
  void tellTimes();
  void tellStreams();
  void tell(Open const& open, AgentStreamState& state);

  Runtime& runtime_;
  Kel::Ptr<OndraAgent> const root_;
  Tovak::TimerId timer_;
  std::uint64_t lastTold_ = 0; // the stream whose figures were taken last
};

} // namespace Agent
