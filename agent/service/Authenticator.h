// Agent::Authenticator: whether a call's name and password let it in.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include <grpcpp/support/status.h>
#include <grpcpp/support/string_ref.h>

#include "agent/service/GuessBudget.h"
#include "agent/service/Users.h"

namespace Tovak {
class Clock;
} // namespace Tovak

namespace Agent {

// Checks the metadata "username" and "password" of calls. What a password hashes to is remembered for a
// while, as a digest with a key of this process, so that a client pays for its hash once. One hash is
// computed at a time, and of wrong passwords only so many as `GuessBudget` allows are looked at: guessing
// neither succeeds, nor takes the machine, nor shuts others out. Any thread; not for the scheduler's.
// docs/decisions.md: "Where is a password hashed?"
class Authenticator {
public:
  static constexpr std::int64_t acceptedNs = 600'000'000'000; // how long a right password is remembered
  static constexpr std::int64_t refusedNs = 10'000'000'000;   // and a wrong one
  static constexpr std::int64_t patienceNs = 300'000'000;     // with other calls whose password is looked at
  static constexpr std::size_t memory = 4'096;                // passwords that are remembered at most

  using Metadata = std::multimap<grpc::string_ref, grpc::string_ref>;

  // The clock must outlive it. REQUIRES that there are users.
  Authenticator(std::shared_ptr<Users const> users, Tovak::Clock& clock);

  // From now on these; of others nothing is remembered any more. REQUIRES that there are users.
  void usersAre(std::shared_ptr<Users const> users);

  // `peer`: as gRPC writes it. OK; UNAUTHENTICATED; UNAVAILABLE when too many wrong passwords came in.
  [[nodiscard]] grpc::Status check(Metadata const& metadata, std::string const& peer);

private:
  using Digest = std::array<unsigned char, 32>;
  struct Verdict {
    bool isAccepted;
    std::int64_t untilNs;
    std::string name;
  };
  [[nodiscard]] Digest digest(std::string_view name, std::string_view password) const;
  enum class Known : std::uint8_t { Accepted, Refused, No };
  [[nodiscard]] Known known(Digest const& digest);
  [[nodiscard]] bool mayGuess(std::string const& place, std::string_view name);
  // Looks at it, and remembers. REQUIRES that `hashing_` is held by `hashing`.
  using Hashing = std::unique_lock<std::timed_mutex>;
  [[nodiscard]] Known found(Hashing const& hashing, std::string_view name, std::string_view password,
                            Digest const& digest, std::string const& place);

  Tovak::Clock& clock_;
  std::array<unsigned char, 32> key_;
  std::timed_mutex hashing_;           // held while a hash is computed; before `lock_`
  std::shared_ptr<Users const> users_; // guarded by it
  std::mutex lock_;                    // guards what follows
  std::map<Digest, Verdict> verdicts_;
  GuessBudget guesses_;
};

} // namespace Agent
