// The short road of a change: one plain leaf, from its attribute to its response, without a walker and without an Ir.

#include "Ondra/ArenaRespMsg.h"
#include "Ondra/ByteRouter.h"
#include "Ondra/IrToResp.h"
#include "Ondra/IrToWire.h"
#include "Ondra/KelTypeNotifWalker.h"

namespace Ondra {
namespace {

class LeafPush final : public WireEncoder {
public:
  explicit LeafPush(ByteRouter& router) noexcept : router_(router) {}

protected:
  void response(WireResponse const& response) override { router_.pushBytes(SyncId(), WalkId(), response); }

private:
  ByteRouter& router_;
};

// A full pipe does not hold a notification up.
void push(BaseRouter& router, long timestamp, Kel::Ptr<Path const> const& prefix, IrNode const& node) {
  if (ByteRouter* const bytes = router.byteRouter()) {
    LeafPush(*bytes).encodeNode(timestamp, prefix, node);
    return;
  }
  RespEncoder& encoder = RespEncoder::shared();
  encoder.encodeNode(timestamp, prefix, node);
  router.push(SyncId(), WalkId(), encoder.responses().front());
  encoder.clear();
}

} // namespace

bool KelTypeNotifWalker::tellOwnLeaf(GifGnmiNotifiee& notifiee, Handle const& object, Kel::AttributeId id) {
  Kel::KelAttr const attr = notifiee.objectType().attr(absoluteId(id));
  if (!attr || notifiee.keysCollide() || notifiee.notifFlags().has(flagNoPush) || isTraced()) {
    return false;
  }
  Plan const& plan = WalkRules::typePlan(notifiee.objectType()).attrs[attr.desc().index];
  if (!plan.isOwnLeaf) {
    return false;
  }
  Handle value = attr.genericIfGet(object);
  if (!value || (plan.isEntityName && isEmptyText(value))) {
    return false;
  }
  AttrStateMap& states = notifiee.attrStates();
  AttrStateNode const* const known = states.queryAttrState(attr.id(), nullptr);
  long const timestamp = known != nullptr ? known->updatedTimestamp()
                                          : states.getAttrState(attr.id(), nullptr).effectiveTimestamp();
  static auto* const node = new IrNode(); // keeps a block of leaves
  node->leaves.clear();                   // of a push that was left by an exception
  node->addLeaf(plan.leafPath, std::move(value));
  push(notifiee.router(), timestamp, notifiee.prefixPath(), *node);
  node->leaves.clear();
  return true;
}

} // namespace Ondra
