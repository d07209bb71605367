// Changes that were told while a walk was running.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstddef>
#include <deque>

#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kel/Scalars.h"
#include "Ondra/AttrStateMap.h"

namespace Ondra {

class GifGnmiNotifiee;

// Kept, each once, in the order in which they came, and run when the walks have unwound. There is one. Scheduler thread only.
class Pending {
public:
  static Pending& instance();

  void add(GifGnmiNotifiee& notifiee, Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key);
  // Runs what waits and what comes to wait by that. REQUIRES that no walk is running. Called from within itself, does nothing.
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
  struct Count {
    bool waiting = false;
    int runs = 0;
  };
  // Objects whose paths hold each other's can make each other stale without end: in one go each change is run this often at most.
  static constexpr int kMaxRuns = 4;

  std::deque<Change> queue_;
  absl::flat_hash_map<Change, Count> seen_; // since the queue was last empty
  bool running_ = false;
};

} // namespace Ondra
