// Agent::ConfigStore: keeps a configuration in a folder. A thread of its own writes together what has come
// together.
#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include <absl/functional/any_invocable.h>

#include "Kstd/Result.h"
#include "agent/store/ConfigJournal.h"

namespace Agent {

// Opened by one thread before anything is written; then any thread. Ends when all that waits has been
// written.
class ConfigStore {
public:
  struct Refusal {
    bool isFull; // there is no room; else the disk fails
    std::string text;
  };
  // What takes the change back; of a provisional one nothing, since it does not hold yet.
  using Outcome = Kstd::Result<ConfigChange, Refusal>;
  using Done = absl::AnyInvocable<void(Outcome outcome)>;

  explicit ConfigStore(std::unique_ptr<Files> files) : files_(std::move(files)) {}
  ~ConfigStore();
  ConfigStore(ConfigStore const&) = delete;
  ConfigStore& operator=(ConfigStore const&) = delete;

  // Reads what is there. The error is a text.
  [[nodiscard]] Kstd::Result<ConfigJournal::Found, std::string> open() { return journal_.open(); }
  // Until the first write.
  [[nodiscard]] ConfigJournal const& journal() const noexcept { return journal_; }

  // Has it written down, behind what came before. `done` is called on the store's thread, in the same order.
  void write(ConfigRecord::Kind kind, ConfigChange change, Done done);
  // Takes a change back that holds and has not been told of. When the disk refuses it is written with what
  // comes next.
  void takeBack(ConfigChange back, Done done);

private:
  struct Order {
    ConfigRecord record;
    Done done;
    bool isOwed = false; // it is written whatever comes
  };
  void post(Order order);
  void run();
  void write(std::deque<Order>& orders);

  std::unique_ptr<Files> const files_;
  ConfigJournal journal_{*files_};
  std::deque<Order> owed_; // the store's thread
  std::mutex mutex_;       // guards what follows
  std::condition_variable arrived_;
  std::deque<Order> waiting_;
  bool ends_ = false;
  std::thread thread_;
};

} // namespace Agent
