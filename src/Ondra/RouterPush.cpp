// How responses leave the library, and where a walk learns that it must stop.

#include "Ondra/ArenaRespMsg.h"
#include "Ondra/CompactText.h"
#include "Ondra/Fault.h"
#include "Ondra/IrToResp.h"
#include "Ondra/IrToWire.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/Unsent.h"
#include "Ondra/WalkerTrace.h"
#include "Toggle/Toggle.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra {

bool toggleOndraSyncBundlingEnabled() {
  static bool const enabled = Toggle::getToggleState("OndraSyncBundling", "Ondra.json", true);
  return enabled;
}

namespace {

Tovak::String textOf(WireResponse const& resp) {
  gnmi::SubscribeResponse message;
  static_cast<void>(message.ParseFromArray(resp.bytes.data(), static_cast<int>(resp.bytes.size())));
  return subscribeResponseToCompactString(message);
}

} // namespace

WalkResult FullKelTypeWalker::routerPush(std::shared_ptr<ArenaRespMsg>& resp) const {
  if (flags_ & flagNoPush) {
    return WalkResult::Success;
  }
  TOVAK_TRACE(walkerTrace(), 7, kWalkerCategory, "{} push id:{} {}", debugString(), syncId_,
              resp->toString());
  TOVAK_ASSERT(resp->response->update().timestamp() != 0, walkerTrace(),
               "0 timestamps are not allowed. resp:{}", resp->toString());
  return afterPush(handOver([&] { return router_.push(syncId_, walkId_, resp); }));
}

WalkResult FullKelTypeWalker::routerPush(ByteRouter& router, WireResponse const& resp) const {
  if (flags_ & flagNoPush) {
    return WalkResult::Success;
  }
  TOVAK_TRACE(walkerTrace(), 7, kWalkerCategory, "{} push id:{} {}", debugString(), syncId_, textOf(resp));
  TOVAK_ASSERT(resp.timestamp != 0, walkerTrace(), "0 timestamps are not allowed. resp:{}", textOf(resp));
  return afterPush(handOver([&] { return router.pushBytes(syncId_, walkId_, resp); }));
}

WalkResult FullKelTypeWalker::afterPush(bool taken) const {
  if (!taken) {
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
  bool const wasEmpty = ir->empty();
  if (Unsent::dropEnded(); ir->empty() && !wasEmpty) {
    return WalkResult::Success;
  }
  Unsent::Sending const sending;
  // docs/decisions.md: "Bytes or messages?"
  if (ByteRouter* const router = router_.byteRouter()) {
    return pushBytes(*router, *ir, false);
  }
  RespEncoder& encoder = RespEncoder::shared();
  ir->encode(encoder);
  return pushAll(encoder);
}

// The notifications of one bundle stay together: the rest is sent also when the pipe has filled up.
WalkResult FullKelTypeWalker::pushAll(RespEncoder& encoder) const {
  WalkResult result = WalkResult::Success;
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

// Encodes and hands over one response after the other.
class FullKelTypeWalker::BytePush final : public WireEncoder {
public:
  BytePush(FullKelTypeWalker const& walker, ByteRouter& router, bool isChange) noexcept
      : walker_(walker)
      , router_(router)
      , isChange_(isChange) {}
  [[nodiscard]] WalkResult result() const noexcept { return result_; }

protected:
  void response(WireResponse const& response) override {
    if (!isChange_ && !toggleOndraSyncBundlingEnabled()) {
      TOVAK_TRACE(walkerTrace(), 8, kWalkerCategory, "{} push immediate update: {}", walker_.debugString(),
                  textOf(response));
    }
    if (!isChange_ || response.updates > 0 || response.deletes > 0) {
      result_ = walker_.routerPush(router_, response);
    }
  }

private:
  FullKelTypeWalker const& walker_;
  ByteRouter& router_;
  bool const isChange_;
  WalkResult result_ = WalkResult::Success;
};

WalkResult FullKelTypeWalker::pushBytes(ByteRouter& router, Ir const& ir, bool isChange) const {
  BytePush push(*this, router, isChange);
  ir.encode(push);
  if (std::shared_ptr<Ir> const gone = push.takeLeftOut(); gone && isChange) {
    gone->encode(push);
  }
  return push.result();
}

// The plain leaves of a watched object, all of them at once: what an Ir with nothing else in it would send. Routers
// neither change the model nor call back, so that the values may be read between two pushes. Printers may: theirs come first.
WalkResult FullKelTypeWalker::pushPlain(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object,
                                        GifGnmiNotifiee& notifiee) {
  PlainLeaves& leaves = PlainLeaves::shared();
  Kel::Ptr<Kel::PtrInterface const> pin;
  Kel::Ptr<GifGnmiNotifiee> watching;
  if (plan.printsPlain) [[unlikely]] {
    pin = Kel::Ptr<Kel::PtrInterface const>(&object);
    watching = Kel::Ptr<GifGnmiNotifiee>(&notifiee);
    leaves.print(plan, object, [this](Kel::KelAttr const& attr) { static_cast<void>(leaveOut(attr)); });
    if (!notifiee.isRegistered()) {
      return WalkResult::Success;
    }
  }
  leaves.collect(plan, object, notifiee);
  if (ByteRouter* const router = router_.byteRouter()) {
    BytePush push(*this, *router, false);
    leaves.forEachNode(notifiee, [&push](PlainNode const& node) { push.encodeNode(node); });
    return push.result();
  }
  RespEncoder& encoder = RespEncoder::shared();
  leaves.forEachNode(notifiee, [&encoder](PlainNode const& node) { encoder.encodeNode(node); });
  return pushAll(encoder);
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
