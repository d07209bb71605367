// Ondra::FullKelTypeWalker: walks one live object, attribute by attribute, into keyed leaves.
//
// The walk of a subscription is a tree of walkers: one for the object at the prefix, one below it for each nested value (on the
// stack, the same prefix), and one for each owned entity, which is a walk of its own under its own prefix. A walk can stop after any
// attribute of an object and after any member of a collection: the walker then moves what it needs to go on into a walker on the heap,
// parks it in the walk's queue and returns a non-zero result, upon which its callers do the same.
//
// Invariants
// 1. `gif_` is set while a walker runs and null while it is parked. A parked walker finds its object again through the notifiee of
//    its prefix and, for a nested value, the chain of attributes and keys from there (`links_`).
// 2. A walker that is parked has nothing unsent: pausing flushes first.
// 3. Two keys: `keyName_` is the build state, whose mode says whether leaves or key texts are made; the `key` argument is the key of
//    the list entry being walked, needed for its key leaves only.
// 4. A non-zero result stays: nothing that runs later in the same walker turns it into success.
// 5. What is parked, and where, is the business of ParkedWalks.
//
// 6. An exception of the host's code costs the item at hand, an attribute or a member of a collection (Fault.h); in a key mode it
//    passes, because a key is told whole or not at all. Before a walker is parked nothing of it is moved until nothing can throw but
//    for want of memory.
//
// Everything here runs on the scheduler thread that owns the model.
#pragma once

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Kel/Attr.h"
#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kel/Type.h"
#include "Kstd/Export.h"
#include "Ondra/BaseRouter.h"
#include "Ondra/GifNotifiee.h"
#include "Ondra/KelKey.h"
#include "Ondra/Path.h"
#include "Ondra/WalkQ.h"
#include "Ondra/WalkReach.h"
#include "Ondra/WalkRules.h"
#include "Ondra/WalkTask.h"
#include "Ondra/WalkTypes.h"

namespace Ondra {

class ArenaRespMsg;
class ByteRouter;
class Ir;
class ParkedWalks;
class RespEncoder;
struct WireResponse;

// Whether walks collect their leaves and send them in bundles (the default), or send each attribute as soon as it is found. The toggle
// "OndraSyncBundling" of "Ondra.json", read once per process.
[[nodiscard]] KTD_EXPORT bool toggleOndraSyncBundlingEnabled();

class KTD_EXPORT FullKelTypeWalker {
public:
  using WalkMapType = std::unordered_map<WalkId, WalkQ, std::hash<WalkId>, std::equal_to<WalkId>,
                                         Kel::MemAllocator<std::pair<WalkId const, WalkQ>>>;
  using WalkIdSetType = absl::flat_hash_set<WalkId>;
  using PathWalkIdMapType =
      absl::flat_hash_map<Kel::Ptr<Path const>, WalkIdSetType, std::hash<Kel::Ptr<Path const>>,
                          std::equal_to<Kel::Ptr<Path const>>>;

  // Does not keep `key`, `router` and `walkQ` alive; all three outlive the walker (a parked one has copies of its keys).
  // With bundling on REQUIRES an Ir (asserted).
  FullKelTypeWalker(Kel::Ptr<Path const> const& prefixPath, std::shared_ptr<Ir> const& ir,
                    Kel::Ptr<Kel::GenericIf const> gif, Kel::Ptr<Path> leafPath, BaseRouter& router,
                    WalkQ* walkQ, WalkerFlags flags, KelKey& key, bool rootWalker, long timestamp);
  FullKelTypeWalker(FullKelTypeWalker const&) = delete;
  FullKelTypeWalker& operator=(FullKelTypeWalker const&) = delete;
  virtual ~FullKelTypeWalker();

