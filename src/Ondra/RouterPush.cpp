// How responses leave the library, and where a walk learns that it must stop.

#include <boost/container/small_vector.hpp>

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

// For traces. Ends the process where there is no memory: messages do not survive that.
Tovak::String textOf(WireResponse const& resp) noexcept {
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

namespace {

// Keeps the bytes of some responses till all are made: whoever is given the first may change the object that the others are read from.
class KeptBytes final : public WireEncoder {
public:
  template <class Push>
  void pushAll(Kel::Ptr<Path const> const& prefix, Push const& push) const {
    std::span<std::uint8_t const> left(bytes_.data(), bytes_.size());
    for (Kept const& kept : kept_) {
      auto const bytes = left.first(kept.size);
      left = left.subspan(kept.size);
      auto const changes = bytes.last(kept.changes);
      auto const elems = bytes.last(kept.changes + kept.prefix).first(kept.prefix);
      push(WireResponse{kept.timestamp, prefix, kept.updates, 0, bytes, elems, changes});
    }
  }

protected:
  void response(WireResponse const& made) override {
    bytes_.insert(bytes_.end(), made.bytes.begin(), made.bytes.end());
    kept_.push_back(
        {made.timestamp, made.updates, made.bytes.size(), made.prefixElems.size(), made.changes.size()});
  }

private:
  struct Kept {
    long timestamp;
    std::uint32_t updates;
    std::size_t size, prefix, changes;
  };
  boost::container::small_vector<std::uint8_t, 2048> bytes_;
  boost::container::small_vector<Kept, 16> kept_;
};

} // namespace

// The plain leaves of a watched object, all of them at once: what an Ir with nothing else in it would send. What their printers and the
// routers do to the object meanwhile is none of their business: printed values are made first, then all responses, and then these are sent.
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
  Unsent::Sending const sending;
  if (ByteRouter* const router = router_.byteRouter()) {
    if (leaves.areOfOneTime()) [[likely]] {
      BytePush push(*this, *router, false);
      leaves.forEachNode(notifiee, [&push](PlainNode const& node) { push.encodeNode(node); });
      return push.result();
    }
    WalkResult result = WalkResult::Success;
    Kel::Ptr<Path const> const prefix = notifiee.prefixPath();
    KeptBytes kept;
    leaves.forEachNode(notifiee, [&kept](PlainNode const& node) { kept.encodeNode(node); });
    kept.pushAll(prefix, [&](WireResponse const& response) { result = routerPush(*router, response); });
    return result;
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
