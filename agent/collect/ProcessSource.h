// The processes of the machine: /system/processes from /proc/<pid>.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstdint>

#include "agent/collect/Host.h"
#include "agent/collect/ProcText.h"
#include "agent/collect/Sampler.h"
#include "agent/model/System.h"

namespace Agent {

// One process a step, then one vanished process a step: ten thousand of them never hold the thread. Arguments
// are read when a process is new or calls itself something else. A process that cannot be read has ended, or
// is not for this user to see.
class ProcessSource final : public SampleSource {
public:
  ProcessSource(Host& host, Kel::Ptr<Processes> processes) : host_(host), processes_(std::move(processes)) {}
  void begin(SampleTime const& now) override;
  bool advance() override;

private:
  struct Known {
    std::uint64_t startTicks = 0;
    std::uint64_t cpuTicks = 0;
    std::int64_t monotonicNs = 0; // when they were read
    std::uint64_t round = 0;
  };
  bool advanceRemoval();
  void sample(std::uint64_t pid);
  void write(ProcessState& state, Known& known, ProcessStat const& stat, bool isNew);
  void writeArguments(ProcessState& state);

  Host& host_;
  Kel::Ptr<Processes> processes_;
  FolderReader folder_;
  SampleTime now_;
  std::uint64_t round_ = 0;
  bool reading_ = false;
  absl::flat_hash_map<std::uint64_t, Known> known_; // by pid
  std::vector<std::uint64_t> gone_;
};

} // namespace Agent
