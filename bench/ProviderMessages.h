// The Sets of a process of the device's own: 1,000 leaves of state of demo/yang's sensors, of which each has
// four, two of them in a container of their own.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include <fmt/format.h>

#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Provider {

constexpr std::size_t kLeaves = 1'000; // of a Set

// An entry's four leaves together; or a leaf of all entries, then the next.
enum class Order : std::uint8_t { Entries, Leaves };

// With another `salt` all values are others.
inline std::string requestBytes(Order order, std::uint64_t salt) {
  constexpr std::size_t kSensors = kLeaves / 4;
  static constexpr std::array<char const*, 4> kNames = {"status", "millivolts", "readings", "errors"};
  gnmi::SetRequest request;
  request.mutable_prefix()->add_elem()->set_name("sensors");
  for (std::size_t i = 0; i < kLeaves; ++i) {
    std::size_t const sensor = order == Order::Entries ? i / 4 : i % kSensors;
    std::size_t const leaf = order == Order::Entries ? i % 4 : i / kSensors;
    gnmi::Update& update = *request.add_update();
    gnmi::PathElem& entry = *update.mutable_path()->add_elem();
    entry.set_name("sensor");
    (*entry.mutable_key())["name"] = fmt::format("s{}", sensor);
    update.mutable_path()->add_elem()->set_name("state");
    if (leaf >= 2) update.mutable_path()->add_elem()->set_name("counters");
    update.mutable_path()->add_elem()->set_name(kNames[leaf]);
    if (leaf == 0)
      update.mutable_val()->set_string_val(salt % 2 == 0 ? "OK" : "ALARM");
    else if (leaf == 1)
      update.mutable_val()->set_int_val(static_cast<std::int64_t>(1'000 + salt));
    else
      update.mutable_val()->set_uint_val(salt + i);
  }
  return request.SerializeAsString();
}

} // namespace Provider
