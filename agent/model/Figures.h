// What the agent tells of itself: /ondra-agent, by the module in packaging/yang. All of it is state.
#pragma once

#include <cstdint>
#include <optional>

#include "agent/model/Node.h"

namespace Kel {
class Dir;
} // namespace Kel

namespace Agent {

inline constexpr char const* kFiguresName = "ondra-agent";

class AgentState final : public Node<AgentState> {
public:
  std::uint64_t startTime = 0; // ns since the Unix epoch, as all times
  std::uint64_t time = 0;      // when the figures were taken
};

// --- calls -----------------------------------------------------------------------------------------------
class AgentCallState final : public Node<AgentCallState> {
public:
  Kel::String method;
  std::uint64_t begun = 0;
};
class AgentCall final : public Node<AgentCall> {
public:
  void handleParent() override;

  Kel::String method; // the key
  Kel::Ptr<AgentCallState> state;
};
class AgentCalls final : public Node<AgentCalls> {
public:
  Kel::KeyedEntities<Kel::String, AgentCall> call;
};
class AgentRefusalState final : public Node<AgentRefusalState> {
public:
  Kel::String reason;
  std::uint64_t count = 0;
};
class AgentRefusal final : public Node<AgentRefusal> {
public:
  void handleParent() override;

  Kel::String reason; // the key: the name of a status
  Kel::Ptr<AgentRefusalState> state;
};
class AgentRefusals final : public Node<AgentRefusals> {
public:
  Kel::KeyedEntities<Kel::String, AgentRefusal> refusal;
};

// --- Subscribe calls that are open -------------------------------------------------------------------------
class AgentStreamState final : public Node<AgentStreamState> {
public:
  std::uint64_t id = 0;
  Kel::String peer;
  std::optional<Kel::String> user; // or the certificate's name
  Kel::String mode;
  std::uint64_t startTime = 0;
  std::uint64_t time = 0; // when these figures were taken
  std::uint64_t sentMessages = 0;
  std::uint64_t sentLeaves = 0;
  std::uint64_t sentBytes = 0;
  std::uint64_t queuedMessages = 0;
  std::uint64_t queuedBytes = 0;
  std::uint64_t waitingLeaves = 0;
  std::uint64_t coalescedChanges = 0;
  std::uint64_t restarts = 0;
};
class AgentStream final : public Node<AgentStream> {
public:
  void handleParent() override;

  std::uint64_t id = 0; // the key
  Kel::Ptr<AgentStreamState> state;
};
class AgentStreams final : public Node<AgentStreams> {
public:
  Kel::KeyedEntities<std::uint64_t, AgentStream> stream;
};

// --- memory, in bytes --------------------------------------------------------------------------------------
class AgentBudgetState final : public Node<AgentBudgetState> {
public:
  Kel::String name;
  std::uint64_t limit = 0;
  std::uint64_t used = 0;
};
class AgentBudget final : public Node<AgentBudget> {
public:
  void handleParent() override;

  Kel::String name; // the key
  Kel::Ptr<AgentBudgetState> state;
};
class AgentMemory final : public Node<AgentMemory> {
public:
  Kel::KeyedEntities<Kel::String, AgentBudget> budget;
};

// --- how long things take, in ns ---------------------------------------------------------------------------
class AgentTimesState final : public Node<AgentTimesState> {
public:
  std::uint64_t count = 0;
  std::uint64_t p50 = 0;
  std::uint64_t p99 = 0;
  std::uint64_t p999 = 0;
  std::uint64_t longest = 0;
};
class AgentTimes final : public Node<AgentTimes> {
public:
  void handleParent() override;

  Kel::Ptr<AgentTimesState> state;
};

class OndraAgent final : public Node<OndraAgent> {
public:
  void handleParent() override;

  Kel::Ptr<AgentState> state;
  Kel::Ptr<AgentCalls> calls;
  Kel::Ptr<AgentRefusals> refusals;
  Kel::Ptr<AgentStreams> streams;
  Kel::Ptr<AgentMemory> memory;
  Kel::Ptr<AgentTimes> slices;
  Kel::Ptr<AgentTimes> store; // where configuration lasts
};

// Declares the types and enters "ondra-agent" among the top levels, once; to be called where `declareTypes`
// is, behind `machineIsLeftOut`.
void declareFigures();

// The entity in the data root that `root` holds, made if missing. Scheduler thread.
[[nodiscard]] Kel::Ptr<OndraAgent> figuresIn(Kel::Dir& root);

} // namespace Agent
