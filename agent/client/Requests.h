// The requests that the client's commands make of their options, and the options themselves.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Kstd/Result.h"
#include "agent/client/Connection.h"
#include "agent/client/TopView.h"
#include "agent/options/CommandLine.h"

namespace Agent {

struct WatchOptions {
  ConnectionOptions connection;
  gnmi::SubscribeRequest request;
  bool isJson = false;
  std::int64_t durationNs = 0; // 0: until the server ends it

  [[nodiscard]] static Kstd::Result<WatchOptions, EarlyExit> parse(std::vector<std::string> const& arguments);
};

struct GetOptions {
  ConnectionOptions connection;
  gnmi::GetRequest request;
  bool isJson = false;

  [[nodiscard]] static Kstd::Result<GetOptions, EarlyExit> parse(std::vector<std::string> const& arguments);
};

struct SetOptions {
  ConnectionOptions connection;
  gnmi::SetRequest request;

  [[nodiscard]] static Kstd::Result<SetOptions, EarlyExit> parse(std::vector<std::string> const& arguments);
};

struct TopOptions {
  ConnectionOptions connection;
  gnmi::GetRequest request; // for the figures
  std::int64_t intervalNs = 1'000'000'000;
  TopSort sort = TopSort::Leaves;
  bool isOnce = false;  // one table
  bool isBatch = false; // no screen

  [[nodiscard]] static Kstd::Result<TopOptions, EarlyExit> parse(std::vector<std::string> const& arguments);
};

struct CapabilitiesOptions {
  ConnectionOptions connection;
  bool isJson = false;

  [[nodiscard]] static Kstd::Result<CapabilitiesOptions, EarlyExit>
  parse(std::vector<std::string> const& arguments);
};

} // namespace Agent
