#include "agent/subscribe/Message.h"

#include <utility>

#include "Kel/Allocator.h"
#include "Ondra/ArenaRespMsg.h"
#include "agent/subscribe/ResponseWriter.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

std::shared_ptr<Message> made() {
  return std::allocate_shared<Message>(Kel::MemAllocator<Message>{}, Message::Private{});
}

} // namespace

Message::Message(Private const&) {}
Message::~Message() = default;

Message::Ptr Message::sync() {
  static Ptr const* const one = [] {
    std::shared_ptr<Message> const message = made();
    message->bytes_ = sizeof(Message);
    return new Ptr(message);
  }();
  return *one;
}

Message::Ptr Message::of(std::shared_ptr<Ondra::ArenaRespMsg> response, std::shared_ptr<Frame const> frame,
                         Selection updates, std::int64_t timestamp) {
  std::shared_ptr<Message> message = made();
  message->notification_ = &response->response->update();
  message->timestamp_ = timestamp != 0 ? timestamp : message->notification_->timestamp();
  message->bytes_ = sizeof(Message) + response->spaceAllocated();
  if (updates) message->bytes_ += updates->capacity() * sizeof(std::uint32_t);
  message->response_ = std::move(response);
  message->frame_ = std::move(frame);
  message->updates_ = std::move(updates);
  return message;
}

Message::Ptr Message::of(std::unique_ptr<gnmi::Notification> notification,
                         std::shared_ptr<Frame const> frame) {
  std::shared_ptr<Message> message = made();
  message->timestamp_ = notification->timestamp();
  message->bytes_ = sizeof(Message) + notification->SpaceUsedLong();
  message->own_ = std::move(notification);
  message->notification_ = message->own_.get();
  message->frame_ = std::move(frame);
  message->tellsDeletes_ = true;
  return message;
}

std::vector<grpc::Slice> const& Message::encoded(std::size_t limit) const {
  std::call_once(once_, [this, limit] { encoded_ = responseSlices(*this, limit); });
  return encoded_;
}

} // namespace Agent
