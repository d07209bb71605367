// How the results of the parts of a walk become that of the whole.
#pragma once

#include "Ondra/WalkTypes.h"

namespace Ondra {

// The latest that is not a success, if there is one.
[[nodiscard]] constexpr WalkResult merged(WalkResult before, WalkResult now) noexcept {
  return now == WalkResult::Success ? before : now;
}

// Whether and how its caller hears of a pipe that has filled up at the very end of a walk inside a walk.
[[nodiscard]] constexpr WalkResult insideResult(WalkResult result) noexcept {
  return result == WalkResult::SuccessWithPipeFull ? WalkResult::PipeFull : result;
}

} // namespace Ondra
