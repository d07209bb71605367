// ondra-set-load: Sets on an agent that runs, one after the other from each client.
//
//   ondra-set-load ADDRESS [CLIENTS] [SECONDS]        1 client and 5 seconds unless said; plaintext
//   ondra-set-load provider ADDRESS PID [SECONDS]     PID: the agent's, which has the modules of demo/yang
//
// Small Sets: each client has a connection and an interface of its own, whose description it changes. Prints
// how many Sets were answered a second, and how long one took. A provider's are of 1,000 leaves of state, two
// on their way at a time: an entry's four leaves together, then one leaf of all entries after the other.
// Prints how many leaves the agent took a second, and a second of its processor time.
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <fmt/format.h>

#include "ProviderMessages.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.grpc.pb.h"

namespace {

using Clock = std::chrono::steady_clock;

gnmi::SetRequest requestOf(int client, std::size_t number) {
  gnmi::SetRequest request;
  gnmi::Update& update = *request.add_update();
  update.mutable_path()->add_elem()->set_name("interfaces");
  gnmi::PathElem& entry = *update.mutable_path()->add_elem();
  entry.set_name("interface");
  (*entry.mutable_key())["name"] = fmt::format("load{}", client);
  update.mutable_path()->add_elem()->set_name("config");
  update.mutable_path()->add_elem()->set_name("description");
  update.mutable_val()->set_string_val(fmt::format("number {}", number));
  return request;
}

// Milliseconds that each Set took; ends with the program when one is refused.
std::vector<double> client(std::string const& address, int index, Clock::time_point end) {
  grpc::ChannelArguments arguments;
  arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
  auto const stub =
      gnmi::gNMI::NewStub(grpc::CreateCustomChannel(address, grpc::InsecureChannelCredentials(), arguments));
  std::vector<double> took;
  while (Clock::now() < end) {
    grpc::ClientContext context;
    gnmi::SetResponse response;
    auto const start = Clock::now();
    grpc::Status const status = stub->Set(&context, requestOf(index, took.size()), &response);
    if (!status.ok()) {
      fmt::print(stderr, "ondra-set-load: {}\n", status.error_message());
      std::exit(1);
    }
    took.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
  }
  return took;
}

// --- a provider --------------------------------------------------------------------------------------------

grpc::ByteBuffer bytesOf(Provider::Order order, std::size_t salt) {
  std::string const bytes = Provider::requestBytes(order, salt);
  grpc::Slice const slice(bytes);
  return {&slice, 1};
}

double processorSeconds(std::string const& pid) {
  std::ifstream stat("/proc/" + pid + "/stat");
  std::string field;
  double ticks = 0;
  for (int i = 1; stat >> field && i <= 15; ++i)
    if (i >= 14) ticks += std::stod(field);
  return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

int provider(std::string const& address, std::string const& pid, std::chrono::seconds duration) {
  auto const channel = grpc::CreateChannel(address, grpc::InsecureChannelCredentials());
  for (auto const order : {Provider::Order::Entries, Provider::Order::Leaves}) {
    std::vector<grpc::ByteBuffer> requests;
    for (std::size_t salt = 0; salt < 8; ++salt)
      requests.push_back(bytesOf(order, salt));
    double const before = processorSeconds(pid);
    auto const start = Clock::now();
    std::atomic<std::size_t> sets = 0;
    auto const client = [&](std::size_t at) {
      grpc::GenericStub stub(channel);
      grpc::CompletionQueue queue;
      for (; Clock::now() < start + duration; ++sets) {
        grpc::ClientContext context;
        auto const reader = stub.PrepareUnaryCall(&context, "/gnmi.gNMI/Set", requests[at++ % 8], &queue);
        grpc::ByteBuffer answer;
        grpc::Status status;
        reader->StartCall();
        reader->Finish(&answer, &status, nullptr);
        void* tag = nullptr;
        bool isOk = false;
        queue.Next(&tag, &isOk);
        if (status.ok()) continue;
        fmt::print(stderr, "ondra-set-load: {}\n", status.error_message());
        std::exit(1);
      }
    };
    std::thread other(client, 4);
    client(0);
    other.join();
    double const seconds = std::chrono::duration<double>(Clock::now() - start).count();
    double const leaves = static_cast<double>(sets * Provider::kLeaves);
    fmt::print("{}: {:.0f} leaves a second, {:.0f} a second of the agent's processor time\n",
               order == Provider::Order::Entries ? "by entry" : "by leaf", leaves / seconds,
               leaves / (processorSeconds(pid) - before));
  }
  return 0;
}

} // namespace

int main(int argc, char** argv) {
  bool const isProvider = argc > 3 && std::string_view(argv[1]) == "provider";
  if (isProvider) return provider(argv[2], argv[3], std::chrono::seconds(argc > 4 ? std::atoi(argv[4]) : 5));
  if (argc < 2) {
    fmt::print(stderr, "usage: ondra-set-load ADDRESS [CLIENTS] [SECONDS]\n"
                       "       ondra-set-load provider ADDRESS PID [SECONDS]\n");
    return 2;
  }
  int const clients = argc > 2 ? std::atoi(argv[2]) : 1;
  auto const duration = std::chrono::seconds(argc > 3 ? std::atoi(argv[3]) : 5);
  auto const end = Clock::now() + duration;
  std::vector<std::vector<double>> each(static_cast<std::size_t>(clients));
  std::vector<std::thread> threads;
  threads.reserve(each.size());
  for (int i = 0; i < clients; ++i)
    threads.emplace_back([&, i] { each[static_cast<std::size_t>(i)] = client(argv[1], i, end); });
  for (std::thread& thread : threads)
    thread.join();
  std::vector<double> all;
  for (auto const& took : each)
    all.insert(all.end(), took.begin(), took.end());
  std::ranges::sort(all);
  if (all.empty()) return 1;
  fmt::print("{} clients: {:.0f} Sets a second, {:.1f} ms each (p50), {:.1f} ms (p99)\n", clients,
             static_cast<double>(all.size()) / static_cast<double>(duration.count()), all[all.size() / 2],
             all[all.size() * 99 / 100]);
  return 0;
}
