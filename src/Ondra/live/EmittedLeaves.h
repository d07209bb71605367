// Ondra::EmittedLeaves: what was last sent of attributes whose leaves can come and go, or whose path can
// change.
#pragma once

#include <absl/container/node_hash_map.h>

#include <functional>
#include <utility>
#include <vector>

#include "Kel/Allocator.h"
#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kel/Scalars.h"
#include "Ondra/AttrStateMap.h"
#include "Ondra/Path.h"
#include "Ondra/live/Sharers.h"

namespace Ondra {

// Kept beside the attribute states of one notifiee, for few attributes: those that hold a structure with
// parts that can be absent (the leaves sent by the last notification are remembered), and members under a
// reference (the path, which holds the reference's text of that time). Scheduler thread only.
class EmittedLeaves {
public:
  using Key = Kel::Ptr<Kel::GenericIf const>;
  using Paths = std::vector<Kel::Ptr<Path const>, Kel::MemAllocator<Kel::Ptr<Path const>, EmittedLeaves>>;
  struct Record {
    Paths leaves;             // relative to the notifiee's prefix
    bool leavesKnown = false; // no notification has sent the attribute yet: what a walk sent is not kept
    Kel::Ptr<Path const> memberPath; // relative likewise; null when it follows from the key alone
  };

  // Null when nothing is known of it.
  [[nodiscard]] Record* find(Kel::AttributeId id, Key const& key) {
    auto const found = records_.find(AttrStateNode(id, key));
    return found == records_.end() ? nullptr : &found->second;
  }
  Record& get(Kel::AttributeId id, Key const& key) { return records_[AttrStateNode(id, key)]; }
  void del(Kel::AttributeId id, Key const& key) { records_.erase(AttrStateNode(id, key)); }
  // The members with a path in common.
  [[nodiscard]] Sharers& sharers() noexcept { return sharers_; }

private:
  // The node serves as the pair of id and detached key.
  absl::node_hash_map<AttrStateNode, Record, absl::Hash<AttrStateNode>, std::equal_to<AttrStateNode>,
                      Kel::MemAllocator<std::pair<AttrStateNode const, Record>, EmittedLeaves>>
      records_;
  Sharers sharers_;
};

} // namespace Ondra