  // --- virtual operations ------------------------------------------------------------------------
  // Walks an owned entity as a walk of its own at `path`.
  virtual WalkResult handleInstantiating(Kel::Ptr<Kel::GenericIf const> gif, Kel::Ptr<Path const> const& path,
                                         long timestamp, KelKey* key);
  // Sends all that is in `ir`, to its end whatever the router says; the result is that of the last push.
  virtual WalkResult routerPush(std::shared_ptr<Ir>& ir) const;
  // Sends what has been collected, when forced to or when the walk must yield. REQUIRES bundling (asserted).
  virtual WalkResult routerPush(bool force);
  // Walks a nested value below `leafPath`.
  virtual WalkResult nextWalker(Kel::Ptr<Kel::GenericIf const> attrGif, std::shared_ptr<Ir> const& ir,
                                Kel::Ptr<Path> const& leafPath, KelKey& key, long timestamp, KelKey* keyArg);

  // Walks the object's attributes from where the walker stands. `key`: of the list entry that the object is, or null.
  WalkResult walk(KelKey* key);
  // One singular attribute, or one member of a collection at its keyed path. `ir` is made when there is none.
  WalkResult walkSingletonAttr(Kel::KelAttr attr, Kel::Ptr<Kel::GenericIf const> const& attrGif,
                               GifGnmiNotifiee* notifiee, long timestamp, Kel::Ptr<Path> leafPath,
                               KelKey* key, std::shared_ptr<Ir>& ir);
  WalkResult walkCollectionAttr(Kel::KelAttr attr, Kel::Ptr<Kel::GenericIf const> const& memberKey,
                                Kel::Ptr<Kel::GenericIf const> const& memberValue, GifGnmiNotifiee* notifiee,
                                std::shared_ptr<Ir>& ir);
  // Hands one response to the router.
  WalkResult routerPush(std::shared_ptr<ArenaRespMsg>& resp) const;
  WalkResult routerPush(ByteRouter& router, WireResponse const& resp) const;

  // --- values: a leaf's handle in value mode (into `out`), a key text in a key mode -----------------
  // What the model's code raises passes through these; the walk that uses them catches it.
  void extractScalar(Kel::Ptr<Kel::GenericIf const> const& value, Kel::Ptr<Path const> const& path,
                     KelKey& key, Kel::Ptr<Kel::GenericIf const>* out) const;
  void extractBuiltin(Kel::Ptr<Kel::GenericIf const> const& value, Kel::Ptr<Path const> const& path,
                      KelKey& key, Kel::Ptr<Kel::GenericIf const>* out) const;
  void extractEnum(Kel::Ptr<Kel::GenericIf const> const& value, Kel::Ptr<Path const> const& path, KelKey& key,
                   Kel::Ptr<Kel::GenericIf const>* out) const;
  void extractValAttr(Kel::Ptr<Kel::GenericIf const> const& value, Kel::Ptr<Path const> const& path,
                      KelKey& key, Kel::Ptr<Kel::GenericIf const>* out) const;
  void extractUnionActiveAlternative(Kel::Ptr<Kel::GenericIf const> const& value,
                                     Kel::Ptr<Path const> const& path, KelKey& key,
                                     Kel::Ptr<Kel::GenericIf const>* out) const;
  void extractGnmiJsonStrepAttr(Kel::Ptr<Kel::GenericIf const> const& object, Kel::KelAttr const& attr,
                                Kel::Ptr<Path const> const& path, KelKey& key,
                                Kel::Ptr<Kel::GenericIf const>* out) const;
  void extractScalarArray(Kel::Ptr<Kel::GenericIf const> const& object, Kel::KelAttr const& attr,
                          std::shared_ptr<Ir>& ir, Kel::Ptr<Path const> const& prefix,
                          Kel::Ptr<Path const> const& leafPath, long timestamp) const;
  // The leaf form: adds the value to `ir` under `prefix`.
  void extractScalar(Kel::Ptr<Kel::GenericIf const> const& value, KelKey& key, std::shared_ptr<Ir>& ir,
                     Kel::Ptr<Path const> const& prefix, Kel::Ptr<Path const> const& leafPath,
                     long timestamp) const;
  // Fills a fresh key for a member of `attr`.
  void extractKeyInfo(Kel::Ptr<Kel::GenericIf const> memberKey, Kel::KelAttr const& attr, KelKey& key);

