// Elements are shared along a walk: as a rule comparing them is comparing pointers.
#include "agent/access/RuleTrail.h"

#include <optional>
#include <span>
#include <string_view>

#include "Ondra/PathElem.h"

namespace Agent {
namespace {

RuleTree::Place below(RuleTree::Place const& place, Ondra::PathElem const& elem) {
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

RuleTree::Place const& RuleTrail::at(Ondra::Path const& path) {
  std::span<Ondra::Path::ElemPtr const> const elems = path.elems().subspan(1);
  std::size_t depth = 0;
  auto const here = [&]() -> RuleTree::Place const& { return depth == 0 ? root_ : steps_[depth - 1].place; };
  while (depth < elems.size() && !here().isSettled()) {
    Ondra::Path::ElemPtr const& elem = elems[depth];
    if (depth == steps_.size() || !isSame(steps_[depth], *elem)) {
      RuleTree::Place place = below(here(), *elem);
      bool const isForAnyKeys = !here().asksForKeys(elem->name().view());
      steps_.resize(depth);
      steps_.push_back({elem, std::move(place), isForAnyKeys});
    }
    ++depth;
  }
  return here();
}

} // namespace Agent
