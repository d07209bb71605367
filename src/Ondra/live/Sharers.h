// Ondra::Sharers: the members of a watched object's collections that have one path together.
//
// A member under a reference that leads nowhere has "nullptr" in its key, and so have all others of the kind.
// A walk sends them one over the other, in key order: of each leaf the last member that has it is seen. Where
// all members have the same leaves that is the last member, and the others need not be sent.
// docs/decisions.md: "What is seen of members whose references lead nowhere?"
#pragma once

#include <absl/container/btree_set.h>

#include <cstddef>
#include <optional>
#include <vector>

#include "Kel/Allocator.h"
#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kel/Scalars.h"
#include "Kstd/Export.h"
#include "Ondra/Path.h"

namespace Ondra {

// Of one notifiee. Paths are relative to its prefix; keys are those of attribute states: detached, of a
// wrapped reference the reference. Joining and leaving take a time that hardly grows with their number.
// Scheduler thread only.
class KTD_EXPORT Sharers {
public:
  using Key = Kel::Ptr<Kel::GenericIf const>;
  using PathPtr = Kel::Ptr<Path const>;

  // Whether members can meet at that path.
  [[nodiscard]] static bool isShared(Path const& path);

  void add(Kel::AttributeId id, PathPtr const& path, Key const& key) { members_.insert({id, path, key}); }
  void del(Kel::AttributeId id, PathPtr const& path, Key const& key) { members_.erase({id, path, key}); }
  // The last in key order; nothing when there is none.
  [[nodiscard]] std::optional<Key> last(Kel::AttributeId id, PathPtr const& path) const;
  // In key order.
  [[nodiscard]] std::vector<Key> all(Kel::AttributeId id, PathPtr const& path) const;

private:
  struct Member {
    Kel::AttributeId id;
    PathPtr path;
    Key key;
  };
  struct Place { // of all members that share it
    Kel::AttributeId id;
    Path const& path;
  };
  struct Order {
    using is_transparent = void;
    bool operator()(Member const& a, Member const& b) const;
    bool operator()(Member const& a, Place const& b) const;
    bool operator()(Place const& a, Member const& b) const;
  };
  absl::btree_set<Member, Order, Kel::MemAllocator<Member, Sharers>> members_;
};

} // namespace Ondra
