// The thread and its queue: while one group is being synced, the next one gathers.
#include "agent/store/ConfigStore.h"

#include <cerrno>
#include <iterator>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace Agent {

ConfigStore::~ConfigStore() {
  {
    std::lock_guard const guard(mutex_);
    ends_ = true;
  }
  arrived_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void ConfigStore::write(ConfigRecord::Kind kind, ConfigChange change, Done done) {
  post({.record = {.kind = kind, .change = std::move(change)}, .done = std::move(done)});
}

void ConfigStore::takeBack(ConfigChange back, Done done) {
  post({.record = {.change = std::move(back)}, .done = std::move(done), .isOwed = true});
}

void ConfigStore::post(Order order) {
  {
    std::lock_guard const guard(mutex_);
    waiting_.push_back(std::move(order));
    if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
  }
  arrived_.notify_one();
}

void ConfigStore::run() {
  for (;;) {
    std::deque<Order> orders = std::exchange(owed_, {});
    {
      std::unique_lock guard(mutex_);
      arrived_.wait(guard, [this] { return ends_ || !waiting_.empty(); });
      if (waiting_.empty()) return;
      std::ranges::move(waiting_, std::back_inserter(orders));
      waiting_.clear();
    }
    write(orders);
  }
}

void ConfigStore::write(std::deque<Order>& orders) {
  std::vector<ConfigRecord> records;
  records.reserve(orders.size());
  for (Order const& order : orders)
    records.push_back(order.record);
  auto const written = journal_.write(records);
  for (std::size_t i = 0; i < orders.size(); ++i) {
    Order& order = orders[i];
    if (written) {
      if (order.done) order.done(std::move(records[i].change));
      continue;
    }
    int const error = written.error();
    bool const isFull = error == ENOSPC || error == EDQUOT || error == EFBIG;
    if (order.done)
      order.done(Kstd::Err(Refusal{isFull, fmt::format("the configuration could not be written down: {}",
                                                       std::generic_category().message(error))}));
    if (order.isOwed) owed_.push_back({.record = std::move(order.record), .done = nullptr, .isOwed = true});
  }
}

} // namespace Agent
