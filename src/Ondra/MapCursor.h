// Generic iteration over the text collections of the library's own types, in key order.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "Kel/Allocator.h"
#include "Kel/GenericIf.h"
#include "Kel/HashMap2018.h"
#include "Kel/Hooks.h"
#include "Kel/String.h"

namespace Ondra {

// The state behind `Kel::TypeHooks::Iteration`: the keys of the collection at the beginning of the iteration,
// sorted. Members that go meanwhile are passed over; the object stays alive.
class MapCursor {
public:
  using Map = Kel::HashMap2018<Kel::String, Kel::String>;

  MapCursor(Kel::Ptr<Kel::PtrInterface const> owner, Map const& map) : owner_(std::move(owner)), map_(map) {
    keys_.reserve(map.size());
    for (Map::Node const& node : map) {
      keys_.push_back(node.key);
    }
    std::sort(keys_.begin(), keys_.end());
  }

  // The hooks of a type with one such collection, `(object.*Members)()`.
  template <class Object, auto Members>
  [[nodiscard]] static Kel::TypeHooks::Iteration hooks() {
    return {
        .create = [](Kel::PtrInterface const* object, Kel::AttributeId) -> void* {
          Kel::Ptr<Kel::PtrInterface const> owner(object);
          return new MapCursor(std::move(owner), (static_cast<Object const*>(object)->*Members)());
        },
        .increment = [](void* state) { static_cast<MapCursor*>(state)->advance(); },
        .nonNull = [](void const* state) { return cursor(state).current() < cursor(state).keys_.size(); },
        .del = [](void* state) { delete static_cast<MapCursor*>(state); },
        .key = [](void const* state) { return handle(cursor(state).give().key); },
        .object = [](void const* state) { return handle(cursor(state).give().value); },
    };
  }

  static void* operator new(std::size_t size) { return Kel::kelMemAlloc(size); }
  static void operator delete(void* block, std::size_t size) noexcept { Kel::kelMemFree(block, size); }

private:
  static MapCursor const& cursor(void const* state) { return *static_cast<MapCursor const*>(state); }
  static Kel::Ptr<Kel::GenericIf const> handle(Kel::String const& text) { return Kel::handleOf(text); }

  // The position of the first member from here on that is still there; the number of keys when none is.
  [[nodiscard]] std::size_t current() const {
    std::size_t at = next_;
    while (at < keys_.size() && map_.lookup(keys_[at]) == nullptr) {
      ++at;
    }
    return at;
  }

  // REQUIRES: a current member.
  [[nodiscard]] Map::Node const& give() const {
    given_ = current();
    return *map_.lookup(keys_[given_]);
  }

  // Past the member that was given last, also when that has gone since.
  void advance() {
    next_ = (given_ != kNone ? given_ : current()) + 1;
    given_ = kNone;
  }

  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  Kel::Ptr<Kel::PtrInterface const> owner_;
  Map const& map_;
  std::vector<Kel::String, Kel::MemAllocator<Kel::String>> keys_;
  std::size_t next_ = 0;
  mutable std::size_t given_ = kNone; // of this step
};

} // namespace Ondra
