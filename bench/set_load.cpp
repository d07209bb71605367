// ondra-set-load: small Sets on an agent that runs, one after the other from each client.
//
//   ondra-set-load ADDRESS [CLIENTS] [SECONDS]      1 client and 5 seconds unless said; plaintext
//
// Each client has a connection and an interface of its own, whose description it changes. Prints how many
// Sets were answered a second, and how long one took.
#include <grpcpp/grpcpp.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>

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

} // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    fmt::print(stderr, "usage: ondra-set-load ADDRESS [CLIENTS] [SECONDS]\n");
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
