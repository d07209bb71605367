// Ondra::KelTypeNotifWalker: walks the one attribute, or the one collection member, that a notification
// names, and sends what became of it.
//
// Invariants
// 1. After it, a subscriber's tree holds of that attribute exactly what a full walk would send now: what is
//    there is walked as a full walk does it, what is no longer there is deleted.
// 2. What is sent of one attribute is later than whatever was sent of it before; its deletes come first.
// 3. What the model's code raises costs the attribute or member: it is told as gone, because a full walk
//    leaves it out.
// 4. All that it sends is collected and sent at its end; entities that come into being are walks of their own
//    and send by themselves.
#pragma once

#include <memory>

#include "Kel/Attr.h"
#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kstd/Export.h"
#include "Ondra/GifNotifiee.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/rules/WalkRules.h"

namespace Ondra {

// Lives on the stack of the notification. Runs to its end: nothing is parked. Scheduler thread only.
class KTD_EXPORT KelTypeNotifWalker final : public FullKelTypeWalker {
public:
  // `id` as the notification carries it; `key`: of the member, null for a singular attribute. A null key for
  // a collection: all of its members, those that have gone unnoticed included.
  KelTypeNotifWalker(Kel::Ptr<Path const> const& prefixPath, GifGnmiNotifiee& notifiee,
                     Kel::Ptr<Kel::GenericIf const> object, Kel::Ptr<Path> leafPath, BaseRouter& router,
                     Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> key, WalkerFlags flags);
  ~KelTypeNotifWalker() override;

  WalkResult walk();
  // Sends what is to be seen at a path, relative to the prefix, that members of the collection share: the
  // last of them, or all in their order where each can have leaves that the others are without.
  WalkResult walkSharers(Kel::Ptr<Path const> const& path);

  // The short road of the most frequent change: an attribute that is one plain leaf and has a value. Sends
  // just what a walker would; false when the change is to be walked instead, as it is while walks are traced.
  // REQUIRES a WalkScope.
  [[nodiscard]] static bool tellOwnLeaf(GifGnmiNotifiee& notifiee, Kel::PtrInterface const& object,
                                        Kel::AttributeId id);

  WalkResult handleInstantiating(Kel::Ptr<Kel::GenericIf const> gif, Kel::Ptr<Path const> const& path,
                                 long timestamp, KelKey* key) override;
  // Sends what this walker has collected. What its parts want to send by themselves is collected too.
  WalkResult routerPush(std::shared_ptr<Ir>& ir) const override;
  WalkResult nextWalker(Kel::Ptr<Kel::GenericIf const> attrGif, std::shared_ptr<Ir> const& ir,
                        Kel::Ptr<Path> const& leafPath, KelKey& key, long timestamp, KelKey* keyArg) override;
  using FullKelTypeWalker::routerPush;

private:
  using Handle = Kel::Ptr<Kel::GenericIf const>;
  using Plan = WalkRules::AttrPlan;

  // A walker of a nested value, which collects into `ir`.
  KelTypeNotifWalker(KelTypeNotifWalker& parent, Handle value, std::shared_ptr<Ir> const& ir,
                     Kel::Ptr<Path> const& leafPath, KelKey& key, long timestamp);

  void walkAttr(Plan const& plan);
  template <class Tell, class Gone>
  void tellOrGone(Plan const& plan, Handle const& key, Tell const& tell, Gone const& gone);
  void walkWhole(Plan const& plan);
  // `clears`: what the subscriber has of it goes first.
  void tellWhole(Plan const& plan, Kel::Ptr<Path> const& leafPath, bool clears);
  void wholeGone(Plan const& plan, Kel::Ptr<Path> leafPath);
  void endEntityAt(Kel::Ptr<Path const> const& path);
  void walkMembers(Plan const& plan);
  void walkMember(Plan const& plan, Handle const& key);
  void tellMember(Plan const& plan, Handle const& key, bool clears);
  void tellSharers(Plan const& plan, Kel::Ptr<Path const> const& path);
  void sendMember(Plan const& plan, Handle const& key, bool clears, long timestamp);
  [[nodiscard]] bool takesPlaceAlone(Plan const& plan, Handle const& key, long& timestamp);
  [[nodiscard]] static Handle memberKey(Plan const& plan, Handle const& stateKey);
  void memberGone(Plan const& plan, Handle const& key);
  void sendSoFar();
  [[nodiscard]] Kel::Ptr<Path const> memberPath(Plan const& plan, Handle const& key);
  [[nodiscard]] bool isAbsent(Plan const& plan, Handle const& value) const;
  void traceFault(Plan const& plan) const;
  void traceKind(Plan const& plan, bool member) const;
  [[nodiscard]] long stamp(Kel::AttributeId id, Handle const& key);
  [[nodiscard]] Kel::Ptr<Path const> absolute(Kel::Ptr<Path const> const& path) const;
  void addDelete(long timestamp, Kel::Ptr<Path const> const& path);
  // Of attributes whose leaves can come and go: before and after the walk of what is there now.
  [[nodiscard]] bool clearsFirst(Plan const& plan, Handle const& key, bool isNew);
  void settle(Plan const& plan, Handle const& key, long timestamp);

  GifGnmiNotifiee& notifiee_;
  Kel::AttributeId const id_;
  Handle const key_;
  bool const nested_;
};

} // namespace Ondra
