// Agent::RequestPath: a path as a client asked for it, checked and in canonical form.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <grpcpp/support/status.h>

#include "Kstd/Result.h"

namespace gnmi {
class Path;
} // namespace gnmi

namespace Agent {

inline constexpr std::size_t kMaxPathElems = 128; // of prefix and path together

// One element: a name, or the wildcards "*" and "..."; keys by name, whose values may be "*". A key that is
// left out stands for all.
struct RequestElem {
  std::string name;
  std::vector<std::pair<std::string, std::string>> keys; // sorted by name

  friend bool operator==(RequestElem const&, RequestElem const&) = default;
};

// Prefix and path of a request put together. A plain value, made on any thread; nothing of it depends on the
// model.
struct RequestPath {
  using OrError = Kstd::Result<RequestPath, grpc::Status>;

  // INVALID_ARGUMENT with a text for: different origins in prefix and path, an origin that is not served, a
  // target outside the prefix, an element or key without name, keys on "...", the deprecated `element` field
  // without `elem`, more than 128 elements.
  [[nodiscard]] static OrError of(gnmi::Path const& prefix, gnmi::Path const& path);

  // "/interfaces/interface[name=*]/state"; "/" for the root. Not escaped; cut at a length that fits a status
  // text.
  [[nodiscard]] std::string text() const;

  std::string
      origin; // as asked: empty, "openconfig" or the name of a published module; goes back with the answers
  std::string target; // as asked, likewise
  std::vector<RequestElem> elems;
};

// What `RequestPath::of` refuses, but for what is wrong with single elements and their number.
[[nodiscard]] grpc::Status frameCheck(gnmi::Path const& prefix, gnmi::Path const& path);

// Empty, "openconfig" or the name of a published module.
[[nodiscard]] bool isOriginServed(std::string_view origin);

// A text for a status message: printable, and not longer than `length`.
[[nodiscard]] std::string statusText(std::string_view text, std::size_t length = 256);

} // namespace Agent
