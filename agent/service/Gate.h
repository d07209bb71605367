// Agent::Gate: who is let in, and what he may do, by the terms that are in force; streams of those who are
// let in no more end.
//
// Invariants
// 1. Terms change whole. A stream that is let in by terms which change meanwhile is judged by the new ones.
// 2. A stream goes on exactly if its credentials would let it in again and its rights are the same: else it
//    is UNAUTHENTICATED, or UNAVAILABLE, and may subscribe again.
// docs/decisions.md: "What becomes of streams when the terms change?"
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <absl/container/flat_hash_map.h>
#include <grpcpp/support/server_callback.h>
#include <grpcpp/support/status.h>

#include "Kstd/Result.h"
#include "agent/access/AccessRules.h"
#include "agent/service/Terms.h"

namespace Tovak {
class Clock;
} // namespace Tovak

namespace Agent {

class Authenticator;
class Subscriber;

// Who has been let in. A value.
struct Guest {
  // By which access rules know him: of his password; else the SPIFFE id of his certificate, or its common
  // name; of a Unix socket, "unix:" and the user of this machine who has connected; empty: nobody knows.
  std::string name = {};
  Rights rights = {};

  // --- for the gate -----------------------------------------------------------------------------------
  std::shared_ptr<Terms const> terms = nullptr; // by which he came in
  std::string certificate = {};                 // PEM
  std::string chain = {};                       // that came along
};

// Any thread; not for the scheduler's, as a password may have to be hashed. The clock outlives it.
class Gate {
public:
  Gate(Terms terms, Tovak::Clock& clock);
  ~Gate();
  Gate(Gate const&) = delete;
  Gate& operator=(Gate const&) = delete;

  // UNAUTHENTICATED; UNAVAILABLE when too many wrong passwords came in.
  using Admitted = Kstd::Result<Guest, grpc::Status>;
  [[nodiscard]] Admitted admit(grpc::CallbackServerContext const& context);

  // A guest's stream, until it has left: it is ended when he is not to stay. He is a part of the stream.
  void enter(std::shared_ptr<Subscriber> const& stream, Guest const& guest);
  void leave(Subscriber& stream);

  // Puts other terms in force, of the same kinds; how many streams that has ended.
  std::size_t termsAre(Terms terms);

private:
  struct Inside {
    std::weak_ptr<Subscriber> stream;
    Guest const* guest; // as long as the stream lives
  };
  // Why a guest is not to stay; nothing: he is.
  [[nodiscard]] static std::optional<grpc::Status> ejection(Guest const& guest, Terms const& terms);
  [[nodiscard]] std::shared_ptr<Terms const> termsNow();

  std::unique_ptr<Authenticator> const authenticator_; // null: nobody is asked for a password
  std::mutex mutex_;
  std::shared_ptr<Terms const> terms_; // guarded by it, as what follows
  absl::flat_hash_map<Subscriber*, Inside> inside_;
};

} // namespace Agent
