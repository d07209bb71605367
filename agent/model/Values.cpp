// Their declaration under the published names, and what maps link speeds and processor numbers.
#include "agent/model/Values.h"

#include <charconv>

#include <fmt/format.h>

#include "Kel/Declare.h"
#include "agent/model/Declarations.h"

namespace Agent {

PortSpeed portSpeedOf(std::uint64_t megabits) {
  switch (megabits) {
  case 10: return PortSpeed::Mb10;
  case 100: return PortSpeed::Mb100;
  case 1000: return PortSpeed::Gb1;
  case 2500: return PortSpeed::Mb2500;
  case 5000: return PortSpeed::Gb5;
  case 10000: return PortSpeed::Gb10;
  case 25000: return PortSpeed::Gb25;
  case 40000: return PortSpeed::Gb40;
  case 50000: return PortSpeed::Gb50;
  case 100000: return PortSpeed::Gb100;
  case 200000: return PortSpeed::Gb200;
  case 400000: return PortSpeed::Gb400;
  case 600000: return PortSpeed::Gb600;
  case 800000: return PortSpeed::Gb800;
  default: return PortSpeed::Unknown;
  }
}

std::string CpuIndex::text() const { return number < 0 ? "ALL" : std::to_string(number); }

std::optional<std::string> CpuIndex::parse(std::string_view text, CpuIndex& to) {
  std::uint32_t number = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  CpuIndex const wanted{error == std::errc() ? static_cast<std::int64_t>(number) : -1};
  // Canonical decimals only: one processor has one key.
  if (end != text.data() + text.size() || wanted.text() != text) {
    if (text != "ALL")
      return fmt::format("'{}' is no processor: expected \"ALL\" or an unsigned 32-bit number", text);
  }
  to = wanted;
  return std::nullopt;
}

void Impl::declareValues() {
  using Kel::enumType;
  enumType<AdminStatus>(
      "AdminStatus",
      {{"UP", AdminStatus::Up}, {"DOWN", AdminStatus::Down}, {"TESTING", AdminStatus::Testing}},
      kInterfacesModule);
  enumType<OperStatus>("OperStatus",
                       {{"UP", OperStatus::Up},
                        {"DOWN", OperStatus::Down},
                        {"TESTING", OperStatus::Testing},
                        {"UNKNOWN", OperStatus::Unknown},
                        {"DORMANT", OperStatus::Dormant},
                        {"NOT_PRESENT", OperStatus::NotPresent},
                        {"LOWER_LAYER_DOWN", OperStatus::LowerLayerDown}},
                       kInterfacesModule);
  enumType<InterfaceType>("InterfaceType",
                          {{"iana-if-type:ethernetCsmacd", InterfaceType::Ethernet},
                           {"iana-if-type:softwareLoopback", InterfaceType::Loopback},
                           {"iana-if-type:ppp", InterfaceType::Ppp},
                           {"iana-if-type:tunnel", InterfaceType::Tunnel},
                           {"iana-if-type:l2vlan", InterfaceType::Vlan},
                           {"iana-if-type:ieee8023adLag", InterfaceType::Lag},
                           {"iana-if-type:bridge", InterfaceType::Bridge},
                           {"iana-if-type:propVirtual", InterfaceType::Virtual},
                           {"iana-if-type:other", InterfaceType::Other}},
                          kInterfacesModule);
  enumType<LoopbackMode>("LoopbackMode",
                         {{"NONE", LoopbackMode::None},
                          {"FACILITY", LoopbackMode::Facility},
                          {"TERMINAL", LoopbackMode::Terminal}},
                         kInterfacesModule);
  enumType<DuplexMode>("DuplexMode", {{"FULL", DuplexMode::Full}, {"HALF", DuplexMode::Half}},
                       kEthernetModule);
  enumType<PortSpeed>("PortSpeed",
                      {{"SPEED_10MB", PortSpeed::Mb10},
                       {"SPEED_100MB", PortSpeed::Mb100},
                       {"SPEED_1GB", PortSpeed::Gb1},
                       {"SPEED_2500MB", PortSpeed::Mb2500},
                       {"SPEED_5GB", PortSpeed::Gb5},
                       {"SPEED_10GB", PortSpeed::Gb10},
                       {"SPEED_25GB", PortSpeed::Gb25},
                       {"SPEED_40GB", PortSpeed::Gb40},
                       {"SPEED_50GB", PortSpeed::Gb50},
                       {"SPEED_100GB", PortSpeed::Gb100},
                       {"SPEED_200GB", PortSpeed::Gb200},
                       {"SPEED_400GB", PortSpeed::Gb400},
                       {"SPEED_600GB", PortSpeed::Gb600},
                       {"SPEED_800GB", PortSpeed::Gb800},
                       {"SPEED_UNKNOWN", PortSpeed::Unknown}},
                      kEthernetModule);
  enumType<AddressOrigin>("AddressOrigin",
                          {{"OTHER", AddressOrigin::Other},
                           {"STATIC", AddressOrigin::Static},
                           {"DHCP", AddressOrigin::Dhcp},
                           {"LINK_LAYER", AddressOrigin::LinkLayer},
                           {"RANDOM", AddressOrigin::Random}},
                          kIpModule);
  enumType<Ipv6AddressType>("Ipv6AddressType",
                            {{"GLOBAL_UNICAST", Ipv6AddressType::GlobalUnicast},
                             {"LINK_LOCAL_UNICAST", Ipv6AddressType::LinkLocalUnicast}},
                            kIpModule);
  enumType<AddressStatus>("AddressStatus",
                          {{"PREFERRED", AddressStatus::Preferred},
                           {"DEPRECATED", AddressStatus::Deprecated},
                           {"INVALID", AddressStatus::Invalid},
                           {"INACCESSIBLE", AddressStatus::Inaccessible},
                           {"UNKNOWN", AddressStatus::Unknown},
                           {"TENTATIVE", AddressStatus::Tentative},
                           {"DUPLICATE", AddressStatus::Duplicate},
                           {"OPTIMISTIC", AddressStatus::Optimistic}},
                          kIpModule);
  enumType<NeighborOrigin>("NeighborOrigin",
                           {{"OTHER", NeighborOrigin::Other},
                            {"STATIC", NeighborOrigin::Static},
                            {"DYNAMIC", NeighborOrigin::Dynamic}},
                           kIpModule);
  enumType<NeighborState>("NeighborState",
                          {{"INCOMPLETE", NeighborState::Incomplete},
                           {"REACHABLE", NeighborState::Reachable},
                           {"STALE", NeighborState::Stale},
                           {"DELAY", NeighborState::Delay},
                           {"PROBE", NeighborState::Probe}},
                          kIpModule);
  enumType<CpuAll>("CpuAll", {{"ALL", CpuAll::All}}, kSystemModule);
  enumType<Filesystem>(
      "Filesystem",
      {{"EXT4_FS", Filesystem::Ext4}, {"TMPFS_FS", Filesystem::Tmpfs}, {"OVERLAY_FS", Filesystem::Overlay}},
      kSystemModule);
  enumType<GrpcService>("GrpcService", {{"GNMI", GrpcService::Gnmi}}, kGrpcModule);
  enumType<ComponentType>("ComponentType",
                          {{"CHASSIS", ComponentType::Chassis},
                           {"CPU", ComponentType::Cpu},
                           {"STORAGE", ComponentType::Storage},
                           {"SENSOR", ComponentType::Sensor},
                           {"FAN", ComponentType::Fan},
                           {"PORT", ComponentType::Port},
                           {"OPERATING_SYSTEM", ComponentType::OperatingSystem},
                           {"BIOS", ComponentType::Bios}},
                          kPlatformModule);
  enumType<ComponentStatus>("ComponentStatus",
                            {{"ACTIVE", ComponentStatus::Active},
                             {"INACTIVE", ComponentStatus::Inactive},
                             {"DISABLED", ComponentStatus::Disabled}},
                            kPlatformModule);
  Kel::nominalType<Percentage>("Percentage", "value", &Percentage::value, kSystemModule);
  Kel::unionType<CpuIndexLeaf>("CpuIndexLeaf", {"all", "number"}, kSystemModule);
  Kel::unionType<FilesystemType>("FilesystemType", {"identity", "text"}, kSystemModule);
  Kel::valueType<CpuIndex>("CpuIndex", kSystemModule)
      .attr("number", &CpuIndex::number)
      .ctorArg()
      .gnmiStrRep([](CpuIndex const& index) { return index.text(); }, &CpuIndex::parse)
      .done();
}

} // namespace Agent