  // --- starting, resuming, cancelling ------------------------------------------------------------
  // The first slice of a walk.
  static WalkResult walkObject(std::shared_ptr<WalkInfo>& walkInfo);
  // Every later slice. REQUIRES a task (asserted).
  static WalkResult resumeWalk(std::shared_ptr<WalkInfo>& walkInfo);
  // A walk inside a running one. `key` and `ir` may be null.
  static WalkResult walkObjectInternal(std::shared_ptr<WalkInfo>& walkInfo, WalkQ* walkQ, KelKey* key,
                                       std::shared_ptr<Ir> ir);
  // Drops what is parked for the walk and says whether there was anything. REQUIRES a task (asserted).
  static bool cancelPendingWalk(std::shared_ptr<WalkInfo>& walkInfo);

  // --- parked walks ------------------------------------------------------------------------------
  static void addToWalkQ(std::unique_ptr<FullKelTypeWalker>&& walker);
  // The next walker whose object is still there, ready to run; null when the queue is empty.
  static std::unique_ptr<FullKelTypeWalker> popWalkQ(WalkQ& walkQ);
  // Drops the walkers parked at or below `path`.
  static void delFromWalkQ(Kel::Ptr<Path const> const& path);
  static void flushWalkMap();
  [[nodiscard]] static std::string dumpWalkMap();
  [[nodiscard]] static std::string dumpPathWalkIdMap();
  [[nodiscard]] static WalkMapType& walkMap();
  [[nodiscard]] static std::size_t walkMapSize();
  [[nodiscard]] static std::size_t pathWalkIdMapSize();
  [[nodiscard]] std::string debugString() const;
  [[nodiscard]] SyncWalkId syncWalkId() const noexcept { return {syncId_, walkId_}; }

protected:
  // One step from an object to a value inside it.
  struct Link {
    Kel::KelAttr attr;
    Kel::Ptr<Kel::GenericIf const> key; // detached; null for a singular attribute
  };

  // Sends all that is in `ir` as bytes. `isChange`: leaves that no message can hold are deleted, and what holds neither updates nor
  // deletes is not sent. The result is that of the last push.
  [[nodiscard]] WalkResult pushBytes(ByteRouter& router, Ir const& ir, bool isChange) const;
  // Traces of walks are on.
  [[nodiscard]] static bool isTraced();
  // A string that is empty.
  [[nodiscard]] static bool isEmptyText(Kel::Ptr<Kel::GenericIf const> const& value);
  [[nodiscard]] bool valueMode() const noexcept { return !keyName_->inKeyMode(); }
  // The key state of walkers that make leaves. Such a state is never written to, so all of them share it.
  [[nodiscard]] static KelKey& valueModeKey();
  [[nodiscard]] WalkResult yieldResult() const;
  [[nodiscard]] long attrTimestamp(Kel::KelAttr const& attr, Kel::Ptr<Kel::GenericIf const> const& key,
                                   GifGnmiNotifiee* notifiee) const;
  [[nodiscard]] static std::shared_ptr<Ir> makeIr();
  // The latest that is not a success, if there is one.
  [[nodiscard]] static WalkResult merged(WalkResult before, WalkResult now) noexcept {
    return now == WalkResult::Success ? before : now;
  }

