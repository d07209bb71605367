// What the libraries beneath the agent have to say goes to its traces, not to standard error.
#pragma once

namespace Agent {

// Directs protobuf's messages to the handler "AgentProtobuf" and gRPC's to "AgentGrpc", errors at level 0,
// the rest higher. They are off until a trace spec asks for them: what clients send makes such lines, so that
// they must cost nothing and fill no disk. To be called before the first server or message; any number of
// times.
void libraryLogsToTraces();

} // namespace Agent
