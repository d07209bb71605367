// A set ordered by attribute, path and key, asked for the last or all of one place.
#include "Ondra/live/Sharers.h"

#include <algorithm>

#include "Ondra/paths/PathOrder.h"

namespace Ondra {
namespace {

int comparePlaces(Kel::AttributeId idA, Path const& a, Kel::AttributeId idB, Path const& b) {
  return idA != idB ? (idA < idB ? -1 : 1) : comparePaths(a, b);
}

int compareKeys(Sharers::Key const& a, Sharers::Key const& b) {
  if (!a || !b) return static_cast<int>(static_cast<bool>(a)) - static_cast<int>(static_cast<bool>(b));
  return a->compare(*b);
}

} // namespace

bool Sharers::Order::operator()(Member const& a, Member const& b) const {
  int const order = comparePlaces(a.id, *a.path, b.id, *b.path);
  return order != 0 ? order < 0 : compareKeys(a.key, b.key) < 0;
}

bool Sharers::Order::operator()(Member const& a, Place const& b) const {
  return comparePlaces(a.id, *a.path, b.id, b.path) < 0;
}

bool Sharers::Order::operator()(Place const& a, Member const& b) const {
  return comparePlaces(a.id, a.path, b.id, *b.path) < 0;
}

bool Sharers::isShared(Path const& path) {
  auto const& fields = path.elems().back()->key();
  return std::any_of(fields.begin(), fields.end(),
                     [](auto const& field) { return field.value == "nullptr"; });
}

std::optional<Sharers::Key> Sharers::last(Kel::AttributeId id, PathPtr const& path) const {
  auto const behind = members_.upper_bound(Place{id, *path});
  if (behind == members_.begin()) return std::nullopt;
  Member const& member = *std::prev(behind);
  return comparePlaces(member.id, *member.path, id, *path) == 0 ? std::optional<Key>(member.key)
                                                                : std::nullopt;
}

std::vector<Sharers::Key> Sharers::all(Kel::AttributeId id, PathPtr const& path) const {
  std::vector<Key> keys;
  Place const place{id, *path};
  for (auto at = members_.lower_bound(place); at != members_.end() && !Order()(place, *at); ++at)
    keys.push_back(at->key);
  return keys;
}

} // namespace Ondra
