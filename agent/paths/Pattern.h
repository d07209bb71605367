// Agent::Pattern: a request's path compiled against the types: what it matches, and where to look for it.
//
// Wildcards: "*" as a name, "*" or nothing for a key, "..." for any number of elements (none too). A pattern
// covers what it matches and everything below.
//
// Invariants
// 1. `objectDepth` elements name containers and list entries, at every place of the types that they match; so
//    the objects they match can be enumerated, and what remains of the pattern concerns leaf paths below them
//    (or begins with "...").
// 2. The first `anchorDepth` elements are concrete: no wildcard, all keys given. Everything that the pattern
//    covers lies at or below them. The anchor may name a leaf.
// 3. Key values are in the form in which walks print them.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include <grpcpp/support/status.h>

#include "Kstd/Result.h"
#include "agent/paths/RequestPath.h"

namespace gnmi {
class Path;
class PathElem;
} // namespace gnmi

namespace Agent {

inline constexpr std::size_t kMaxAnyDepths = 4; // elements "..." in one path

// A concrete path below the data root in two halves, a notification's prefix and an update's path, seen as
// one. Refers to both.
class PathView {
public:
  // `skip` elements are left off the front: 1 for internal paths.
  PathView(gnmi::Path const& prefix, gnmi::Path const& path, std::size_t skip);
  PathView(gnmi::Path const& path, std::size_t skip);

  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] gnmi::PathElem const& operator[](std::size_t index) const;
  // Without so many elements more.
  [[nodiscard]] PathView from(std::size_t skip) const { return {*prefix_, *path_, skip_ + skip}; }

private:
  gnmi::Path const* prefix_;
  gnmi::Path const* path_;
  std::size_t skip_;
  std::size_t prefixSize_;
  std::size_t size_; // after skipping
};

// An immutable value. Compiled on the scheduler thread; matching is for any thread.
class Pattern {
public:
  using OrError = Kstd::Result<Pattern, grpc::Status>;
  struct Elem {
    enum class Kind : unsigned char { Name, AnyName, AnyDepth };
    Kind kind = Kind::Name;
    std::string name;
    std::vector<std::pair<std::string, std::string>> keys; // those alone that have a value
    friend bool operator==(Elem const&, Elem const&) = default;
  };
  // How a pattern stands to a path and to what may lie below it.
  enum class Cover : unsigned char {
    None,    // matches neither the path nor anything below it
    Partial, // may match something below it
    All,     // covers the path and everything below it
  };

  // UNIMPLEMENTED for a path that published models have and this agent does not serve; NOT_FOUND for one
  // outside of them all; INVALID_ARGUMENT for keys where none belong, of unknown names or unreadable values,
  // and for more than `kMaxAnyDepths` elements "...".
  [[nodiscard]] static OrError of(RequestPath const& path);

  [[nodiscard]] Cover cover(PathView const& path) const;
  [[nodiscard]] bool covers(PathView const& path) const { return cover(path) == Cover::All; }
  // Something can be covered by both. May say so wrongly, never not.
  [[nodiscard]] bool mayOverlap(Pattern const& other) const;

  [[nodiscard]] std::vector<Elem> const& elems() const noexcept { return elems_; }
  [[nodiscard]] std::size_t objectDepth() const noexcept { return objectDepth_; }
  [[nodiscard]] std::size_t anchorDepth() const noexcept { return anchorDepth_; }
  // No wildcard at all: the anchor is the whole pattern.
  [[nodiscard]] bool isConcrete() const noexcept { return anchorDepth_ == elems_.size(); }
  // The objects are covered whole: nothing remains of the pattern below them.
  [[nodiscard]] bool coversObjects() const noexcept { return objectDepth_ == elems_.size(); }
  // "/interfaces/interface[name=*]".
  [[nodiscard]] std::string text() const;

private:
  [[nodiscard]] Cover coverByStates(PathView const& path) const;

  std::vector<Elem> elems_;
  std::size_t objectDepth_ = 0;
  std::size_t anchorDepth_ = 0;
  bool hasAnyDepth_ = false;
};

} // namespace Agent
