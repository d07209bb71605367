// Agent::OutQueue: the messages that wait to be written to one subscriber, first in, first out.
//
// Full is sticky: from the bound on, until half of it is left. Walks stop there, and changes wait in the
// backlog of the call; only what a walk's slice still has in its hands, and ends of paths, go beyond. While
// memory is tight for all subscribers, each has a smaller bound.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <utility>

#include "agent/context/ByteBudget.h"
#include "agent/subscribe/Message.h"

namespace Agent {

// A plain value without a lock: whoever shares it between threads guards it.
class OutQueue {
public:
  // `bound` in bytes. `budget`: of the queues of all subscribers.
  OutQueue(std::size_t bound, std::shared_ptr<ByteBudget> budget)
      : bound_(bound)
      , budget_(std::move(budget)) {}
  OutQueue(OutQueue const&) = delete;
  OutQueue& operator=(OutQueue const&) = delete;

  void push(Message::Ptr message);
  // The next message. Null when there is none.
  [[nodiscard]] Message::Ptr pop();
  // Drops everything. It counts as full until the next `pop`.
  void clear();

  [[nodiscard]] bool isFull() const noexcept { return full_; }
  // Whether it has stopped being full since the last question.
  [[nodiscard]] bool takeDrained() noexcept;
  [[nodiscard]] bool empty() const noexcept { return messages_.empty(); }
  [[nodiscard]] std::size_t size() const noexcept { return messages_.size(); }
  // Of its messages, whoever else holds them.
  [[nodiscard]] std::size_t bytes() const noexcept { return bytes_; }

private:
  std::size_t const bound_;
  std::shared_ptr<ByteBudget> const budget_;
  std::size_t bytes_ = 0;
  struct Queued {
    Message::Ptr message;
    Message::Charge charge; // a message in several queues is there once
  };
  std::deque<Queued> messages_;
  bool full_ = false;
  bool drained_ = false;
};

} // namespace Agent
