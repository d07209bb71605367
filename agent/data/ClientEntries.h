// Agent::ClientEntries: the entries of lists that clients have made, each of which takes memory as long as it
// is there.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "agent/context/ByteBudget.h"

namespace Agent {

struct TypeNode;

struct MadeEntry {
  std::string path;  // canonical bytes
  std::size_t bytes; // of memory
};

// Scheduler thread.
class ClientEntries {
public:
  // What an entry of a list takes: with the containers that may stand in it, what watches them, and its place
  // here. Lists in it count by themselves, and texts of clients' own by the request that they come with.
  [[nodiscard]] static std::size_t bytesOf(TypeNode const& list);

  explicit ClientEntries(std::shared_ptr<ByteBudget> budget) : share_(std::move(budget)) {}

  [[nodiscard]] static std::size_t bytesOf(std::span<MadeEntry const> entries);
  void made(MadeEntry entry);
  [[nodiscard]] bool has(std::string_view path) const { return entries_.contains(path); }
  // It has gone, with all below it.
  void gone(std::string_view path);

private:
  std::map<std::string, std::size_t, std::less<>> entries_; // their bytes, by path
  std::size_t bytes_ = 0;
  ByteBudget::Share share_;
};

} // namespace Agent
