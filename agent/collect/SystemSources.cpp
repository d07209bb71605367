// One source a section. Configuration is seeded in the first round only; entries that are not seen again are
// removed.
#include "agent/collect/SystemSources.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <vector>

#include "agent/collect/IpText.h"
#include "agent/collect/Utf8.h"
#include "agent/model/TextRules.h"

namespace Agent {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

std::optional<Kel::String> asText(std::optional<std::string> const& value) {
  return value ? std::optional<Kel::String>(*value) : std::nullopt;
}

std::string rfc3339(std::int64_t wallNs) {
  std::time_t const seconds = wallNs / kSecond;
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday,
                     utc.tm_hour, utc.tm_min, utc.tm_sec);
}

// "12345.67 ..." in nanoseconds.
std::optional<std::uint64_t> upTimeNs(std::string_view text) {
  std::string_view word;
  if (!nextWord(text, word)) return std::nullopt;
  std::size_t const dot = word.find('.');
  auto const whole = numberOf(word.substr(0, dot));
  auto const hundredths = dot == std::string_view::npos ? 0 : numberOf(word.substr(dot + 1));
  if (!whole || !hundredths) return std::nullopt;
  return *whole * kSecond + *hundredths * (kSecond / 100);
}

std::optional<std::uint64_t> bootTimeNs(std::string_view stat) {
  std::string_view line, word;
  while (nextLine(stat, line)) {
    if (!line.starts_with("btime ") || !nextWord(line, word)) continue;
    if (auto const seconds = nextNumber(line)) return *seconds * kSecond;
  }
  return std::nullopt;
}

// A name as configuration: what the published type does not allow is state alone.
std::optional<Kel::String> publishable(std::optional<Kel::String> const& name) {
  return name && domainName().check(name->view()) ? name : std::nullopt;
}

template <class Collection>
void eraseUnseen(auto& owner, Collection const member, auto const& unseen) {
  std::vector<std::decay_t<decltype(((*owner).*member).begin()->first)>> gone;
  for (auto const& [key, entry] : (*owner).*member)
    if (unseen(key)) gone.push_back(key);
  for (auto const& key : gone)
    owner->entryDel(member, key);
}

} // namespace

// --- names and times ---------------------------------------------------------------------------------------

bool SystemSource::advance() {
  names();
  times();
  seeded_ = true;
  return false;
}

void SystemSource::names() {
  auto const domain = host_.proc.value("sys/kernel/domainname");
  auto const hostname = asText(host_.proc.value("sys/kernel/hostname"));
  auto const domainName = domain == "(none)" ? std::nullopt : asText(domain);
  auto const loginBanner = asText(host_.etc.value("issue"));
  auto const motdBanner = asText(host_.etc.value("motd"));
  SystemState& state = *system_->state;
  state.leafIs(&SystemState::hostname, hostname);
  state.leafIs(&SystemState::domainName, domainName);
  state.leafIs(&SystemState::loginBanner, loginBanner);
  state.leafIs(&SystemState::motdBanner, motdBanner);
  std::optional<std::string> version;
  if (auto const release = host_.etc.text("os-release")) version = assignedValue(*release, "PRETTY_NAME");
  if (!version) version = host_.proc.value("sys/kernel/osrelease");
  state.leafIs(&SystemState::softwareVersion, asText(version));
  if (seeded_) return;
  SystemConfig& config = *system_->config;
  config.leafIs(&SystemConfig::hostname, publishable(hostname));
  config.leafIs(&SystemConfig::domainName, publishable(domainName));
  config.leafIs(&SystemConfig::loginBanner, loginBanner);
  config.leafIs(&SystemConfig::motdBanner, motdBanner);
}

void SystemSource::times() {
  SystemState& state = *system_->state;
  if (auto const text = host_.proc.text("uptime")) state.leafIs(&SystemState::upTime, upTimeNs(*text));
  // The kernel derives the time of the start from the wall clock: read once, it does not wander with it.
  if (!host_.bootNs) {
    if (auto const text = host_.proc.text("stat")) host_.bootNs = bootTimeNs(*text);
  }
  state.leafIs(&SystemState::bootTime, host_.bootNs);
  state.leafIs(&SystemState::currentDatetime, Kel::String(rfc3339(now_.wallNs)));
}

