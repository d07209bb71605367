// Changes that were told while a walk was running.
//
// Invariants
// 1. A change waits at most once, and whoever tells it again while it waits is served by that run.
// 2. A change of the model that was told is run after it was told: in this go or, when the model goes on
//    changing because its changes are sent, in a later one. So the last value is sent.
// 3. A go ends. What is told while a change runs is one link further from where the go began, and there is a
//    last link.
// docs/decisions.md: "What if a change changes something again?"
#pragma once

#include <absl/container/btree_set.h>
#include <absl/container/flat_hash_map.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <utility>

#include "Kel/Allocator.h"
#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kel/Scalars.h"
#include "Ondra/AttrStateMap.h"
#include "Ondra/Path.h"

namespace Ondra {

class GifGnmiNotifiee;

// Kept, each once, in the order in which they came, and run when the walks have unwound. There is one.
// Scheduler thread only.
class Pending {
public:
  static Pending& instance();

  enum class Cause : bool {
    Model, // the model says so
    Path,  // a path that the attribute shows is another one
  };
  void add(GifGnmiNotifiee& notifiee, Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key,
           Cause cause);
  // What is to be seen at a path that members share may be another member. Run when no other change waits, so
  // that it is sent once.
  void addSharers(GifGnmiNotifiee& notifiee, Kel::AttributeId id, Kel::Ptr<Path const> const& path);
  // Runs what waits and what comes to wait by that. REQUIRES that no walk is running. Called from within
  // itself, does nothing.
  void run();
  void clear();

private:
  struct Change {
    Kel::Ptr<GifGnmiNotifiee> notifiee;
    AttrStateNode what; // attribute and detached key
    Kel::Ptr<Kel::GenericIf const> key;
    friend bool operator==(Change const& a, Change const& b) {
      return a.notifiee == b.notifiee && a.what == b.what;
    }
    template <typename H>
    friend H AbslHashValue(H h, Change const& change) {
      return H::combine(std::move(h), change.notifiee.get(), change.what);
    }
  };
  // A reference's text can hold the path of what refers to it, through keys: such paths change each other
  // without end, longer each time. Other chains are as long as references are nested.
  static constexpr int kMaxPathLinks = 64;
  // Of a model that changes because it is printed or sent.
  static constexpr int kMaxLinks = 1000;

  struct Shared {
    Kel::Ptr<GifGnmiNotifiee> notifiee;
    Kel::AttributeId id;
    Kel::Ptr<Path const> path; // relative to the notifiee's prefix
    bool operator<(Shared const& other) const;
  };

  using Queue = std::deque<
      Change, Kel::MemAllocator<Change, Pending>>; // all or nothing: there is no want of memory between them

  Queue queue_;
  Queue later_; // for the next go
  absl::flat_hash_map<Change, int, absl::Hash<Change>, std::equal_to<Change>,
                      Kel::MemAllocator<std::pair<Change const, int>, Pending>>
      waiting_;   // what is in either: its distance from where the go began
  int links_ = 0; // of what is told now
  absl::btree_set<Shared, std::less<Shared>, Kel::MemAllocator<Shared, Pending>> shared_;
  bool running_ = false;
};

} // namespace Ondra
