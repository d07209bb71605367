// The stack of running walkers: sent before a delete that comes in between, and rid of what has ended.
#include "Ondra/live/Unsent.h"

#include <algorithm>

#include "Ondra/GifNotifiee.h"
#include "Ondra/IR.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/rules/WalkRules.h"

namespace Ondra {

Unsent* Unsent::innermost_ = nullptr;
std::uint64_t Unsent::interruptions_ = 0;
int Unsent::sending_ = 0;
Unsent* Unsent::beingSent_ = nullptr;
std::vector<Kel::Ptr<Path const>> Unsent::ended_;

Unsent::Unsent(FullKelTypeWalker& walker, std::shared_ptr<Ir>& ir, GifGnmiNotifiee const* notifiee) noexcept
    : walker_(walker)
    , ir_(ir)
    , notifiee_(notifiee)
    , began_(interruptions_)
    , outer_(innermost_) {
  innermost_ = this;
}

Unsent::~Unsent() { innermost_ = outer_; }

bool Unsent::Sending::hasEnded(Path const& path) const {
  auto const first = ended_.begin() + static_cast<std::ptrdiff_t>(began_);
  return std::any_of(first, ended_.end(),
                     [&path](auto const& ended) { return WalkRules::isAtOrBelow(*ended, path); });
}

void Unsent::dropEnded() {
  for (Unsent* at = innermost_; at != beingSent_; at = at->outer_)
    if (at->began_ != interruptions_ && at->notifiee_ != nullptr && !at->notifiee_->isRegistered() && at->ir_)
      at->ir_->drop(*at->notifiee_->prefixPath());
}

// From the inside out: what a part of a notification has found it hands to the whole.
void Unsent::sendBefore(Kel::Ptr<Path const> const& ending) {
  ++interruptions_;
  if (sending_ > 0) { // a router changes the model while it is given something
    ended_.push_back(ending);
    return;
  }
  for (Unsent* at = innermost_; at != nullptr; at = at->outer_) {
    bool const isOuters = at->outer_ != nullptr && at->outer_->ir_ == at->ir_;
    if (!isOuters && at->ir_ && !at->ir_->empty()) {
      static_cast<void>(at->walker_.routerPush(at->ir_));
      at->ir_->clear();
    }
  }
}

} // namespace Ondra
