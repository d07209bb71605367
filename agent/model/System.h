// The machine as a system: /system. What the host does not know is left without value.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "agent/model/Node.h"
#include "agent/model/Values.h"

namespace Agent {

class SystemConfig final : public Node<SystemConfig> {
public:
  std::optional<Kel::String> hostname;
  std::optional<Kel::String> domainName;
  std::optional<Kel::String> loginBanner;
  std::optional<Kel::String> motdBanner;
};
class SystemState final : public Node<SystemState> {
public:
  std::optional<Kel::String> hostname;
  std::optional<Kel::String> domainName;
  std::optional<Kel::String> loginBanner;
  std::optional<Kel::String> motdBanner;
  std::optional<Kel::String> currentDatetime; // RFC 3339, UTC
  std::optional<std::uint64_t> upTime;        // ns
  std::optional<std::uint64_t> bootTime;      // ns since the Unix epoch
  // ns since the Unix epoch; set by whoever carries out configuration requests.
  std::optional<std::uint64_t> lastConfigurationTimestamp;
  std::optional<Kel::String> softwareVersion;
};

// --- processors ------------------------------------------------------------------------------------------
// One share of a processor's time: now, and over the last `interval` nanoseconds.
class PercentStats final : public Node<PercentStats> {
public:
  Percentage instant;
  Percentage avg;
  Percentage min;
  Percentage max;
  std::uint64_t interval = 0;
  std::uint64_t minTime = 0; // ns since the Unix epoch
  std::uint64_t maxTime = 0;
};
class CpuState final : public Node<CpuState> {
public:
  void handleParent() override;

  CpuIndexLeaf index = CpuAll::All;
  Kel::Ptr<PercentStats> total;
  Kel::Ptr<PercentStats> user;
  Kel::Ptr<PercentStats> kernel;
  Kel::Ptr<PercentStats> nice;
  Kel::Ptr<PercentStats> idle;
  Kel::Ptr<PercentStats> wait;
  Kel::Ptr<PercentStats> hardwareInterrupt;
  Kel::Ptr<PercentStats> softwareInterrupt;
};
class Cpu final : public Node<Cpu> {
public:
  void handleParent() override;

  CpuIndex index; // the key
  Kel::Ptr<CpuState> state;
};
class Cpus final : public Node<Cpus> {
public:
  Kel::KeyedEntities<CpuIndex, Cpu> cpu;
};

// --- memory, in bytes --------------------------------------------------------------------------------------
class MemoryState final : public Node<MemoryState> {
public:
  std::optional<std::uint64_t> physical;
  std::optional<std::uint64_t> reserved;
  std::optional<std::uint64_t> used;
  std::optional<std::uint64_t> free;
  std::optional<std::uint64_t> available;
};
class Memory final : public Node<Memory> {
public:
  void handleParent() override;

  Kel::Ptr<MemoryState> state;
};

// --- processes ---------------------------------------------------------------------------------------------
class ProcessState final : public Node<ProcessState> {
public:
  std::uint64_t pid = 0;
  std::optional<Kel::String> name;
  std::vector<Kel::String> args;
  std::optional<std::uint64_t> startTime;      // ns since the Unix epoch
  std::optional<std::uint64_t> cpuUsageUser;   // ns
  std::optional<std::uint64_t> cpuUsageSystem; // ns
  std::optional<Percentage> cpuUtilization;    // of one processor, at most 100
  std::optional<std::uint64_t> memoryUsage;    // bytes
  std::optional<Percentage> memoryUtilization;
};
class Process final : public Node<Process> {
public:
  void handleParent() override;

  std::uint64_t pid = 0; // the key
  Kel::Ptr<ProcessState> state;
};
class Processes final : public Node<Processes> {
public:
  Kel::KeyedEntities<std::uint64_t, Process> process;
};

// --- mount points ------------------------------------------------------------------------------------------
class MountPointState final : public Node<MountPointState> {
public:
  Kel::String name;
  std::optional<std::uint64_t> size;      // megabytes (10^6 bytes)
  std::optional<std::uint64_t> available; // for users without privileges
  std::optional<std::uint64_t> utilized;
  std::optional<FilesystemType> type;
};
class MountPoint final : public Node<MountPoint> {
public:
  void handleParent() override;

  Kel::String name; // the key
  Kel::Ptr<MountPointState> state;
};
class MountPoints final : public Node<MountPoints> {
public:
  Kel::KeyedEntities<Kel::String, MountPoint> mountPoint;
};

// --- name servers ------------------------------------------------------------------------------------------
class DnsConfig final : public Node<DnsConfig> {
public:
  std::vector<Kel::String> search;
};
class DnsState final : public Node<DnsState> {
public:
  std::vector<Kel::String> search;
};
class DnsServerConfig final : public Node<DnsServerConfig> {
public:
  void handleParent() override;
  void addressIs(Kel::String const&) {} // always the key of its list entry
  // Without value it is 53.
  void portIs(std::optional<std::uint16_t> const& number) {
    leafIs(&DnsServerConfig::port, number.value_or(std::uint16_t{53}));
  }

  Kel::String address;
  std::optional<std::uint16_t> port = std::uint16_t{53};
};
class DnsServerState final : public Node<DnsServerState> {
public:
  Kel::String address;
  std::optional<std::uint16_t> port;
};
class DnsServer final : public Node<DnsServer> {
public:
  void handleParent() override;

  Kel::String address;              // the key
  Kel::Ptr<DnsServerConfig> config; // null once its configuration was deleted
  Kel::Ptr<DnsServerState> state;
};
class DnsServers final : public Node<DnsServers> {
public:
  Kel::KeyedEntities<Kel::String, DnsServer> server;
};
class Dns final : public Node<Dns> {
public:
  void handleParent() override;

  Kel::Ptr<DnsConfig> config;
  Kel::Ptr<DnsState> state;
  Kel::Ptr<DnsServers> servers;
};

// --- the agent's own servers: written by whoever serves ----------------------------------------------------
class GrpcServerState final : public Node<GrpcServerState> {
public:
  Kel::String name;
  std::vector<GrpcService> services;
  std::optional<bool> enable;
  std::optional<std::uint16_t> port;
  std::optional<bool> transportSecurity;
  std::vector<Kel::String> listenAddresses;
};
class GrpcServer final : public Node<GrpcServer> {
public:
  void handleParent() override;

  Kel::String name; // the key
  Kel::Ptr<GrpcServerState> state;
};
class GrpcServers final : public Node<GrpcServers> {
public:
  Kel::KeyedEntities<Kel::String, GrpcServer> grpcServer;
};

class System final : public Node<System> {
public:
  void handleParent() override;

  Kel::Ptr<SystemConfig> config;
  Kel::Ptr<SystemState> state;
  Kel::Ptr<Cpus> cpus;
  Kel::Ptr<Memory> memory;
  Kel::Ptr<Processes> processes;
  Kel::Ptr<MountPoints> mountPoints;
  Kel::Ptr<Dns> dns;
  Kel::Ptr<GrpcServers> grpcServers;
};

} // namespace Agent
