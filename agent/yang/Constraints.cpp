// Everything is posted to the one worker, which keeps the order.
#include "agent/yang/Constraints.h"

#include <utility>

namespace Agent {

void Constraints::changeIs(ConfigChange change, How how, Told told) {
  worker_.post([this, change = std::move(change), how, told = std::move(told)]() mutable {
    tree_.changeIs(change);
    if (how == How::Checked) return told(tree_.validate());
    Verdict verdict = tree_.look();
    verdict.refusal.clear();
    told(std::move(verdict));
  });
}

void Constraints::keep() {
  worker_.post([this] { tree_.keep(); });
}

void Constraints::takeBack() {
  worker_.post([this] { tree_.takeBack(); });
}

} // namespace Agent
