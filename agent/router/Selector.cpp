// Whole notifications are decided by their prefix where that is enough, else update by update; and which
// paths a delete ends.
#include "agent/router/Selector.h"

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "agent/model/Tree.h"
#include "agent/paths/OutPath.h"
#include "agent/paths/TypeTree.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

using Cover = Pattern::Cover;

// Appends the elements of a pattern from `depth` on, as far as they are concrete. A list without all keys is
// not.
void appendConcrete(gnmi::Path& path, Pattern const& pattern, std::size_t depth) {
  std::optional<TypeNode> node = TypeNode::root().descendant(path, 1);
  for (std::size_t i = depth; i < pattern.elems().size() && node; ++i) {
    Pattern::Elem const& elem = pattern.elems()[i];
    if (elem.kind != Pattern::Elem::Kind::Name) return;
    node = node->child(elem.name);
    if (!node || (node->isList() && elem.keys.size() != node->keyCount())) return;
    gnmi::PathElem& added = *path.add_elem();
    added.set_name(elem.name);
    for (auto const& [name, value] : elem.keys)
      (*added.mutable_key())[name] = value;
  }
}

bool hasAnyDepth(Pattern const& pattern) {
  for (Pattern::Elem const& elem : pattern.elems())
    if (elem.kind == Pattern::Elem::Kind::AnyDepth) return true;
  return false;
}

} // namespace

Selector::Selector(std::shared_ptr<Pattern const> pattern, std::vector<std::shared_ptr<Pattern const>> rivals,
                   Modules modules, std::size_t depth, Access access)
    : pattern_(std::move(pattern))
    , rivals_(std::move(rivals))
    , modules_(std::move(modules))
    , depth_(depth)
    , access_(std::move(access)) {}

// By what is published of it; what is no leaf is told when it changes.
bool Selector::isMeant(TypeNode const& leaf, LeafKind kind) const {
  if (modules_ && std::ranges::find(*modules_, leaf.module) == modules_->end()) return false;
  bool const isSampled = leaf.leaf() != nullptr && leaf.leaf()->isSampled;
  return kind == LeafKind::All || isSampled == (kind == LeafKind::Sampled);
}

std::size_t Selector::levelOf(PathView const& path) const {
  std::size_t const size = path.size();
  if (!hasAnyDepth(*pattern_)) return size - std::min(size, pattern_->elems().size());
  gnmi::Path head; // as short as the pattern covers it
  while (!pattern_->covers(PathView(head, 0)) && static_cast<std::size_t>(head.elem_size()) < size)
    *head.add_elem() = path[static_cast<std::size_t>(head.elem_size())];
  return size - static_cast<std::size_t>(head.elem_size());
}

Selector::Selected Selector::updates(gnmi::Notification const& notification, LeafKind kind) const {
  return chosen(notification, kind, nullptr);
}

Selector::Selected Selector::updates(gnmi::Notification const& notification, LeafKind kind, Keep keep) const {
  return chosen(notification, kind, &keep);
}

