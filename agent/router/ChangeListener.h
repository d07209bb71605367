// Agent::ChangeListener: who wants the changes of the model, as the router sees him.
#pragma once

#include <memory>

namespace Ondra {
class ArenaRespMsg;
} // namespace Ondra

namespace Agent {

// Scheduler thread.
class ChangeListener {
public:
  virtual ~ChangeListener() = default;
  // Whether a change may be of interest.
  [[nodiscard]] virtual bool concerns(Ondra::ArenaRespMsg const& response) = 0;
  // It is told now. Shared with whoever else is told.
  virtual void changed(std::shared_ptr<Ondra::ArenaRespMsg> const& response) = 0;
};

} // namespace Agent
