// Ondra::FullKelTypeWalker: walks one live object, attribute by attribute, into keyed leaves.
//
// The walk of a subscription is a tree of walkers: one for the object at the prefix, one below it for each
// nested value (on the stack, the same prefix), and one for each owned entity, which is a walk of its own
// under its own prefix. A walk can stop after any attribute of an object and after any member of a
// collection: the walker then moves what it needs to go on into a walker on the heap, parks it in the walk's
// queue and returns a non-zero result, upon which its callers do the same.
//
// Invariants
// 1. `gif_` is set while a walker runs and null while it is parked. A parked walker finds its object again
//    through the notifiee of its prefix and, for a nested value, the chain of attributes and keys from there
//    (`links_`).
// 2. A walker that is parked has nothing unsent: pausing flushes first.
// 3. Two keys: `keyName_` is the build state, whose mode says whether leaves or key texts are made; the `key`
//    argument is the key of the list entry being walked, needed for its key leaves only.
// 4. A non-zero result stays: nothing that runs later in the same walker turns it into success.
// 5. What is parked, and where, is the business of ParkedWalks.
// 6. An exception of the host's code costs the item at hand, an attribute or a member of a collection
//    (Fault.h); in a key mode it passes, because a key is told whole or not at all. Before a walker is parked
//    nothing of it is moved until nothing can throw but for want of memory.
//
// Everything here runs on the scheduler thread that owns the model.
#pragma once

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
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
#include "Ondra/WalkTask.h"
#include "Ondra/WalkTypes.h"

namespace Ondra {

class ArenaRespMsg;
class Ir;
class LightWalk;
class ParkedWalks;
class Sender;
class ShortRoads;

// Whether walks collect their leaves and send them in bundles (the default), or send each attribute as soon
// as it is found. The toggle "OndraSyncBundling" of "Ondra.json", read once per process.
[[nodiscard]] KTD_EXPORT bool toggleOndraSyncBundlingEnabled();

class KTD_EXPORT FullKelTypeWalker {
public:
  using WalkMapType = std::unordered_map<WalkId, WalkQ, std::hash<WalkId>, std::equal_to<WalkId>,
                                         Kel::MemAllocator<std::pair<WalkId const, WalkQ>>>;
  using WalkIdSetType = absl::flat_hash_set<WalkId>;
  using PathWalkIdMapType =
      absl::flat_hash_map<Kel::Ptr<Path const>, WalkIdSetType, std::hash<Kel::Ptr<Path const>>,
                          std::equal_to<Kel::Ptr<Path const>>>;

  // Does not keep `key`, `router` and `walkQ` alive; all three outlive the walker (a parked one has copies of
  // its keys). With bundling on REQUIRES an Ir (asserted).
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

  // Walks the object's attributes from where the walker stands. `key`: of the list entry that the object is,
  // or null.
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
  // What both begin with.
  static WalkResult doWalkObject(std::shared_ptr<WalkInfo>& walkInfo, WalkQ* walkQ, KelKey* key,
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

  // Whether leaves are made, not key texts.
  [[nodiscard]] bool valueMode() const noexcept { return !keyName_->inKeyMode(); }
  [[nodiscard]] WalkResult yieldResult() const;
  [[nodiscard]] long attrTimestamp(Kel::KelAttr const& attr, Kel::Ptr<Kel::GenericIf const> const& key,
                                   GifGnmiNotifiee* notifiee) const;

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
  // What works on a walker's state, each for its own part:
  class Run;               // the loop over the attributes (WalkRun.cpp)
  class Item;              // one attribute or member (WalkItem.cpp)
  friend class ShortRoads; // what an earlier walk has been over
  friend class LightWalk;  // and whole subtrees of it
  friend class Sender;     // responses
  friend class ParkedWalks;
  friend class WalkQ;

  struct Parked; // what a parked walker takes along that must be copied
  FullKelTypeWalker(Parked&& copies, FullKelTypeWalker& running) noexcept;
  // What is being handled has been raised in that attribute, which is left out; in a key mode it passes.
  void leaveOut(Kel::KelAttr const& attr);

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