Selector::Selected Selector::chosen(gnmi::Notification const& notification, LeafKind kind,
                                    Keep const* keep) const {
  if (notification.update_size() == 0) return {};
  PathView const prefix(notification.prefix(), 1);
  Cover const cover = pattern_->cover(prefix);
  if (cover == Cover::None) return {};
  std::vector<Pattern const*> rivals; // those that matter below this prefix
  for (std::shared_ptr<Pattern const> const& rival : rivals_) {
    switch (rival->cover(prefix)) {
    case Cover::None: break;
    case Cover::Partial: rivals.push_back(rival.get()); break;
    case Cover::All: return {};
    }
  }
  std::optional<RuleTree::Place> place; // where some may be read
  if (access_) {
    place = access_->at(prefix);
    if (place->cover() == Cover::None) return {};
    if (place->cover() == Cover::All) place.reset();
  }
  bool const takesAll = cover == Cover::All && rivals.empty() && !place;
  bool const takesAny = kind == LeafKind::All && modules_ == nullptr; // whatever is published of them
  if (takesAll && takesAny && keep == nullptr && depth_ == 0) return {.any = true, .updates = std::nullopt};

  std::optional<TypeNode> const node =
      takesAny ? std::nullopt : TypeNode::root().descendant(notification.prefix(), 1);
  std::vector<std::uint32_t> positions;
  for (int i = 0; i < notification.update_size(); ++i) {
    gnmi::Update const& update = notification.update(i);
    PathView const path(notification.prefix(), update.path(), 1);
    if (cover != Cover::All && !pattern_->covers(path)) continue;
    if (depth_ != 0 && levelOf(path) > depth_) continue;
    bool const isOthers =
        std::ranges::any_of(rivals, [&path](Pattern const* rival) { return rival->covers(path); });
    if (isOthers) continue;
    if (place && !place->below(PathView(update.path(), 0)).permits()) continue;
    if (!takesAny) {
      auto const leaf = node ? node->descendant(update.path(), 0) : node;
      if (!isMeant(leaf.value_or(TypeNode()), kind)) continue;
    }
    if (keep == nullptr || (*keep)(update)) positions.push_back(static_cast<std::uint32_t>(i));
  }
  if (positions.size() == static_cast<std::size_t>(notification.update_size()))
    return {.any = true, .updates = std::nullopt};
  bool const any = !positions.empty();
  return {.any = any, .updates = std::move(positions)};
}

void Selector::appendEnds(gnmi::Path const& prefix, gnmi::Path const& path,
                          std::vector<gnmi::Path>& to) const {
  PathView const view(prefix, path, 1);
  Cover const cover = pattern_->cover(view);
  if (cover == Cover::None) return;
  gnmi::Path end = prefix;
  end.mutable_elem()->MergeFrom(path.elem());
  if (auto const leaf = modules_ ? TypeNode::root().descendant(end, 1) : std::nullopt;
      leaf && leaf->leaf() != nullptr && !isMeant(*leaf, LeafKind::All))
    return;
  if (depth_ != 0 && cover == Cover::All) { // of a container at the last level no leaf is told
    auto const node = TypeNode::root().descendant(end, 1);
    std::size_t const level = levelOf(view);
    if (level > depth_ || (level == depth_ && node && node->leaf() == nullptr)) return;
  }
  if (cover == Cover::Partial && !hasAnyDepth(*pattern_)) appendConcrete(end, *pattern_, view.size());
  appendPermitted(std::move(end), to);
}

// Where the path itself may not be read, and something below it may, the end is that of each such thing.
void Selector::appendPermitted(gnmi::Path end, std::vector<gnmi::Path>& to) const {
  RuleTree::Place const place = access_ ? access_->at(PathView(end, 1)) : RuleTree::Place();
  if (!access_ || place.mayPermit()) {
    to.push_back(std::move(end));
    return;
  }
  if (place.cover() == Cover::None) return;
  std::set<std::string> ends; // canonical bytes, none of them below another
  auto const depth = static_cast<std::size_t>(end.elem_size()) - 1;
  place.forEachPermitted([&](Pattern const& permitted) {
    gnmi::Path below = end;
    appendConcrete(below, permitted, depth);
    std::string bytes = pathBytes(PathView(below, 0));
    std::erase_if(ends, [&bytes](std::string const& other) { return bytesAtOrBelow(bytes, other); });
    bool const isBelow = std::ranges::any_of(
        ends, [&bytes](std::string const& other) { return bytesAtOrBelow(other, bytes); });
    if (!isBelow) ends.insert(std::move(bytes));
  });
  for (std::string const& bytes : ends)
    to.push_back(pathOfBytes(bytes));
}

gnmi::Path Selector::anchor() const {
  gnmi::Path path;
  path.add_elem()->set_name(std::string(kOrigin));
  appendConcrete(path, *pattern_, 0);
  return path;
}

} // namespace Agent
