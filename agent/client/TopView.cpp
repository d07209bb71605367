// Leaves sorted by list, key and name; numbers as short as people read them.
#include "agent/client/TopView.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "agent/client/ValueText.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

constexpr std::string_view kHead = "7", kTitle = "1", kSlow = "33", kQuiet = "2";

// "7", "1.2k", "34.5M".
std::string brief(double number) {
  static constexpr std::array kUnits = {"", "k", "M", "G", "T", "P", "E"};
  std::size_t unit = 0;
  for (; number >= 999.95 && unit + 1 < kUnits.size(); ++unit)
    number /= 1'000;
  return unit == 0 ? fmt::format("{:.0f}", number) : fmt::format("{:.1f}{}", number, kUnits[unit]);
}
std::string brief(std::uint64_t number) { return brief(static_cast<double>(number)); }

// "850 ns", "1.2 ms".
std::string shortTime(std::uint64_t ns) {
  auto const number = static_cast<double>(ns);
  if (ns < 1'000) return fmt::format("{} ns", ns);
  if (ns < 1'000'000) return fmt::format("{:.1f} us", number / 1e3);
  return ns < 1'000'000'000 ? fmt::format("{:.1f} ms", number / 1e6) : fmt::format("{:.1f} s", number / 1e9);
}

// "12s", "3m05s", "2h03m", "5d04h".
std::string longTime(std::uint64_t ns) {
  std::uint64_t const seconds = ns / 1'000'000'000;
  if (seconds < 60) return fmt::format("{}s", seconds);
  if (seconds < 3'600) return fmt::format("{}m{:02}s", seconds / 60, seconds % 60);
  if (seconds < 86'400) return fmt::format("{}h{:02}m", seconds / 3'600, seconds / 60 % 60);
  return fmt::format("{}d{:02}h", seconds / 86'400, seconds / 3'600 % 24);
}

// "127.0.0.1:5000" of "ipv4:127.0.0.1:5000"; brackets come escaped.
std::string peerText(std::string_view peer) {
  if (peer.starts_with("ipv4:") || peer.starts_with("ipv6:")) peer.remove_prefix(5);
  std::string text(peer);
  for (auto const& [escaped, plain] : {std::pair("%5B", "["), std::pair("%5D", "]")})
    if (std::size_t const at = text.find(escaped); at != text.npos) text.replace(at, 3, plain);
  return printable(text);
}

std::uint64_t since(std::uint64_t then, std::uint64_t now) { return now > then ? now - then : 0; }

struct Column {
  std::string_view title;
  std::size_t width;
  bool isText;
  int rank; // where there is no room for all, those of the highest rank go
};
constexpr std::array<Column, 12> kColumns = {{{"id", 6, false, 1},
                                              {"peer", 24, true, 0},
                                              {"user", 12, true, 5},
                                              {"mode", 6, true, 8},
                                              {"age", 6, false, 7},
                                              {"leaves/s", 8, false, 0},
                                              {"bytes/s", 8, false, 2},
                                              {"sent", 8, false, 9},
                                              {"queued", 8, false, 3},
                                              {"waiting", 8, false, 4},
                                              {"coalesced", 9, false, 10},
                                              {"restarts", 8, false, 6}}};
constexpr int kRanks = 11;
using Cells = std::array<std::string, kColumns.size()>;

// Of how many ranks there is room for the columns; for the first one at least.
int ranksIn(std::size_t width) {
  std::size_t used = 0;
  for (int rank = 0; rank < kRanks; ++rank) {
    for (Column const& column : kColumns)
      used += column.rank != rank ? 0 : used == 0 ? column.width : 1 + column.width;
    if (used > width) return std::max(rank, 1);
  }
  return kRanks;
}

std::string rowText(Cells const& cells, std::size_t width) {
  std::string row;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    Column const& column = kColumns[i];
    if (column.rank >= ranksIn(width)) continue;
    if (!row.empty()) row += ' ';
    row += column.isText ? fmt::format("{:<{}.{}}", cells[i], column.width, column.width)
                         : fmt::format("{:>{}}", cells[i], column.width);
  }
  return row;
}

} // namespace

