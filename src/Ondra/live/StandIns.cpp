// Finding what is stood in for goes down from a notifiee, by the plans of types; making goes up first, so
// that each finds its holder.
#include "Ondra/live/StandIns.h"

#include <span>

#include "Kel/ActivityClock.h"
#include "Ondra/NotifieeMaps.h"
#include "Ondra/live/Fault.h"
#include "Ondra/live/ShortRoads.h"
#include "Ondra/rules/WalkRules.h"

namespace Ondra::StandIns {
namespace {

static_assert(WalkRules::kMostLight <= AttrStateMap::kInMask);

std::size_t total = 0;
int making = 0; // while one is made, nobody stands in at its path

class Making {
public:
  Making() noexcept { ++making; }
  ~Making() { --making; }
  Making(Making const&) = delete;
  Making& operator=(Making const&) = delete;
};

// Not of one whose watching has ended with that of all.
void takenFrom(GifGnmiNotifiee const& standIn) noexcept { total -= standIn.isRegistered() ? 1 : 0; }

bool mayHaveSome(GifGnmiNotifiee const& notifiee) noexcept {
  GifGnmiNotifiee const* at = &notifiee;
  while (at != nullptr && !at->hasStoodIn())
    at = at->holder();
  return at != nullptr;
}

GifGnmiNotifiee* ownNotifiee(Kel::NotifieeList const& list, GifGnmiNotifiee const& above) {
  for (Kel::PtrInterface::NotifieeConst* const member : list.members()) {
    GifGnmiNotifiee* const notifiee = GifGnmiNotifiee::registered(member);
    GifGnmiNotifiee const* at = notifiee;
    while (at != nullptr && at != &above)
      at = at->holder();
    if (at != nullptr) return notifiee;
  }
  return nullptr;
}

// Calls `visit` with each entity that the object has by a single attribute, and its element.
template <class Visit>
void forEachChild(Kel::PtrInterface const& object, Visit const& visit) {
  WalkRules::TypePlan const& plan = WalkRules::typePlan(object.fwkType());
  for (std::uint32_t const at : plan.children)
    if (void const* const child = plan.attrs[at].attr.valueAt(object))
      visit(static_cast<Kel::Entity const&>(*static_cast<Kel::PtrInterface const*>(child)),
            *plan.attrs[at].elem);
}

template <class Visit>
void forEachBelow(GifGnmiNotifiee& notifiee, Kel::PtrInterface const& object, Visit const& visit) {
  forEachChild(object, [&](Kel::Entity const& child, PathElem const&) {
    Kel::NotifieeList& list = *child.notifieeList();
    GifGnmiNotifiee* const standIn = in(list, notifiee);
    if (standIn != nullptr) visit(*standIn, list, child);
    if (standIn != nullptr || ownNotifiee(list, notifiee) != nullptr) forEachBelow(notifiee, child, visit);
  });
}

template <class Visit>
void forEachBelow(GifGnmiNotifiee& notifiee, Visit const& visit) {
  if (total > 0 && notifiee.notifier() != nullptr && mayHaveSome(notifiee))
    forEachBelow(notifiee, *notifiee.notifier(), visit);
}

// The entity that these elements lead to from the notifiee's object, with stand-ins all the way.
Kel::Entity const* stoodInAt(GifGnmiNotifiee& above, std::span<Path::ElemPtr const> below) {
  Kel::PtrInterface const* at = mayHaveSome(above) ? above.notifier() : nullptr;
  Kel::Entity const* found = nullptr;
  for (Path::ElemPtr const& elem : below) {
    found = nullptr;
    if (at != nullptr)
      forEachChild(*at, [&](Kel::Entity const& child, PathElem const& name) {
        if (name.isEqual(elem.get()) && in(*child.notifieeList(), above) != nullptr) found = &child;
      });
    at = found;
  }
  return found;
}

} // namespace

Progress* Progress::innermost_ = nullptr;

std::uint64_t Progress::of(Kel::Entity const& entity) noexcept {
  Progress const* at = innermost_;
  while (at != nullptr && &at->entity_ != &entity)
    at = at->outer_;
  return at == nullptr || at->walked >= WalkRules::kMostLight ? ~std::uint64_t{0}
                                                              : (std::uint64_t{1} << at->walked) - 1;
}

GifGnmiNotifiee* in(Kel::NotifieeList const& list, GifGnmiNotifiee& at) noexcept {
  Kel::PtrInterface::NotifieeConst const* const standIn = list.standIn();
  GifGnmiNotifiee* found = standIn == nullptr ? nullptr : &at;
  while (found != nullptr && found != standIn)
    found = found->holder();
  return found;
}

bool begin(GifGnmiNotifiee& standIn, Kel::Entity const& entity) {
  long const now = Kel::activityManagerStatus()->activityLoopExecNsTime();
  if (!standIn.attrStates().keep(now)) return false;
  entity.notifieeList()->standInIs(&standIn);
  ++total;
  return true;
}

GifGnmiNotifiee* notifieeOf(GifGnmiNotifiee& standIn, Kel::Entity const& entity) {
  if (standIn.notifier() == &entity) return &standIn;
  Kel::NotifieeList& list = *entity.notifieeList();
  if (list.standIn() != &standIn) return ownNotifiee(list, standIn);
  list.takeStandIn();
  return made(standIn, entity);
}

// The one that it stood in for has its path, and its time.
static GifGnmiNotifiee* newNotifiee(GifGnmiNotifiee& standIn, GifGnmiNotifiee& holder,
                                    Kel::Entity const& entity) {
  WalkRules::TypePlan const& holderPlan = WalkRules::typePlan(entity.parent()->fwkType());
  WalkRules::AttrPlan const& attr = holderPlan.attrs[entity.parentAttr().desc().index];
  Kel::Ptr<Path> const path = Path::makePath(holder.prefixPath());
  path->push(attr.elem);
  Kel::Ptr<GifGnmiNotifiee> const made(new GifGnmiNotifiee(&entity, path, standIn.router(), false, false));
  made->hasNotificationActiveIs(true);
  made->attrStates().walkedIs(WalkRules::typePlan(entity.fwkType()).singleMask & Progress::of(entity),
                              standIn.attrStates().keptTime());
  ShortRoads::noteHeld(attr, holder, *made);
  return made.get();
}

GifGnmiNotifiee* made(GifGnmiNotifiee& standIn, Kel::Entity const& entity) {
  takenFrom(standIn);
  GifGnmiNotifiee* made = nullptr;
  Making const thisOne;
  tellOrEnd([&] {
    Kel::Entity const* const parent = entity.parent();
    GifGnmiNotifiee* const holder =
        parent != nullptr && standIn.isRegistered() ? notifieeOf(standIn, *parent) : nullptr;
    if (holder != nullptr) made = newNotifiee(standIn, *holder, entity);
  });
  return made;
}

// Between it and the nearest notifiee above it no element has keys.
GifGnmiNotifiee* madeAt(Path const& path) {
  if (total == 0 || making > 0) return nullptr;
  auto const elems = path.elems();
  for (std::size_t above = elems.size(); above > 1 && elems[above - 1]->key().empty();) {
    Kel::Ptr<Path> const at = Path::PathIs();
    --above;
    for (Path::ElemPtr const& elem : elems.first(above))
      at->push(elem);
    if (GifGnmiNotifiee* const notifiee = notifieeMaps->registeredAt(*at)) {
      Kel::Entity const* const entity = stoodInAt(*notifiee, elems.subspan(above));
      return entity == nullptr ? nullptr : notifieeOf(*in(*entity->notifieeList(), *notifiee), *entity);
    }
  }
  return nullptr;
}

void makeBelow(GifGnmiNotifiee& notifiee) {
  forEachBelow(notifiee, [](GifGnmiNotifiee& standIn, Kel::NotifieeList&, Kel::Entity const& entity) {
    notifieeOf(standIn, entity);
  });
}

void end(GifGnmiNotifiee& notifiee) {
  forEachBelow(notifiee, [](GifGnmiNotifiee& standIn, Kel::NotifieeList& list, Kel::Entity const&) {
    takenFrom(standIn);
    list.takeStandIn();
  });
}

void forgetAll() noexcept { total = 0; }

std::size_t count() noexcept { return total; }

} // namespace Ondra::StandIns
