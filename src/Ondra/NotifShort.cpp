// The short road of a change: one plain leaf, from its attribute to its response, without a walker and without an Ir.

#include "Ondra/ArenaRespMsg.h"
#include "Ondra/ByteRouter.h"
#include "Ondra/Fault.h"
#include "Ondra/IrToResp.h"
#include "Ondra/IrToWire.h"
#include "Ondra/KelTypeNotifWalker.h"

namespace Ondra {
namespace {

class LeafPush final : public WireEncoder {
public:
  explicit LeafPush(ByteRouter& router) noexcept : router_(router) {}

protected:
  void response(WireResponse const& response) override {
    if (response.updates > 0) [[likely]] {
      static_cast<void>(handOver([&] { return router_.pushBytes(SyncId(), WalkId(), response); }));
    }
  }

private:
  ByteRouter& router_;
};

// False when no message can hold the leaf's value. A full pipe does not hold a notification up.
bool push(BaseRouter& router, PlainNode const& node) {
  if (ByteRouter* const bytes = router.byteRouter()) {
    LeafPush encoder(*bytes);
    encoder.encodeNode(node);
    return encoder.takeLeftOut() == nullptr;
  }
  RespEncoder& encoder = RespEncoder::shared();
  encoder.encodeNode(node);
  bool const isWhole = encoder.takeLeftOut() == nullptr;
  if (isWhole) [[likely]] {
    static_cast<void>(handOver([&] { return router.push(SyncId(), WalkId(), encoder.responses().front()); }));
  }
  encoder.clear();
  return isWhole;
}

} // namespace

bool KelTypeNotifWalker::tellOwnLeaf(GifGnmiNotifiee& notifiee, Handle const& object, Kel::AttributeId id) {
  Kel::KelAttr const attr = notifiee.objectType().attr(absoluteId(id));
  if (!attr || notifiee.meetsKeyFields() || notifiee.notifFlags().has(flagNoPush) || isTraced()) {
    return false;
  }
  Plan const& plan = WalkRules::typePlan(notifiee.objectType()).attrs[attr.desc().index];
  void const* const value = plan.isPlainLeaf && !plan.isPrinted ? attr.valueAt(*object->object()) : nullptr;
  if (value == nullptr ||
      (plan.isEntityName && plan.isText && static_cast<Kel::String const*>(value)->empty())) {
    return false;
  }
  AttrStateMap& states = notifiee.attrStates();
  AttrStateNode const* const known = states.queryAttrState(attr.id(), nullptr);
  long const timestamp = known != nullptr ? known->updatedTimestamp()
                                          : states.getAttrState(attr.id(), nullptr).effectiveTimestamp();
  PlainLeaf const leaf{timestamp, &plan, &attr.memberType().desc(), value};
  return push(notifiee.router(), {timestamp, notifiee.prefixPath(), notifiee.wirePrefix(), {&leaf, 1}});
}

} // namespace Ondra
