// The thread and its queue of orders; how links are changed is the writer's.
#include "agent/collect/ConfigApplier.h"

#include <utility>

#include "agent/collect/LinkWriter.h"

namespace Agent {

struct ConfigApplier::Shared {
  struct Order {
    std::vector<LinkChange> links;
    Done done;
  };
  std::shared_ptr<Tovak::TaskScheduler> scheduler;
  std::weak_ptr<Shared> self; // for the answers
  bool isAlive = true;        // scheduler thread only: the applier is still there
  std::mutex mutex;           // guards what follows
  std::condition_variable changed;
  std::deque<Order> orders;
  bool stopping = false;
};

ConfigApplier::ConfigApplier(std::shared_ptr<Tovak::TaskScheduler> scheduler)
    : shared_(std::make_shared<Shared>()) {
  shared_->scheduler = std::move(scheduler);
  shared_->self = shared_;
  thread_ = std::thread([shared = shared_] { work(*shared); });
}

ConfigApplier::~ConfigApplier() {
  shared_->isAlive = false;
  {
    std::lock_guard const lock(shared_->mutex);
    shared_->stopping = true;
    shared_->orders.clear();
  }
  shared_->changed.notify_all();
  thread_.join();
}

void ConfigApplier::apply(std::vector<LinkChange> links, Done done) {
  {
    std::lock_guard const lock(shared_->mutex);
    shared_->orders.push_back({std::move(links), std::move(done)});
  }
  shared_->changed.notify_all();
}

void ConfigApplier::work(Shared& shared) {
  LinkWriter writer;
  std::unique_lock lock(shared.mutex);
  for (;;) {
    shared.changed.wait(lock, [&] { return shared.stopping || !shared.orders.empty(); });
    if (shared.stopping) return;
    Shared::Order order = std::move(shared.orders.front());
    shared.orders.pop_front();
    lock.unlock();
    shared.scheduler->post(
        [weak = shared.self, done = std::move(order.done), outcome = writer.apply(order.links)] {
          if (auto const self = weak.lock(); self && self->isAlive) done(outcome);
        });
    lock.lock();
  }
}

} // namespace Agent
