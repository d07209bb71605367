// Agent::ByteBudget: how much may be held at a time by all who hold something of one kind; a part, perhaps,
// of what all kinds may hold.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>

namespace Agent {

// Bytes of memory, about. Any thread.
class ByteBudget {
public:
  explicit ByteBudget(std::size_t limit, std::shared_ptr<ByteBudget> whole = nullptr)
      : limit_(limit)
      , whole_(std::move(whole)) {}

  [[nodiscard]] std::size_t limit() const noexcept { return limit_; }
  [[nodiscard]] std::size_t used() const noexcept { return used_.load(std::memory_order_relaxed); }
  // More is held than may be, of this kind or of all.
  [[nodiscard]] bool isOver() const noexcept { return used() > limit_ || (whole_ && whole_->isOver()); }
  // More than half is held: who can do with less should.
  [[nodiscard]] bool isTight() const noexcept { return used() > limit_ / 2 || (whole_ && whole_->isTight()); }

  // What one of them holds; gives it back when it goes. Changed by one thread at a time.
  class Share {
  public:
    explicit Share(std::shared_ptr<ByteBudget> budget) : budget_(std::move(budget)) {}
    ~Share() { bytesAre(0); }
    Share(Share const&) = delete;
    Share& operator=(Share const&) = delete;

    // False, and nothing happens, when there is not so much left.
    [[nodiscard]] bool growTo(std::size_t bytes) {
      if (bytes <= bytes_) return true;
      budget_->add(bytes - bytes_);
      if (!budget_->isOver()) {
        bytes_ = bytes;
        return true;
      }
      budget_->sub(bytes - bytes_);
      return false;
    }
    // More or less, whatever is left: of what cannot be refused.
    void bytesAre(std::size_t bytes) {
      if (bytes > bytes_)
        budget_->add(bytes - bytes_);
      else
        budget_->sub(bytes_ - bytes);
      bytes_ = bytes;
    }
    [[nodiscard]] std::size_t bytes() const noexcept { return bytes_; }

  private:
    std::shared_ptr<ByteBudget> const budget_;
    std::size_t bytes_ = 0;
  };

private:
  void add(std::size_t bytes) {
    used_.fetch_add(bytes, std::memory_order_relaxed);
    if (whole_) whole_->add(bytes);
  }
  void sub(std::size_t bytes) {
    used_.fetch_sub(bytes, std::memory_order_relaxed);
    if (whole_) whole_->sub(bytes);
  }

  std::size_t const limit_;
  std::atomic<std::size_t> used_ = 0;
  std::shared_ptr<ByteBudget> const whole_;
};

} // namespace Agent
