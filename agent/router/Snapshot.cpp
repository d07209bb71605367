// What the walk tells is cut to what the pattern covers and handed on; nothing is kept here.
#include "agent/router/Snapshot.h"

#include <utility>

#include "Ondra/ArenaRespMsg.h"
#include "agent/router/Router.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

Snapshot::Snapshot(Router& router, Pattern pattern, Selector::Access access,
                   std::shared_ptr<SnapshotSink> sink, std::string const& address)
    : router_(router)
    , selector_(std::make_shared<Pattern const>(std::move(pattern)), {}, nullptr, 0, std::move(access))
    , sink_(std::move(sink))
    , walk_(router.walkIs(selector_.pattern(), Ondra::flagSnapshot, *this, address)) {}

Snapshot::~Snapshot() {
  if (walk_) router_.walkDel(*walk_);
}

bool Snapshot::take(std::shared_ptr<Ondra::ArenaRespMsg>& response) {
  gnmi::Notification const& notification = response->response->update();
  Selector::Selected const selected = selector_.updates(notification, LeafKind::All);
  if (!selected.any) return true;
  if (!selected.updates) {
    sink_->notification(notification);
    return true;
  }
  gnmi::Notification part;
  part.set_timestamp(notification.timestamp());
  *part.mutable_prefix() = notification.prefix();
  for (std::uint32_t const at : *selected.updates)
    *part.add_update() = notification.update(static_cast<int>(at));
  sink_->notification(part);
  return true;
}

void Snapshot::walkEnded() {
  router_.walkDel(*walk_);
  walk_.reset();
  std::shared_ptr<SnapshotSink> const sink = sink_;
  sink->done(grpc::Status::OK); // which may drop this
}

} // namespace Agent
