// Agent::Audit: who wrote what, and who was turned away: one line of JSON for each.
//
// Invariants
// 1. Whoever notes something waits for nobody: lines are written by a thread of this object, and only so many
//    wait for it.
// 2. What cannot be written is counted, and the count written as soon as something can be: {"lost": N}.
// 3. Of calls that are refused only so many a second have lines of their own; the others are counted in one.
// 4. A file that has been taken away or replaced (logrotate) is made anew with the next line.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include <grpcpp/support/server_callback.h>
#include <grpcpp/support/status.h>

#include "Kstd/Result.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Tovak {
class Clock;
} // namespace Tovak

namespace Agent {

// Any thread. Ends with what waits written, unless that takes too long.
class Audit {
public:
  static constexpr std::size_t mostWaiting = 4'096;    // lines
  static constexpr std::uint64_t refusalsASecond = 20; // with lines of their own
  static constexpr int mostPaths = 100;                // of an operation of a Set

  struct Options {
    std::string file; // "journal": journald's
    bool hasValues = false;
  };
  // A text names what is wrong with the file. The clock outlives it.
  [[nodiscard]] static Kstd::Result<std::unique_ptr<Audit>, std::string> of(Options options,
                                                                            Tovak::Clock& clock);
  ~Audit();
  Audit(Audit const&) = delete;
  Audit& operator=(Audit const&) = delete;

  // Who calls from where.
  struct Caller {
    explicit Caller(grpc::CallbackServerContext const& context);
    std::string peer;        // "ipv4:192.0.2.1:4711"; of a Unix socket "unix:" and who has connected
    std::string user;        // as he names himself
    std::string certificate; // the name in it
  };
  void refused(Caller const& caller, std::string_view call, grpc::Status const& status);
  // A Set that has ended so, after so many nanoseconds.
  void set(Caller const& caller, gnmi::SetRequest const& request, grpc::Status const& status,
           std::int64_t tookNs);

private:
  Audit(Options options, Tovak::Clock& clock);

  void note(std::string line);
  [[nodiscard]] std::string timeNow() const;
  void run();
  [[nodiscard]] std::string lostLine(std::uint64_t count) const;
  [[nodiscard]] bool write(std::string const& line);
  [[nodiscard]] bool openIfGone();

  Options const options_;
  Tovak::Clock& clock_;
  int fd_ = -1; // of a file
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<std::string> waiting_;
  std::uint64_t lost_ = 0;
  std::int64_t secondNs_ = 0; // in which refusals are counted
  std::uint64_t refusals_ = 0;
  bool ends_ = false;
  std::thread thread_;
};

} // namespace Agent
