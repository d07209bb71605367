// Kel::HashMap2018: the model's keyed collection for small maps that may grow large.
//
// Invariants
// 1. The nodes lie in one contiguous array in an order of the collection's own: deleting moves the last node
//    into the gap.
// 2. Up to `kFlat` nodes a lookup compares them one by one; beyond that an index from key to position is
//    kept, and it names every node. It refers to the keys' characters, which stay where they are when a node
//    moves; keys that are no `String` have none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/Allocator.h"
#include "Kel/String.h"
#include "Kel/TextIndex.h"

namespace Kel {

// Node addresses are valid until the next insertion or deletion.
template <class K, class V>
class HashMap2018 {
public:
  struct Node {
    K key;
    V value;
  };

  // Iteration: current node, advance, end test.
  class Iterator {
  public:
    explicit Iterator(HashMap2018 const& map) noexcept : map_(&map) {}
    explicit operator bool() const noexcept { return position_ < map_->nodes_.size(); }
    Iterator& operator++() noexcept {
      ++position_;
      return *this;
    }
    Node const& operator*() const noexcept { return map_->nodes_[position_]; }
    Node const* operator->() const noexcept { return &map_->nodes_[position_]; }

  private:
    HashMap2018 const* map_;
    std::size_t position_ = 0;
  };

  HashMap2018() = default;
  HashMap2018(HashMap2018 const& other) { *this = other; }
  HashMap2018& operator=(HashMap2018 const& other) {
    if (this == &other) return *this;
    nodes_ = other.nodes_;
    index_.reset();
    if constexpr (kHasIndex) {
      if (other.index_) buildIndex();
    }
    return *this;
  }

  [[nodiscard]] std::size_t size() const noexcept { return nodes_.size(); }
  [[nodiscard]] bool empty() const noexcept { return nodes_.empty(); }
  [[nodiscard]] Node const* begin() const noexcept { return nodes_.data(); }
  [[nodiscard]] Node const* end() const noexcept { return nodes_.data() + nodes_.size(); }

  // The node of the key, or null.
  [[nodiscard]] Node* lookup(K const& key) {
    std::size_t const at = position(key);
    return at == kNowhere ? nullptr : &nodes_[at];
  }
  [[nodiscard]] Node const* lookup(K const& key) const { return const_cast<HashMap2018*>(this)->lookup(key); }

  // Inserts a member under a key that is not there yet.
  Node& insert(K key, V value) {
    nodes_.push_back(Node{std::move(key), std::move(value)});
    if constexpr (kHasIndex) {
      if (index_)
        index_->positionIs(nodes_.back().key, nodes_.size() - 1);
      else if (nodes_.size() > kFlat)
        buildIndex();
    }
    return nodes_.back();
  }

  // Whether a member was there to delete.
  bool del(K const& key) {
    std::size_t const at = position(key);
    if (at == kNowhere) return false;
    bool const isLast = at + 1 == nodes_.size();
    if constexpr (kHasIndex) {
      if (index_) index_->del(key);
      if (index_ && !isLast) index_->positionIs(nodes_.back().key, at);
    }
    if (!isLast) nodes_[at] = std::move(nodes_.back());
    nodes_.pop_back();
    return true;
  }

  void deleteAll() noexcept {
    nodes_.clear();
    index_.reset();
  }

private:
  static constexpr std::size_t kFlat = 8;
  static constexpr bool kHasIndex = std::is_same_v<K, String>;
  static constexpr std::size_t kNowhere = Impl::TextIndex::kNowhere;

  [[nodiscard]] std::size_t position(K const& key) const {
    if constexpr (kHasIndex) {
      if (index_) return index_->position(key);
    }
    for (std::size_t i = 0; i < nodes_.size(); ++i)
      if (nodes_[i].key == key) return i;
    return kNowhere;
  }

  void buildIndex() {
    index_ = std::make_unique<Impl::TextIndex>();
    for (std::size_t i = 0; i < nodes_.size(); ++i)
      index_->positionIs(nodes_[i].key, i);
  }

  std::vector<Node, MemAllocator<Node>> nodes_;
  std::unique_ptr<Impl::TextIndex> index_;
};

} // namespace Kel
