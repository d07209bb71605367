// A verdict is taken over where the same bytes stand: leaves that some entries have and others have not are
// passed over.
#include "agent/access/LeafVerdicts.h"

#include <algorithm>

#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

constexpr std::size_t kFurther = 32; // leaves that one entry may lack in a row
constexpr std::size_t kMost = 1'024; // paths may have keys: there is no end of them

bool isPermitted(RuleTree::Place const& place, std::string_view path) {
  gnmi::Path parsed;
  return parsed.ParseFromArray(path.data(), static_cast<int>(path.size())) &&
         place.below(PathView(parsed, 0)).permits();
}

} // namespace

bool LeafVerdicts::permitsOther(std::string_view path) {
  if (verdicts_.size() == kMost) verdicts_.clear();
  next_ = std::min(next_, verdicts_.size());
  auto const here = verdicts_.begin() + static_cast<std::ptrdiff_t>(next_);
  auto const end = here + static_cast<std::ptrdiff_t>(std::min(verdicts_.size() - next_, kFurther));
  auto found = std::find_if(here, end, [path](Verdict const& one) { return one.path == path; });
  if (found == end) found = verdicts_.insert(here, {std::string(path), isPermitted(place_, path)});
  next_ = static_cast<std::size_t>(found - verdicts_.begin()) + 1;
  return found->permits;
}

} // namespace Agent
