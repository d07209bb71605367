// The audit's lines: what they hold, and that they neither stop nor flood anything.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "agent/service/Audit.h"
#include "service/ServiceTesting.h"

using namespace ServiceTesting;

namespace {

std::string const kFile = testing::TempDir() + "audit.log";

std::vector<nlohmann::json> lines() {
  std::vector<nlohmann::json> all;
  std::ifstream file(kFile);
  for (std::string line; std::getline(file, line);)
    all.push_back(nlohmann::json::parse(line));
  return all;
}

gnmi::SetRequest description(std::string const& value) {
  gnmi::SetRequest request;
  gnmi::Update& update = *request.add_update();
  *update.mutable_path() = path("/interfaces/interface[name=lo]/config/description");
  update.mutable_val()->set_string_val(value);
  return request;
}

TEST(Audit, LinesOfSetsAndOfThoseWhoAreTurnedAway) {
  std::filesystem::remove(kFile);
  Tovak::SimulatedClock clock;
  grpc::CallbackServerContext const nobody;
  Agent::Audit::Caller caller(nobody);
  caller.peer = "ipv4:192.0.2.1:4711";
  caller.user = "ann\xFF";
  {
    auto audit = Agent::Audit::of({.file = kFile, .hasValues = true}, clock);
    ASSERT_TRUE(audit.ok()) << audit.error();
    (*audit)->set(caller, description("x"), grpc::Status::OK, 2'500'000);
    gnmi::SetRequest many;
    for (int i = 0; i < 150; ++i)
      *many.add_delete_() = path("/system");
    (*audit)->set(caller, many, {grpc::StatusCode::NOT_FOUND, "no\n\"such\""}, 0);
    for (int i = 0; i < 1'000; ++i)
      (*audit)->refused(caller, "Get", {grpc::StatusCode::UNAUTHENTICATED, "wrong"});
    clock.advance(2'000'000'000);
    (*audit)->refused(caller, "Get", {grpc::StatusCode::UNAUTHENTICATED, "wrong"});
  }
  auto const all = lines();
  ASSERT_EQ(all.size(), 2 + Agent::Audit::refusalsASecond + 2);
  EXPECT_EQ(all[0]["call"], "Set");
  EXPECT_EQ(all[0]["peer"], caller.peer);
  EXPECT_EQ(all[0]["user"], "ann\xEF\xBF\xBD");
  EXPECT_EQ(all[0]["update"][0]["path"], "/interfaces/interface[name=lo]/config/description");
  EXPECT_EQ(all[0]["update"][0]["value"]["stringVal"], "x");
  EXPECT_EQ(all[0]["result"], "OK");
  EXPECT_EQ(all[0]["ms"], 2.5);
  EXPECT_EQ(all[1]["delete"].size(), 100U);
  EXPECT_EQ(all[1]["more-delete"], 50);
  EXPECT_EQ(all[1]["why"], "no\n\"such\"");
  EXPECT_EQ(all[2]["result"], "UNAUTHENTICATED");
  EXPECT_EQ(all[all.size() - 2]["refused-besides"], 1'000 - Agent::Audit::refusalsASecond);
}

TEST(Audit, AFileThatIsTakenAwayIsMadeAnewAndWhatCannotBeWrittenIsCounted) {
  std::filesystem::remove(kFile);
  Tovak::SimulatedClock clock;
  grpc::CallbackServerContext const nobody;
  Agent::Audit::Caller const caller(nobody);
  auto const written = [](std::size_t count) {
    auto const giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (lines().size() < count && std::chrono::steady_clock::now() < giveUp)
      std::this_thread::yield();
    return lines().size() >= count;
  };
  auto audit = Agent::Audit::of({.file = kFile}, clock);
  ASSERT_TRUE(audit.ok());
  (*audit)->set(caller, description("first"), grpc::Status::OK, 0);
  EXPECT_TRUE(written(1));
  std::filesystem::rename(kFile, kFile + ".1");
  (*audit)->set(caller, description("second"), grpc::Status::OK, 0);
  EXPECT_TRUE(written(1));
  EXPECT_EQ(lines()[0]["update"][0], "/interfaces/interface[name=lo]/config/description");

  std::filesystem::remove(kFile);
  std::filesystem::create_directory(kFile); // nothing can be written, for a while
  for (int i = 0; i < 10'000; ++i)
    (*audit)->set(caller, description("lost"), grpc::Status::OK, 0);
  std::filesystem::remove(kFile);
  audit->reset(); // ends, with what waits
  std::uint64_t found = 0;
  for (auto const& line : lines())
    found += line.value("lost", std::uint64_t{1});
  EXPECT_EQ(found, 10'000U);
  EXPECT_FALSE(Agent::Audit::of({.file = "/nowhere/audit.log"}, clock).ok());
}

} // namespace
