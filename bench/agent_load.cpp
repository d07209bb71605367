// ondra-load: the agent under load, over loopback. The agent runs in a process of its own (a child), this one
// holds the subscribers.
//
//   ondra-load once [LEAVES]              three ONCEs of a generated tree: leaves a second, time to the first update
//   ondra-load small [LEAVES]             the same of small objects: the agent's interfaces as clients make them
//   ondra-load read PORT PID              the same of all that an agent has that runs on this machine
//   ondra-load streams [SUBSCRIBERS]      STREAMs of the machine's tree: time to sync, latency of changes, memory of an idle one
//   ondra-load slow [SUBSCRIBERS]         one that never reads beside others: their latency without and with it, memory
//
// Each prints what it measured, and how long the agent's scheduler thread was held at most (processor time of
// one pass of its loop).

#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <fmt/format.h>

#include "InterfaceModel.h"
#include "Kel/Dir.h"
#include "agent/collect/Collectors.h"
#include "agent/service/Runtime.h"
#include "agent/service/Server.h"
#include "agent/synthetic/Synthetic.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace {

std::int64_t clockNs(clockid_t clock) {
  timespec at{};
  clock_gettime(clock, &at);
  return at.tv_sec * 1'000'000'000L + at.tv_nsec;
}
std::int64_t nowNs() { return clockNs(CLOCK_MONOTONIC); }
double ms(std::int64_t ns) { return static_cast<double>(ns) / 1e6; }

// --- the agent's process -----------------------------------------------------------------------------------

// What parent and child say to each other, one line of text each way.
struct Pipes {
  int toChild[2];
  int toParent[2];
};

std::string readLine(int fd) {
  std::string line;
  for (char c = 0; read(fd, &c, 1) == 1 && c != '\n';)
    line += c;
  return line;
}
void writeLine(int fd, std::string const& line) {
  std::string const text = line + '\n';
  if (write(fd, text.data(), text.size()) < 0) std::perror("write");
}

std::size_t residentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  statm >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::int64_t processorNs(std::string const& pid) {
  std::ifstream stat("/proc/" + pid + "/stat");
  std::string field;
  std::int64_t ticks = 0;
  for (int i = 1; stat >> field && i <= 15; ++i)
    if (i >= 14) ticks += std::stol(field);
  return ticks * 1'000'000'000L / sysconf(_SC_CLK_TCK);
}

// The processor time between one pass of the loop and the next.
class HoldMeter {
public:
  explicit HoldMeter(Tovak::TaskScheduler& scheduler) {
    scheduler.loopHookIs([this] {
      std::int64_t const now = clockNs(CLOCK_THREAD_CPUTIME_ID);
      if (last_ != 0) longest_ = std::max(longest_.load(), now - last_);
      last_ = now;
    });
  }
  [[nodiscard]] std::int64_t longestNs() const { return longest_; }
  void reset() { longest_ = 0; }

private:
  std::int64_t last_ = 0;
  std::atomic<std::int64_t> longest_ = 0;
};

enum class Served : std::uint8_t { Machine, Synthetic, Small };

