// Get and Set in tests: a server, a client of it, a filled tree, the leaves of the model.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "agent/model/Schema.h"
#include "service/ServiceTesting.h"

namespace ServiceTesting {

// A runtime, a server over it and a client; the test's thread runs the scheduler during calls.
class DataBench : public Bench {
public:
  explicit DataBench(Agent::Limits const& limits = {});

  grpc::Status get(gnmi::GetRequest const& request, gnmi::GetResponse& response);
  grpc::Status set(gnmi::SetRequest const& request, gnmi::SetResponse& response);
  grpc::Status set(gnmi::SetRequest const& request) {
    gnmi::SetResponse ignored;
    return set(request, ignored);
  }
  [[nodiscard]] gnmi::gNMI::Stub& stub() { return *stub_; }
  [[nodiscard]] std::shared_ptr<grpc::Channel> const& channel() const { return server_.channel(); }

  // One value, which must be there: bare JSON, or the short text of a typed value.
  [[nodiscard]] std::string value(std::string_view path, gnmi::Encoding encoding = gnmi::JSON,
                                  gnmi::GetRequest::DataType type = gnmi::GetRequest::ALL);
  // "path" -> "value" of all leaves at and below a path, read without gRPC.
  using Leaves = std::map<std::string, std::string>;
  [[nodiscard]] Leaves leaves(gnmi::GetRequest::DataType type = gnmi::GetRequest::ALL);
  // A Get without gRPC.
  grpc::Status readHere(gnmi::GetRequest const& request, gnmi::GetResponse& response);
  // A Set without gRPC.
  grpc::Status setHere(gnmi::SetRequest const& request);

  // Everything that a machine may fill, in two interfaces and more.
  void fill();

private:
  Server server_;
  std::unique_ptr<gnmi::gNMI::Stub> stub_;
};

// "+ path = value", "- path", "path = value (was value)" for each leaf that differs.
[[nodiscard]] std::string difference(DataBench::Leaves const& before, DataBench::Leaves const& after);

// "delete PATH", "replace PATH VALUE", "update PATH VALUE", one operation a line. Values are JSON, or typed:
// "uint:1", "int:-1", "string:x", "bool:true", "double:1.5", "ascii:x", "list:a,b", "ietf:JSON", "none".
[[nodiscard]] gnmi::SetRequest setRequest(std::string_view text);
[[nodiscard]] gnmi::GetRequest getRequest(std::vector<std::string_view> const& paths,
                                          gnmi::Encoding encoding = gnmi::JSON,
                                          gnmi::GetRequest::DataType type = gnmi::GetRequest::ALL);

} // namespace ServiceTesting
