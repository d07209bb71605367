// The part of a Set that changes the model: all of it is written and told, or it is as it was. Scheduler
// thread, in slices.
#pragma once

#include <cstdint>
#include <optional>

#include <grpcpp/support/status.h>

#include "agent/data/SetDiff.h"
#include "agent/data/Steps.h"
#include "agent/router/StagedSet.h"

namespace Agent {

class Router;

// Owned by the Set, from the moment that the model is to change. What it is given outlives it.
class SetWriting {
public:
  // REQUIRES that the library has checked what the diff has, where that is more than one part, and that no
  // other Set writes.
  SetWriting(Router& router, SetDiff& diff, ClientEntries& entries, Tovak::Task const& task)
      : router_(router)
      , diff_(diff)
      , entries_(entries)
      , task_(task)
      , staged_(router) {}

  // Once. `coming`: memory that is held for the entries that it makes, given up when they have their own.
  Steps run(ByteBudget::Share& coming);

  // Changes of a slice are the Set's, those between slices are not.
  void sliceBegins() { whoseIs(whose_); }
  void sliceEnds() { whoseIs(Staging::Whose::Other); }

  // When it has run: what the model refused, and when it was written.
  [[nodiscard]] grpc::Status const& status() const noexcept { return status_; }
  [[nodiscard]] std::int64_t timestamp() const noexcept { return timestamp_; }

private:
  [[nodiscard]] Steps::Pause pause() const;
  void whoseIs(Staging::Whose whose) {
    if (staged_) staged_->whoseIs(whose);
  }
  void checkRoom();

  Steps parts(SetParts const& set);
  Steps plain();
  void presences();
  Steps note(ByteBudget::Share& coming);
  Steps takeBack();

  Router& router_;
  SetDiff& diff_;
  ClientEntries& entries_;
  Tovak::Task const& task_;
  grpc::Status status_;
  std::int64_t timestamp_ = 0;
  std::optional<StagedSet> staged_; // until it has run
  Staging::Whose whose_ = Staging::Whose::Own;
};

} // namespace Agent
