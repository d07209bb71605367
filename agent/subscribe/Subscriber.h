// Agent::Subscriber: who takes the messages of one Subscribe call, as the call sees him.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <grpcpp/support/status.h>

#include "agent/subscribe/Message.h"

namespace Agent {

// Shared by the call and by whoever writes the messages. Scheduler thread, but for `end`.
class Subscriber {
public:
  virtual ~Subscriber() = default;

  // Of its peer, without the port; empty for one that has none.
  [[nodiscard]] virtual std::string const& address() const noexcept = 0;

  virtual void push(std::span<Message::Ptr const> messages) = 0;
  // As many as there is room for; says how many.
  [[nodiscard]] virtual std::size_t pushSome(std::span<Message::Ptr const> messages) = 0;
  // `Call::drained` follows once it is no longer.
  [[nodiscard]] virtual bool isFull() const = 0;

  // How much waits, and since when a write has been on its way, if one is.
  struct Held {
    std::size_t bytes;
    std::optional<std::int64_t> sinceNs;
  };
  [[nodiscard]] virtual Held held() const = 0;
  // It has taken nothing of what waits for it since `ns` before `nowNs`.
  [[nodiscard]] virtual bool isStuck(std::int64_t nowNs, std::int64_t ns) const = 0;

  // The call ends: with OK when all that is queued has been written, with an error at once. The first status
  // counts. Any thread.
  virtual void end(grpc::Status const& status) = 0;
};

} // namespace Agent
