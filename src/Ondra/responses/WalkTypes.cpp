// Results of walks as texts, for traces; all else is in the header.
#include "Ondra/WalkTypes.h"

#include "Tovak/Assert.h"
#include "Tovak/Trace.h"

namespace Ondra {

std::string_view walkResultToStringView(WalkResult result) {
  switch (result) {
  case WalkResult::Success: return "Success";
  case WalkResult::SuccessWithPipeFull: return "SuccessWithPipeFull";
  case WalkResult::PipeFull: return "PipeFull";
  case WalkResult::QuantaExceeded: return "QuantaExceeded";
  }
  Tovak::fmassert(Tovak::Platform::getDebugHandler("OndraWalker", false), __FILE__, __func__, __LINE__,
                  "result is a WalkResult", "{} not a valid value", static_cast<unsigned>(result));
}

} // namespace Ondra
