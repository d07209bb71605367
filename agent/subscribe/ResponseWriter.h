// Messages as the bytes of SubscribeResponses.
#pragma once

#include <cstddef>
#include <vector>

#include <grpcpp/support/slice.h>

namespace Agent {

class Message;

// One response, or several when it would be longer than `limit`. The prefix is the container that all leaves
// share, without the data root and with origin and target; what the prefixes of the parts have beyond goes in
// front of the updates' paths. Any thread.
[[nodiscard]] std::vector<grpc::Slice> responseSlices(Message const& message, std::size_t limit);

} // namespace Agent
