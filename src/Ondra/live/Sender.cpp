// Bytes are pushed as they are made, or kept when the first receiver may change what the others are read
// from; messages all at the end.
#include "Ondra/live/Sender.h"

#include <boost/container/small_vector.hpp>

#include <cstdint>
#include <cstring>
#include <span>
#include <utility>

#include "Ondra/ArenaRespMsg.h"
#include "Ondra/CompactText.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/live/Fault.h"
#include "Ondra/live/PlainLeaves.h"
#include "Ondra/live/Unsent.h"
#include "Ondra/live/WatchedPlace.h"
#include "Ondra/responses/IrToResp.h"
#include "Ondra/responses/IrToWire.h"
#include "Ondra/rules/WalkerTrace.h"
#include "Toggle/Toggle.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra {

bool toggleOndraSyncBundlingEnabled() {
  static bool const enabled = Toggle::getToggleState("OndraSyncBundling", "Ondra.json", true);
  return enabled;
}

namespace {

using Message = std::shared_ptr<ArenaRespMsg>;

// --- the two forms of a response -------------------------------------------------------------------------

bool handTo(ByteRouter& router, SyncId sync, WalkId walk, WireResponse const& response) {
  return router.pushBytes(sync, walk, response);
}
bool handTo(BaseRouter& router, SyncId sync, WalkId walk, Message& response) {
  return router.push(sync, walk, response);
}

bool isBelow(Unsent::Sending const& ended, WireResponse const& response) {
  return ended.hasEnded(*response.prefix);
}
bool isBelow(Unsent::Sending const& ended, Message const& response) {
  return ended.hasEnded(*Path::gnmiPathIs(response->response->update().prefix()));
}

long timestampOf(WireResponse const& response) { return response.timestamp; }
long timestampOf(Message const& response) { return response->response->update().timestamp(); }

bool saysNothing(WireResponse const& response) { return (response.updates | response.deletes) == 0; }
bool saysNothing(Message const& response) {
  gnmi::Notification const& notification = response->response->update();
  return notification.update_size() == 0 && notification.delete__size() == 0;
}

// For traces. The bytes end the process where there is no memory: messages do not survive that.
Tovak::String textOf(WireResponse const& response) noexcept {
  gnmi::SubscribeResponse message;
  static_cast<void>(message.ParseFromArray(response.bytes.data(), static_cast<int>(response.bytes.size())));
  return subscribeResponseToCompactString(message);
}
Tovak::String textOf(Message const& response) { return response->toString(); }

// --- bytes or messages -----------------------------------------------------------------------------------

// Pushes each response as soon as it is made.
template <class Push>
class BytePush final : public WireEncoder {
public:
  BytePush(ByteRouter& router, Push const& push) noexcept : router_(router), push_(push) {}
  void response(WireResponse const& response) override { push_(router_, response); }

private:
  ByteRouter& router_;
  [[no_unique_address]] Push const push_;
};

// Keeps the bytes of some responses till all are made: whoever is given the first may change the objects that
// the others are read from. REQUIRES that the paths of their nodes stay till then.
class KeptBytes final : public WireEncoder {
public:
  template <class Push>
  void passOn(BytePush<Push>& to) const {
    std::span<std::uint8_t const> left(bytes_.data(), bytes_.size());
    for (Kept const& kept : kept_) {
      auto const bytes = left.first(kept.size);
      left = left.subspan(kept.size);
      auto const changes = bytes.last(kept.changes);
      auto const elems = bytes.last(kept.changes + kept.prefix).first(kept.prefix);
      to.response(WireResponse{kept.timestamp, *kept.path, kept.updates, 0, bytes, elems, changes});
    }
  }

protected:
  void response(WireResponse const& made) override {
    std::size_t const before = bytes_.size();
    bytes_.resize(before + made.bytes.size(), boost::container::default_init);
    std::memcpy(bytes_.data() + before, made.bytes.data(), made.bytes.size());
    kept_.push_back({made.timestamp, &made.prefix, made.updates, made.bytes.size(), made.prefixElems.size(),
                     made.changes.size()});
  }

private:
  struct Kept {
    long timestamp;
    ResponsePath const* path;
    std::uint32_t updates;
    std::size_t size, prefix, changes;
  };
  boost::container::small_vector<std::uint8_t, 2048> bytes_;
  boost::container::small_vector<Kept, 16> kept_;
};

// Apart, so that the road of bytes is short.
template <class Encode, class Push>
[[gnu::noinline]] void sendMessages(BaseRouter& router, Encode const& encode, Push const& push) {
  RespEncoder own;
  RespEncoder& encoder = Unsent::Sending::isInner() ? own : RespEncoder::shared();
  encode(encoder);
  for (Message& response : encoder.responses())
    push(router, response);
  encoder.clear();
}

// Has `encode` make responses, in the form that the router takes, and `push` push each of them, in their
// order: bytes as soon as they are made, messages when all are. docs/decisions.md: "Bytes or messages?"
template <class Encode, class Push>
void sendAsTaken(BaseRouter& router, Encode const& encode, Push const& push) {
  if (ByteRouter* const bytes = router.byteRouter()) {
    BytePush<Push> encoder(*bytes, push);
    encode(encoder);
  } else {
    sendMessages(router, encode, push);
  }
}

void encodePlain(PlainLeaves& leaves, RespEncoder& encoder) {
  for (PlainLeaves::Node const& node : leaves.nodes())
    encoder.encodeNode(node.plain());
}

// Whoever takes a response may end what the node is of. Not its path is held, which nothing else here reads,
// but its notifiee, which has been read.
using Held = Kel::Ptr<GifGnmiNotifiee>;

template <class Push>
[[gnu::noinline]] void encodeKept(std::span<PlainLeaves::Node const> nodes, BytePush<Push>& encoder) {
  boost::container::small_vector<Held, 16> held;
  KeptBytes kept;
  for (PlainLeaves::Node const& node : nodes) {
    held.emplace_back(&node.place->keeper());
    kept.encodeNode(node.plain());
  }
  kept.passOn(encoder);
}

template <class Push>
void encodePlain(PlainLeaves& leaves, BytePush<Push>& encoder) {
  auto const nodes = leaves.nodes();
  if (nodes.size() == 1) [[likely]] { // one response
    Held const held(&nodes.front().place->keeper());
    encoder.encodeNode(nodes.front().plain());
  } else {
    encodeKept(nodes, encoder);
  }
}

} // namespace

