// A ring of peers with a line of streams each; as many threads as processors, of lower priority, started with
// the first stream.
#include "agent/service/Pumps.h"

#include <sys/resource.h>

#include <algorithm>
#include <utility>

#include "Tovak/Assert.h"
#include "Tovak/DebugHandler.h"
#include "agent/service/SubscribeStream.h"

namespace Agent {
namespace {

// A third of the scheduler's share, when both always have work.
constexpr int kNicer = 5;

// On Linux a priority is a thread's own, and zero names the calling one. Making it less takes no right.
void threadGivesWay() {
  static_cast<void>(setpriority(PRIO_PROCESS, 0, getpriority(PRIO_PROCESS, 0) + kNicer));
}

} // namespace

Pumps::~Pumps() {
  {
    std::lock_guard const guard(mutex_);
    ends_ = true;
  }
  arrived_.notify_all();
  for (std::thread& thread : threads_)
    thread.join();
}

void Pumps::pumpIs(std::shared_ptr<SubscribeStream> stream) {
  {
    std::lock_guard const guard(mutex_);
    if (threads_.empty()) threadsBegin();
    Lines::value_type& line = *lines_.try_emplace(stream->address()).first;
    if (line.second.empty()) ring_.push_back(&line);
    line.second.push_back(std::move(stream));
  }
  arrived_.notify_one();
}

void Pumps::threadsBegin() {
  unsigned const count = std::max(1U, std::thread::hardware_concurrency()); // which asks the system
  for (unsigned i = 0; i < count; ++i)
    threads_.emplace_back([this] { run(); });
}

void Pumps::run() {
  threadGivesWay();
  std::unique_lock guard(mutex_);
  for (;;) {
    arrived_.wait(guard, [this] { return ends_ || !ring_.empty(); });
    if (ends_) return;
    std::shared_ptr<SubscribeStream> stream = next(guard);
    guard.unlock();
    stream->pump();
    stream.reset(); // whose end takes locks of its own
    guard.lock();
  }
}

std::shared_ptr<SubscribeStream> Pumps::next(std::unique_lock<std::mutex> const& guard) {
  TOVAK_ASSERT(guard.owns_lock() && !ring_.empty(), Tovak::Platform::getDebugHandler("OndraAgent", false),
               "nobody waits for a turn to write");
  Lines::value_type& line = *ring_.front();
  ring_.pop_front();
  std::shared_ptr<SubscribeStream> stream = std::move(line.second.front());
  line.second.pop_front();
  if (line.second.empty())
    lines_.erase(line.first);
  else
    ring_.push_back(&line);
  return stream;
}

} // namespace Agent
