// The thread and its queue of orders; how links are changed is the writer's.
#include "agent/collect/ConfigApplier.h"

#include <functional>
#include <utility>

#include "agent/collect/LinkWriter.h"

namespace Agent {

struct ConfigApplier::Shared {
  using Order = std::function<void(LinkWriter&)>;
  std::shared_ptr<Tovak::TaskScheduler> scheduler;
  bool isAlive = true; // scheduler thread only: the applier is still there
  std::mutex mutex;    // guards what follows
  std::condition_variable changed;
  std::deque<Order> orders;
  bool stopping = false;
};

ConfigApplier::ConfigApplier(std::shared_ptr<Tovak::TaskScheduler> scheduler)
    : shared_(std::make_shared<Shared>()) {
  shared_->scheduler = std::move(scheduler);
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

// Has `work` done with the writer on the thread, and `done` told of the outcome here.
template <class Work, class Done>
void ConfigApplier::post(Work work, Done done) {
  auto order = [weak = std::weak_ptr(shared_), scheduler = shared_->scheduler, work = std::move(work),
                done = std::move(done)](LinkWriter& writer) mutable {
    scheduler->post([weak, done = std::move(done), outcome = work(writer)] {
      if (auto const self = weak.lock(); self && self->isAlive) done(outcome);
    });
  };
  {
    std::lock_guard const lock(shared_->mutex);
    shared_->orders.emplace_back(std::move(order));
  }
  shared_->changed.notify_all();
}

void ConfigApplier::beforesAre(LinkBefores befores) {
  post(
      [befores = std::move(befores)](LinkWriter& writer) {
        writer.beforesAre(befores);
        return true;
      },
      [](bool) {});
}

void ConfigApplier::look(std::vector<LinkChange> links, Looked done) {
  post([links = std::move(links)](LinkWriter& writer) { return writer.look(links); }, std::move(done));
}

void ConfigApplier::carry(std::vector<LinkChange> links, Carried done) {
  post([links = std::move(links)](LinkWriter& writer) { return writer.apply(links); }, std::move(done));
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
    order(writer);
    order = nullptr;
    lock.lock();
  }
}

} // namespace Agent
