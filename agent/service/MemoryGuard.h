// Agent::MemoryGuard: notices that the process has more memory than its model and its budget explain.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Agent {

// What is resident now, in bytes; 0 when that cannot be told.
[[nodiscard]] std::size_t residentBytes();

// One thread at a time; times are monotonic.
class MemoryGuard {
public:
  static constexpr std::int64_t acceptNs =
      5'000'000'000; // more that stays for so long is taken for what there is

  // `resident` is what there is at the start, `room` may come on top, as far as `limit` goes, which is for
  // the whole process.
  MemoryGuard(std::size_t resident, std::size_t room, std::size_t limit);

  // Whether it is too much: then whoever makes us hold it is to go, and `relieved` to be called, if somebody
  // was found.
  [[nodiscard]] bool isShort(std::size_t resident, std::int64_t nowNs);
  void relieved() { sinceNs_ = 0; }

  // More than half of the room is taken: whoever may have to go is to be found out.
  [[nodiscard]] bool isNear() const { return isNear_; }
  // The time until the next look.
  [[nodiscard]] std::int64_t lookNs() const { return isNear_ ? 20'000'000 : 100'000'000; }
  // Whether there is more than at the start, so that looking goes on when nobody is there.
  [[nodiscard]] bool isMore() const { return isMore_; }
  // Whether the heap is to be asked for what it keeps of it; `trimmed` tells what that brought. Seldom, while
  // it brings nothing.
  [[nodiscard]] bool trimIsDue(std::size_t resident, std::int64_t nowNs);
  void trimmed(std::size_t before, std::size_t after);

private:
  std::size_t const first_;
  std::size_t const step_;
  std::size_t line_;
  bool isMore_ = false;
  bool isNear_ = false;
  std::int64_t trimmedNs_ = 0;
  std::int64_t trimEveryNs_;
  std::int64_t sinceNs_ = 0; // that it is too much, and nobody is to be found; 0: it is not
};

} // namespace Agent
