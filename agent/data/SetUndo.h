// Whether what a Set has changed is as it was, and how it is put back. Scheduler thread.
#pragma once

namespace Agent {

struct Undo;

// It is as it was; what has gone meanwhile, the machine took away.
[[nodiscard]] bool isAsBefore(Undo const& undo);
// The machine has filled the entry since it was made: it stays.
[[nodiscard]] bool hasComeToLife(Undo const& undo);
void putBack(Undo const& undo);

} // namespace Agent
