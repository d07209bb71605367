// Messages as the bytes of SubscribeResponses.
#pragma once

#include <cstddef>
#include <vector>

#include <grpcpp/support/slice.h>

namespace Agent {

class Message;

// One response, or several when it would be longer than `limit`. The updates' bytes come from the shared notification as it is; only
// what stands around them is the subscriber's own: time, prefix (the data root off, origin and target on). Any thread.
[[nodiscard]] std::vector<grpc::Slice> responseSlices(Message const& message, std::size_t limit);

} // namespace Agent
