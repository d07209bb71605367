// The two ends for the library, one for messages and one for bytes; the watch over the whole model; who waits
// for it to be on.
#include "agent/router/Router.h"

#include <algorithm>
#include <utility>

#include "Ondra/ArenaRespMsg.h"
#include "Ondra/ByteRouter.h"
#include "Ondra/GifNotifiee.h"
#include "Tovak/Trace.h"
#include "agent/context/Context.h"
#include "agent/router/ChangeListener.h"
#include "agent/router/StagedSet.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

Tovak::DebugHandler& trace() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("AgentRouter", false);
  return handler;
}

// A leaf-list without entries is not there. What the library tells of it as an empty one is left out of what
// is walked; of a change it is the end of its path.
void emptyListsDel(gnmi::Notification& notification, bool isChange) {
  auto& updates = *notification.mutable_update();
  for (int i = updates.size() - 1; i >= 0; --i) {
    gnmi::TypedValue const& value = updates[i].val();
    if (!value.has_leaflist_val() || value.leaflist_val().element_size() > 0) continue;
    if (isChange) *notification.add_delete_() = updates[i].path();
    updates.DeleteSubrange(i, 1);
  }
}

} // namespace

// Of walks whose receivers want messages, and of changes.
class Router::Messages final : public Ondra::BaseRouter {
public:
  explicit Messages(Router& router) : router_(router) {}
  bool push(Ondra::SyncId syncId, Ondra::WalkId, std::shared_ptr<Ondra::ArenaRespMsg>& response) override {
    bool const isChange = syncId == Ondra::SyncId();
    if (response->response->has_update()) emptyListsDel(*response->response->mutable_update(), isChange);
    if (isChange) {
      router_.change(response);
      return true;
    }
    auto const walk = router_.walks_.find(syncId.value());
    return walk == router_.walks_.end() || walk->second->take(response);
  }

private:
  Router& router_;
};

// Of walks whose receivers want bytes.
class Router::Bytes final : public Ondra::ByteRouter {
public:
  explicit Bytes(Router& router) : router_(router) {}
  bool pushBytes(Ondra::SyncId syncId, Ondra::WalkId walkId, Ondra::WireResponse const& response) override {
    if (!(syncId == Ondra::SyncId())) {
      auto const walk = router_.walks_.find(syncId.value());
      return walk == router_.walks_.end() || walk->second->takeBytes(response);
    }
    // A change of what such a walk was the first to watch.
    auto message = Ondra::ArenaRespMsg::createResponse(response.prefix.get(), response.timestamp).first;
    if (!message->response->ParseFromArray(response.bytes.data(), static_cast<int>(response.bytes.size())))
      TOVAK_TRACE(trace(), Tovak::traceLevelError, "", "a change holds a text that is not UTF-8");
    return router_.messages_->push(syncId, walkId, message);
  }

private:
  Router& router_;
};

// The walk that has the whole model watched. Takes nothing: it sends nothing of its own.
class Router::Watch final : public PatternWalk::Receiver {
public:
  explicit Watch(Router& router) : router_(router) {}
  ~Watch() override { end(); }
  // Begins it, once.
  void install() {
    if (std::exchange(isInstalled_, true)) return;
    walk_ = router_.walkIs(std::make_shared<Pattern const>(), Ondra::flagStream, *this, "");
  }
  [[nodiscard]] bool isOn() const noexcept { return isInstalled_ && !walk_; }

private:
  bool take(std::shared_ptr<Ondra::ArenaRespMsg>&) override { return true; }
  void walkEnded() override {
    end();
    router_.waitingBegin();
  }
  void end() {
    if (walk_) router_.walkDel(*walk_);
    walk_.reset();
  }

  Router& router_;
  bool isInstalled_ = false;
  std::unique_ptr<PatternWalk> walk_;
};

Router::Router(Context& context)
    : context_(context)
    , messages_(std::make_unique<Messages>(*this))
    , bytes_(std::make_unique<Bytes>(*this))
    , turns_(context.scheduler())
    , watch_(std::make_unique<Watch>(*this)) {}

Router::~Router() {
  watch_.reset();
  Ondra::GifGnmiNotifiee::clearAllGnmiNotifiees(); // they refer to this
}

// --- walks ------------------------------------------------------------------------------------------------

std::unique_ptr<PatternWalk> Router::walkIs(std::shared_ptr<Pattern const> pattern, Ondra::WalkerFlags flags,
                                            PatternWalk::Receiver& receiver, std::string const& address) {
  Ondra::BaseRouter& router = receiver.wantsBytes() ? static_cast<Ondra::BaseRouter&>(*bytes_) : *messages_;
  auto walk =
      std::make_unique<PatternWalk>(router, context_.scheduler(), turns_.turnIs(address, Turns::Kind::Walk),
                                    ++lastWalk_, std::move(pattern), flags, receiver);
  walks_.emplace(walk->id(), walk.get());
  return walk;
}

void Router::walkDel(PatternWalk const& walk) { walks_.erase(walk.id()); }

// --- changes ----------------------------------------------------------------------------------------------

void Router::change(std::shared_ptr<Ondra::ArenaRespMsg>& response) {
  if (listener_ == nullptr) return;
  // While something waits aside nobody joins those who are concerned.
  bool const waits = staged_ != nullptr && listener_->concerns(*response) && staged_->take(response);
  if (!waits) listener_->changed(response);
}

void Router::stagedSetIs(StagedSet* set) {
  staged_ = set;
  turns_.readingHeldIs(set != nullptr);
  waitingBegin();
}

// --- the watch --------------------------------------------------------------------------------------------

bool Router::isWatched() const noexcept { return watch_->isOn() && staged_ == nullptr; }

void Router::whenWatched(void const* who, Begin begin) {
  if (isWatched()) return begin();
  waiting_.push_back({who, std::move(begin)});
  watch_->install();
}

void Router::waitDel(void const* who) {
  std::erase_if(waiting_, [who](Waiting const& one) { return one.who == who; });
}

void Router::waitingBegin() {
  while (isWatched() && !waiting_.empty()) {
    Begin begin = std::move(waiting_.front().begin);
    waiting_.pop_front();
    begin();
  }
}

} // namespace Agent
