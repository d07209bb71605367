// Ondra::StandIns: containers that are watched through a notifiee above them. Of what a list entry is made
// of, most never changes; a notifiee, its path and its places in the registry weigh more than the container.
//
// Invariants
// 1. A stand-in is a registered notifiee. Whom it stands in for is an entity below its object by single
//    attributes, each of which has the stand-in or a notifiee of its own that is held by it, and all of whose
//    attributes have been walked at the one time that the stand-in knows, or are just being (`Progress`).
// 2. Nobody else observes such an entity. Before somebody joins its observers or is told of it, and when its
//    notifiee is looked for, by path or by object, the notifiee is made, and those between. From then on it is
//    like any other.
// 3. Where the watching of a path ends, so does that of all below it, whoever stands in for them.
// 4. What is sent does not depend on who has a notifiee and who has not, times included.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Kel/Entity.h"
#include "Kel/Notifiee.h"
#include "Ondra/GifNotifiee.h"
#include "Ondra/Path.h"

namespace Ondra::StandIns {

// On the stack of a walk that is the first to go over an entity for which somebody stands in: if its notifiee
// is made meanwhile, by whomever, that has times of what has been walked, and no others.
class Progress {
public:
  explicit Progress(Kel::Entity const& entity) noexcept : entity_(entity), outer_(innermost_) {
    innermost_ = this;
  }
  ~Progress() { innermost_ = outer_; }
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;

  std::size_t walked = 0; // so many attributes
  // The positions that have been walked of an entity.
  [[nodiscard]] static std::uint64_t of(Kel::Entity const& entity) noexcept;

private:
  static Progress* innermost_;

  Kel::Entity const& entity_;
  Progress* const outer_;
};

// The stand-in in the list of observers of an object below: the notifiee `at`, or one that holds it. Null
// when none of these stands there.
[[nodiscard]] GifGnmiNotifiee* in(Kel::NotifieeList const& list, GifGnmiNotifiee& at) noexcept;
// Has the notifiee stand in for an entity that nobody observes and all of whose attributes are walked at this
// time. False, and nothing is done, when it stands in for others that were walked at another time. REQUIRES
// what invariant 1 says, and that nobody has the path of the entity.
[[nodiscard]] bool begin(GifGnmiNotifiee& standIn, Kel::Entity const& entity);

// The notifiee of an entity that this one stands in for, or has stood in for; made when it has none. Null
// when it is not watched any more.
GifGnmiNotifiee* notifieeOf(GifGnmiNotifiee& standIn, Kel::Entity const& entity);
// The notifiee of an entity whose list has been emptied of the stand-in. Null when it is not watched any
// more. There is no going back: where there is no memory for it, the process ends.
GifGnmiNotifiee* made(GifGnmiNotifiee& standIn, Kel::Entity const& entity);
// That of the entity at that path, for which somebody stands in; else null.
GifGnmiNotifiee* madeAt(Path const& path);
// Makes those of all entities below the notifiee's for which it or one that holds it stands in.
void makeBelow(GifGnmiNotifiee& notifiee);
// Ends the watching of these.
void end(GifGnmiNotifiee& notifiee);
// All watching has ended. A host that has taken the object away from a stand-in has left some uncounted.
void forgetAll() noexcept;

[[nodiscard]] std::size_t count() noexcept; // how many are stood in for

} // namespace Ondra::StandIns
