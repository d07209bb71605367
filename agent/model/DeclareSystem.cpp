// The types below /system, innermost first: processors, memory, processes, mount points, DNS, gRPC servers,
// then the system itself.
#include "agent/model/Declarations.h"
#include "agent/model/Shape.h"
#include "agent/model/System.h"

namespace Agent::Impl {
namespace {

// One line a node.
// clang-format off
void declareCpus() {
  sampledShape<PercentStats>("PercentStats", kSystemModule)
      .leaf("instant", &PercentStats::instant).range(0, 100)
      .leaf("avg", &PercentStats::avg).range(0, 100)
      .leaf("min", &PercentStats::min).range(0, 100)
      .leaf("max", &PercentStats::max).range(0, 100)
      .leaf("interval", &PercentStats::interval)
      .leaf("min-time", &PercentStats::minTime)
      .leaf("max-time", &PercentStats::maxTime)
      .done();
  eventShape<CpuState>("CpuState", kSystemModule)
      .keyCopy("index", &CpuState::index)
      .container("total", &CpuState::total)
      .container("user", &CpuState::user)
      .container("kernel", &CpuState::kernel)
      .container("nice", &CpuState::nice)
      .container("idle", &CpuState::idle)
      .container("wait", &CpuState::wait)
      .container("hardware-interrupt", &CpuState::hardwareInterrupt)
      .container("software-interrupt", &CpuState::softwareInterrupt)
      .done();
  eventShape<Cpu>("Cpu", kSystemModule).key("index", &Cpu::index).isUnion().container("state", &Cpu::state).done();
  eventShape<Cpus>("Cpus", kSystemModule).list("cpu", &Cpus::cpu, "index").done();
}

void declareMemory() {
  sampledShape<MemoryState>("MemoryState", kSystemModule)
      .leaf("physical", &MemoryState::physical)
      .leaf("reserved", &MemoryState::reserved)
      .leaf("used", &MemoryState::used)
      .leaf("free", &MemoryState::free)
      .leaf("available", &MemoryState::available)
      .done();
  eventShape<Memory>("Memory", kSystemModule).container("state", &Memory::state).done();
}

void declareProcesses() {
  eventShape<ProcessState>("ProcessState", kSystemModule)
      .keyCopy("pid", &ProcessState::pid)
      .leaf("name", &ProcessState::name)
      .leafList("args", &ProcessState::args)
      .leaf("start-time", &ProcessState::startTime)
      .leaf("cpu-usage-user", &ProcessState::cpuUsageUser).sampled()
      .leaf("cpu-usage-system", &ProcessState::cpuUsageSystem).sampled()
      .leaf("cpu-utilization", &ProcessState::cpuUtilization).range(0, 100).sampled()
      .leaf("memory-usage", &ProcessState::memoryUsage).sampled()
      .leaf("memory-utilization", &ProcessState::memoryUtilization).range(0, 100).sampled()
      .done();
  eventShape<Process>("Process", kSystemModule)
      .key("pid", &Process::pid)
      .container("state", &Process::state)
      .done();
  eventShape<Processes>("Processes", kSystemModule).list("process", &Processes::process, "pid").done();
}

void declareMountPoints() {
  eventShape<MountPointState>("MountPointState", kSystemModule)
      .keyCopy("name", &MountPointState::name)
      .leaf("size", &MountPointState::size)
      .leaf("available", &MountPointState::available).sampled()
      .leaf("utilized", &MountPointState::utilized).sampled()
      .leaf("type", &MountPointState::type).identity(kFilesystemTypesModule)
      .done();
  eventShape<MountPoint>("MountPoint", kSystemModule)
      .key("name", &MountPoint::name)
      .container("state", &MountPoint::state)
      .done();
  eventShape<MountPoints>("MountPoints", kSystemModule)
      .list("mount-point", &MountPoints::mountPoint, "name")
      .done();
}

void declareDns() {
  configShape<DnsConfig>("DnsConfig", kSystemModule)
      .leafList("search", &DnsConfig::search).text(domainName())
      .done();
  eventShape<DnsState>("DnsState", kSystemModule)
      .leafList("search", &DnsState::search).text(domainName())
      .done();
  configShape<DnsServerConfig>("DnsServerConfig", kSystemModule)
      .keyCopy("address", &DnsServerConfig::address, &DnsServerConfig::addressIs).isUnion().text(ipAddress())
      .leaf("port", &DnsServerConfig::port, &DnsServerConfig::portIs)
      .done();
  eventShape<DnsServerState>("DnsServerState", kSystemModule)
      .keyCopy("address", &DnsServerState::address).isUnion().text(ipAddress())
      .leaf("port", &DnsServerState::port)
      .done();
  configShape<DnsServer>("DnsServer", kSystemModule)
      .key("address", &DnsServer::address).isUnion().text(ipAddress())
      .presence("config", &DnsServer::config).embedded()
      .container("state", &DnsServer::state)
      .done();
  configShape<DnsServers>("DnsServers", kSystemModule).list("server", &DnsServers::server, "address").done();
  configShape<Dns>("Dns", kSystemModule)
      .container("config", &Dns::config)
      .container("state", &Dns::state)
      .container("servers", &Dns::servers)
      .done();
}

void declareGrpcServers() {
  eventShape<GrpcServerState>("GrpcServerState", kGrpcModule)
      .keyCopy("name", &GrpcServerState::name)
      .leafList("services", &GrpcServerState::services).identity(kGrpcModule)
      .leaf("enable", &GrpcServerState::enable)
      .leaf("port", &GrpcServerState::port)
      .leaf("transport-security", &GrpcServerState::transportSecurity)
      .leafList("listen-addresses", &GrpcServerState::listenAddresses).isUnion().text(listenAddress())
      .done();
  eventShape<GrpcServer>("GrpcServer", kGrpcModule)
      .key("name", &GrpcServer::name)
      .container("state", &GrpcServer::state)
      .done();
  eventShape<GrpcServers>("GrpcServers", kGrpcModule)
      .list("grpc-server", &GrpcServers::grpcServer, "name")
      .done();
}

void declareSystemItself() {
  configShape<SystemConfig>("SystemConfig", kSystemModule)
      .leaf("hostname", &SystemConfig::hostname).text(domainName())
      .leaf("domain-name", &SystemConfig::domainName).text(domainName())
      .leaf("login-banner", &SystemConfig::loginBanner)
      .leaf("motd-banner", &SystemConfig::motdBanner)
      .done();
  eventShape<SystemState>("SystemState", kSystemModule)
      .leaf("hostname", &SystemState::hostname).text(domainName())
      .leaf("domain-name", &SystemState::domainName).text(domainName())
      .leaf("login-banner", &SystemState::loginBanner)
      .leaf("motd-banner", &SystemState::motdBanner)
      .leaf("current-datetime", &SystemState::currentDatetime).text(dateAndTime()).sampled()
      .leaf("up-time", &SystemState::upTime).sampled()
      .leaf("boot-time", &SystemState::bootTime)
      .leaf("last-configuration-timestamp", &SystemState::lastConfigurationTimestamp)
      .leaf("software-version", &SystemState::softwareVersion)
      .done();
  configShape<System>("System", kSystemModule)
      .container("config", &System::config)
      .container("state", &System::state)
      .container("cpus", &System::cpus)
      .container("memory", &System::memory)
      .container("processes", &System::processes)
      .container("mount-points", &System::mountPoints)
      .container("dns", &System::dns)
      .container("grpc-servers", &System::grpcServers).module(kGrpcModule)
      .done();
}
// clang-format on

} // namespace

void declareSystem() {
  declareCpus();
  declareMemory();
  declareProcesses();
  declareMountPoints();
  declareDns();
  declareGrpcServers();
  declareSystemItself();
}

} // namespace Agent::Impl
