// What `ondra-agent top` shows: an agent's figures as lines. Pure.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gnmi {
class GetResponse;
} // namespace gnmi

namespace Agent {

// By which column streams are sorted, the largest first.
enum class TopSort : std::uint8_t { Leaves, Bytes, Sent, Queued, Waiting, Coalesced, Restarts, Age };
inline constexpr std::uint8_t kTopSorts = 8;
[[nodiscard]] std::string_view topSortName(TopSort sort);

struct TopLine {
  std::string text;
  std::string_view colour = {}; // of a terminal; empty: as ever
};

// Holds the figures of two moments: rates are what lies between them.
class TopView {
public:
  // Of `/ondra-agent`, in PROTO. False, and nothing changes, when there is nothing of it.
  [[nodiscard]] bool take(gnmi::GetResponse const& response);

  // The agent as a whole, then its streams: of their figures those that there is room for. `address`: what it
  // is called.
  [[nodiscard]] std::vector<TopLine> lines(std::string_view address, TopSort sort, std::size_t columns) const;

private:
  struct Entry { // of a list, or a container by itself
    std::map<std::string, std::uint64_t, std::less<>> numbers;
    std::map<std::string, std::string, std::less<>> texts;
    double leavesPerSecond = 0; // of a stream
    double bytesPerSecond = 0;

    [[nodiscard]] std::uint64_t number(std::string_view leaf) const;
    [[nodiscard]] std::string_view text(std::string_view leaf) const;
  };
  using Entries = std::map<std::string, Entry, std::less<>>; // by key; empty for a container
  using Groups = std::map<std::string, Entries, std::less<>>;

  void rate(Entry& stream, Entry const* before) const;
  [[nodiscard]] Entries const& entries(std::string_view group) const;
  [[nodiscard]] Entry const* one(std::string_view group) const;
  [[nodiscard]] std::string timesLine() const;
  [[nodiscard]] TopLine streamLine(Entry const& stream, std::size_t columns) const;

  Groups groups_;
};

// Cut to so many columns, with or without colours; without a line end.
[[nodiscard]] std::string topLineText(TopLine const& line, std::size_t columns, bool isColour);

} // namespace Agent
