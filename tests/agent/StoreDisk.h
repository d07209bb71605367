// A disk for a store that fails, tears and forgets when it is told to.
#pragma once

#include <cerrno>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "agent/store/Files.h"

namespace AgentTesting {

// What a machine keeps over a loss of power: files, and which names they have.
class StoreDisk {
public:
  struct Cut {}; // raised by the call at which the power goes

  // What becomes of the call of that number, from 0, and of those behind it.
  enum class Fault : std::uint8_t { None, Once, FromThereOn, Cut };
  struct Plan {
    Fault fault = Fault::None;
    std::size_t at = 0;
    int error = ENOSPC;
  };

  explicit StoreDisk(std::uint64_t seed = 1) : random_(seed) {}

  // Until the next plan.
  void planIs(Plan plan) {
    plan_ = plan;
    calls_ = 0;
  }
  [[nodiscard]] std::size_t calls() const { return calls_; }
  // Before each sync.
  std::function<void()> whenSynced;

  // The power goes: of what was not synced each part may be there or not.
  void losePower() {
    std::size_t const kept = below(moves_.size() + 1);
    for (std::size_t i = 0; i < kept; ++i)
      moves_[i](synced_);
    moves_.clear();
    names_ = synced_;
    for (auto& [name, inode] : names_) {
      std::size_t const luck = below(3); // all of it; none; some
      if (luck > 0) inode->now = inode->synced;
      for (auto const& [at, bytes] : inode->writes) {
        for (std::size_t i = 0; i < bytes.size() && luck == 2; ++i)
          if (i % kSector == 0 && below(2) == 0)
            i += kSector - 1; // this one is lost
          else
            put(inode->now, at + i, bytes[i]);
      }
      if (luck == 2 && inode->cutTo < inode->now.size() && below(2) == 0) inode->now.resize(inode->cutTo);
      inode->settle();
    }
  }
  // Bytes of a file, to be damaged by hand; empty when it is not there.
  std::string& content(std::string const& name) {
    auto& inode = names_[name];
    if (!inode) inode = std::make_shared<Inode>();
    return inode->now;
  }

  [[nodiscard]] std::unique_ptr<Agent::Files> files() { return std::make_unique<Calls>(*this); }

private:
  static constexpr std::size_t kSector = 16;
  static constexpr std::size_t kNever = SIZE_MAX;
  struct Inode {
    std::string now, synced;
    std::vector<std::pair<std::size_t, std::string>> writes; // since
    std::size_t cutTo = kNever;
    void settle() {
      synced = now;
      writes.clear();
      cutTo = kNever;
    }
  };
  using Names = std::map<std::string, std::shared_ptr<Inode>>;

  static void put(std::string& to, std::size_t at, char byte) {
    if (to.size() <= at) to.resize(at + 1);
    to[at] = byte;
  }
  std::size_t below(std::size_t bound) {
    return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_);
  }
  void move(std::function<void(Names&)> const& change) {
    change(names_);
    moves_.push_back(change);
  }

  class Calls final : public Agent::Files {
  public:
    explicit Calls(StoreDisk& disk) : disk_(disk) {}

    OrErrno<File> open(std::string const& name) override {
      if (int const error = fault()) return Kstd::Err(error);
      auto const found = disk_.names_.find(name);
      if (found == disk_.names_.end()) return Kstd::Err(ENOENT);
      return opened(found->second);
    }
    OrErrno<File> create(std::string const& name) override {
      if (int const error = fault()) return Kstd::Err(error);
      auto const made = std::make_shared<Inode>();
      disk_.move([name, made](Names& names) { names[name] = made; });
      return opened(made);
    }
    void close(File file) override { open_.erase(file); }
    OrErrno<std::size_t> read(File file, char* to, std::size_t size, std::uint64_t at) override {
      if (int const error = fault()) return Kstd::Err(error);
      return open_[file]->now.copy(to, size, std::min(at, open_[file]->now.size()));
    }
    OrErrno<std::size_t> write(File file, std::string_view bytes, std::uint64_t at) override {
      std::size_t const some = disk_.below(4) == 0 ? disk_.below(bytes.size()) + 1 : bytes.size();
      int const error = faultBut([&] { put(file, bytes.substr(0, some / 2), at); });
      if (error != 0) return Kstd::Err(error);
      put(file, bytes.substr(0, some), at);
      return some;
    }
    OrErrno<void> truncate(File file, std::uint64_t size) override {
      if (int const error = fault()) return Kstd::Err(error);
      open_[file]->now.resize(size);
      open_[file]->cutTo = size;
      return {};
    }
    OrErrno<void> sync(File file) override {
      if (disk_.whenSynced) disk_.whenSynced();
      if (int const error = fault()) return Kstd::Err(error);
      open_[file]->settle();
      return {};
    }
    OrErrno<void> syncFolder() override {
      if (int const error = fault()) return Kstd::Err(error);
      disk_.synced_ = disk_.names_;
      disk_.moves_.clear();
      return {};
    }
    OrErrno<void> rename(std::string const& from, std::string const& to) override {
      if (int const error = fault()) return Kstd::Err(error);
      disk_.move([from, to](Names& names) {
        if (auto taken = names.extract(from)) names[to] = taken.mapped();
      });
      return {};
    }

  private:
    File opened(std::shared_ptr<Inode> inode) {
      open_[++last_] = std::move(inode);
      return last_;
    }
    void put(File file, std::string_view bytes, std::uint64_t at) {
      Inode& inode = *open_[file];
      for (std::size_t i = 0; i < bytes.size(); ++i)
        StoreDisk::put(inode.now, at + i, bytes[i]);
      inode.writes.emplace_back(at, bytes);
    }
    // The error of this call; 0: it does what it is for.
    int fault() {
      return faultBut([] {});
    }
    int faultBut(std::function<void()> const& half) {
      std::size_t const call = disk_.calls_++;
      Plan const& plan = disk_.plan_;
      if (plan.fault == Fault::None || call < plan.at || (plan.fault == Fault::Once && call > plan.at))
        return 0;
      half();
      if (plan.fault == Fault::Cut) throw Cut();
      return plan.error;
    }

    StoreDisk& disk_;
    std::map<File, std::shared_ptr<Inode>> open_;
    File last_ = 0;
  };

  std::mt19937_64 random_;
  Plan plan_;
  std::size_t calls_ = 0;
  Names names_, synced_;
  std::vector<std::function<void(Names&)>> moves_; // of names, since the folder was synced
};

} // namespace AgentTesting
