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
// sorted. Members that go meanwhile are passed over, those that come are not given; the object stays alive.
class MapCursor {
public:
  using Map = Kel::HashMap2018<Kel::String, Kel::String>;

  // The hooks of a type with one such collection, `(object.*Members)()`.
  template <class Object, auto Members>
  [[nodiscard]] static Kel::TypeHooks::Iteration hooks() {
    return {
        .create = [](Kel::PtrInterface const* object, Kel::AttributeId,
                     Kel::GenericIf const* start) -> void* {
          Kel::Ptr<Kel::PtrInterface const> owner(object);
          return new MapCursor(std::move(owner), (static_cast<Object const*>(object)->*Members)(), start);
        },
        .increment = [](void* state) { cursor(state).increment(); },
        .nonNull = [](void* state) { return cursor(state).nonNull(); },
        .del = [](void* state) { delete static_cast<MapCursor*>(state); },
        .key = [](void* state) { return cursor(state).give(); },
        .object = [](void* state) -> Kel::Ptr<Kel::GenericIf const> {
          static_cast<void>(cursor(state).give());
          Map::Node const* const node = cursor(state).node();
          return node == nullptr ? nullptr : handle(node->value);
        },
    };
  }

  static void* operator new(std::size_t size) { return Kel::kelMemAlloc(size); }
  static void operator delete(void* block, std::size_t size) noexcept { Kel::kelMemFree(block, size); }

private:
  MapCursor(Kel::Ptr<Kel::PtrInterface const> owner, Map const& map, Kel::GenericIf const* start)
      : owner_(std::move(owner))
      , map_(map) {
    keys_.reserve(map.size());
    for (Map::Node const& node : map)
      if (start == nullptr || !(node.key < *start->attrValPtr<Kel::String>())) keys_.push_back(node.key);
    std::sort(keys_.begin(), keys_.end());
  }

  static MapCursor& cursor(void* state) { return *static_cast<MapCursor*>(state); }
  static Kel::Ptr<Kel::GenericIf const> handle(Kel::String const& text) { return Kel::handleOf(text); }

  // Where it stands; null when that member has gone.
  [[nodiscard]] Map::Node const* node() const { return map_.lookup(keys_[at_]); }

  bool nonNull() {
    while (at_ < keys_.size() && node() == nullptr) {
      ++at_;
      moved_ = moved_ || given_;
      given_ = false;
    }
    return at_ < keys_.size();
  }
  void increment() {
    at_ += moved_ ? 0 : 1;
    given_ = moved_ = false;
  }
  Kel::Ptr<Kel::GenericIf const> give() {
    given_ = true;
    moved_ = false;
    return handle(keys_[at_]);
  }

  Kel::Ptr<Kel::PtrInterface const> owner_;
  Map const& map_;
  std::vector<Kel::String, Kel::MemAllocator<Kel::String>> keys_;
  std::size_t at_ = 0;
  bool given_ = false;
  bool moved_ = false;
};

} // namespace Ondra
