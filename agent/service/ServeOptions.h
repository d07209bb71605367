// The options of `ondra-agent serve`, from the command line and a configuration file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Kstd/Result.h"
#include "agent/context/Limits.h"
#include "agent/options/CommandLine.h"
#include "agent/service/Acceptor.h"
#include "agent/service/Audit.h"
#include "agent/service/ListenAddress.h"
#include "agent/service/Tls.h"

namespace Agent {

// A plain value; checked, as far as that goes without opening files.
struct ServeOptions {
  std::vector<ListenAddress> listen;
  TlsFiles tls;
  bool isSecure = false;  // else plaintext
  std::string usersFile;  // empty: everybody may call
  std::string accessFile; // empty: and do everything
  Audit::Options audit;   // no file: none
  std::string trace;
  Limits limits;
  ConnectionLimits connections;
  bool servesMachine = true;
  std::int64_t samplePeriodNs = 1'000'000'000; // of the machine
  bool appliesConfig = false;
  std::string configStore; // a folder; empty: configuration ends with the process
  std::size_t syntheticLeaves = 0;
  std::size_t syntheticRate = 0; // changes a second
  std::vector<std::string> yangFolders;
  std::vector<std::string> yangModules; // NAME or NAME:FEATURE,...
  std::vector<std::string> dataFiles;
  bool checksConstraints = true;        // of the modules, on the configuration as a whole
  std::vector<ListenAddress> providers; // sockets of the device's own processes
  std::uint32_t providerMode = 0600;    // of these
  std::optional<std::uint32_t> providerGroup;
  bool checksOnly = false;

  // Of the arguments after the command's name.
  [[nodiscard]] static Kstd::Result<ServeOptions, EarlyExit> parse(std::vector<std::string> const& arguments);
};

} // namespace Agent
