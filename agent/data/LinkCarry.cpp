// Answers are written down where they outlive the Set.
#include "agent/data/LinkCarry.h"

namespace Agent {

void LinkCarry::look(std::set<std::string> const& links, ConfigChange wish, Told told) {
  ConfigChange unwish = wishes_.changeIs(std::move(wish));
  std::vector<LinkChange> wanted = wishes_.of(links);
  static_cast<void>(wishes_.changeIs(std::move(unwish)));
  auto const shared = std::make_shared<Told>(std::move(told)); // the carrier's functions can be copied
  carrier_->look(std::move(wanted), [answer = answer_, shared](auto const& outcome) {
    if (outcome) answer->befores = *outcome;
    if (!outcome) answer->refusal = outcome.error();
    (*shared)();
  });
}

void LinkCarry::carry(std::set<std::string> const& links, ConfigChange wish, Told told) {
  links_ = links;
  unwish_ = wishes_.changeIs(std::move(wish));
  carryLinks(std::move(told));
}

void LinkCarry::carryBack(Told told) {
  static_cast<void>(wishes_.changeIs(takeUnwish()));
  carryLinks(std::move(told));
}

void LinkCarry::refusedIs() { static_cast<void>(wishes_.changeIs(takeUnwish())); }

void LinkCarry::carryLinks(Told told) {
  auto const shared = std::make_shared<Told>(std::move(told));
  carrier_->carry(wishes_.of(links_), [answer = answer_, shared](auto const& outcome) {
    if (!outcome) answer->refusal = outcome.error();
    (*shared)();
  });
}

} // namespace Agent
