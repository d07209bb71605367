// Loads the modules before anybody asks for the tree of types.
#include "yang/yang_testing.h"

#include "Kel/Dir.h"

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

} // namespace YangTesting
