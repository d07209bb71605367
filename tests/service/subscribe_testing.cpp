// Reads by callbacks, paused when asked to; applying notes what no collector should get, as complaints.
#include "service/subscribe_testing.h"

#include <set>
#include <utility>

#include "Ondra/CompactText.h"

namespace ServiceTesting {

Subscriber::Subscriber(Bench& bench, std::shared_ptr<grpc::Channel> const& channel, bool paused)
    : bench_(bench)
    , stub_(gnmi::gNMI::NewStub(channel))
    , paused_(paused) {
  stub_->async()->Subscribe(&context_, this);
  AddHold();
  if (!paused_) StartRead(&reading_);
  StartCall();
}

Subscriber::~Subscriber() {
  context_.TryCancel();
  {
    std::lock_guard const guard(mutex_);
    if (std::exchange(held_, false)) RemoveHold();
  }
  EXPECT_TRUE(bench_.settleUntil([this] { return ended(); }));
}

void Subscriber::send(gnmi::SubscribeRequest const& request) {
  std::lock_guard const guard(mutex_);
  toSend_.push_back(request);
  if (!std::exchange(sending_, true)) StartWrite(&toSend_.front());
}

void Subscriber::halfClose() {
  std::lock_guard const guard(mutex_);
  if (sending_)
    halfCloses_ = true;
  else
    StartWritesDone();
}

void Subscriber::readOn() {
  std::lock_guard const guard(mutex_);
  if (std::exchange(paused_, false)) StartRead(&reading_);
}

void Subscriber::OnReadDone(bool ok) {
  std::lock_guard const guard(mutex_);
  if (!ok) {
    if (std::exchange(held_, false)) RemoveHold();
    return;
  }
  arrived_.push_back(std::move(reading_));
  reading_.Clear();
  if (!paused_) StartRead(&reading_);
}

void Subscriber::OnWriteDone(bool ok) {
  std::lock_guard const guard(mutex_);
  toSend_.pop_front();
  sending_ = ok && !toSend_.empty();
  if (sending_)
    StartWrite(&toSend_.front());
  else if (ok && halfCloses_)
    StartWritesDone();
}

void Subscriber::OnDone(grpc::Status const& status) {
  std::lock_guard const guard(mutex_);
  status_ = status;
}

bool Subscriber::ended() {
  std::lock_guard const guard(mutex_);
  return status_.has_value();
}

bool Subscriber::take(gnmi::SubscribeResponse& into) {
  std::lock_guard const guard(mutex_);
  if (arrived_.empty()) return false;
  into = std::move(arrived_.front());
  arrived_.pop_front();
  return true;
}

gnmi::SubscribeResponse Subscriber::next() {
  gnmi::SubscribeResponse message;
  bool got = false;
  EXPECT_TRUE(bench_.settleUntil([&] { return (got = take(message)) || ended(); }));
  if (!got) got = take(message);
  EXPECT_TRUE(got) << "no message came";
  return message;
}

int Subscriber::untilSync() {
  int updates = 0;
  for (;;) {
    gnmi::SubscribeResponse const message = next();
    if (testing::Test::HasFailure() && message.response_case() == 0) return -1;
    apply(message);
    if (message.sync_response()) return updates;
    updates += message.update().update_size();
  }
}

bool Subscriber::applyUntil(std::function<bool()> const& done) {
  return bench_.settleUntil([&] {
    gnmi::SubscribeResponse message;
    while (!done() && take(message))
      apply(message);
    return done();
  });
}

grpc::Status Subscriber::status() {
  EXPECT_TRUE(bench_.settleUntil([this] { return ended(); })) << "the call does not end";
  std::lock_guard const guard(mutex_);
  return status_.value_or(grpc::Status());
}

void Subscriber::apply(gnmi::SubscribeResponse const& response) {
  if (response.sync_response()) {
    ++syncs;
    return;
  }
  gnmi::Notification const& notification = response.update();
  if (!notification.has_prefix()) complaints.emplace_back("no prefix");
  if (notification.timestamp() <= 0) complaints.emplace_back("no timestamp");
  std::string const origin = notification.prefix().origin();
  auto const full = [&](gnmi::Path const& path) {
    return (origin.empty() ? "" : origin + ":") + text(notification.prefix(), path);
  };
  for (gnmi::Path const& path : notification.delete_()) {
    std::string const top = full(path);
    deletes.push_back(top);
    std::erase_if(tree, [&top](auto const& leaf) {
      return leaf.first.starts_with(top) &&
             (leaf.first.size() == top.size() || leaf.first[top.size()] == '/');
    });
  }
  std::set<std::string> seen;
  for (gnmi::Update const& update : notification.update()) {
    std::string const path = full(update.path());
    if (!seen.insert(path).second) complaints.push_back("twice in one notification: " + path);
    if (path.find('*') != std::string::npos) complaints.push_back("a wildcard: " + path);
    std::int64_t& stamp = stamps[path];
    if (notification.timestamp() < stamp) complaints.push_back("goes back: " + path);
    stamp = notification.timestamp();
    duplicates += update.duplicates();
    tree[path] = Ondra::typedValueToCompactString(update.val());
  }
}

Request& Request::add(std::string_view path, gnmi::SubscriptionMode subscriptionMode, std::uint64_t sampleNs,
                      std::uint64_t heartbeatNs, bool suppress) {
  gnmi::Subscription& made = *request.mutable_subscribe()->add_subscription();
  *made.mutable_path() = ServiceTesting::path(path);
  made.set_mode(subscriptionMode);
  made.set_sample_interval(sampleNs);
  made.set_heartbeat_interval(heartbeatNs);
  made.set_suppress_redundant(suppress);
  return *this;
}

Request& Request::updatesOnly() {
  request.mutable_subscribe()->set_updates_only(true);
  return *this;
}

gnmi::SubscribeRequest const& Request::done() {
  request.mutable_subscribe()->set_mode(mode);
  request.mutable_subscribe()->set_encoding(encoding);
  return request;
}

gnmi::SubscribeRequest pollNow() {
  gnmi::SubscribeRequest request;
  request.mutable_poll();
  return request;
}

} // namespace ServiceTesting
