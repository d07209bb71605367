// Agent::Limits: what clients may ask of the agent.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Agent {

// A plain value. Sizes in bytes, times in nanoseconds.
struct Limits {
  std::size_t streams = 4096;                    // Subscribe calls at a time
  std::size_t streamsPerPeer = 1024;             // of them, from one address
  std::size_t subscriptionsPerCall = 256;        // in one list
  std::size_t messageBytes = 4U << 20;           // of a request
  std::size_t responseBytes = (4U << 20) - 4096; // of a response that can be split
  std::size_t getBytes = 32U << 20;              // of the answer to a Get, which is one; twice as much of all
  std::size_t queueBytes = 4U << 20;             // that wait for one subscriber, before they are coalesced
  std::size_t memoryBytes = 0;                   // that are kept for clients in all; 0: by what there is
  std::int64_t sampleFloorNs = 1'000'000'000;    // the shortest interval of samples and heartbeats
  std::int64_t targetDefinedNs = 5'000'000'000;  // the interval of what TARGET_DEFINED samples
  std::int64_t stuckNs = 30'000'000'000;         // a client may take nothing, or not say what it wants
};

} // namespace Agent
