// A verdict is taken over where the same bytes stand in the same place of a response.
#include "agent/access/LeafVerdicts.h"

#include <optional>

#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

bool isPermitted(RuleTree::Place const& place, std::string_view path) {
  gnmi::Path parsed;
  return parsed.ParseFromArray(path.data(), static_cast<int>(path.size())) &&
         place.below(PathView(parsed, 0)).permits();
}

} // namespace

void LeafVerdicts::placeIs(RuleTree::Place const& place) {
  place_ = &place;
  next_ = 0;
  if (last_.saysAs(place)) return;
  last_ = place;
  verdicts_.clear();
}

bool LeafVerdicts::permits(std::string_view path) {
  std::size_t const at = next_++;
  if (at < verdicts_.size() && verdicts_[at].path == path) return verdicts_[at].permits;
  bool const verdict = isPermitted(*place_, path);
  if (at >= verdicts_.size()) verdicts_.resize(at + 1);
  verdicts_[at] = {std::string(path), verdict};
  return verdict;
}

} // namespace Agent