// Serves until told to stop. Commands: "rss", "hold", "cpu" (each answered), "changes N" (N a second from now
// on), "stop".
int serve(Pipes const& pipes, Served served, std::size_t leaves) {
  Agent::declareTypes();
  if (served == Served::Synthetic) Agent::declareSynthetic();
  Agent::Runtime runtime;
  if (served == Served::Synthetic) static_cast<void>(Agent::syntheticIn(*Kel::globalDir(), leaves));
  if (served == Served::Small) Bench::makeInterfaces(runtime.context().tree(), leaves);
  Agent::Collectors collectors(runtime.context().scheduler(), runtime.context().tree(), {});
  if (served == Served::Machine) collectors.start();
  HoldMeter hold(*runtime.context().scheduler());
  Kel::Ptr<Agent::Interface> const marked =
      runtime.context().tree().interfaces->entryIs(&Agent::Interfaces::interface, "load0");
  runtime.context().start();
  Agent::ServerSecurity security;
  security.credentials = grpc::InsecureServerCredentials();
  auto server = Agent::Server::start(
      {.listen = {{.host = "127.0.0.1", .port = 0}}, .security = security, .gate = nullptr}, runtime);
  if (!server.ok()) {
    std::fprintf(stderr, "%s\n", server.error().c_str());
    return 1;
  }
  writeLine(pipes.toParent[1], std::to_string((*server)->addresses().front().port));
  for (;;) {
    std::string const command = readLine(pipes.toChild[0]);
    if (command == "rss") {
      writeLine(pipes.toParent[1], std::to_string(residentBytes()));
    } else if (command == "hold") {
      writeLine(pipes.toParent[1], std::to_string(hold.longestNs()));
      hold.reset();
    } else if (command == "cpu") {
      writeLine(pipes.toParent[1], std::to_string(clockNs(CLOCK_PROCESS_CPUTIME_ID)));
    } else if (command.starts_with("changes ")) {
      std::int64_t const period = 1'000'000'000 / std::stol(command.substr(8));
      runtime.context().scheduler()->post([&runtime, marked, period] {
        runtime.context().scheduler()->timerEvery(period, [marked] {
          marked->state->leafIs(&Agent::InterfaceState::lastChange, static_cast<std::uint64_t>(nowNs()));
        });
      });
    } else { // also when the parent has gone
      break;
    }
  }
  (*server)->drain(1'000'000'000);
  server = std::string("gone");
  runtime.context().stop();
  return 0;
}

class AgentProcess {
public:
  explicit AgentProcess(Served served, std::size_t leaves = 0) {
    if (pipe(pipes_.toChild) != 0 || pipe(pipes_.toParent) != 0) std::abort();
    child_ = fork();
    if (child_ == 0) {
      close(pipes_.toChild[1]);
      std::_Exit(serve(pipes_, served, leaves));
    }
    close(pipes_.toChild[0]);
    port_ = readLine(pipes_.toParent[0]);
    if (port_.empty()) std::exit(1);
  }
  // One that runs already.
  AgentProcess(std::string port, std::string pid) : port_(std::move(port)), others_(std::move(pid)) {}
  ~AgentProcess() {
    if (!others_.empty()) return;
    writeLine(pipes_.toChild[1], "stop");
    waitpid(child_, nullptr, 0);
  }
  AgentProcess(AgentProcess const&) = delete;
  AgentProcess& operator=(AgentProcess const&) = delete;

  [[nodiscard]] std::int64_t ask(std::string const& command) {
    if (!others_.empty()) return command == "cpu" ? processorNs(others_) : 0;
    writeLine(pipes_.toChild[1], command);
    return std::stol(readLine(pipes_.toParent[0]));
  }
  void tell(std::string const& command) { writeLine(pipes_.toChild[1], command); }
  [[nodiscard]] std::shared_ptr<grpc::Channel> channel(int number) const {
    grpc::ChannelArguments args;
    args.SetInt("ondra.load", number); // a connection of its own
    args.SetMaxReceiveMessageSize(-1);
    return grpc::CreateCustomChannel("127.0.0.1:" + port_, grpc::InsecureChannelCredentials(), args);
  }

private:
  Pipes pipes_{};
  pid_t child_ = 0;
  std::string port_;
  std::string others_; // the process's id, of one that is not ours
};

// --- subscribers -------------------------------------------------------------------------------------------

// The fields of a message, one level down, as tag number and bytes; varints count as no bytes.
template <class Visit>
void fieldsOf(std::string_view bytes, Visit const& visit) {
  auto const varint = [&bytes] {
    std::uint64_t value = 0;
    for (int shift = 0; !bytes.empty(); shift += 7) {
      auto const byte = static_cast<unsigned char>(bytes.front());
      bytes.remove_prefix(1);
      value |= static_cast<std::uint64_t>(byte & 0x7f) << shift;
      if (byte < 0x80) break;
    }
    return value;
  };
  while (!bytes.empty()) {
    std::uint64_t const tag = varint();
    if ((tag & 7) == 0) {
      visit(tag >> 3, std::string_view(), varint());
    } else {
      std::size_t const size = std::min<std::size_t>(varint(), bytes.size());
      visit(tag >> 3, bytes.substr(0, size), 0);
      bytes.remove_prefix(size);
    }
  }
}

grpc::ByteBuffer bytesOf(gnmi::SubscribeRequest const& request) {
  grpc::Slice const slice(request.SerializeAsString());
  return {&slice, 1};
}

gnmi::SubscribeRequest requestOf(gnmi::SubscriptionList::Mode mode, std::vector<std::string> const& names,
                                 gnmi::Encoding encoding = gnmi::PROTO) {
  gnmi::SubscribeRequest request;
  request.mutable_subscribe()->set_mode(mode);
  request.mutable_subscribe()->set_encoding(encoding);
  gnmi::Subscription& subscription = *request.mutable_subscribe()->add_subscription();
  subscription.set_mode(gnmi::ON_CHANGE);
  for (std::string const& name : names)
    subscription.mutable_path()->add_elem()->set_name(name);
  return request;
}

// Counts what it reads. `onResponse` sees the bytes of each on a thread of gRPC's.
class Subscriber final : private grpc::ClientBidiReactor<grpc::ByteBuffer, grpc::ByteBuffer> {
public:
  using OnResponse = std::function<void(std::string_view)>;

  Subscriber(std::shared_ptr<grpc::Channel> const& channel, gnmi::SubscribeRequest const& request, bool reads,
             OnResponse onResponse)
      : stub_(channel)
      , request_(bytesOf(request))
      , onResponse_(std::move(onResponse)) {
    stub_.PrepareBidiStreamingCall(&context_, "/gnmi.gNMI/Subscribe", {}, this);
    StartWrite(&request_);
    AddHold();
    if (reads) StartRead(&response_);
    StartCall();
  }
  ~Subscriber() override {
    context_.TryCancel();
    RemoveHold();
    done_.wait(false);
  }
  Subscriber(Subscriber const&) = delete;
  Subscriber& operator=(Subscriber const&) = delete;

private:
  void OnReadDone(bool ok) override {
    if (!ok) return;
    std::vector<grpc::Slice> slices;
    static_cast<void>(response_.Dump(&slices));
    if (slices.size() == 1) {
      onResponse_({reinterpret_cast<char const*>(slices[0].begin()), slices[0].size()});
    } else {
      std::string whole;
      for (grpc::Slice const& slice : slices)
        whole.append(reinterpret_cast<char const*>(slice.begin()), slice.size());
      onResponse_(whole);
    }
    response_.Clear();
    StartRead(&response_);
  }
  void OnDone(grpc::Status const&) override {
    done_ = true;
    done_.notify_all();
  }

  grpc::GenericStub stub_;
  grpc::ClientContext context_;
  grpc::ByteBuffer request_;
  grpc::ByteBuffer response_;
  OnResponse const onResponse_;
  std::atomic<bool> done_ = false;
};

void waitFor(std::atomic<std::size_t> const& count, std::size_t wanted) {
  for (std::size_t now = count; now < wanted; now = count)
    count.wait(now);
}

// --- the measurements --------------------------------------------------------------------------------------

constexpr std::uint64_t kUpdateField = 1;
constexpr std::uint64_t kSyncField = 3;
constexpr std::uint64_t kUpdatesOfNotification = 4;

void measureOnce(AgentProcess& agent, std::vector<std::string> const& path, gnmi::Encoding encoding) {
  for (int round = 0; round < 3; ++round) {
    std::atomic<std::size_t> syncs = 0;
    std::size_t count = 0;
    std::size_t messages = 0;
    std::size_t bytes = 0;
    std::int64_t firstNs = 0;
    std::shared_ptr<grpc::Channel> const channel = agent.channel(round);
    channel->WaitForConnected(std::chrono::system_clock::now() + std::chrono::seconds(10));
    std::int64_t const cpu = agent.ask("cpu");
    std::int64_t const start = nowNs();
    Subscriber const subscriber(channel, requestOf(gnmi::SubscriptionList::ONCE, path, encoding), true,
                                [&](std::string_view response) {
                                  bytes += response.size();
                                  ++messages;
                                  fieldsOf(response, [&](std::uint64_t field, std::string_view inner, auto) {
                                    if (field == kSyncField) {
                                      ++syncs;
                                      syncs.notify_all();
                                    }
                                    if (field != kUpdateField) return;
                                    if (firstNs == 0) firstNs = nowNs();
                                    fieldsOf(inner, [&](std::uint64_t part, std::string_view, auto) {
                                      count += part == kUpdatesOfNotification ? 1 : 0;
                                    });
                                  });
                                });
    waitFor(syncs, 1);
    std::int64_t const took = nowNs() - start;
    std::int64_t const used = agent.ask("cpu") - cpu;
    fmt::print(
        "once: {} leaves in {} messages, {:.1f} bytes a leaf: {:.1f} ms, first update after {:.1f} ms; "
        "{:.0f} leaves/s, {:.0f} leaves/s of one serving core; scheduler held {:.1f} ms at most\n",
        count, messages, static_cast<double>(bytes) / static_cast<double>(count), ms(took),
        ms(firstNs - start), static_cast<double>(count) * 1e9 / static_cast<double>(took),
        static_cast<double>(count) * 1e9 / static_cast<double>(used), ms(agent.ask("hold")));
  }
}

// Many subscribers of the machine's tree and the latencies of a marked leaf, whose value is the time of its
// change.
class Crowd {
public:
  Crowd(AgentProcess& agent, std::size_t count, std::vector<std::string> const& path) {
    static constexpr std::size_t kCallsPerChannel = 100;
    gnmi::SubscribeRequest const request = requestOf(gnmi::SubscriptionList::STREAM, path);
    for (std::size_t i = 0; i < count; ++i) {
      if (i % kCallsPerChannel == 0) {
        channels_.push_back(agent.channel(static_cast<int>(channels_.size())));
        channels_.back()->WaitForConnected(std::chrono::system_clock::now() + std::chrono::seconds(10));
      }
    }
    start_ = nowNs();
    for (std::size_t i = 0; i < count; ++i) {
      subscribers_.push_back(std::make_unique<Subscriber>(channels_[i / kCallsPerChannel], request, true,
                                                          [this](std::string_view bytes) { take(bytes); }));
    }
    waitFor(syncs_, count);
    syncedNs_ = nowNs() - start_;
  }

  [[nodiscard]] std::int64_t syncedNs() const { return syncedNs_; }
  [[nodiscard]] std::size_t updates() const { return updates_; }
  // Those of the changes in the next `seconds`.
  [[nodiscard]] std::vector<std::int64_t> latencies(int seconds) {
    {
      std::lock_guard const guard(mutex_);
      latencies_.clear();
    }
    timespec const pause{.tv_sec = seconds, .tv_nsec = 0};
    clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, nullptr);
    std::lock_guard const guard(mutex_);
    std::ranges::sort(latencies_);
    return latencies_;
  }

private:
  void take(std::string_view bytes) {
    std::int64_t const now = nowNs();
    gnmi::SubscribeResponse response;
    response.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
    if (response.sync_response()) {
      ++syncs_;
      syncs_.notify_all();
    }
    updates_ += static_cast<std::size_t>(response.update().update_size());
    for (gnmi::Update const& update : response.update().update()) {
      if (update.path().elem_size() == 0 || update.path().elem().rbegin()->name() != "last-change") continue;
      std::lock_guard const guard(mutex_);
      latencies_.push_back(now - static_cast<std::int64_t>(update.val().uint_val()));
    }
  }

  std::vector<std::shared_ptr<grpc::Channel>> channels_;
  std::atomic<std::size_t> syncs_ = 0;
  std::atomic<std::size_t> updates_ = 0;
  std::int64_t start_ = 0;
  std::int64_t syncedNs_ = 0;
  std::mutex mutex_;
  std::vector<std::int64_t> latencies_;
  std::vector<std::unique_ptr<Subscriber>> subscribers_; // end first
};

