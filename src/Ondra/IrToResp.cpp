#include "Ondra/IrToResp.h"

#include <algorithm>
#include <variant>

#include "Ondra/ArenaRespMsg.h"
#include "Ondra/KelGnmiUtils.h"
#include "Ondra/ScalarEncode.h"
#include "Tovak/Assert.h"
#include "Tovak/Trace.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra {
namespace {

Tovak::DebugHandler& debugHandler() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("OndraIr", false);
  return handler;
}

void addScalar(gnmi::Notification* notification, IrLeaf const& leaf, IrLeaf::Handle const& value) {
  gnmi::Update* const update = notification->add_update();
  leaf.leafPath->copyToGnmiPath(update->mutable_path());
  TOVAK_ASSERT(isScalarType(value->type()), debugHandler(), "unsupported type");
  extractScalar(notification, value, update->mutable_val());
}

void addLeafList(gnmi::Notification* notification, IrLeaf const& leaf, IrLeaf::LeafList const& values) {
  gnmi::Update* const update = notification->add_update();
  leaf.leafPath->copyToGnmiPath(update->mutable_path());
  auto& elements = *update->mutable_val()->mutable_leaflist_val()->mutable_element();
  elements.Reserve(static_cast<int>(values.size()));
  for (IrLeaf::Handle const& value : values) {
    TOVAK_ASSERT(isScalarType(value->type()), debugHandler(), "only scalar array types are supported");
    extractScalar(notification, value, elements.Add());
  }
}

void addLeaf(gnmi::Notification* notification, IrLeaf const& leaf) {
  if (auto const* const value = std::get_if<IrLeaf::Handle>(&leaf.value)) [[likely]] {
    if (*value) {
      addScalar(notification, leaf, *value);
    } else {
      KelGnmiUtils::pushDelete(*notification, leaf.leafPath);
    }
    return;
  }
  addLeafList(notification, leaf,
              std::get<IrLeaf::LeafList>(leaf.value)); // throws for a leaf without a value
}

} // namespace

RespEncoder& RespEncoder::shared() {
  static auto* const encoder = new RespEncoder();
  encoder->clear();
  return *encoder;
}

void RespEncoder::encodeNode(long timestamp, Kel::Ptr<Path const> const& prefix, IrNode const& node) {
  gnmi::Notification* notification = nullptr;
  auto const nextResponse = [&](std::size_t leavesLeft) {
    auto made = ArenaRespMsg::createResponse(prefix, timestamp);
    responses_.push_back(std::move(made.first));
    notification = made.second;
    notification->mutable_update()->Reserve(
        static_cast<int>(std::min<std::size_t>(leavesLeft, kLeavesPerResponse)));
  };
  std::size_t leavesLeft = node.leaves.size();
  nextResponse(leavesLeft);
  int count = 0;
  for (IrLeaf const& leaf : node.leaves) {
    addLeaf(notification, leaf);
    --leavesLeft;
    if (++count == kLeavesPerResponse) {
      nextResponse(leavesLeft);
      count = 0;
    }
  }
}

void RespEncoder::encodeNode(PlainNode const& node) {
  auto made = ArenaRespMsg::createResponse(node.prefix, node.timestamp);
  responses_.push_back(std::move(made.first));
  auto& updates = *made.second->mutable_update();
  updates.Reserve(static_cast<int>(node.leaves.size()));
  for (PlainLeaf const& leaf : node.leaves) {
    gnmi::Update& update = *updates.Add();
    leaf.plan->leafPath->copyToGnmiPath(update.mutable_path());
    extractScalar(leaf.plan->attr.memberType().desc(), leaf.value, *update.mutable_val());
  }
}

std::vector<std::shared_ptr<ArenaRespMsg>> Ir::toSubResp() const {
  RespEncoder encoder;
  encode(encoder);
  return encoder.take();
}

} // namespace Ondra
