// Agent::Staging: what a Set has changed and nobody may see yet, with what must not overtake it.
//
// Invariants
// 1. Changes of the Set wait, those of its removals before the others. When all has been written they are
//    told, or forgotten.
// 2. What others change meanwhile passes by, unless it concerns a place of which something waits, or what
//    lies above or below it: then it waits too, in the order in which it came.
// 3. Of what waits, a path has its last value alone: an entry that is made and then written is told as it
//    ends.
#pragma once

#include <absl/container/flat_hash_set.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "agent/context/ByteBudget.h"

namespace gnmi {
class Notification;
} // namespace gnmi
namespace Ondra {
class ArenaRespMsg;
} // namespace Ondra
namespace Tovak {
class Task;
} // namespace Tovak

namespace Agent {

// Of one Set. Scheduler thread.
class Staging {
public:
  using Response = std::shared_ptr<Ondra::ArenaRespMsg>;
  enum class Whose : std::uint8_t { Own, OwnRemoval, Other };

  // `budget`: what waits is counted there, whatever is left.
  explicit Staging(std::shared_ptr<ByteBudget> budget) : budget_(*budget), share_(std::move(budget)) {}

  // Whether it waits here; else it passes by.
  [[nodiscard]] bool take(Response const& response, Whose whose);
  // What is small always has; others may be over the budget for a moment.
  [[nodiscard]] bool hasRoom() const noexcept { return share_.bytes() < kSmallBytes || !budget_.isOver(); }
  // Of the Set all is forgotten but what lies at and below `kept`, canonical bytes of paths. It is given
  // back, to be let go elsewhere.
  [[nodiscard]] std::vector<Response> drop(std::span<std::string const> kept);

  // Makes it ready to be told; false when the task's slice is over before.
  [[nodiscard]] bool settleSome(Tovak::Task const& task);
  // The next to be told, once settled; null when that was all.
  [[nodiscard]] Response next();

private:
  static constexpr std::size_t kSmallBytes = 64 * 1024;
  struct Waiting {
    Response response;
    bool isOwn;
  };
  [[nodiscard]] bool concernsWhatWaits(gnmi::Notification const& notification) const;
  [[nodiscard]] bool waitsAbove(std::string_view bytes) const;
  [[nodiscard]] bool waitsBelow(std::string_view bytes) const;
  void enter(gnmi::Notification const& notification);
  void enter(std::string bytes);

  ByteBudget const& budget_;
  ByteBudget::Share share_;
  std::deque<Waiting> removals_;
  std::deque<Waiting> others_; // all else
  std::size_t unsettled_ = 0;  // of these, the first ones; none when nothing is settled
  bool isSettling_ = false;
  absl::flat_hash_set<std::string> later_; // paths of those that are settled
  // Containers of which something waits, and ends of paths; by canonical bytes.
  std::set<std::string, std::less<>> places_;
  bool hasOthers_ = false; // something that waits is not the Set's
};

} // namespace Agent