std::string percentiles(std::vector<std::int64_t> const& sorted) {
  if (sorted.empty()) return "none";
  auto const at = [&sorted](double part) {
    return ms(sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1))]);
  };
  return fmt::format("p50 {:.2f} ms, p99 {:.2f} ms, max {:.2f} ms of {}", at(0.5), at(0.99), at(1.0),
                     sorted.size());
}

void measureStreams(std::size_t count) {
  AgentProcess agent(Served::Machine);
  { Crowd const warm(agent, 1, {}); } // the watch is on from here
  std::int64_t const before = agent.ask("rss");
  static_cast<void>(agent.ask("hold"));
  std::int64_t const cpu = agent.ask("cpu");
  Crowd crowd(agent, count, {});
  fmt::print("streams: {} in sync after {:.0f} ms, {} updates each, {:.0f} ms of the agent's processor time; "
             "scheduler held {:.1f} ms at most\n",
             count, ms(crowd.syncedNs()), crowd.updates() / count, ms(agent.ask("cpu") - cpu),
             ms(agent.ask("hold")));
  static_cast<void>(crowd.latencies(2));
  fmt::print("streams: {:.1f} KiB an idle subscriber\n",
             static_cast<double>(agent.ask("rss") - before) / 1024 / static_cast<double>(count));
  agent.tell("changes 5");
  std::size_t const updates = crowd.updates();
  std::vector<std::int64_t> const latencies = crowd.latencies(5);
  fmt::print("streams: change to all: {}, among {} updates each; scheduler held {:.1f} ms at most\n",
             percentiles(latencies), (crowd.updates() - updates) / count, ms(agent.ask("hold")));
}