// --- processors --------------------------------------------------------------------------------------------

void CpuSource::begin(SampleTime const& now) {
  now_ = now;
  seen_.clear();
  lines_.open(host_.proc.path("stat"));
}

bool CpuSource::advance() {
  std::string_view text;
  auto const line = lines_.next(text) ? cpuLine(text) : std::nullopt;
  if (!line) { // the processors come first
    lines_.close();
    removeUnseen();
    return false;
  }
  seen_.insert(line->number);
  auto const [at, isNew] = known_.try_emplace(line->number);
  if (!isNew) return sample(at->second, *line), true;
  at->second.ticks = line->ticks;
  at->second.wallNs = now_.wallNs;
  at->second.monotonicNs = now_.monotonicNs;
  return true;
}

void CpuSource::sample(Cpu& cpu, CpuLine const& line) {
  std::array<std::uint64_t, 8> delta{}; // a count that goes back, as waiting may, counts as none
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < delta.size(); ++i) {
    delta[i] = line.ticks.ticks[i] > cpu.ticks.ticks[i] ? line.ticks.ticks[i] - cpu.ticks.ticks[i] : 0;
    sum += delta[i];
  }
  if (sum == 0) return;
  auto const percent = [sum](std::uint64_t part) {
    return static_cast<std::uint8_t>((part * 100 + sum / 2) / sum);
  };
  using enum CpuTicks::Share;
  std::array<std::uint8_t, kShares> const instant = {percent(sum - delta[Idle] - delta[Wait]),
                                                     percent(delta[User]),
                                                     percent(delta[System]),
                                                     percent(delta[Nice]),
                                                     percent(delta[Idle]),
                                                     percent(delta[Wait]),
                                                     percent(delta[HardIrq]),
                                                     percent(delta[SoftIrq])};
  auto const span = static_cast<std::uint64_t>(now_.monotonicNs - cpu.monotonicNs);
  for (std::size_t i = 0; i < kShares; ++i)
    cpu.windows[i].push(instant[i], static_cast<std::uint64_t>(now_.wallNs), span);
  cpu.ticks = line.ticks;
  cpu.wallNs = now_.wallNs;
  cpu.monotonicNs = now_.monotonicNs;
  write(line.number, cpu, instant);
}

void CpuSource::write(std::int64_t number, Cpu const& cpu, std::array<std::uint8_t, kShares> const& instant) {
  static constexpr std::array kMembers = {&CpuState::total,
                                          &CpuState::user,
                                          &CpuState::kernel,
                                          &CpuState::nice,
                                          &CpuState::idle,
                                          &CpuState::wait,
                                          &CpuState::hardwareInterrupt,
                                          &CpuState::softwareInterrupt};
  CpuState& state = *cpus_->entryIs(&Cpus::cpu, CpuIndex{number})->state;
  for (std::size_t i = 0; i < kShares; ++i) {
    PercentStats& share = *(state.*kMembers[i]);
    auto const stats = cpu.windows[i].stats();
    share.leafIs(&PercentStats::instant, {instant[i]});
    share.leafIs(&PercentStats::avg, {static_cast<std::uint8_t>(stats.avg + 0.5)});
    share.leafIs(&PercentStats::min, {stats.min});
    share.leafIs(&PercentStats::max, {stats.max});
    share.leafIs(&PercentStats::interval, stats.interval);
    share.leafIs(&PercentStats::minTime, stats.minTime);
    share.leafIs(&PercentStats::maxTime, stats.maxTime);
  }
}

void CpuSource::removeUnseen() {
  if (seen_.empty()) return; // the file could not be read: what is known stands
  std::erase_if(known_, [this](auto const& one) { return !seen_.contains(one.first); });
  eraseUnseen(cpus_, &Cpus::cpu, [this](CpuIndex const& key) { return !seen_.contains(key.number); });
}

// --- memory ------------------------------------------------------------------------------------------------

bool MemorySource::advance() {
  auto const text = host_.proc.text("meminfo");
  if (!text) return false;
  MemInfo const info = memInfo(*text);
  host_.physicalBytes = info.total;
  MemoryState& state = *memory_->state;
  state.leafIs(&MemoryState::physical, info.total);
  state.leafIs(&MemoryState::free, info.free);
  state.leafIs(&MemoryState::available, info.available);
  bool const known = info.total && info.available && *info.available <= *info.total;
  state.leafIs(&MemoryState::used, known ? std::optional(*info.total - *info.available) : std::nullopt);
  return false;
}

