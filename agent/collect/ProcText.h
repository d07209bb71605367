// Readers of the texts that the kernel publishes in /proc, /sys and /etc: text in, numbers out. They tolerate
// anything: what does not look as expected gives nothing.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

// Splits off the first line (without its end) of `text`, which then begins after it. False at the end of the
// text.
bool nextLine(std::string_view& text, std::string_view& line);
// Splits off the first word: what stands between blanks. False when there is none left.
bool nextWord(std::string_view& text, std::string_view& word);
// Splits off and reads a decimal number; nothing when the next word is none.
[[nodiscard]] std::optional<std::uint64_t> nextNumber(std::string_view& text);
[[nodiscard]] std::optional<std::uint64_t> numberOf(std::string_view text);
[[nodiscard]] std::string_view trimmed(std::string_view text);

// --- /proc/stat ------------------------------------------------------------------------------------------
// A processor's time so far, in clock ticks.
struct CpuTicks {
  enum Share { User, Nice, System, Idle, Wait, HardIrq, SoftIrq, Steal };
  std::array<std::uint64_t, 8> ticks{}; // by Share; those that an old kernel does not tell are 0
  [[nodiscard]] std::uint64_t sum() const;
};
struct CpuLine {
  std::int64_t number = -1; // -1: all processors
  CpuTicks ticks;
};
// Of a line "cpu ..." or "cpu<N> ...".
[[nodiscard]] std::optional<CpuLine> cpuLine(std::string_view line);

// --- /proc/meminfo, in bytes -----------------------------------------------------------------------------
struct MemInfo {
  std::optional<std::uint64_t> total;
  std::optional<std::uint64_t> free;
  std::optional<std::uint64_t> available;
};
[[nodiscard]] MemInfo memInfo(std::string_view text);

// --- /proc/<pid>/stat ------------------------------------------------------------------------------------
struct ProcessStat {
  std::string_view name; // within the text
  std::uint64_t userTicks = 0;
  std::uint64_t systemTicks = 0;
  std::uint64_t startTicks = 0; // since the machine started
  std::uint64_t residentPages = 0;
};
[[nodiscard]] std::optional<ProcessStat> processStat(std::string_view text);
// /proc/<pid>/cmdline: the words between the NULs.
[[nodiscard]] std::vector<std::string_view> commandLine(std::string_view text);

// --- /proc/self/mountinfo --------------------------------------------------------------------------------
struct MountLine {
  std::string mountPoint; // escapes resolved
  std::string kind;       // of file system
};
[[nodiscard]] std::optional<MountLine> mountLine(std::string_view line);

// --- /proc/net/dev ---------------------------------------------------------------------------------------
struct NetDevLine {
  std::string_view name;
  std::uint64_t inOctets = 0, inPkts = 0, inErrors = 0, inDiscards = 0, inMulticastPkts = 0;
  std::uint64_t outOctets = 0, outPkts = 0, outErrors = 0, outDiscards = 0;
};
// Nothing for the two head lines.
[[nodiscard]] std::optional<NetDevLine> netDevLine(std::string_view line);

// --- /etc/resolv.conf ------------------------------------------------------------------------------------
struct ResolvConf {
  std::vector<std::string> servers;
  std::vector<std::string> search;
};
[[nodiscard]] ResolvConf resolvConf(std::string_view text);

// The value of NAME="value" in a file such as /etc/os-release.
[[nodiscard]] std::optional<std::string> assignedValue(std::string_view text, std::string_view name);
// The value of "name : value" in a file such as /proc/cpuinfo: the first one.
[[nodiscard]] std::optional<std::string> colonValue(std::string_view text, std::string_view name);

} // namespace Agent