std::string_view topSortName(TopSort sort) {
  static constexpr std::array<std::string_view, kTopSorts> kNames = {
      "leaves/s", "bytes/s", "sent", "queued", "waiting", "coalesced", "restarts", "age"};
  return kNames[static_cast<std::size_t>(sort)];
}

std::uint64_t TopView::Entry::number(std::string_view leaf) const {
  auto const found = numbers.find(leaf);
  return found == numbers.end() ? 0 : found->second;
}

std::string_view TopView::Entry::text(std::string_view leaf) const {
  auto const found = texts.find(leaf);
  return found == texts.end() ? std::string_view() : std::string_view(found->second);
}

bool TopView::take(gnmi::GetResponse const& response) {
  Groups groups;
  for (gnmi::Notification const& notification : response.notification()) {
    for (gnmi::Update const& update : notification.update()) {
      std::vector<gnmi::PathElem const*> elems;
      for (gnmi::PathElem const& elem : notification.prefix().elem())
        elems.push_back(&elem);
      for (gnmi::PathElem const& elem : update.path().elem())
        elems.push_back(&elem);
      if (elems.size() < 3) continue; // ondra-agent/GROUP[/ENTRY[KEY]]/state/LEAF
      std::string group = elems[1]->name();
      std::string key;
      for (gnmi::PathElem const* elem : elems)
        if (!elem->key().empty()) key = elem->key().begin()->second;
      Entry& entry = groups[std::move(group)][std::move(key)];
      if (update.val().has_string_val())
        entry.texts[elems.back()->name()] = update.val().string_val();
      else
        entry.numbers[elems.back()->name()] = update.val().uint_val();
    }
  }
  if (groups.empty()) return false;
  Entries const& before = entries("streams");
  for (auto& [key, stream] : groups["streams"]) {
    auto const known = before.find(key);
    rate(stream, known == before.end() ? nullptr : &known->second);
  }
  groups_ = std::move(groups);
  return true;
}

// Since the figures before it; of a new one since its beginning.
void TopView::rate(Entry& stream, Entry const* before) const {
  std::uint64_t const now = stream.number("time");
  std::uint64_t const then = before == nullptr ? stream.number("start-time") : before->number("time");
  if (before != nullptr && now <= then) { // they have not been taken anew
    stream.leavesPerSecond = before->leavesPerSecond;
    stream.bytesPerSecond = before->bytesPerSecond;
    return;
  }
  double const seconds = static_cast<double>(since(then, now)) / 1e9;
  auto const perSecond = [&](char const* leaf) {
    std::uint64_t const sent = since(before == nullptr ? 0 : before->number(leaf), stream.number(leaf));
    return seconds > 0 ? static_cast<double>(sent) / seconds : 0;
  };
  stream.leavesPerSecond = perSecond("sent-leaves");
  stream.bytesPerSecond = perSecond("sent-bytes");
}

TopView::Entries const& TopView::entries(std::string_view group) const {
  static Entries const none;
  auto const found = groups_.find(group);
  return found == groups_.end() ? none : found->second;
}

TopView::Entry const* TopView::one(std::string_view group) const {
  Entries const& all = entries(group);
  return all.empty() ? nullptr : &all.begin()->second;
}

std::string TopView::timesLine() const {
  std::string line;
  for (char const* const what : {"slices", "store"}) {
    Entry const* const times = one(what);
    if (times == nullptr) continue;
    line += fmt::format("{}{:<8} p50 {}, p99 {}, p99.9 {}, longest {}", line.empty() ? "" : "   ", what,
                        shortTime(times->number("p50")), shortTime(times->number("p99")),
                        shortTime(times->number("p999")), shortTime(times->number("longest")));
  }
  return line;
}

