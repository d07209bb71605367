// Loads the modules before anybody asks for the tree of types.
#include "yang/yang_testing.h"

#include "Kel/Dir.h"
#include "agent/data/SetRun.h"

namespace YangTesting {

Agent::YangModel const& model() {
  static std::unique_ptr<Agent::YangModel> const loaded = [] {
    Agent::machineIsLeftOut();
    auto made = Agent::YangModel::load({.folders = {KTD_SOURCE_DIR "/tests/yang/modules"}, .modules = {}});
    EXPECT_TRUE(made.ok()) << (made.ok() ? "" : made.error());
    return std::move(*made);
  }();
  return *loaded;
}

namespace {

Agent::Limits const& loadedFirst() {
  static Agent::Limits const limits;
  static_cast<void>(model());
  return limits;
}

} // namespace

Bench::Bench() : DataBench(loadedFirst()) { model().containersIn(*Kel::globalDir()); }

grpc::Status Bench::provided(std::string_view text) {
  auto plan = Agent::setPlanOf(ServiceTesting::setRequest(text), nullptr, Agent::Writer::Provider);
  if (!plan) return plan.error();
  grpc::Status status(grpc::StatusCode::UNKNOWN, "it has not ended");
  runtime().sets().setIs(
      {std::move(*plan), nullptr, [&status](auto const& how, std::int64_t) { status = how; }});
  settle();
  return status;
}

} // namespace YangTesting
