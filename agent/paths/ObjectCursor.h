// Agent::ObjectCursor: the objects that a pattern matches, one at a time, in the order of declaration and of
// keys.
//
// Invariants
// 1. Between two calls it holds no object of the model, only the attribute and the key it stands at on each
//    level. What has gone meanwhile is passed over; what has come is found when it lies ahead.
// 2. Its memory does not grow with the number of objects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "Kel/Attr.h"
#include "Kel/Entity.h"
#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Ondra/Path.h"
#include "Ondra/WalkReach.h"
#include "agent/paths/Pattern.h"

namespace Agent {

// Scheduler thread. The pattern outlives it.
class ObjectCursor {
public:
  enum class Result : std::uint8_t {
    Found,  // `object` and `path` are the next one
    Paused, // has looked at enough for one go; call again
    End,
  };

  explicit ObjectCursor(Pattern const& pattern) : pattern_(pattern) {}

  // Looks at `kMembersAtATime` members at most.
  [[nodiscard]] Result next();
  // Of the last `Found`; the data root for a pattern that names no object. Asked for once: the cursor lets go
  // of it.
  [[nodiscard]] Kel::Ptr<Kel::Entity> takeObject() { return std::move(object_); }
  // Until the next call.
  [[nodiscard]] Kel::Ptr<Ondra::Path const> path() const {
    return path_;
  } // internal, from the root of the model

  // Whether what lies at a path (without the data root) is still to be found, or in an object that has been:
  // the last one, which may be on its way, counts as passed. Unknown behind a name that is a wildcard.
  [[nodiscard]] Ondra::WalkReach reach(PathView const& path) const;

  static constexpr std::size_t kMembersAtATime = 512;

private:
  using Handle = Kel::Ptr<Kel::GenericIf const>;
  struct Level {
    std::size_t position = 0; // among the attributes
    Handle key;               // detached; null for what has none
  };

  Result descend(std::size_t depth, Kel::Ptr<Kel::Entity> const& object, bool onTheWay);
  Result descendAttr(std::size_t depth, Handle const& object, Kel::KelAttr attr, bool onTheWay);
  Result descendMembers(std::size_t depth, Handle const& object, Kel::KelAttr attr, bool onTheWay);
  Result descendInto(std::size_t depth, std::size_t position, Handle const& key, Handle const& value,
                     Kel::Ptr<Ondra::PathElem const> elem, bool onTheWay);
  Result pauseBefore(std::size_t depth, std::size_t position, Handle const& key);

  Pattern const& pattern_;
  std::vector<Level> standing_; // where it stands, from the data root down
  bool started_ = false;
  bool wasFound_ = false; // what it stands at has been given; else it is looked at next
  std::size_t budget_ = 0;
  std::vector<Kel::Ptr<Ondra::PathElem const>> elems_; // on the way down
  Kel::Ptr<Ondra::Path> path_;
  Kel::Ptr<Kel::Entity> object_;
};

} // namespace Agent
