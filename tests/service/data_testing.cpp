// Requests from short texts, values and leaves read back as texts, and a tree with something of every kind.
#include "service/data_testing.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "agent/data/GetRun.h"
#include "agent/data/SetRun.h"

namespace ServiceTesting {

using gnmi::GetRequest;
using gnmi::TypedValue;

DataBench::DataBench(Agent::Limits const& limits)
    : Bench(limits)
    , server_(runtime())
    , stub_(gnmi::gNMI::NewStub(server_.channel())) {}

namespace {

std::string shown(TypedValue const& value) {
  if (value.has_json_val()) return value.json_val();
  if (value.has_json_ietf_val()) return value.json_ietf_val();
  return value.ShortDebugString();
}

} // namespace

grpc::Status DataBench::get(GetRequest const& request, gnmi::GetResponse& response) {
  return awaited(*this, [&](grpc::ClientContext* context, auto told) {
    stub_->async()->Get(context, &request, &response, told);
  });
}

grpc::Status DataBench::set(gnmi::SetRequest const& request, gnmi::SetResponse& response) {
  return awaited(*this, [&](grpc::ClientContext* context, auto told) {
    stub_->async()->Set(context, &request, &response, told);
  });
}

std::string DataBench::value(std::string_view path, gnmi::Encoding encoding, GetRequest::DataType type) {
  gnmi::GetResponse response;
  grpc::Status const status = get(getRequest({path}, encoding, type), response);
  if (!status.ok())
    return fmt::format("{}: {}", static_cast<int>(status.error_code()), status.error_message());
  if (response.notification_size() == 1 && response.notification(0).update_size() == 0) return "nothing";
  if (response.notification_size() != 1 || response.notification(0).update_size() != 1)
    return response.ShortDebugString();
  return shown(response.notification(0).update(0).val());
}

grpc::Status DataBench::readHere(GetRequest const& request, gnmi::GetResponse& response) {
  auto order = Agent::GetOrder::of(request);
  auto const run = std::make_shared<Agent::GetRun>(runtime().router(), std::move(*order), "");
  std::optional<grpc::Status> ended;
  run->start([&ended](grpc::Status const& status) { ended = status; });
  settle();
  if (!ended || !ended->ok()) return ended.value_or(grpc::Status::CANCELLED);
  grpc::ByteBuffer bytes = run->takeResponse();
  return grpc::SerializationTraits<gnmi::GetResponse>::Deserialize(&bytes, &response);
}

DataBench::Leaves DataBench::leaves(GetRequest::DataType type) {
  gnmi::GetResponse response;
  EXPECT_TRUE(readHere(getRequest({"/"}, gnmi::PROTO, type), response).ok());
  Leaves leaves;
  for (gnmi::Update const& update : response.notification(0).update()) {
    bool const isNew = leaves.emplace(text(update.path()), shown(update.val())).second;
    EXPECT_TRUE(isNew) << text(update.path());
  }
  return leaves;
}

grpc::Status DataBench::setHere(gnmi::SetRequest const& request) {
  auto plan = Agent::setPlanOf(request);
  if (!plan) return plan.error();
  grpc::Status status(grpc::StatusCode::UNKNOWN, "it has not ended");
  runtime().sets().setIs(
      {std::move(*plan), nullptr, [&status](grpc::Status const& how, std::int64_t) { status = how; }});
  settle();
  return status;
}

std::string difference(DataBench::Leaves const& before, DataBench::Leaves const& after) {
  std::string text;
  for (auto const& [path, value] : before) {
    auto const found = after.find(path);
    if (found == after.end()) text += fmt::format("- {}\n", path);
    if (found != after.end() && found->second != value)
      text += fmt::format("{} = {} (was {})\n", path, found->second, value);
  }
  for (auto const& [path, value] : after)
    if (!before.contains(path)) text += fmt::format("+ {} = {}\n", path, value);
  return text;
}

// --- requests ----------------------------------------------------------------------------------------------

namespace {

// What stands before the first separator; the rest stays in `text`.
std::string_view cut(std::string_view& text, char separator) {
  std::size_t const at = std::min(text.find(separator), text.size());
  std::string_view const head = text.substr(0, at);
  text.remove_prefix(std::min(at + 1, text.size()));
  return head;
}

void setValue(gnmi::Update& update, std::string_view text) {
  TypedValue& value = *update.mutable_val();
  std::string_view rest = text;
  std::string_view const kind = cut(rest, ':');
  std::string const given(rest);
  if (text == "none") return update.clear_val();
  if (kind == "uint") return value.set_uint_val(std::stoull(given));
  if (kind == "int") return value.set_int_val(std::stoll(given));
  if (kind == "string") return value.set_string_val(given);
  if (kind == "bool") return value.set_bool_val(given == "true");
  if (kind == "double") return value.set_double_val(std::stod(given));
  if (kind == "ascii") return value.set_ascii_val(given);
  if (kind == "ietf") return value.set_json_ietf_val(given);
  if (kind != "list") return value.set_json_val(std::string(text));
  value.mutable_leaflist_val();
  while (!rest.empty())
    value.mutable_leaflist_val()->add_element()->set_string_val(std::string(cut(rest, ',')));
}

} // namespace

gnmi::SetRequest setRequest(std::string_view text) {
  gnmi::SetRequest request;
  while (!text.empty()) {
    std::string_view line = cut(text, '\n');
    if (line.empty()) continue;
    std::string_view const operation = cut(line, ' '), place = cut(line, ' ');
    if (operation == "delete") {
      *request.add_delete_() = path(place);
      continue;
    }
    gnmi::Update& update = operation == "replace" ? *request.add_replace() : *request.add_update();
    *update.mutable_path() = path(place);
    setValue(update, line);
  }
  return request;
}

GetRequest getRequest(std::vector<std::string_view> const& paths, gnmi::Encoding encoding,
                      GetRequest::DataType type) {
  GetRequest request;
  request.set_encoding(encoding);
  request.set_type(type);
  for (std::string_view const each : paths)
    *request.add_path() = path(each);
  return request;
}

// --- a filled tree -----------------------------------------------------------------------------------------

namespace {

using namespace Agent;

void fillInterface(Interface& made) {
  made.config->leafIs(&InterfaceConfig::type, InterfaceType::Ethernet);
  made.config->leafIs(&InterfaceConfig::mtu, 1500);
  made.config->leafIs(&InterfaceConfig::description, Kel::String("to \"the\" core"));
  made.state->leafIs(&InterfaceState::type, InterfaceType::Ethernet);
  made.state->leafIs(&InterfaceState::mtu, 1500);
  made.state->leafIs(&InterfaceState::ifindex, 2);
  made.state->leafIs(&InterfaceState::operStatus, OperStatus::Up);
  made.state->leafIs(&InterfaceState::lastChange, 1'700'000'000'000'000'000);
  auto const counters = made.state->containerIs(&InterfaceState::counters);
  counters->leafIs(&InterfaceCounters::inOctets, 18'446'744'073'709'551'615U);
  auto const ethernet = made.containerIs(&Interface::ethernet);
  ethernet->config->leafIs(&EthernetConfig::portSpeed, PortSpeed::Gb1);
  ethernet->state->leafIs(&EthernetState::macAddress, Kel::String("02:00:00:00:00:01"));
  ethernet->state->leafIs(&EthernetState::portSpeed, PortSpeed::Gb1);
  auto const zero = made.subinterfaces->entryIs(&Subinterfaces::subinterface, 0);
  zero->state->leafIs(&SubinterfaceState::ifindex, 2);
  zero->config->leafIs(&SubinterfaceConfig::description, Kel::String("all of it"));
  zero->ipv4->config->leafIs(&IpConfig::enabled, true);
  for (char const* const ip : {"192.0.2.1", "192.0.2.2"}) {
    auto const address = zero->ipv4->addresses->entryIs(&Ipv4Addresses::address, ip);
    address->config->leafIs(&AddressConfig::prefixLength, std::uint8_t{24});
    address->state->leafIs(&Ipv4AddressState::origin, AddressOrigin::Static);
  }
  auto const address = zero->ipv6->addresses->entryIs(&Ipv6Addresses::address, "2001:db8::1");
  address->config->leafIs(&Ipv6AddressConfig::prefixLength, std::uint8_t{64});
  address->state->leafIs(&Ipv6AddressState::prefixLength, std::uint8_t{64});
  zero->ipv6->neighbors->entryIs(&Ipv6Neighbors::neighbor, "fe80::2")
      ->state->leafIs(&Ipv6NeighborState::neighborState, NeighborState::Reachable);
}

void fillSystem(System& system) {
  system.config->leafIs(&SystemConfig::hostname, Kel::String("host"));
  system.state->leafIs(&SystemState::bootTime, 1'700'000'000'000'000'000);
  for (int const number : {-1, 0, 1, 10})
    system.cpus->entryIs(&Cpus::cpu, CpuIndex{number})
        ->state->total->leafIs(&PercentStats::avg, Percentage{7});
  auto const process = system.processes->entryIs(&Processes::process, 1);
  process->state->leafIs(&ProcessState::args, {Kel::String("init"), Kel::String("splash")});
  for (auto const& [name, type] :
       {std::pair<char const*, FilesystemType>("/", Filesystem::Ext4), {"/proc", Kel::String("proc")}})
    system.mountPoints->entryIs(&MountPoints::mountPoint, name)->state->leafIs(&MountPointState::type, type);
  system.dns->config->leafIs(&DnsConfig::search, {Kel::String("example.org"), Kel::String("example.net")});
  system.dns->servers->entryIs(&DnsServers::server, "192.0.2.53")->state->leafIs(&DnsServerState::port, 53);
  system.grpcServers->entryIs(&GrpcServers::grpcServer, "agent")->state->leafIs(&GrpcServerState::port, 9339);
}

} // namespace

void DataBench::fill() {
  for (char const* const name : {"eth0", "eth1"})
    fillInterface(*tree().interfaces->entryIs(&Interfaces::interface, name));
  fillSystem(*tree().system);
  auto const sensor = tree().components->entryIs(&Components::component, "sensor");
  sensor->state->leafIs(&ComponentState::type, ComponentType::Sensor);
  sensor->state->containerIs(&ComponentState::temperature)->leafIs(&Temperature::instant, 45.5);
  settle();
}

} // namespace ServiceTesting
