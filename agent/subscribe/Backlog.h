// Agent::Backlog: changes that one subscriber is not ready for yet, coalesced: of each leaf the latest value,
// and ends of paths.
//
// Invariants
// 1. A leaf waits once. Leaves are of different paths, so that they may be taken in any order; the one that
//    has waited longest goes first.
// 2. The end of a path takes away what waits at and below it; what waits afterwards came after it. So ends
//    always go first, and never wait behind leaves.
// 3. What does not fit is given up, not kept: leaves become the region they lay in, ends the end of what is
//    above them (`cut`). Whoever owns the backlog tells those regions anew.
// docs/decisions.md: "What of a slow subscriber?"
#pragma once

#include <boost/intrusive/list.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/subscribe/Message.h"

namespace gnmi {
class TypedValue;
} // namespace gnmi

namespace Agent {

// A part of its call. Paths are the canonical bytes of internal ones, which begin with the data root.
// Scheduler thread.
class Backlog {
public:
  // Whose something is: each subscription of a call has a frame of its own.
  using FramePtr = std::shared_ptr<Frame const>;

  Backlog() = default;
  ~Backlog();
  Backlog(Backlog const&) = delete;
  Backlog& operator=(Backlog const&) = delete;

  void leafIs(FramePtr const& owner, std::string path, gnmi::TypedValue const& value,
              std::uint32_t duplicates, std::int64_t timestamp);
  void endIs(FramePtr const& owner, std::string path, std::int64_t timestamp);

  // Takes all ends out.
  [[nodiscard]] std::vector<Message::Ptr> takeEnds();
  // Takes so many leaves out at most; those of one time come together. `limit`: of a response.
  [[nodiscard]] std::vector<Message::Ptr> takeLeaves(std::size_t count, std::size_t limit);

  // A walk is about to tell all of an owner's leaves at and below a path anew: they need not wait.
  void leavesDel(FramePtr const& owner, std::string_view region);

  // What has been given up of one owner: what lies at and below `region` is to be told anew. `hasEnded`: the
  // end of the region is among the ends now and stands for those that were below it.
  struct Lost {
    FramePtr owner;
    std::string region;
    bool hasEnded;
  };
  // Gives up all leaves, and of the ends so much that at most `bytes` are left; those that stand for others
  // are of the time `now`. `anchorOf` an owner: no region is above it.
  using AnchorOf = absl::FunctionRef<std::string(Frame const&)>;
  [[nodiscard]] std::vector<Lost> cut(std::size_t bytes, std::int64_t now, AnchorOf anchorOf);

  [[nodiscard]] bool empty() const noexcept { return leaves_.empty() && ends_.empty(); }
  [[nodiscard]] bool hasEnds() const noexcept { return !ends_.empty(); }
  [[nodiscard]] std::size_t leafCount() const noexcept { return leaves_.size(); }
  // How many changes took the place of one that waited, so far.
  [[nodiscard]] std::uint64_t coalesced() const noexcept { return coalesced_; }
  // Of memory.
  [[nodiscard]] std::size_t bytes() const noexcept { return bytes_; }

private:
  struct Leaf : boost::intrusive::list_base_hook<> {
    FramePtr owner;
    std::string const* path = nullptr; // the key in `leaves_`
    std::string value;                 // encoded
    std::int64_t timestamp = 0;
    std::uint32_t duplicates = 0;
  };
  using Leaves = std::map<std::string, Leaf, std::less<>>;
  // Two owners may be told of the end of one path.
  using Ends = std::map<std::pair<std::string, FramePtr>, std::int64_t>; // their times

  Leaves::iterator erase(Leaves::iterator leaf);
  Ends::iterator erase(Ends::iterator end);
  void liftRun(std::int64_t now, AnchorOf anchorOf, std::vector<Lost>& lost);

  Leaves leaves_;
  boost::intrusive::list<Leaf> order_;
  Ends ends_;
  std::size_t bytes_ = 0;
  std::uint64_t coalesced_ = 0;
};

} // namespace Agent
