#include "Kel/Notifiee.h"

#include <algorithm>
#include <boost/container/small_vector.hpp>

namespace Kel {

// --- NotifieeConst -----------------------------------------------------------------------------------

PtrInterface::NotifieeConst::NotifieeConst(PtrInterface const* notifier) { notifierIs(notifier); }

PtrInterface::NotifieeConst::~NotifieeConst() { notifierIs(nullptr); }

void PtrInterface::NotifieeConst::notifierIs(PtrInterface const* notifier) {
  if (notifier == notifier_) return;
  bool const wasRegistered = registered_;
  isRegisteredNotifieeIs(false);
  PtrInterface const* const old = notifier_;
  notifier_ = notifier;
  if (!weak_ && notifier_ != nullptr) notifier_->ref();
  if (notifier_ != nullptr) isRegisteredNotifieeIs(wasRegistered);
  if (!weak_ && old != nullptr) old->unref();
}

void PtrInterface::NotifieeConst::isWeakReferenceIs(bool weak) {
  if (weak == weak_) return;
  weak_ = weak;
  if (notifier_ == nullptr) return;
  if (weak_) {
    notifier_->unref();
  } else {
    notifier_->ref();
  }
}

void PtrInterface::NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  if (registered == registered_) return;
  NotifieeList* const list = notifier_ == nullptr ? nullptr : notifier_->notifieeList();
  if (list == nullptr) return;
  registered_ = registered;
  if (registered) {
    list->add(this);
  } else {
    list->remove(this);
  }
}

void PtrInterface::NotifieeConst::release() {
  registered_ = false;
  if (weak_) notifier_ = nullptr;
}

// --- NotifieeList ------------------------------------------------------------------------------------

NotifieeList::~NotifieeList() { deleteAll(); }

void NotifieeList::add(PtrInterface::NotifieeConst* notifiee) {
  if (members_ == nullptr) members_ = new Members;
  members_->push_back(notifiee);
}

void NotifieeList::remove(PtrInterface::NotifieeConst* notifiee) noexcept {
  if (members_ == nullptr) return;
  std::erase(*members_, notifiee);
  if (members_->empty()) {
    delete members_;
    members_ = nullptr;
  }
}

bool NotifieeList::holds(PtrInterface::NotifieeConst const* notifiee) const noexcept {
  return members_ != nullptr && std::find(members_->begin(), members_->end(), notifiee) != members_->end();
}

// The snapshot pins the notifiees, so that one that is dropped by another's call still is an object when its turn comes.
template <class Tell>
void NotifieeList::tell(Tell const& tell) const {
  if (empty()) return;
  boost::container::small_vector<Ptr<PtrInterface::NotifieeConst>, 4> snapshot;
  for (PtrInterface::NotifieeConst* const member : *members_)
    snapshot.emplace_back(Ptr(member));
  for (auto const& member : snapshot) {
    bool const dropped = member->refCount() == 1; // only the pin is left: its owner is done with it
    if (!dropped && holds(member.get()) && member->hasNotificationActive()) tell(*member);
  }
}

void NotifieeList::visit(AttributeId id, void const* key) const {
  tell([id, key](PtrInterface::NotifieeConst& notifiee) { notifiee.onAttribute(id, key); });
}

void NotifieeList::visitZeroReferences() const {
  tell([](PtrInterface::NotifieeConst& notifiee) { notifiee.onZeroReferences(); });
}

void NotifieeList::deleteAll() {
  Members* const leaving = members_;
  members_ = nullptr;
  if (leaving == nullptr) return;
  for (PtrInterface::NotifieeConst* const member : *leaving)
    member->release();
  delete leaving;
}

} // namespace Kel
