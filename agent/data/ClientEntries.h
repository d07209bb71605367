// Agent::ClientEntries: the entries of lists that clients have made, each of which takes memory as long as it is there.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "agent/data/ByteBudget.h"

namespace Agent {

// By the canonical bytes of their paths. Scheduler thread.
class ClientEntries {
public:
  // Of memory for one entry, with its containers, what watches them and its place here; about, and rather too much.
  static constexpr std::size_t kEntryBytes = 8 * 1024;

  explicit ClientEntries(std::shared_ptr<ByteBudget> budget) : share_(std::move(budget)) {}

  // Whether there is memory for so many more.
  [[nodiscard]] bool mayMake(std::size_t count);
  void made(std::string path);
  // It has gone, with all below it.
  void gone(std::string_view path);

private:
  std::set<std::string, std::less<>> paths_;
  ByteBudget::Share share_;
};

} // namespace Agent
