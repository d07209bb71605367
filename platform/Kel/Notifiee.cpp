// Joining and leaving a list, also while it is told; a list of one takes no block, a longer one closes its
// gaps when it is quiet.
#include "Kel/Notifiee.h"

#include <algorithm>
#include <memory>

#include "Kel/Error.h"

namespace Kel {

// --- NotifieeConst -----------------------------------------------------------------------------------

PtrInterface::NotifieeConst::NotifieeConst(PtrInterface const* notifier) { notifierIs(notifier); }

PtrInterface::NotifieeConst::~NotifieeConst() { notifierIs(nullptr); }

void PtrInterface::NotifieeConst::notifierIs(PtrInterface const* notifier) {
  if (notifier == notifier_) return;
  delist();
  bool const keptOld = keepsAlive();
  PtrInterface const* const old = notifier_;
  notifier_ = notifier;
  try {
    enlist();
  } catch (...) { // no memory: attached to none
    notifier_ = nullptr;
    if (keptOld) old->unref();
    throw;
  }
  if (keepsAlive()) notifier_->ref();
  if (keptOld) old->unref();
}

void PtrInterface::NotifieeConst::isWeakReferenceIs(bool weak) {
  bool const keptAlive = keepsAlive();
  weak_ = weak;
  enlist();
  if (!weak_ && !registered_) delist();
  bool const keeps = keepsAlive();
  if (keeps && !keptAlive) notifier_->ref();
  if (keptAlive && !keeps) notifier_->unref();
}

void PtrInterface::NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  if (registered == registered_) return;
  registered_ = registered;
  if (registered_ || !weak_) delist(); // to the end of the list, or out of it
  enlist();
}

bool PtrInterface::NotifieeConst::keepsAlive() const {
  return notifier_ != nullptr && (!weak_ || notifier_->notifieeList() == nullptr);
}

void PtrInterface::NotifieeConst::enlist() {
  if (place_ != kNowhere || notifier_ == nullptr || !(weak_ || registered_)) return;
  if (NotifieeList* const list = notifier_->notifieeList()) list->add(this);
}

void PtrInterface::NotifieeConst::delist() noexcept {
  if (place_ != kNowhere) notifier_->notifieeList()->remove(this);
}

void PtrInterface::NotifieeConst::release() noexcept {
  place_ = kNowhere;
  registered_ = false;
  if (weak_) notifier_ = nullptr;
}

// --- NotifieeList ------------------------------------------------------------------------------------

NotifieeList::~NotifieeList() { deleteAll(); }

Ptr<PtrInterface::NotifieeConst> NotifieeList::takeStandIn() noexcept {
  Ptr<PtrInterface::NotifieeConst> taken(standIn());
  if (taken) {
    one_ = nullptr;
    taken->unref(); // what `standInIs` has counted
  }
  return taken;
}

void NotifieeList::add(Member notifiee) {
  haveMade(*notifiee->notifier()); // that was there before
  if (one_ == nullptr) {
    one_ = notifiee;
    notifiee->place_ = 0;
    return;
  }
  Several* members = several();
  if (members == nullptr) {
    members = new Several{{one_}};
    one_ = reinterpret_cast<Member>(reinterpret_cast<std::uintptr_t>(members) + 1);
  }
  members->places.push_back(notifiee);
  notifiee->place_ = static_cast<std::uint32_t>(members->places.size() - 1);
}

void NotifieeList::remove(Member notifiee) noexcept {
  std::uint32_t const place = std::exchange(notifiee->place_, PtrInterface::NotifieeConst::kNowhere);
  Several* const members = several();
  if (members == nullptr) {
    one_ = nullptr;
    return;
  }
  members->places[place] = nullptr;
  ++members->left;
  tidy();
}

// Closes the gaps once they are half of all places, so that it takes no time to speak of, and gives up the
// block for a single one.
void NotifieeList::tidy() noexcept {
  Several* const members = several();
  if (members->visits > 0 || members->left * 2 < members->places.size()) return;
  std::erase(members->places, nullptr);
  members->left = 0;
  for (std::size_t at = 0; at < members->places.size(); ++at)
    members->places[at]->place_ = static_cast<std::uint32_t>(at);
  if (members->places.size() > 1) return;
  one_ = members->places.empty() ? nullptr : members->places.front();
  delete members;
}

// While one lives, the places stay what they are, and so does the object whose list it is.
class NotifieeList::Visit {
public:
  Visit(NotifieeList& list, Several& members) noexcept : list_(list), members_(members) {
    auto const somebody = std::find_if(members.places.begin(), members.places.end(),
                                       [](Member const member) { return member != nullptr; });
    PtrInterface const* const notifier = somebody == members.places.end() ? nullptr : (*somebody)->notifier();
    if (notifier != nullptr && notifier->refCount() > 0) notifier_ = Ptr<PtrInterface const>(notifier);
    ++members_.visits;
  }
  ~Visit() {
    --members_.visits;
    list_.tidy();
  }
  Visit(Visit const&) = delete;
  Visit& operator=(Visit const&) = delete;

private:
  Ptr<PtrInterface const> notifier_; // let go last
  NotifieeList& list_;
  Several& members_;
};

// docs/decisions.md: "What of an observer that throws?"
template <class Tell>
void NotifieeList::tell(Tell const& tell) const {
  // One whose count is 0 is being made or destroyed.
  auto const tellOne = [&tell](PtrInterface::NotifieeConst& member) {
    if (!member.registered_ || !member.hasNotificationActive() || member.refCount() == 0) return;
    Ptr<PtrInterface::NotifieeConst> const pin(&member);
    try {
      tell(member);
    } catch (...) {
      traceRaised("observer");
    }
  };
  Several* const members = several();
  if (members == nullptr) {
    if (one_ != nullptr) {
      PtrInterface const* const notifier = one_->notifier();
      Ptr<PtrInterface const> const pin(notifier->refCount() == 0 ? nullptr : notifier);
      tellOne(*one_);
    }
    return;
  }
  Visit const visit(*const_cast<NotifieeList*>(this), *members);
  std::size_t const wereThere = members->places.size();
  for (std::size_t at = 0; at < wereThere; ++at)
    if (Member const member = members->places[at]) tellOne(*member);
}

void NotifieeList::visit(PtrInterface const& notifier, AttributeId id, void const* key) {
  haveMade(notifier);
  tell([id, key](PtrInterface::NotifieeConst& notifiee) { notifiee.onAttribute(id, key); });
}

void NotifieeList::visitZeroReferences(PtrInterface const& notifier) {
  haveMade(notifier);
  tell([](PtrInterface::NotifieeConst& notifiee) { notifiee.onZeroReferences(); });
}

void NotifieeList::deleteAll() noexcept {
  takeStandIn();
  Several* const members = several();
  if (members == nullptr) {
    if (Member const only = std::exchange(one_, nullptr)) only->release();
    return;
  }
  for (Member& member : members->places) {
    if (Member const leaving = std::exchange(member, nullptr)) {
      ++members->left;
      leaving->release();
    }
  }
  tidy();
}

} // namespace Kel
