// Elements are shared along a walk, and names are interned: as a rule comparing them is comparing pointers.
#include "agent/access/RuleTrail.h"

#include <algorithm>
#include <optional>
#include <span>
#include <string_view>

#include "Ondra/PathElem.h"

namespace Agent {
namespace {

constexpr std::size_t kSpotsMax = 4'096; // rules may tell all entries of a list apart

RuleTree::Place placeBelow(RuleTree::Place const& place, Ondra::PathElem const& elem) {
  return place.below(elem.name().view(), [&elem](std::string_view name) -> std::optional<std::string_view> {
    for (auto const& [key, value] : elem.key())
      if (key.view() == name) return value.view();
    return std::nullopt;
  });
}

} // namespace

// What has been found for the step holds for the element.
bool RuleTrail::isSame(Step const& step, Ondra::PathElem const& elem) {
  return step.isForAnyKeys ? step.elem->name() == elem.name() : elem.isEqual(step.elem.get());
}

RuleTrail::Spot& RuleTrail::spotOf(RuleTree::Place const& place) {
  return spots_.try_emplace(place, place).first->second;
}

RuleTrail::Step RuleTrail::below(Spot& above, Ondra::Path::ElemPtr const& elem) {
  auto known = std::ranges::find(above.below_, elem->name(), &Spot::Below::name);
  if (known == above.below_.end()) {
    bool const asks = above.place_.asksForKeys(elem->name().view());
    Spot* const spot = asks ? nullptr : &spotOf(placeBelow(above.place_, *elem));
    known = above.below_.insert(known, {elem->name(), spot});
  }
  bool const isForAnyKeys = known->spot != nullptr;
  return {elem, isForAnyKeys ? known->spot : &spotOf(placeBelow(above.place_, *elem)), isForAnyKeys};
}

RuleTrail::Spot& RuleTrail::at(Ondra::Path const& path) {
  if (root_ == nullptr || spots_.size() > kSpotsMax) {
    steps_.clear();
    spots_.clear();
    root_ = &spotOf(rules_.root());
  }
  std::span<Ondra::Path::ElemPtr const> const elems = path.elems().subspan(1);
  Spot* here = root_;
  for (std::size_t depth = 0; depth < elems.size() && !here->place_.isSettled(); ++depth) {
    if (depth == steps_.size() || !isSame(steps_[depth], *elems[depth])) {
      steps_.resize(std::min(depth, steps_.size()));
      steps_.push_back(below(*here, elems[depth]));
    }
    here = steps_[depth].spot;
  }
  return *here;
}

} // namespace Agent
