// Ondra::Prefix: a tree of named path segments, in which a node stands for the path from the root to it.
#pragma once

#include <absl/container/flat_hash_set.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Allocator.h"
#include "Kstd/Export.h"
#include "Tovak/String.h"

namespace Ondra {

// A node lives as long as somebody holds it or one of its descendants: children own their parents, a parent
// knows its children by plain pointer, and a node takes itself out of its parent when it dies. Held by
// std::shared_ptr. However long a path is, letting its last node go takes no more than one node's stack.
// Lives on the scheduler thread.
class KTD_EXPORT Prefix : public std::enable_shared_from_this<Prefix> {
public:
  // Does not enter the node into its parent: `childIs` and `prefixIs` make nodes.
  Prefix(Tovak::String const& name, std::shared_ptr<Prefix> const& parent);
  ~Prefix();
  Prefix(Prefix const&) = delete;
  Prefix& operator=(Prefix const&) = delete;

  // The node of these names below `root`, made where missing. Without a root: below the default root, which
  // has the empty name and lives while somebody holds it or a node below it.
  [[nodiscard]] static std::shared_ptr<Prefix> prefixIs(std::vector<std::string> const& names,
                                                        std::shared_ptr<Prefix> const& root = nullptr);
  // The same without making nodes: null when one is missing. (The default root is made.)
  [[nodiscard]] static std::shared_ptr<Prefix> prefix(std::vector<std::string> const& names,
                                                      std::shared_ptr<Prefix> const& root = nullptr);

  // The child of that name, or null. Throws std::bad_weak_ptr when it is being destroyed.
  [[nodiscard]] std::shared_ptr<Prefix> child(Tovak::String const& name) const;
  // The child of that name, made if missing; the caller alone holds it then. Throws std::bad_weak_ptr when
  // this node is not held by a std::shared_ptr.
  [[nodiscard]] std::shared_ptr<Prefix> childIs(Tovak::String const& name);
  // Forgets the child of the name of `child`; asserts that there is one.
  void childDel(Prefix* child);

  // The names from the root to this node, joined by "/": "/a/b" below the default root.
  [[nodiscard]] Tovak::String path() const;

  [[nodiscard]] Tovak::String const& name() const noexcept { return name_; } // within its parent
  [[nodiscard]] std::shared_ptr<Prefix> const& parent() const noexcept { return parent_; } // null: a root

private:
  struct Hasher {
    std::size_t operator()(Prefix const* prefix) const {
      return std::hash<std::string_view>()(prefix->name_);
    }
  };
  struct SameName {
    bool operator()(Prefix const* a, Prefix const* b) const { return a->name_ == b->name_; }
  };

  std::shared_ptr<Prefix> parent_; // fixed; let go last
  Tovak::String const name_;
  absl::flat_hash_set<Prefix*, Hasher, SameName, Kel::EndingAllocator<Prefix*>> children_;
};

} // namespace Ondra
