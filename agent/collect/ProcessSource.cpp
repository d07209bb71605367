// A process a step. A number with another start time is another process; usage in percent needs two rounds.
#include "agent/collect/ProcessSource.h"

#include <fmt/format.h>

#include <algorithm>

namespace Agent {
namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;
constexpr std::size_t kMaxArguments = 256; // of one process; the rest is left out

Percentage percentOf(double share) {
  return {static_cast<std::uint8_t>(std::clamp(share * 100 + 0.5, 0.0, 100.0))};
}

} // namespace

void ProcessSource::begin(SampleTime const& now) {
  now_ = now;
  ++round_;
  gone_.clear();
  reading_ = folder_.open(host_.proc.path("."));
}

bool ProcessSource::advance() {
  if (!reading_) return advanceRemoval();
  std::string_view name;
  if (folder_.next(name)) {
    if (auto const pid = numberOf(name)) sample(*pid);
    return true;
  }
  reading_ = false;
  for (auto const& [pid, known] : known_)
    if (known.round != round_) gone_.push_back(pid);
  return true;
}

bool ProcessSource::advanceRemoval() {
  if (gone_.empty()) return false;
  processes_->entryDel(&Processes::process, gone_.back());
  known_.erase(gone_.back());
  gone_.pop_back();
  return true;
}

void ProcessSource::sample(std::uint64_t pid) {
  auto const text = host_.proc.text(fmt::format("{}/stat", pid));
  auto const stat = text ? processStat(*text) : std::nullopt;
  if (!stat) return;
  auto const [at, isNew] = known_.try_emplace(pid);
  Known& known = at->second;
  // The number has been given to another process meanwhile: one goes, one comes.
  bool const reused = !isNew && known.startTicks != stat->startTicks;
  if (reused) {
    processes_->entryDel(&Processes::process, pid);
    known = Known();
  }
  known.round = round_;
  write(*processes_->entryIs(&Processes::process, pid)->state, known, *stat, isNew || reused);
}

void ProcessSource::write(ProcessState& state, Known& known, ProcessStat const& stat, bool isNew) {
  std::uint64_t const tickNs = kSecond / host_.ticksPerSecond;
  std::uint64_t const cpuTicks = stat.userTicks + stat.systemTicks;
  state.leafIs(&ProcessState::cpuUsageUser, stat.userTicks * tickNs);
  state.leafIs(&ProcessState::cpuUsageSystem, stat.systemTicks * tickNs);
  if (host_.bootNs) state.leafIs(&ProcessState::startTime, *host_.bootNs + stat.startTicks * tickNs);
  std::uint64_t const bytes = stat.residentPages * host_.pageBytes;
  state.leafIs(&ProcessState::memoryUsage, bytes);
  if (host_.physicalBytes && *host_.physicalBytes > 0) {
    state.leafIs(&ProcessState::memoryUtilization,
                 percentOf(static_cast<double>(bytes) / static_cast<double>(*host_.physicalBytes)));
  }
  if (!isNew && now_.monotonicNs > known.monotonicNs && cpuTicks >= known.cpuTicks) {
    auto const span = static_cast<double>(now_.monotonicNs - known.monotonicNs);
    state.leafIs(&ProcessState::cpuUtilization,
                 percentOf(static_cast<double>((cpuTicks - known.cpuTicks) * tickNs) / span));
  }
  known.startTicks = stat.startTicks;
  known.cpuTicks = cpuTicks;
  known.monotonicNs = now_.monotonicNs;
  // Last, because it reads another file: `stat.name` lies in the text of this one. An entry that a client
  // removed is new as well.
  if (isNew || !state.name || state.name->view() != stat.name) {
    state.leafIs(&ProcessState::name, Kel::String(stat.name));
    writeArguments(state);
  }
}

void ProcessSource::writeArguments(ProcessState& state) {
  auto const text = host_.proc.text(fmt::format("{}/cmdline", state.pid));
  if (!text) return;
  auto words = commandLine(*text);
  words.resize(std::min(words.size(), kMaxArguments));
  state.leafIs(&ProcessState::args, std::vector<Kel::String>(words.begin(), words.end()));
}

} // namespace Agent
