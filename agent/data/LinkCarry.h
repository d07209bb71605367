// One Set's part with the machine's links: what is wanted of them changes, and goes to whoever carries it.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include <absl/functional/any_invocable.h>

#include "agent/data/LinkWishes.h"
#include "agent/model/LinkChange.h"

namespace Agent {

// Owned by the Set, which may go before an answer comes. Scheduler thread.
class LinkCarry {
public:
  using Told = absl::AnyInvocable<void()>;

  // Both outlive it. `carrier` may be null: then nothing is carried.
  LinkCarry(LinkCarrier* carrier, LinkWishes& wishes) : carrier_(carrier), wishes_(wishes) {}

  // Finds out what the links have that is to be remembered once the wish is carried; changes nothing.
  void look(std::set<std::string> const& links, ConfigChange wish, Told told);
  // Wishes, and carries it.
  void carry(std::set<std::string> const& links, ConfigChange wish, Told told);
  // The links take what they had. REQUIRES that they have been carried.
  void carryBack(Told told);

  // The machine has refused: nothing is wished.
  void refusedIs();

  // Of the last of these, once it has been told: empty for success.
  [[nodiscard]] std::string const& refusal() const { return answer_->refusal; }
  [[nodiscard]] LinkBefores const& befores() const { return answer_->befores; }

  [[nodiscard]] bool hasCarried() const noexcept { return unwish_.has_value(); }
  // What takes the wish back; nothing where there was none.
  [[nodiscard]] ConfigChange takeUnwish() {
    return std::exchange(unwish_, std::nullopt).value_or(ConfigChange());
  }

private:
  struct Answer {
    std::string refusal;
    LinkBefores befores;
  };
  void carryLinks(Told told);

  LinkCarrier* const carrier_;
  LinkWishes& wishes_;
  std::set<std::string> links_;
  std::optional<ConfigChange> unwish_;
  std::shared_ptr<Answer> answer_ = std::make_shared<Answer>();
};

} // namespace Agent
