// The same entries in two orders, by who shows and by what is shown; and the scope in which rendering adds to
// them.
#include "Ondra/live/Referrers.h"

#include <algorithm>

#include "Ondra/GifNotifiee.h"

namespace Ondra {
namespace {

int compareKeys(Kel::Ptr<Kel::GenericIf const> const& a, Kel::Ptr<Kel::GenericIf const> const& b) {
  if (!a || !b) return static_cast<int>(static_cast<bool>(a)) - static_cast<int>(static_cast<bool>(b));
  return a->compare(*b);
}

int compareSources(Referrers::Source const& a, Referrers::Source const& b) {
  if (a.notifiee != b.notifiee) { // by age, so that what happens can be repeated
    auto const age = [](Referrers::Source const& s) {
      return s.notifiee == nullptr ? 0 : s.notifiee->serial();
    };
    return age(a) < age(b) ? -1 : 1;
  }
  if (a.id != b.id) return a.id < b.id ? -1 : 1;
  return compareKeys(a.key, b.key);
}

} // namespace

Referrers& Referrers::instance() {
  static auto* const index = new Referrers();
  return *index;
}

bool Referrers::SourceFirst::operator()(Entry const& a, Entry const& b) const {
  int const order = compareSources(a.source, b.source);
  return order != 0 ? order < 0 : a.target < b.target;
}

bool Referrers::TargetFirst::operator()(Entry const& a, Entry const& b) const {
  return a.target != b.target ? a.target < b.target : compareSources(a.source, b.source) < 0;
}

void Referrers::add(Source const& source, Serial target) {
  Entry const entry{source, target};
  if (bySource_.insert(entry).second) byTarget_.insert(entry);
}

void Referrers::keepOnly(Source const& source, Serials const& targets) {
  auto at = bySource_.lower_bound(Entry{source, 0});
  while (at != bySource_.end() && compareSources(at->source, source) == 0) {
    if (std::find(targets.begin(), targets.end(), at->target) != targets.end()) {
      ++at;
    } else {
      byTarget_.erase(*at);
      at = bySource_.erase(at);
    }
  }
}

void Referrers::forget(GifGnmiNotifiee* notifiee) {
  // Ids are never negative: this stands before all of the notifiee's entries.
  auto at = bySource_.lower_bound(Entry{Source{notifiee, -1, nullptr}, 0});
  while (at != bySource_.end() && at->source.notifiee == notifiee) {
    byTarget_.erase(*at);
    at = bySource_.erase(at);
  }
}

// A copy: walking them changes the index.
std::vector<Referrers::Entry> Referrers::showing(Serial target) const {
  std::vector<Entry> entries;
  for (auto at = byTarget_.lower_bound(Entry{Source{nullptr, -1, nullptr}, target});
       at != byTarget_.end() && at->target == target; ++at)
    entries.push_back(*at);
  return entries;
}

void Referrers::walkAnew(std::vector<Entry> const& stale) {
  if (stale.empty()) return;
  WalkScope const unwindFirst;
  for (Entry const& entry : stale)
    entry.source.notifiee->pathChanged(entry.source.id, entry.source.key);
}

void Referrers::pathChanged(Serial target) const { walkAnew(showing(target)); }

void Referrers::objectEnded(Serial target) {
  std::vector<Entry> const stale = showing(target);
  for (Entry const& entry : stale) {
    bySource_.erase(entry);
    byTarget_.erase(entry);
  }
  walkAnew(stale);
}

void Referrers::clear() {
  bySource_.clear();
  byTarget_.clear();
}

// --- RenderScope -------------------------------------------------------------------------------------

RenderScope* RenderScope::current_ = nullptr;

RenderScope::RenderScope(bool active, GifGnmiNotifiee* notifiee, Kel::AttributeId id,
                         Kel::Ptr<Kel::GenericIf const> const& key, Mode mode)
    : active_(active)
    , mode_(mode)
    , notifiee_(notifiee)
    , id_(absoluteId(id))
    // Detached at once where it is needed at the end, when nothing is to fail any more.
    , key_(active && mode == Mode::Replace && key ? key->detachedKey() : key) {
  if (active_) {
    outer_ = current_;
    current_ = this;
  }
}

RenderScope::~RenderScope() {
  if (!active_) return;
  current_ = outer_;
  if (mode_ == Mode::Replace && notifiee_ != nullptr) Referrers::instance().keepOnly(source(), targets_);
}

Referrers::Source RenderScope::source() const {
  return {notifiee_, id_, key_ && mode_ == Mode::Add ? key_->detachedKey() : key_};
}

void RenderScope::rendered(Referrers::Serial target) {
  RenderScope* const scope = current_;
  if (scope == nullptr || scope->notifiee_ == nullptr || !scope->notifiee_->isRegistered()) return;
  if (scope->mode_ == Mode::Replace) scope->targets_.push_back(target);
  Referrers::instance().add(scope->source(), target);
}

} // namespace Ondra
