// The sources of /system but its processes: the machine's names and times, processors, memory, mount points,
// name servers.
#pragma once

#include <sys/statvfs.h>

#include <array>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "agent/collect/Host.h"
#include "agent/collect/ProcText.h"
#include "agent/collect/Sampler.h"
#include "agent/collect/StatWindow.h"
#include "agent/model/System.h"

namespace Agent {

// Names, banners, versions, date, up-time. Configuration leaves start with what the machine has and are the
// clients' from then on.
class SystemSource final : public SampleSource {
public:
  SystemSource(Host& host, Kel::Ptr<System> system) : host_(host), system_(std::move(system)) {}
  void begin(SampleTime const& now) override { now_ = now; }
  bool advance() override;

private:
  void names();
  void times();

  Host& host_;
  Kel::Ptr<System> system_;
  SampleTime now_;
  bool seeded_ = false;
};

// /proc/stat: the shares of every processor's time, one line a step.
class CpuSource final : public SampleSource {
public:
  CpuSource(Host& host, Kel::Ptr<Cpus> cpus) : host_(host), cpus_(std::move(cpus)) {}
  void begin(SampleTime const& now) override;
  bool advance() override;

private:
  static constexpr std::size_t kShares = 8; // as the model has them
  struct Cpu {
    CpuTicks ticks;
    std::int64_t wallNs = 0;
    std::int64_t monotonicNs = 0;
    std::array<StatWindow<std::uint8_t>, kShares> windows;
  };
  void sample(Cpu& cpu, CpuLine const& line);
  void write(std::int64_t number, Cpu const& cpu, std::array<std::uint8_t, kShares> const& instant);
  void removeUnseen();

  Host& host_;
  Kel::Ptr<Cpus> cpus_;
  LineReader lines_;
  SampleTime now_;
  std::map<std::int64_t, Cpu> known_;
  std::set<std::int64_t> seen_;
};

class MemorySource final : public SampleSource {
public:
  MemorySource(Host& host, Kel::Ptr<Memory> memory) : host_(host), memory_(std::move(memory)) {}
  void begin(SampleTime const&) override {}
  bool advance() override;

private:
  Host& host_;
  Kel::Ptr<Memory> memory_;
};

// Mount points that hold data, one a step. Of file systems on other machines only name and kind are told:
// asking a server that does not answer would hold the thread.
class MountSource final : public SampleSource {
public:
  using StatFs = std::function<int(char const* path, struct statvfs* to)>; // 0 when it worked

  MountSource(Host& host, Kel::Ptr<MountPoints> mounts, StatFs statFs = ::statvfs)
      : host_(host)
      , mounts_(std::move(mounts))
      , statFs_(std::move(statFs)) {}
  void begin(SampleTime const& now) override;
  bool advance() override;

private:
  void sample(MountLine const& mount);

  Host& host_;
  Kel::Ptr<MountPoints> mounts_;
  StatFs statFs_;
  LineReader lines_;
  std::set<std::string> seen_;
};

// /etc/resolv.conf.
class DnsSource final : public SampleSource {
public:
  DnsSource(Host& host, Kel::Ptr<Dns> dns) : host_(host), dns_(std::move(dns)) {}
  void begin(SampleTime const&) override {}
  bool advance() override;

private:
  Host& host_;
  Kel::Ptr<Dns> dns_;
  bool seeded_ = false;
};

} // namespace Agent
