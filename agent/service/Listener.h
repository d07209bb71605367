// Agent::Listener: a socket that listens.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "Kstd/Result.h"
#include "agent/service/ListenAddress.h"

namespace Agent {

// Owns the descriptor and, of a Unix socket, its file, which goes with it.
class Listener {
public:
  // One for each address that the host has ("localhost" may have two), on one port, which is chosen when it
  // is 0. A name that somebody else listens on is an error, of Unix sockets too; the file of one that nobody
  // listens on is replaced. The error says what is in the way.
  [[nodiscard]] static Kstd::Result<std::vector<Listener>, std::string> at(ListenAddress const& address);

  Listener(Listener&& other) noexcept;
  Listener& operator=(Listener&&) = delete;
  ~Listener();

  [[nodiscard]] int descriptor() const noexcept { return fd_; }
  // With the port that was chosen.
  [[nodiscard]] ListenAddress const& address() const noexcept { return address_; }

private:
  Listener(int fd, ListenAddress address) : fd_(fd), address_(std::move(address)) {}
  [[nodiscard]] static Kstd::Result<Listener, std::string> atFile(ListenAddress const& address);

  int fd_;
  ListenAddress address_;
  dev_t device_ = 0; // of the file
  ino_t inode_ = 0;
};

} // namespace Agent