  Kel::Ptr<Path const> prefixPath_;
  std::shared_ptr<Ir> ir_;
  Kel::Ptr<Path> leafPath_;
  Kel::Ptr<Kel::GenericIf const> gif_;
  BaseRouter& router_;
  WalkQ* walkQ_;
  SyncId syncId_;
  WalkId walkId_;
  Kel::KelType objType_;
  WalkerFlags flags_;
  KelKey* keyName_;
  bool rootWalker_;
  long timestamp_;
  Kel::KelTypeBase::AttributeQIterator attrQ_;
  Kel::Ptr<Kel::GenericIf const> resumeKey_; // of the collection member that is walked next
  Link step_;            // being taken: the attribute and member that a child walker is made for
  bool leftOut_ = false; // some item, because of an exception

private:
  class BytePush;
  [[nodiscard]] WalkResult afterPush(bool taken) const;
  [[nodiscard]] WalkResult pushAll(RespEncoder& encoder) const;
  [[nodiscard]] WalkResult pushPlain(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object,
                                     GifGnmiNotifiee& notifiee);
  struct Parked; // what a parked walker takes along that must be copied
  FullKelTypeWalker(Parked&& copies, FullKelTypeWalker& running) noexcept;

  using Road = WalkRules::Road;
  // Which short roads are open (WalkerShort.cpp).
  struct ShortRoads {
    bool watched = false; // to an entity whose path is watched: without a WalkInfo
    bool held = false;    // to an entity that is known by its holder: without its path
    bool leaves = false;  // to leaves: without a walker's general code for values
  };
  // What stays the same while the walker walks.
  struct Course {
    GifGnmiNotifiee* notifiee;
    KelKey* key;
    std::shared_ptr<Ir>& ir;
    ShortRoads shortRoads;
    std::uint64_t interruptions; // at its beginning
  };
  // Walks one item: what is raised in it costs the item; when nobody has asked meanwhile whether the slice is used up, it is asked.
  template <class Walk>
  WalkResult walkItem(Kel::KelAttr const& attr, Walk const& walk);
  [[nodiscard]] WalkResult leaveOut(Kel::KelAttr const& attr);
  // The object has ended while it was walked: what was collected since is of nobody.
  [[nodiscard]] bool hasEnded(Course const& course) const;
  WalkResult walkAttr(WalkRules::AttrPlan const& plan, std::size_t position, Course& course);
  WalkResult walkMember(WalkRules::AttrPlan const& plan, Kel::GenericIf::Iterator const& member,
                        Course& course);
  [[nodiscard]] bool mustPause(WalkResult result) const noexcept {
    return result != WalkResult::Success && !(flags_ & flagNoPause);
  }
  WalkResult pause(WalkResult result, KelKey* key, std::shared_ptr<Ir>& ir);
  // `pushed`: of what the walker has sent by itself.
  WalkResult finish(WalkResult result, KelKey* key, std::shared_ptr<Ir>& ir, GifGnmiNotifiee* notifiee,
                    WalkResult pushed = WalkResult::Success);
  WalkResult finishSkipped();
  // The short roads (WalkerShort.cpp).
  [[nodiscard]] ShortRoads shortRoads(GifGnmiNotifiee const* notifiee) const;
  WalkResult walkOwnLeaf(WalkRules::AttrPlan const& plan, std::size_t position, GifGnmiNotifiee& notifiee);
  // Nothing waits to be sent before the plain leaves of an object.
  [[nodiscard]] bool sendsPlain() const;
  static void fetchAhead(WalkRules::AttrPlan const& plan, Kel::GenericIf::Iterator const& member);
  [[nodiscard]] std::optional<WalkResult> pushPlainChild(WalkRules::AttrPlan const& plan,
                                                         Kel::PtrInterface const* child,
                                                         GifGnmiNotifiee const& notifiee);
  [[nodiscard]] std::optional<WalkResult> walkChild(WalkRules::AttrPlan const& plan,
                                                    Kel::Ptr<Kel::GenericIf const> const& child,
                                                    GifGnmiNotifiee const& notifiee);
  void noteHeld(Kel::KelAttr const& attr, Kel::Ptr<Kel::GenericIf const> const& child,
                Kel::Ptr<Path const> const& path, GifGnmiNotifiee const* notifiee) const;
  WalkResult walkWatched(Kel::Ptr<Kel::GenericIf const> const& entity, Kel::Ptr<GifGnmiNotifiee> notifiee,
                         Kel::Ptr<Path const> const& path, long timestamp, KelKey* key);
  [[nodiscard]] bool isLeftOut(WalkRules::AttrPlan const& plan) const;
  WalkResult walkSingleton(WalkRules::AttrPlan const& plan, Course& course);
  // Says in `parked` whether the walker has been parked on the way.
  WalkResult walkMembers(WalkRules::AttrPlan const& plan, Course& course, bool& parked);
  WalkResult walkJsonAttr(Kel::KelAttr const& attr, Kel::Ptr<Path> const& leafPath, long timestamp,
                          std::shared_ptr<Ir>& ir);
  WalkResult walkPointerAttr(Kel::Ptr<Kel::GenericIf const> const& ref, Kel::Ptr<Path> const& leafPath,
                             long timestamp, std::shared_ptr<Ir>& ir);
  WalkResult walkPlainAttr(Kel::KelAttr const& attr, Kel::Ptr<Kel::GenericIf const> const& value,
                           Kel::Ptr<Path> const& leafPath, long timestamp, KelKey* key,
                           std::shared_ptr<Ir>& ir);
  void addKeyLeaf(PathElem::KeyMapType::Node const& field, Kel::Ptr<Path> const& leafPath, KelKey const* key,
                  long timestamp, Ir& ir);
  WalkResult pushCollected(WalkResult result, std::shared_ptr<Ir>& ir);
  WalkResult walkKeyScalarNode(KelKey& memberKey, long timestamp, std::shared_ptr<Ir>& ir);
  void encodeMemberIntoKey(Kel::KelAttr const& attr, Kel::Ptr<Kel::GenericIf const> const& value,
                           KelKey const& memberKey);
  void keyText(KelKey& key, Kel::Ptr<Path const> const& path, std::string const& text,
               Kel::Ptr<Kel::GenericIf const> const& value) const;
  [[nodiscard]] std::vector<Link> linksFromPrefix() const;
  [[nodiscard]] bool isThereAgain();
  [[nodiscard]] bool takeObject(GifGnmiNotifiee const& notifiee);
  static WalkResult runParked(WalkQ& walkQ, FullKelTypeWalker& walker);
  [[nodiscard]] static WalkResult goThrough(WalkQ& queue);
  static WalkResult doWalkObject(std::shared_ptr<WalkInfo>& walkInfo, WalkQ* walkQ, KelKey* key,
                                 std::shared_ptr<Ir> ir);
  // Whether and how its caller hears of a pipe that has filled up at the very end of a walk inside a walk.
  [[nodiscard]] static WalkResult insideResult(WalkResult result) noexcept {
    return result == WalkResult::SuccessWithPipeFull ? WalkResult::PipeFull : result;
  }

  // How a place at or below the object of this parked walker, and not of one parked below it, stands to the walk (WalkReach.cpp).
  [[nodiscard]] WalkReach reach(std::span<gnmi::PathElem const* const> below) const;

  friend class ParkedWalks;
  friend class WalkQ;
  friend std::optional<WalkReach> walkReach(WalkInfo const& walkInfo,
                                            std::span<gnmi::PathElem const* const> path);

  Kel::Ptr<GifGnmiNotifiee>
      notifiee_; // of the prefix, where whoever made the walker knows it; taken by `walk`
  FullKelTypeWalker const* parent_ = nullptr; // the walker on the stack that this one was made by
  std::vector<Link> links_;                   // of a parked walker: from the prefix's object to its own
  WalkQ::WalkerList::iterator place_;         // of a parked walker: in its queue
  std::uint64_t parkedAs_ = 0;                // of a parked walker: counted from 1; 0: it is not parked
  bool isPlain_ = false;                      // made by the library: no operation is overridden
  std::optional<KelKey> ownKeyName_;          // of a parked walker
  std::optional<KelKey> ownKey_;
};

} // namespace Ondra
