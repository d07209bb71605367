// Leaves go straight into arenas, split after a fixed number; what no message can hold is taken back and
// noted. Bytes: IrToWire.cpp.
#include "Ondra/responses/IrToResp.h"

#include <algorithm>
#include <variant>

#include "Ondra/ArenaRespMsg.h"
#include "Ondra/GnmiUtils.h"
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

bool fill(gnmi::Notification* notification, IrLeaf::Handle const& value, gnmi::TypedValue& out) {
  TOVAK_ASSERT(isScalarType(value->type()), debugHandler(), "unsupported type");
  return extractScalar(notification, value, &out);
}

bool fill(gnmi::Notification* notification, IrLeaf::LeafList const& values, gnmi::TypedValue& out) {
  auto& elements = *out.mutable_leaflist_val()->mutable_element();
  elements.Reserve(static_cast<int>(values.size()));
  return std::all_of(values.begin(), values.end(), [&](IrLeaf::Handle const& value) {
    TOVAK_ASSERT(isScalarType(value->type()), debugHandler(), "only scalar array types are supported");
    return extractScalar(notification, value, elements.Add());
  });
}

// False when no message can hold the value: nothing is added then.
bool addLeaf(gnmi::Notification* notification, IrLeaf const& leaf) {
  auto const* const one = std::get_if<IrLeaf::Handle>(&leaf.value);
  if (one != nullptr && !*one) {
    KelGnmiUtils::pushDelete(*notification, leaf.leafPath);
    return true;
  }
  gnmi::Update* const update = notification->add_update();
  leaf.leafPath->copyToGnmiPath(update->mutable_path());
  bool const isFilled =
      std::visit([&](auto const& value) { return fill(notification, value, *update->mutable_val()); },
                 leaf.value); // throws for a leaf without a value
  if (!isFilled) [[unlikely]]
    notification->mutable_update()->RemoveLast();
  return isFilled;
}

// The `leafPath` of the plan, at once. Ends the process where there is no memory: messages do not survive
// that.
void nameLeaf(gnmi::Path& path, WalkRules::AttrPlan const& plan) noexcept {
  path.add_elem()->mutable_name()->assign(plan.elem->name().view());
}

static_assert(WalkRules::kMostPlain < RespEncoder::kLeavesPerResponse);

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
    if (!addLeaf(notification, leaf)) [[unlikely]]
      leaveOut(timestamp, prefix, leaf.leafPath);
    --leavesLeft;
    if (++count == kLeavesPerResponse) {
      nextResponse(leavesLeft);
      count = 0;
    }
  }
}

void RespEncoder::encodeNode(PlainNode const& node) {
  auto made = ArenaRespMsg::createResponse(node.prefix.get(), node.timestamp);
  responses_.push_back(std::move(made.first));
  auto& updates = *made.second->mutable_update();
  updates.Reserve(static_cast<int>(node.leaves.size()));
  for (PlainLeaf const& leaf : node.leaves) {
    gnmi::Update& update = *updates.Add();
    nameLeaf(*update.mutable_path(), *leaf.plan);
    if (!extractScalar(*leaf.type, leaf.plan->valueKind, leaf.value, *update.mutable_val())) [[unlikely]] {
      updates.RemoveLast();
      leaveOut(node.timestamp, node.prefix.get(), leaf.plan->leafPath);
    }
  }
}

std::vector<std::shared_ptr<ArenaRespMsg>> Ir::toSubResp() const {
  RespEncoder encoder;
  encode(encoder);
  return encoder.take();
}

} // namespace Ondra
