// When a walk may take them, plain leaves sent from where they lie, members fetched ahead, and children found
// by their notifiee.
#include "Ondra/live/ShortRoads.h"

#include <array>
#include <span>
#include <string>
#include <utility>

#include "Kel/ActivityClock.h"
#include "Kel/Entity.h"
#include "Kel/Notifiee.h"
#include "Kstd/Utf8.h"
#include "Ondra/IR.h"
#include "Ondra/NotifieeMaps.h"
#include "Ondra/ScalarEncode.h"
#include "Ondra/live/LightWalk.h"
#include "Ondra/live/PlainLeaves.h"
#include "Ondra/live/Sender.h"
#include "Ondra/live/WalkResults.h"
#include "Ondra/live/Watch.h"
#include "Ondra/live/WatchedPlace.h"
#include "Ondra/rules/KeyText.h"
#include "Ondra/rules/WalkerTrace.h"

namespace Ondra {
namespace {

constexpr std::size_t kLine = 64;
constexpr std::size_t kObjectLines = 6;
constexpr std::size_t kNotifieeLines = 2;

} // namespace

// Each reason for a long road stands here, and only here.
ShortRoads::ShortRoads(FullKelTypeWalker& walker, GifGnmiNotifiee* notifiee)
    : walker_(walker)
    , notifiee_(notifiee) {
  watched_ = walker.ir_ && toggleOndraSyncBundlingEnabled() // what is collected goes into one Ir, in order
             && !walker.flags_.has(flagInstantiatingOnly)   // such a walk ends notifiees
             && !isTraced();                                // every step has its line
  held_ = watched_ && notifiee != nullptr                   // it knows what it holds, and times
          && walker.isPlain_                                // no operation means something else
          && walker.valueMode() && walker.flags_.has(flagSnapshot) &&
          walker.leafPath_->empty();              // leaves, under the prefix itself
  leaves_ = held_ && !notifiee->meetsKeyFields(); // no leaf is renamed or brings others along
  plain_ = leaves_ && walker.rootWalker_          // it ends with what the object ends with
           && !walker.flags_.has(flagNoPush);     // what is sent is not collected first
}

WalkResult ShortRoads::walkOwnLeaf(WalkRules::AttrPlan const& plan, std::size_t position) {
  FullKelTypeWalker& walker = walker_;
  Kel::Ptr<Kel::GenericIf const> value = plan.attr.genericIfGet(walker.gif_);
  if (plan.isEntityName && isEmptyText(value)) return WalkResult::Success;
  long timestamp = notifiee_->attrStates().singularTimestamp(position);
  if (timestamp == 0) [[unlikely]] // the entry is made even when nothing is sent
    timestamp = notifiee_->attrStates().timestampOf(plan.attr.id(), nullptr);
  if (!value) return WalkResult::Success;
  if (plan.isPrinted) [[unlikely]]
    value = printed(value);
  walker.ir_->addNode(timestamp, walker.prefixPath_).addLeaf(plan.leafPath, std::move(value));
  return walker.walkQ_ != nullptr && walker.walkQ_->task ? walker.routerPush(false) : WalkResult::Success;
}

// What printers and routers do to the object meanwhile is none of the leaves' business: printed values are
// made first, then all responses, and then these are sent.
WalkResult ShortRoads::pushPlain(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object,
                                 GifGnmiNotifiee& notifiee) {
  PlainLeaves& leaves = PlainLeaves::shared();
  leaves.clear(); // of a walk whose router walks in turn
  Kel::Ptr<Kel::PtrInterface const> pin;
  Kel::Ptr<GifGnmiNotifiee> watching;
  if (plan.printsPlain) [[unlikely]] {
    pin = Kel::Ptr<Kel::PtrInterface const>(&object);
    watching = Kel::Ptr<GifGnmiNotifiee>(&notifiee);
    leaves.print(plan, object, [this](Kel::KelAttr const& attr) { walker_.leaveOut(attr); });
    if (!notifiee.isRegistered()) return WalkResult::Success;
  }
  WatchedPlace place(notifiee);
  leaves.collect(plan, object, place);
  return Sender(walker_, Sender::What::Walk).send(leaves);
}

namespace {

void prefetchLines(void const* from, std::size_t lines) {
  for (std::size_t at = 0; at < lines; ++at)
    __builtin_prefetch(static_cast<char const*>(from) + at * kLine);
}

// The first that observes it, when that is one of ours.
GifGnmiNotifiee const* firstNotifiee(Kel::PtrInterface const* object) {
  Kel::NotifieeList const* const list = object == nullptr ? nullptr : object->notifieeList();
  return list == nullptr ? nullptr : GifGnmiNotifiee::registered(list->front());
}

PathElem const& lastElem(GifGnmiNotifiee const& notifiee) { return *notifiee.prefixPath()->elems().back(); }

using Ahead = std::array<Kel::PtrInterface const*, 7>;

// What messages have of a path is found in so many steps: the path, its last element, which no other path
// has, the key of that, and its text.
constexpr std::size_t kPathSteps = 4;

void fetchPaths(Ahead const& ahead) {
  if (auto const* const at = firstNotifiee(ahead[4])) __builtin_prefetch(at->prefixPath().get());
  if (auto const* const at = firstNotifiee(ahead[3])) __builtin_prefetch(&lastElem(*at));
  if (auto const* const at = firstNotifiee(ahead[2])) __builtin_prefetch(lastElem(*at).key().begin());
  if (auto const* const at = firstNotifiee(ahead[1]); at != nullptr && !lastElem(*at).key().empty())
    __builtin_prefetch(lastElem(*at).key().begin()->value.data());
}

// The members of a large collection are cold. Each is fetched in the steps in which its parts are found: the
// object first, then its notifiee, then what these two point to.
void fetchAhead(WalkRules::AttrPlan const& plan, Kel::GenericIf::Iterator const& member, bool asMessages) {
  std::size_t const steps = asMessages ? kPathSteps : 1;
  Ahead ahead;
  member.objectsAhead(std::span(ahead).first(steps + 3));
  if (ahead[steps + 2] != nullptr) prefetchLines(ahead[steps + 2], kObjectLines);
  if (ahead[steps + 1] != nullptr) {
    if (Kel::NotifieeList const* const list = ahead[steps + 1]->notifieeList())
      prefetchLines(list->front(), kNotifieeLines);
  }
  if (asMessages) fetchPaths(ahead);
  if (ahead[1] == nullptr) return;
  if (GifGnmiNotifiee const* const next = firstNotifiee(ahead[1])) next->prefetch();
  if (WalkRules::TypePlan const& type = WalkRules::memberPlanOf(plan); ahead[1]->fwkType() == type.type) {
    PlainLeaves::prefetch(type, *ahead[1]);
    for (std::uint32_t const at : type.children)
      __builtin_prefetch(type.attrs[at].attr.valueAt(*ahead[1]));
  }
}

} // namespace

// All of it is plain leaves; some may be printed.
static bool isPlain(WalkRules::TypePlan const& type) { return type.plainFrom == 0; }

// A derived type may have what the plan does not know of.
static bool isShort(WalkRules::TypePlan const& type, Kel::PtrInterface const& entity) {
  return (type.isLight || isPlain(type)) && entity.fwkType() == type.type;
}

bool ShortRoads::sendsPlain() const { return walker_.ir_->empty() && !(walker_.flags_ & flagNoPush); }

std::optional<WalkResult> ShortRoads::walkLight(WalkRules::AttrPlan const& plan,
                                                Kel::PtrInterface const* child) {
  if (child == nullptr || !sendsPlain()) return std::nullopt;
  WalkRules::TypePlan const& type = WalkRules::memberPlanOf(plan);
  if (!isShort(type, *child)) return std::nullopt;
  GifGnmiNotifiee* const held = heldNotifiee(*child, *notifiee_, plan.attr.id());
  if (held == nullptr || held->meetsKeyFields()) return std::nullopt;
  return walkLight(type, *child, *held);
}

WalkResult ShortRoads::walkLight(WalkRules::TypePlan const& type, Kel::PtrInterface const& child,
                                 GifGnmiNotifiee& notifiee) {
  return isPlain(type) ? pushPlain(type, child, notifiee)
                       : insideResult(LightWalk(walker_).walk(type, child, notifiee));
}

// Most members of a first walk. Whatever else there is to begin with takes the long road, as does what is
// found only here: that leaves the state of the member, which the long road wants as well, and at most a
// notifiee that it finds.
std::optional<WalkResult> ShortRoads::beginMember(WalkRules::AttrPlan const& plan,
                                                  Kel::GenericIf::Iterator const& member) {
  auto const* const entity = static_cast<Kel::Entity const*>(member.objectAhead(0));
  WalkRules::TypePlan const& type = WalkRules::memberPlanOf(plan);
  bool const mayBegin = entity != nullptr && leaves_ && sendsPlain() && !plan.keyName.empty() &&
                        isShort(type, *entity) && entity->notifieeList()->empty() && !entity->isOrphan() &&
                        isPlaceOf(plan, *walker_.gif_->object(), *entity);
  if (!mayBegin) return std::nullopt;
  Kel::Ptr<Kel::PtrInterface const> const pin(entity);
  Kel::Ptr<Kel::GenericIf const> const key = member.key();
  static_cast<void>(notifiee_->attrStates().timestampOf(plan.attr.id(), key));
  std::string const text = builtinKeyText(*key, false);
  if (!Kstd::isUtf8(text)) return std::nullopt;
  Kel::Ptr<PathElem> const elem = PathElem::makePathElem(plan.elem);
  elem->keyIs(plan.keyName, Kel::String::dedup(text));
  Kel::Ptr<Path> const path = Path::makePath(walker_.prefixPath_);
  path->push(elem);
  if (notifieeMaps->find(path) != nullptr) return std::nullopt;
  Kel::Ptr<GifGnmiNotifiee> const made = watchAt(*entity, path, walker_.router_);
  if (!made->isRegistered() || made->meetsKeyFields()) return std::nullopt;
  noteHeld(plan, *notifiee_, *made);
  return walkLight(type, *entity, *made);
}

std::optional<WalkResult> ShortRoads::pushMember(WalkRules::AttrPlan const& plan,
                                                 Kel::GenericIf::Iterator const& member) {
  fetchAhead(plan, member, walker_.router_.byteRouter() == nullptr);
  return walkLight(plan, member.objectAhead(0));
}

std::optional<WalkResult> ShortRoads::walkChild(WalkRules::AttrPlan const& plan,
                                                Kel::Ptr<Kel::GenericIf const> const& child) {
  if (!child || !(child->type() == plan.attr.memberType())) return std::nullopt;
  if (auto const walked = walkLight(plan, child->object())) return walked;
  Kel::Ptr<GifGnmiNotifiee> held(heldNotifiee(*child->object(), *notifiee_, plan.attr.id()));
  if (!held) return std::nullopt;
  Kel::Ptr<Path const> const path = held->prefixPath();
  return walkWatched(child, std::move(held), path, 0, nullptr);
}

WalkResult ShortRoads::walkWatched(Kel::Ptr<Kel::GenericIf const> const& entity,
                                   Kel::Ptr<GifGnmiNotifiee> notifiee, Kel::Ptr<Path const> const& path,
                                   long timestamp, KelKey* key) {
  FullKelTypeWalker& outer = walker_;
  WalkScope const scope;
  KelKey keyName;
  FullKelTypeWalker walker(
      path, outer.ir_, entity, WalkRules::noPath(), outer.router_, outer.walkQ_, outer.flags_, keyName, true,
      timestamp != 0 ? timestamp : Kel::activityManagerStatus()->activityLoopExecNsTime());
  walker.notifiee_ = std::move(notifiee);
  walker.syncId_ = outer.syncId_;
  walker.walkId_ = outer.walkId_;
  walker.isPlain_ = true;
  return insideResult(walker.walk(key));
}

void ShortRoads::noteHeld(Kel::GenericIf const& holder, GifGnmiNotifiee* notifiee, Kel::KelAttr const& attr,
                          Kel::Ptr<Kel::GenericIf const> const& child, Kel::Ptr<Path const> const& path) {
  if (notifiee == nullptr || !child || !child->type().isEntity()) return;
  WalkRules::AttrPlan const& plan = WalkRules::typePlan(holder.type()).attrs[attr.desc().index];
  auto const& entity = static_cast<Kel::Entity const&>(*child->object());
  if (GifGnmiNotifiee* const held =
          isPlaceOf(plan, *holder.object(), entity) ? notifieeMaps->find(&entity, path) : nullptr)
    noteHeld(plan, *notifiee, *held);
}

bool ShortRoads::isPlaceOf(WalkRules::AttrPlan const& plan, Kel::PtrInterface const& holder,
                           Kel::Entity const& entity) {
  return plan.isPlainHolder && entity.parent() == &holder && entity.parentAttr() == plan.attr;
}

void ShortRoads::noteHeld(WalkRules::AttrPlan const& plan, GifGnmiNotifiee& holder, GifGnmiNotifiee& held) {
  held.heldByIs(holder, plan.attr.id());
}

} // namespace Ondra