TopLine TopView::streamLine(Entry const& stream, std::size_t columns) const {
  std::uint64_t const waiting = stream.number("waiting-leaves");
  std::uint64_t const queued = stream.number("queued-bytes");
  Cells const cells = {fmt::format("{}", stream.number("id")),
                       peerText(stream.text("peer")),
                       printable(stream.text("user")),
                       printable(stream.text("mode")),
                       longTime(since(stream.number("start-time"), stream.number("time"))),
                       brief(stream.leavesPerSecond),
                       brief(stream.bytesPerSecond),
                       brief(stream.number("sent-leaves")),
                       brief(queued),
                       brief(waiting),
                       brief(stream.number("coalesced-changes")),
                       brief(stream.number("restarts"))};
  bool const isSlow = waiting > 0 || queued > 0;
  bool const isQuiet = stream.leavesPerSecond < 0.05;
  return {rowText(cells, columns), isSlow ? kSlow : isQuiet ? kQuiet : std::string_view()};
}

std::vector<TopLine> TopView::lines(std::string_view address, TopSort sort, std::size_t columns) const {
  auto const valueOf = [sort](Entry const& stream) -> double {
    switch (sort) {
    case TopSort::Leaves: return stream.leavesPerSecond;
    case TopSort::Bytes: return stream.bytesPerSecond;
    case TopSort::Sent: return static_cast<double>(stream.number("sent-leaves"));
    case TopSort::Queued: return static_cast<double>(stream.number("queued-bytes"));
    case TopSort::Waiting: return static_cast<double>(stream.number("waiting-leaves"));
    case TopSort::Coalesced: return static_cast<double>(stream.number("coalesced-changes"));
    case TopSort::Restarts: return static_cast<double>(stream.number("restarts"));
    case TopSort::Age: return -static_cast<double>(stream.number("start-time"));
    }
    return 0;
  };
  std::vector<Entry const*> streams;
  double leaves = 0, bytes = 0;
  for (auto const& [key, stream] : entries("streams")) {
    streams.push_back(&stream);
    leaves += stream.leavesPerSecond;
    bytes += stream.bytesPerSecond;
  }
  std::ranges::sort(streams, [&](Entry const* a, Entry const* b) {
    return std::pair(-valueOf(*a), a->number("id")) < std::pair(-valueOf(*b), b->number("id"));
  });
  Entry const* const whole = one("state");
  std::vector<TopLine> lines;
  lines.push_back(
      {fmt::format("ondra-agent at {}   up {}   {} streams   {} leaves/s   {} bytes/s", address,
                   whole == nullptr ? "?"
                                    : longTime(since(whole->number("start-time"), whole->number("time"))),
                   streams.size(), brief(leaves), brief(bytes)),
       kTitle});
  auto const listed = [&](char const* title, char const* group, auto const& textOf) {
    std::string line;
    for (auto const& [key, entry] : entries(group))
      line += fmt::format("{}{} {}", line.empty() ? "" : ", ", printable(key), textOf(entry));
    lines.push_back({fmt::format("{:<8} {}", title, line.empty() ? "none" : line)});
  };
  listed("calls", "calls", [](Entry const& call) { return brief(call.number("begun")); });
  listed("refused", "refusals", [](Entry const& refusal) { return brief(refusal.number("count")); });
  listed("memory", "memory", [](Entry const& budget) {
    return fmt::format("{}/{}", brief(budget.number("used")), brief(budget.number("limit")));
  });
  lines.push_back({timesLine()});
  lines.push_back({});
  Cells titles;
  std::ranges::transform(kColumns, titles.begin(),
                         [](Column const& column) { return std::string(column.title); });
  lines.push_back({rowText(titles, columns), kHead});
  for (Entry const* const stream : streams)
    lines.push_back(streamLine(*stream, columns));
  return lines;
}

std::string topLineText(TopLine const& line, std::size_t columns, bool isColour) {
  std::size_t end = 0;
  for (std::size_t shown = 0; end < line.text.size(); ++end) {
    bool const begins = (static_cast<unsigned char>(line.text[end]) & 0xc0) != 0x80; // a character
    if (begins && shown++ == columns) break;
  }
  std::string text = line.text.substr(0, end);
  return isColour && !line.colour.empty() ? fmt::format("\x1b[{}m{}\x1b[0m", line.colour, text) : text;
}

} // namespace Agent
