// The ways to make one, encoded ahead or when first asked, and its share of the budget. Its bytes are made in
// ResponseWriter.cpp.
#include "agent/subscribe/Message.h"

#include <utility>

#include "Kel/Allocator.h"
#include "Ondra/ArenaRespMsg.h"
#include "Tovak/Assert.h"
#include "Tovak/DebugHandler.h"
#include "agent/subscribe/ResponseWriter.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

std::size_t leavesOf(Message::Parts const& parts) {
  std::size_t leaves = 0;
  for (Message::Part const& part : parts)
    leaves += part.updates ? part.updates->size()
                           : static_cast<std::size_t>(part.response->response->update().update_size());
  return leaves;
}

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
    message->isSync_ = true;
    return new Ptr(message);
  }();
  return *one;
}

Message::Ptr Message::of(Parts parts, std::shared_ptr<Frame const> frame, std::int64_t timestamp) {
  std::shared_ptr<Message> message = made();
  TOVAK_ASSERT(!parts.empty(), Tovak::Platform::getDebugHandler("OndraAgent", false),
               "a message that says nothing");
  message->bytes_ = sizeof(Message);
  for (Part const& part : parts) {
    message->bytes_ += sizeof(Part) + part.response->spaceAllocated();
    if (part.updates) message->bytes_ += part.updates->capacity() * sizeof(std::uint32_t);
  }
  message->leaves_ = leavesOf(parts);
  message->parts_ = std::move(parts);
  message->frame_ = std::move(frame);
  message->timestamp_ = timestamp;
  return message;
}

Message::Ptr Message::of(std::vector<grpc::Slice> encoded, std::size_t leaves,
                         std::shared_ptr<Frame const> frame, std::int64_t timestamp) {
  std::shared_ptr<Message> message = made();
  message->leaves_ = leaves;
  message->frame_ = std::move(frame);
  message->timestamp_ = timestamp;
  message->bytes_ = sizeof(Message);
  for (grpc::Slice const& slice : encoded)
    message->bytes_ += sizeof(grpc::Slice) + slice.size();
  std::call_once(message->once_, [&] { message->encoded_ = std::move(encoded); });
  return message;
}

Message::Ptr Message::encodedOf(Parts parts, std::shared_ptr<Frame const> frame, std::int64_t timestamp,
                                std::size_t limit) {
  TOVAK_ASSERT(!parts.empty(), Tovak::Platform::getDebugHandler("OndraAgent", false),
               "a message that says nothing");
  std::shared_ptr<Message> message = made();
  message->leaves_ = leavesOf(parts);
  message->parts_ = std::move(parts);
  message->frame_ = std::move(frame);
  message->timestamp_ = timestamp;
  static_cast<void>(message->encoded(limit));
  message->parts_.clear();
  message->bytes_ = sizeof(Message);
  for (grpc::Slice const& slice : message->encoded_)
    message->bytes_ += sizeof(grpc::Slice) + slice.size();
  return message;
}

Message::Ptr Message::encodedOf(std::unique_ptr<gnmi::Notification> notification,
                                std::shared_ptr<Frame const> frame, std::size_t limit) {
  std::int64_t const timestamp = notification->timestamp();
  Ptr const message = of(std::move(notification), frame);
  return of(message->encoded(limit), message->leaves(), std::move(frame), timestamp);
}

Message::Ptr Message::of(std::unique_ptr<gnmi::Notification> notification,
                         std::shared_ptr<Frame const> frame) {
  std::shared_ptr<Message> message = made();
  message->timestamp_ = notification->timestamp();
  message->bytes_ = sizeof(Message) + notification->SpaceUsedLong();
  message->leaves_ = static_cast<std::size_t>(notification->update_size());
  message->own_ = std::move(notification);
  message->frame_ = std::move(frame);
  return message;
}

Message::Charge Message::charged(std::shared_ptr<ByteBudget> const& budget) const {
  Charge charge = charge_.lock();
  if (charge) return charge;
  auto const made = std::allocate_shared<ByteBudget::Share>(Kel::MemAllocator<ByteBudget::Share>{}, budget);
  made->bytesAre(bytes_);
  if (!isSync_) charge_ = made; // that one is shared by all threads
  return made;
}

void Message::forEachUpdate(OnUpdate visit) const {
  if (own_)
    for (gnmi::Update const& update : own_->update())
      visit(own_->prefix(), update);
  for (Part const& part : parts_) {
    gnmi::Notification const& notification = part.response->response->update();
    if (part.updates)
      for (std::uint32_t const at : *part.updates)
        visit(notification.prefix(), notification.update(static_cast<int>(at)));
    else
      for (gnmi::Update const& update : notification.update())
        visit(notification.prefix(), update);
  }
}

std::vector<grpc::Slice> const& Message::encoded(std::size_t limit) const {
  std::call_once(once_, [this, limit] { encoded_ = responseSlices(*this, limit); });
  return encoded_;
}

} // namespace Agent
