// The lock of what several threads share.
#pragma once

#include <mutex>

namespace Tovak::Locking {

// A mutual-exclusion lock; not recursive. Works with std::lock_guard and std::unique_lock. The few places
// that are reached from several threads use it; the model and all that hangs off it belong to the scheduler
// thread and use none. Whoever embeds the lock owns it.
class Lock {
public:
  Lock() = default;
  Lock(Lock const&) = delete;
  Lock& operator=(Lock const&) = delete;

  void lock() { mutex_.lock(); }
  void unlock() { mutex_.unlock(); }
  bool try_lock() { return mutex_.try_lock(); }

private:
  std::mutex mutex_;
};

} // namespace Tovak::Locking
