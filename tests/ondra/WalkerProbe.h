// A walker whose parts can be used one at a time.
#pragma once

#include <memory>

#include "Ondra/IR.h"
#include "Ondra/KelGnmiUtils.h"
#include "Ondra/KelTypeWalker.h"
#include "ondra/assertion.h"

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

private:
  static Kel::Ptr<Kel::GenericIf const> objectAt(std::string const& prefix) {
    auto const notifiee = Ondra::KelGnmiUtils::lookupGnmiNotifieeMap(Ondra::Path::strToPathIs(prefix));
    return notifiee ? notifiee->object() : nullptr;
  }
  Ondra::KelKey valueMode_;
};
