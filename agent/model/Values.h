// The values of the agent's model: enumerations as published, percentages, the index of a processor.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "Kel/String.h"

namespace Agent {

// --- interfaces ------------------------------------------------------------------------------------------
enum class AdminStatus : std::uint8_t { Up, Down, Testing };
enum class OperStatus : std::uint8_t { Up, Down, Testing, Unknown, Dormant, NotPresent, LowerLayerDown };
// The names are those of IANA's registry of interface types, prefixed with its module.
enum class InterfaceType : std::uint8_t {
  Ethernet,
  Loopback,
  Ppp,
  Tunnel,
  Vlan,
  Lag,
  Bridge,
  Virtual,
  Other
};
enum class LoopbackMode : std::uint8_t { None, Facility, Terminal };
enum class DuplexMode : std::uint8_t { Full, Half };
enum class PortSpeed : std::uint8_t {
  Mb10,
  Mb100,
  Gb1,
  Mb2500,
  Gb5,
  Gb10,
  Gb25,
  Gb40,
  Gb50,
  Gb100,
  Gb200,
  Gb400,
  Gb600,
  Gb800,
  Unknown,
};
enum class AddressOrigin : std::uint8_t { Other, Static, Dhcp, LinkLayer, Random };
enum class Ipv6AddressType : std::uint8_t { GlobalUnicast, LinkLocalUnicast };
enum class AddressStatus : std::uint8_t {
  Preferred,
  Deprecated,
  Invalid,
  Inaccessible,
  Unknown,
  Tentative,
  Duplicate,
  Optimistic,
};
enum class NeighborOrigin : std::uint8_t { Other, Static, Dynamic };
enum class NeighborState : std::uint8_t { Incomplete, Reachable, Stale, Delay, Probe };

// The published speed of so many megabits a second; Unknown when there is no name for it.
[[nodiscard]] PortSpeed portSpeedOf(std::uint64_t megabits);

// --- system ------------------------------------------------------------------------------------------------
// 0 to 100.
struct Percentage {
  std::uint8_t value = 0;
  bool operator==(Percentage const&) const = default;
};
// "ALL" or a processor's number. A key; prints and parses as that text.
struct CpuIndex {
  std::int64_t number = -1; // -1: all of them together
  bool operator==(CpuIndex const&) const = default;
  [[nodiscard]] std::string text() const;
  [[nodiscard]] static std::optional<std::string> parse(std::string_view text,
                                                        CpuIndex& to); // what is wrong, or none
};
// The same as a leaf: a union of the enumerator ALL and a number.
enum class CpuAll : std::uint8_t { All };
using CpuIndexLeaf = std::variant<CpuAll, std::uint32_t>;

enum class Filesystem : std::uint8_t { Ext4, Tmpfs, Overlay };
// A published identity, or the kernel's own name for the kind of file system.
using FilesystemType = std::variant<Filesystem, Kel::String>;

// A service that a server of gRPC offers.
enum class GrpcService : std::uint8_t { Gnmi };

// --- platform ----------------------------------------------------------------------------------------------
enum class ComponentType : std::uint8_t {
  Chassis,
  Cpu,
  Storage,
  Sensor,
  Fan,
  Port,
  OperatingSystem,
  Bios,
};
enum class ComponentStatus : std::uint8_t { Active, Inactive, Disabled };

} // namespace Agent
