// How responses leave the library, and where a walk learns that it must stop.

#include "Ondra/ArenaRespMsg.h"
#include "Ondra/IrToResp.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/WalkerTrace.h"
#include "Toggle/Toggle.h"

namespace Ondra {

bool toggleOndraSyncBundlingEnabled() {
  static bool const enabled = Toggle::getToggleState("OndraSyncBundling", "Ondra.json", true);
  return enabled;
}

WalkResult FullKelTypeWalker::routerPush(std::shared_ptr<ArenaRespMsg>& resp) const {
  if (flags_ & flagNoPush) {
    return WalkResult::Success;
  }
  TOVAK_TRACE(walkerTrace(), 7, kWalkerCategory, "{} push id:{} {}", debugString(), syncId_,
              resp->toString());
  TOVAK_ASSERT(resp->response->update().timestamp() != 0, walkerTrace(),
               "0 timestamps are not allowed. resp:{}", resp->toString());
  if (!router_.push(syncId_, walkId_, resp)) {
    return WalkResult::PipeFull;
  }
  if (walkQ_ != nullptr && walkQ_->shouldYield()) {
    TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "QuantaExceeded: syncId:{} walkId:{}", syncId_, walkId_);
    return WalkResult::QuantaExceeded;
  }
  return WalkResult::Success;
}

WalkResult FullKelTypeWalker::routerPush(std::shared_ptr<Ir>& ir) const {
  if (flags_ & flagNoPush) {
    return WalkResult::Success;
  }
  WalkResult result = WalkResult::Success;
  // The notifications of one bundle stay together: the rest is sent also when the pipe has filled up.
  RespEncoder& encoder = RespEncoder::shared();
  ir->encode(encoder);
  for (std::shared_ptr<ArenaRespMsg>& response : encoder.responses()) {
    if (!toggleOndraSyncBundlingEnabled()) {
      TOVAK_TRACE(walkerTrace(), 8, kWalkerCategory, "{} push immediate update: {}", debugString(),
                  response->toString());
    }
    result = routerPush(response);
  }
  encoder.clear();
  return result;
}

WalkResult FullKelTypeWalker::routerPush(bool force) {
  TOVAK_ASSERT(toggleOndraSyncBundlingEnabled(), walkerTrace(), "bundling not enabled");
  if (flags_ & flagNoPush) {
    ir_->clear(); // or a walk that sends nothing would collect all of it
    return WalkResult::Success;
  }
  if (!force && !(walkQ_ != nullptr && walkQ_->shouldYield())) {
    return WalkResult::Success;
  }
  WalkResult const result = routerPush(ir_);
  ir_->clear();
  return result;
}

} // namespace Ondra
