// Agent::Tally: how many calls there have been, and why some were refused.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Agent {

// Any thread.
class Tally {
public:
  // The methods in the order of the published service.
  enum class Method : std::uint8_t { Capabilities, Get, Set, Subscribe };
  static constexpr std::array methodNames = {"Capabilities", "Get", "Set", "Subscribe"};
  // Of statuses, as gRPC numbers them.
  static constexpr std::array codeNames = {
      "OK",        "CANCELLED",      "UNKNOWN",           "INVALID_ARGUMENT",   "DEADLINE_EXCEEDED",
      "NOT_FOUND", "ALREADY_EXISTS", "PERMISSION_DENIED", "RESOURCE_EXHAUSTED", "FAILED_PRECONDITION",
      "ABORTED",   "OUT_OF_RANGE",   "UNIMPLEMENTED",     "INTERNAL",           "UNAVAILABLE",
      "DATA_LOSS", "UNAUTHENTICATED"};

  void begun(Method method) noexcept { add(begun_[static_cast<std::size_t>(method)]); }
  // A call has ended so by our doing. What its client has cancelled, or got, is no refusal.
  void ended(int code) noexcept {
    bool const isRefusal = code > 1 && static_cast<std::size_t>(code) < codeNames.size();
    if (isRefusal) add(refused_[static_cast<std::size_t>(code)]);
  }

  [[nodiscard]] std::uint64_t begun(std::size_t method) const noexcept {
    return begun_[method].load(std::memory_order_relaxed);
  }
  [[nodiscard]] std::uint64_t refused(std::size_t code) const noexcept {
    return refused_[code].load(std::memory_order_relaxed);
  }

private:
  using Count = std::atomic<std::uint64_t>;
  static void add(Count& count) noexcept { count.fetch_add(1, std::memory_order_relaxed); }

  std::array<Count, methodNames.size()> begun_{};
  std::array<Count, codeNames.size()> refused_{};
};

} // namespace Agent