// --- in the name of a walker -----------------------------------------------------------------------------

template <class Router, class Response>
WalkResult Sender::push(Router& router, Response& response) const {
  FullKelTypeWalker const& walker = walker_;
  if (walker.flags_ & flagNoPush) return WalkResult::Success;
  TOVAK_TRACE(walkerTrace(), 7, kWalkerCategory, "{} push id:{} {}", walker.debugString(), walker.syncId_,
              textOf(response));
  TOVAK_ASSERT(timestampOf(response) != 0, walkerTrace(), "0 timestamps are not allowed. resp:{}",
               textOf(response));
  if (!handOver([&] { return handTo(router, walker.syncId_, walker.walkId_, response); }))
    return WalkResult::PipeFull;
  if (walker.walkQ_ != nullptr && walker.walkQ_->shouldYield()) {
    TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "QuantaExceeded: syncId:{} walkId:{}", walker.syncId_,
                walker.walkId_);
    return WalkResult::QuantaExceeded;
  }
  return WalkResult::Success;
}

struct Sender::Push {
  template <class Router, class Response>
  void operator()(Router& router, Response& response) const {
    if (sending.mayHaveEnded() && isBelow(sending, response)) return;
    if (sender.what_ == What::Walk) {
      if (!toggleOndraSyncBundlingEnabled()) {
        TOVAK_TRACE(walkerTrace(), 8, kWalkerCategory, "{} push immediate update: {}",
                    sender.walker_.debugString(), textOf(response));
      }
    } else if (saysNothing(response)) {
      return;
    }
    result = sender.push(router, response);
  }
  Sender const& sender;
  Unsent::Sending const& sending;
  WalkResult& result;
};

WalkResult Sender::send(std::shared_ptr<ArenaRespMsg>& response) const {
  return push(walker_.router_, response);
}

WalkResult Sender::send(Ir const& ir) const {
  Unsent::Sending const sending;
  WalkResult result = WalkResult::Success;
  auto const encode = [&](IrEncoder& encoder) {
    ir.encode(encoder);
    if (what_ == What::Change) {
      if (std::shared_ptr<Ir> const gone = encoder.takeLeftOut()) gone->encode(encoder);
    }
  };
  sendAsTaken(walker_.router_, encode, Push{*this, sending, result});
  return result;
}

WalkResult Sender::send(PlainLeaves& leaves) const {
  Unsent::Sending const sending;
  WalkResult result = WalkResult::Success;
  auto const encode = [&](auto& encoder) {
    encodePlain(leaves, encoder);
    leaves.clear();
  };
  sendAsTaken(walker_.router_, encode, Push{*this, sending, result});
  return result;
}

bool Sender::sendChange(BaseRouter& router, PlainNode const& node) {
  Unsent::Sending const sending;
  bool isWhole = true;
  auto const encode = [&](auto& encoder) {
    encoder.encodeNode(node);
    isWhole = encoder.takeLeftOut() == nullptr;
  };
  auto const push = [](auto& to, auto& response) {
    if (!saysNothing(response)) [[likely]] {
      static_cast<void>(handOver([&] { return handTo(to, SyncId(), WalkId(), response); }));
    }
  };
  sendAsTaken(router, encode, push);
  return isWhole;
}

// --- as the walker's own operations ----------------------------------------------------------------------

WalkResult FullKelTypeWalker::routerPush(std::shared_ptr<ArenaRespMsg>& resp) const {
  return Sender(*this, Sender::What::Walk).send(resp);
}

WalkResult FullKelTypeWalker::routerPush(std::shared_ptr<Ir>& ir) const {
  if (flags_ & flagNoPush) return WalkResult::Success;
  bool const wasEmpty = ir->empty();
  if (Unsent::dropEnded(); ir->empty() && !wasEmpty) return WalkResult::Success;
  return Sender(*this, Sender::What::Walk).send(*ir);
}

WalkResult FullKelTypeWalker::routerPush(bool force) {
  TOVAK_ASSERT(toggleOndraSyncBundlingEnabled(), walkerTrace(), "bundling not enabled");
  if (flags_ & flagNoPush) {
    ir_->clear(); // or a walk that sends nothing would collect all of it
    return WalkResult::Success;
  }
  if (!force && !(walkQ_ != nullptr && walkQ_->shouldYield())) return WalkResult::Success;
  WalkResult const result = routerPush(ir_);
  ir_->clear();
  return result;
}

} // namespace Ondra
