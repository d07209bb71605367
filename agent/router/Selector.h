// Agent::Selector: which parts of a notification one subscription owns.
#pragma once

#include <absl/functional/function_ref.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/access/RuleTree.h"
#include "agent/paths/Pattern.h"

namespace gnmi {
class Notification;
class Path;
class Update;
} // namespace gnmi

namespace Agent {

struct TypeNode;

// Which updates of a notification are meant: all, or those of these positions.
using Selection = std::optional<std::vector<std::uint32_t>>;

// Which leaves are meant, as the model publishes them (`LeafInfo::isSampled`).
enum class LeafKind : std::uint8_t { All, Event, Sampled };

// An immutable value. Notifications are internal: their paths begin with the data root.
class Selector {
public:
  using Keep = absl::FunctionRef<bool(gnmi::Update const&)>;
  struct Selected {
    bool any = false;
    Selection updates; // none: all of them
  };

  using Modules = std::shared_ptr<std::vector<std::string> const>;
  // `rivals`: the patterns of the same call to which a leaf belongs that they cover too. `modules`: those
  // whose leaves are meant alone; null: all. `depth`: how many levels below what the pattern means; 0: all.
  // `access`: what may be read, the rest is as if it were not there; null: everything.
  using Access = std::shared_ptr<RuleTree const>;
  Selector(std::shared_ptr<Pattern const> pattern, std::vector<std::shared_ptr<Pattern const>> rivals,
           Modules modules = nullptr, std::size_t depth = 0, Access access = nullptr);

  [[nodiscard]] std::shared_ptr<Pattern const> const& pattern() const noexcept { return pattern_; }
  [[nodiscard]] Modules const& modules() const noexcept { return modules_; }
  [[nodiscard]] std::size_t depth() const noexcept { return depth_; }
  [[nodiscard]] Access const& access() const noexcept { return access_; }
  [[nodiscard]] bool hasRivals() const noexcept { return !rivals_.empty(); }

  [[nodiscard]] Selected updates(gnmi::Notification const& notification, LeafKind kind) const;
  // The same, of those alone that `keep` is true for; it is asked for no others.
  [[nodiscard]] Selected updates(gnmi::Notification const& notification, LeafKind kind, Keep keep) const;

  // What the end of `path` means for the pattern: the path itself where it is covered; of a path above, as
  // far down towards the pattern as that is concrete. The same of what may be read of that. Appended to `to`,
  // internal and whole.
  void appendEnds(gnmi::Path const& prefix, gnmi::Path const& path, std::vector<gnmi::Path>& to) const;
  // The deepest concrete path above everything that the pattern covers; internal.
  [[nodiscard]] gnmi::Path anchor() const;

private:
  [[nodiscard]] Selected chosen(gnmi::Notification const& notification, LeafKind kind,
                                Keep const* keep) const;
  [[nodiscard]] bool isMeant(TypeNode const& leaf, LeafKind kind) const;
  void appendPermitted(gnmi::Path end, std::vector<gnmi::Path>& to) const;
  // How far below what the pattern means. REQUIRES that it covers the path.
  [[nodiscard]] std::size_t levelOf(PathView const& path) const;

  std::shared_ptr<Pattern const> pattern_;
  std::vector<std::shared_ptr<Pattern const>> rivals_;
  Modules modules_;
  std::size_t depth_;
  Access access_;
};

} // namespace Agent
