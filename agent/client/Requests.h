// The requests that the client's commands make of their options, and the options themselves.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Kstd/Result.h"
#include "agent/client/Connection.h"
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

struct CapabilitiesOptions {
  ConnectionOptions connection;
  bool isJson = false;

  [[nodiscard]] static Kstd::Result<CapabilitiesOptions, EarlyExit>
  parse(std::vector<std::string> const& arguments);
};

} // namespace Agent
