// A walker whose parts can be used one at a time, and a router that answers as it is told.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Ondra/ArenaRespMsg.h"
#include "Ondra/IR.h"
#include "Ondra/KelGnmiUtils.h"
#include "Ondra/KelTypeWalker.h"
#include "Tovak/Assert.h"

class WalkerProbe final : public Ondra::FullKelTypeWalker {
public:
  // Of the object that is watched at `prefix`; of none when there is no such.
  WalkerProbe(std::string const& prefix, Ondra::BaseRouter& router, Ondra::WalkQ* queue,
              Ondra::WalkerFlags flags = Ondra::flagSnapshot,
              std::shared_ptr<Ondra::Ir> const& ir = Ondra::Ir::IrIs())
      : FullKelTypeWalker(Ondra::Path::strToPathIs(prefix), ir, objectAt(prefix), Ondra::Path::PathIs(),
                          router, queue, flags, valueMode_, true, 5) {}
  // As pausing does.
  void letGoOfObject() { gif_.reset(); }
  [[nodiscard]] std::shared_ptr<Ondra::Ir>& ir() { return ir_; }

private:
  static Kel::Ptr<Kel::GenericIf const> objectAt(std::string const& prefix) {
    auto const notifiee = Ondra::KelGnmiUtils::lookupGnmiNotifieeMap(Ondra::Path::strToPathIs(prefix));
    return notifiee ? notifiee->object() : nullptr;
  }
  Ondra::KelKey valueMode_;
};

// Takes everything; answers what `answers` says for the n-th push, true after its end.
class AnsweringRouter final : public Ondra::BaseRouter {
public:
  bool push(Ondra::SyncId, Ondra::WalkId, std::shared_ptr<Ondra::ArenaRespMsg>& resp) override {
    texts.push_back(resp->toString());
    return texts.size() > answers.size() || answers[texts.size() - 1];
  }
  std::vector<bool> answers;
  std::vector<std::string> texts;
};

// "<handler>: <message>" of the assertion that fails in `run`.
template <class Run>
std::string assertionIn(Run const& run) {
  Tovak::ScopedAssertHandler const throws;
  try {
    run();
  } catch (Tovak::AssertionError const& error) {
    return error.handlerName() + ": " + error.what();
  }
  return "none";
}
