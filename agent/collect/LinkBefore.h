// What a link had before clients first wanted it otherwise, and the text by which that outlives the process.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "agent/model/LinkChange.h"

namespace Agent {

// As far as it has been changed. A plain value.
struct LinkBefore {
  int ifindex = 0; // of the link that had it
  std::optional<std::string> description = {};
  std::optional<std::uint32_t> mtu = {};
  std::optional<bool> enabled = {};
  std::set<LinkAddress> added = {};     // have been added,
  std::set<LinkAddress> displaced = {}; // and these taken away for one of the same IP

  [[nodiscard]] bool isEmpty() const {
    return !description && !mtu && !enabled && added.empty() && displaced.empty();
  }
  // Where this says nothing, what the other one says of the same link.
  void otherwise(LinkBefore const& other);

  // Empty when there is nothing to remember. `boot` names the start of the machine, as `bootName` does: the
  // next one makes all links anew.
  [[nodiscard]] std::string text(std::string_view boot) const;
  // None of no such text, and of one of another start.
  [[nodiscard]] static std::optional<LinkBefore> of(std::string_view text, std::string_view boot);
};

[[nodiscard]] std::string bootName();

// Of two texts for one link, of which the first counts where both say something.
[[nodiscard]] std::string mergedBefore(std::string_view first, std::string_view second);

} // namespace Agent