// In turns, because the machine itself is faster at one time than at another.
void measureSlow(std::size_t count) {
  AgentProcess agent(Served::Machine);
  Crowd crowd(agent, count, {"interfaces"});
  agent.tell("changes 200");
  static_cast<void>(crowd.latencies(1));
  std::vector<std::int64_t> alone;
  std::vector<std::int64_t> beside;
  std::int64_t costs = 0;
  auto const add = [&crowd](std::vector<std::int64_t>& to) {
    std::vector<std::int64_t> const some = crowd.latencies(4);
    to.insert(to.end(), some.begin(), some.end());
  };
  for (int round = 0; round < 4; ++round) {
    add(alone);
    std::int64_t const before = agent.ask("rss");
    Subscriber const slow(agent.channel(1000 + round), requestOf(gnmi::SubscriptionList::STREAM, {}), false,
                          [](std::string_view) {});
    add(beside);
    costs = std::max(costs, agent.ask("rss") - before);
  }
  for (auto* const latencies : {&alone, &beside})
    std::ranges::sort(*latencies);
  fmt::print("slow: {} readers alone: {}\n", count, percentiles(alone));
  fmt::print("slow: beside one that never reads: {}\n", percentiles(beside));
  fmt::print("slow: it costs {:.0f} KiB; scheduler held {:.1f} ms at most\n",
             static_cast<double>(costs) / 1024, ms(agent.ask("hold")));
}

