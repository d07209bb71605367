// Modules of this folder served in tests: loaded once for the process, without the machine's own tree.
#pragma once

#include "agent/yang/YangModel.h"
#include "service/data_testing.h"

namespace YangTesting {

// The modules of tests/yang/modules, and some that are made at random. The first call loads them.
[[nodiscard]] Agent::YangModel const& model();

// A server of them over a tree of their own, which is empty at first.
class Bench : public ServiceTesting::DataBench {
public:
  Bench();
  // A Set of the device's own processes.
  grpc::Status provided(std::string_view text) {
    return setHere(ServiceTesting::setRequest(text), Agent::Writer::Provider);
  }
};

} // namespace YangTesting
