// Agent::ByteBudget: how much may be held at a time by all who hold something of one kind.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>

namespace Agent {

// Any thread.
class ByteBudget {
public:
  explicit ByteBudget(std::size_t limit) : limit_(limit) {}

  // What one of them holds; gives it back when it goes. Grown by one thread at a time.
  class Share {
  public:
    explicit Share(std::shared_ptr<ByteBudget> budget) : budget_(std::move(budget)) {}
    ~Share() { budget_->used_.fetch_sub(bytes_, std::memory_order_relaxed); }
    Share(Share const&) = delete;
    Share& operator=(Share const&) = delete;

    // False, and nothing happens, when there is not so much left.
    [[nodiscard]] bool growTo(std::size_t bytes) {
      if (bytes <= bytes_) return true;
      std::size_t const more = bytes - bytes_;
      if (budget_->used_.fetch_add(more, std::memory_order_relaxed) + more > budget_->limit_) {
        budget_->used_.fetch_sub(more, std::memory_order_relaxed);
        return false;
      }
      bytes_ = bytes;
      return true;
    }

  private:
    std::shared_ptr<ByteBudget> const budget_;
    std::size_t bytes_ = 0;
  };

private:
  std::size_t const limit_;
  std::atomic<std::size_t> used_ = 0;
};

} // namespace Agent
