// Modules of this folder served in tests: loaded once for the process, without the machine's own tree.
#pragma once

#include <libyang/libyang.h>

#include <memory>
#include <string>

#include "agent/yang/YangModel.h"
#include "service/data_testing.h"

namespace YangTesting {

// The modules of tests/yang/modules, and some that are made at random. The first call loads them.
[[nodiscard]] Agent::YangModel const& model();

// Instance data at random, of all modules but "every-rules", whose constraints it would not meet.
using Tree = std::unique_ptr<lyd_node, void (*)(lyd_node*)>;
[[nodiscard]] Tree randomData(unsigned seed);
// A document of it in the tests' own folder: its path.
[[nodiscard]] std::string fileOf(Tree const& data, LYD_FORMAT format);

// A server of them over a tree of their own, which is empty at first.
class Bench : public ServiceTesting::DataBench {
public:
  Bench();
  // A Set of the device's own processes.
  grpc::Status provided(std::string_view text, gnmi::SetResponse* response = nullptr);
  // Fills the model from a document, all of which must be served.
  void load(std::string const& file);
  // What configures a server like this one, or makes its state too: updates as a walk tells them.
  [[nodiscard]] gnmi::SetRequest configuration(gnmi::GetRequest::DataType type = gnmi::GetRequest::CONFIG);

private:
  ServiceTesting::Server providers_;
};

} // namespace YangTesting
