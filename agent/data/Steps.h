// Agent::Steps: work that is written down as one course and done in slices, as a coroutine. Parts of it may
// be such courses themselves.
#pragma once

#include <coroutine>
#include <cstddef>
#include <exception>
#include <utility>

#include "Kel/Memory.h"
#include "Tovak/Assert.h"
#include "Tovak/DebugHandler.h"

namespace Agent {

//   Steps all(Tovak::Task const& task) {
//     for (...) {
//       co_await part(...);                                 // Steps, too
//       co_await Steps::pauseIf(task.taskShouldYield());    // other work has its turn
//     }
//   }
//
// What a course is given by reference outlives it. Dropped before its end it is called off, with all its
// parts. One thread at a time.
class [[nodiscard]] Steps {
public:
  struct promise_type;
  using Handle = std::coroutine_handle<promise_type>;
  struct Pause;
  struct Part;

  Steps(Steps&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Steps& operator=(Steps&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~Steps() {
    if (handle_) handle_.destroy();
  }

  // Goes on until the next pause; false when that was the end. Raises what the course raises. REQUIRES that
  // it has not ended, and that it is no part of another one.
  [[nodiscard]] bool resume();

  [[nodiscard]] static Pause pauseIf(bool isDue) noexcept;
  [[nodiscard]] Part operator co_await() const noexcept;

private:
  explicit Steps(Handle handle) : handle_(handle) {}

  Handle handle_;
};

// Nothing here resumes anything but `resume`, from one loop: so the stack stays as deep as one part.
struct Steps::promise_type {
  struct End { // whoever waits for the part goes on
    bool await_ready() const noexcept { return false; }
    void await_suspend(Handle ended) const noexcept { ended.promise().whole->next = ended.promise().caller; }
    void await_resume() const noexcept {}
  };

  static void* operator new(std::size_t size) { return Kel::kelMemAlloc(size); }
  static void operator delete(void* frame, std::size_t size) noexcept { Kel::kelMemFree(frame, size); }

  Steps get_return_object() {
    next = Handle::from_promise(*this);
    return Steps(next);
  }
  std::suspend_always initial_suspend() const noexcept { return {}; }
  End final_suspend() const noexcept { return {}; }
  void return_void() const noexcept {}
  void unhandled_exception() { error = std::current_exception(); }
  void rethrow() const {
    if (error) std::rethrow_exception(error);
  }

  promise_type* whole = this; // of which it is a part
  Handle caller;              // of a part
  Handle next;                // of the whole: what goes on; null: it has ended
  bool isPaused = false;      // of the whole
  std::exception_ptr error;
};

struct Steps::Pause {
  bool isDue;
  bool await_ready() const noexcept { return !isDue; }
  void await_suspend(Handle paused) const noexcept { paused.promise().whole->isPaused = true; }
  void await_resume() const noexcept {}
};

struct Steps::Part {
  Handle part;
  bool await_ready() const noexcept { return false; }
  void await_suspend(Handle caller) const noexcept {
    part.promise().caller = caller;
    part.promise().whole = caller.promise().whole;
    part.promise().whole->next = part;
  }
  void await_resume() const { part.promise().rethrow(); }
};

inline Steps::Pause Steps::pauseIf(bool isDue) noexcept { return {isDue}; }
inline Steps::Part Steps::operator co_await() const noexcept { return {handle_}; }

inline bool Steps::resume() {
  promise_type& whole = handle_.promise();
  TOVAK_ASSERT(whole.next && whole.whole == &whole, Tovak::Platform::getDebugHandler("OndraAgent", false),
               "a course that has ended, or is part of another one, is resumed");
  whole.isPaused = false;
  while (whole.next && !whole.isPaused)
    whole.next.resume();
  whole.rethrow();
  return static_cast<bool>(whole.next);
}

} // namespace Agent
