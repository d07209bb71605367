// Agent::ByteBundle: what a walk has found, as the library encodes it, gathered into responses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "agent/access/LeafVerdicts.h"
#include "agent/subscribe/ResponseBody.h"
#include "agent/subscribe/SubscribePlan.h"

namespace Ondra {
class Path;
struct WireResponse;
} // namespace Ondra

namespace Agent {

class WireJson;

// Of one time. For walks all of whose leaves are meant: values are sent as they come, or as JSON, and the
// paths are put together anew, those of the updates with what their prefixes have beyond the frame's
// `prefixDepth`. Scheduler thread.
class ByteBundle {
public:
  // `json`: null for PROTO; outlives it.
  ByteBundle(std::shared_ptr<Frame const> frame, std::int64_t timestamp, std::size_t limit, WireJson* json)
      : frame_(std::move(frame))
      , timestamp_(timestamp)
      , limit_(limit)
      , json_(json) {}

  // REQUIRES that the prefix has the data root and `prefixDepth` elements more, the same ones each time.
  // `access`: which leaves of it may be read; null: all.
  void add(Ondra::WireResponse const& response, LeafVerdicts* access = nullptr);
  [[nodiscard]] std::vector<grpc::Slice> take();
  // How many have been added.
  [[nodiscard]] std::size_t leaves() const noexcept { return leaves_; }

private:
  std::shared_ptr<Frame const> frame_;
  std::int64_t timestamp_;
  std::size_t limit_;
  WireJson* json_;
  std::size_t leaves_ = 0;
  std::optional<ResponseBody> body_; // from the first response on, whose prefix its head takes
};

} // namespace Agent