// --- mount points ------------------------------------------------------------------------------------------

namespace {

constexpr std::uint64_t kMegabyte = 1'000'000;

bool isRemote(std::string_view kind) {
  return kind.starts_with("nfs") || kind.starts_with("fuse") || kind.starts_with("smb") || kind == "cifs" ||
         kind == "ceph" || kind == "9p" || kind == "virtiofs" || kind == "vboxsf" || kind == "vmhgfs" ||
         kind == "beegfs" || kind == "gpfs" || kind == "glusterfs" || kind == "afs" || kind == "ocfs2" ||
         kind == "gfs2" || kind == "lustre";
}

FilesystemType filesystemType(std::string const& kind) {
  if (kind == "ext4") return Filesystem::Ext4;
  if (kind == "tmpfs") return Filesystem::Tmpfs;
  if (kind == "overlay") return Filesystem::Overlay;
  return Kel::String(kind);
}

} // namespace

void MountSource::begin(SampleTime const&) {
  seen_.clear();
  lines_.open(host_.proc.path("self/mountinfo"));
}

bool MountSource::advance() {
  std::string_view line;
  if (lines_.next(line)) {
    if (auto const mount = mountLine(line)) sample(*mount);
    return true;
  }
  eraseUnseen(mounts_, &MountPoints::mountPoint,
              [this](Kel::String const& name) { return !seen_.contains(name.str()); });
  return false;
}

void MountSource::sample(MountLine const& mount) {
  if (mount.kind == "autofs") return; // asking would mount it
  struct statvfs stat {};
  bool const remote = isRemote(mount.kind);
  // The kernel's own file systems hold no blocks.
  if (!remote && (statFs_(mount.mountPoint.c_str(), &stat) != 0 || stat.f_blocks == 0)) return;
  std::string name = mount.mountPoint; // its bytes may have been escaped in the line
  utf8Is(name);
  seen_.insert(name);
  MountPointState& state = *mounts_->entryIs(&MountPoints::mountPoint, Kel::String(name))->state;
  state.leafIs(&MountPointState::type, filesystemType(mount.kind));
  auto const megabytes = [&](std::uint64_t blocks) {
    return remote ? std::nullopt : std::optional(blocks * stat.f_frsize / kMegabyte);
  };
  state.leafIs(&MountPointState::size, megabytes(stat.f_blocks));
  state.leafIs(&MountPointState::available, megabytes(stat.f_bavail));
  state.leafIs(&MountPointState::utilized, megabytes(stat.f_blocks - stat.f_bfree));
}

// --- name servers ------------------------------------------------------------------------------------------

bool DnsSource::advance() {
  auto const text = host_.etc.text("resolv.conf");
  if (!text) return false;
  ResolvConf const conf = resolvConf(*text);
  std::vector<Kel::String> const search(conf.search.begin(), conf.search.end());
  dns_->state->leafIs(&DnsState::search, search);
  if (!std::exchange(seeded_, true)) {
    std::vector<Kel::String> seed; // what a client could have configured
    for (Kel::String const& domain : search)
      if (publishable(domain) && std::ranges::find(seed, domain) == seed.end()) seed.push_back(domain);
    dns_->config->leafIs(&DnsConfig::search, seed);
  }
  std::set<std::string> there;
  for (std::string const& server : conf.servers)
    if (auto address = ipText(server)) there.insert(std::move(*address));
  for (std::string const& address : there) {
    auto const server = dns_->servers->entryIs(&DnsServers::server, Kel::String(address));
    server->state->leafIs(&DnsServerState::port, std::uint16_t{53});
  }
  // A server that a client configured and the machine does not use keeps its entry, without a port in its
  // state.
  eraseUnseen(dns_->servers, &DnsServers::server, [&](Kel::String const& key) {
    DnsServer const* const server = dns_->servers->server.find(key);
    return server->state->port.has_value() && !there.contains(key.str());
  });
  return false;
}

} // namespace Agent
