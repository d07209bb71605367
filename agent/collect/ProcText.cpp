// Words, lines and numbers first, then a reader for each format. Nothing here opens a file.
#include "agent/collect/ProcText.h"

#include <charconv>
#include <numeric>

namespace Agent {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

// "\040" and the like, as the kernel writes blanks and backslashes in mount points.
std::string unescaped(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned code = 0;
    if (text[i] == '\\' && i + 3 < text.size() &&
        std::from_chars(text.data() + i + 1, text.data() + i + 4, code, 8).ptr == text.data() + i + 4) {
      plain += static_cast<char>(code);
      i += 3;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

bool skipWords(std::string_view& text, int count) {
  std::string_view word;
  while (count-- > 0)
    if (!nextWord(text, word)) return false;
  return true;
}

} // namespace

bool nextLine(std::string_view& text, std::string_view& line) {
  if (text.empty()) return false;
  std::size_t const end = text.find('\n');
  line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return true;
}

bool nextWord(std::string_view& text, std::string_view& word) {
  std::size_t const begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return false;
  text.remove_prefix(begin);
  word = text.substr(0, text.find_first_of(kBlanks));
  text.remove_prefix(word.size());
  return true;
}

std::optional<std::uint64_t> numberOf(std::string_view text) {
  std::uint64_t number = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::optional<std::uint64_t> nextNumber(std::string_view& text) {
  std::string_view word;
  return nextWord(text, word) ? numberOf(word) : std::nullopt;
}

std::string_view trimmed(std::string_view text) {
  std::size_t const begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

std::uint64_t CpuTicks::sum() const { return std::accumulate(ticks.begin(), ticks.end(), std::uint64_t{0}); }

std::optional<CpuLine> cpuLine(std::string_view line) {
  std::string_view word;
  if (!nextWord(line, word) || !word.starts_with("cpu")) return std::nullopt;
  CpuLine cpu;
  if (word.size() > 3) {
    auto const number = numberOf(word.substr(3));
    if (!number || *number > UINT32_MAX) return std::nullopt;
    cpu.number = static_cast<std::int64_t>(*number);
  }
  std::size_t share = 0;
  for (; share < cpu.ticks.ticks.size(); ++share) {
    auto const ticks = nextNumber(line);
    if (!ticks) break;
    cpu.ticks.ticks[share] = *ticks;
  }
  if (share <= CpuTicks::Idle) return std::nullopt;
  return cpu;
}

MemInfo memInfo(std::string_view text) {
  MemInfo info;
  std::string_view line;
  while (nextLine(text, line)) {
    std::size_t const colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    std::string_view const name = line.substr(0, colon);
    auto* const value = name == "MemTotal"       ? &info.total
                        : name == "MemFree"      ? &info.free
                        : name == "MemAvailable" ? &info.available
                                                 : nullptr;
    if (value == nullptr) continue;
    line.remove_prefix(colon + 1);
    if (auto const kibibytes = nextNumber(line)) *value = *kibibytes * 1024;
  }
  return info;
}

std::optional<ProcessStat> processStat(std::string_view text) {
  // The name stands in parentheses and may hold anything, parentheses too.
  std::size_t const open = text.find('('), close = text.rfind(')');
  if (open == std::string_view::npos || close == std::string_view::npos || close < open) return std::nullopt;
  ProcessStat stat;
  stat.name = text.substr(open + 1, close - open - 1);
  text.remove_prefix(close + 1);
  if (!skipWords(text, 11)) return std::nullopt; // state ... cmajflt
  auto const user = nextNumber(text), system = nextNumber(text);
  if (!skipWords(text, 6)) return std::nullopt; // cutime ... itrealvalue
  auto const start = nextNumber(text);
  if (!skipWords(text, 1)) return std::nullopt; // vsize
  auto const resident = nextNumber(text);
  if (!user || !system || !start || !resident) return std::nullopt;
  stat.userTicks = *user;
  stat.systemTicks = *system;
  stat.startTicks = *start;
  stat.residentPages = *resident;
  return stat;
}

std::vector<std::string_view> commandLine(std::string_view text) {
  std::vector<std::string_view> words;
  while (!text.empty()) {
    std::size_t const end = text.find('\0');
    words.push_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  // Programs that rewrite their arguments leave a tail of empty ones.
  while (!words.empty() && words.back().empty())
    words.pop_back();
  return words;
}

std::optional<MountLine> mountLine(std::string_view line) {
  std::string_view word, mountPoint, kind;
  if (!skipWords(line, 4) || !nextWord(line, mountPoint)) return std::nullopt;
  do { // optional fields end with a dash
    if (!nextWord(line, word)) return std::nullopt;
  } while (word != "-");
  if (!nextWord(line, kind)) return std::nullopt;
  return MountLine{unescaped(mountPoint), std::string(kind)};
}

std::optional<NetDevLine> netDevLine(std::string_view line) {
  // A name may itself hold a colon; the last one ends it.
  std::size_t const colon = line.rfind(':');
  if (colon == std::string_view::npos) return std::nullopt;
  NetDevLine dev;
  dev.name = trimmed(line.substr(0, colon));
  line.remove_prefix(colon + 1);
  std::array<std::uint64_t, 16> columns{};
  for (auto& column : columns) {
    auto const number = nextNumber(line);
    if (!number) return std::nullopt;
    column = *number;
  }
  dev.inOctets = columns[0];
  dev.inPkts = columns[1];
  dev.inErrors = columns[2];
  dev.inDiscards = columns[3];
  dev.inMulticastPkts = columns[7];
  dev.outOctets = columns[8];
  dev.outPkts = columns[9];
  dev.outErrors = columns[10];
  dev.outDiscards = columns[11];
  return dev;
}

ResolvConf resolvConf(std::string_view text) {
  ResolvConf conf;
  std::string_view line, word;
  while (nextLine(text, line)) {
    line = line.substr(0, line.find_first_of("#;"));
    if (!nextWord(line, word)) continue;
    if (word == "nameserver") {
      if (nextWord(line, word)) conf.servers.emplace_back(word);
    } else if (word == "search" || word == "domain") { // the last of them holds
      conf.search.clear();
      while (nextWord(line, word))
        conf.search.emplace_back(word);
    }
  }
  return conf;
}

std::optional<std::string> assignedValue(std::string_view text, std::string_view name) {
  std::string_view line;
  while (nextLine(text, line)) {
    if (!line.starts_with(name) || line.size() <= name.size() || line[name.size()] != '=') continue;
    std::string_view value = trimmed(line.substr(name.size() + 1));
    if (value.size() >= 2 && value.front() == value.back() && (value.front() == '"' || value.front() == '\''))
      value = value.substr(1, value.size() - 2);
    return std::string(value);
  }
  return std::nullopt;
}

std::optional<std::string> colonValue(std::string_view text, std::string_view name) {
  std::string_view line;
  while (nextLine(text, line)) {
    std::size_t const colon = line.find(':');
    if (colon != std::string_view::npos && trimmed(line.substr(0, colon)) == name)
      return std::string(trimmed(line.substr(colon + 1)));
  }
  return std::nullopt;
}

} // namespace Agent