int usage() {
  std::fprintf(
      stderr,
      "usage: ondra-load once|small [NUMBER [PROTO|JSON|JSON_IETF]] | read PORT PID [PROTO|JSON|JSON_IETF] | "
      "streams|slow [NUMBER]\n");
  return 2;
}

} // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  std::string_view const what = argc > 1 ? argv[1] : "";
  std::size_t const number = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 0;
  bool const isSmall = what == "small";
  if (isSmall || what == "once" || (what == "read" && argc > 3)) {
    int const last = what == "read" ? 4 : 3;
    gnmi::Encoding encoding = gnmi::PROTO;
    if (argc > last && !gnmi::Encoding_Parse(argv[last], &encoding)) return usage();
    if (what != "read") {
      AgentProcess agent(isSmall ? Served::Small : Served::Synthetic, number != 0 ? number : 1'000'000);
      measureOnce(agent, {isSmall ? "interfaces" : "synthetic"}, encoding);
    } else {
      AgentProcess agent(argv[2], argv[3]);
      measureOnce(agent, {}, encoding);
    }
  } else if (what == "streams") {
    measureStreams(number != 0 ? number : 1'000);
  } else if (what == "slow") {
    measureSlow(number != 0 ? number : 100);
  } else {
    return usage();
  }
  return 0;
}
