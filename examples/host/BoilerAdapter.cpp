// The dispatcher: a switch over the attributes for reading, one settable attribute, and the registration by
// hooks.
#include "BoilerAdapter.h"

#include "Kel/Declare.h"
#include "Kel/Error.h"

namespace {

// In the order of their registration, from 1.
enum Attribute : Kel::AttributeId { kSerialNumber = 1, kTemperature, kTarget, kBurning };

Attribute attributeOf(Boiler::Part part) {
  switch (part) {
  case Boiler::Part::Temperature: return kTemperature;
  case Boiler::Part::Target: return kTarget;
  case Boiler::Part::Burning: return kBurning;
  }
  return kTemperature;
}

} // namespace

BoilerAdapter::BoilerAdapter(Boiler& boiler) : boiler_(boiler) {
  boiler_.listenerIs([this](Boiler::Part part) { notify(attributeOf(part), nullptr); });
}

BoilerAdapter::~BoilerAdapter() { boiler_.listenerIs(nullptr); }

Kel::AttributeOpResult BoilerAdapter::attributeOp(Kel::PtrInterface* object, Kel::AttributeId attribute,
                                                  Kel::GenericIf::AttributeOp op, Kel::ArgList const& args,
                                                  Kel::Ptr<Kel::GenericIf const>& result) {
  Boiler& boiler = static_cast<BoilerAdapter*>(object)->boiler_;
  if (op == Kel::GenericIf::AttributeOp::Get) {
    switch (attribute) {
    case kSerialNumber: result = Kel::handleOf(Kel::String(boiler.serialNumber())); break;
    case kTemperature: result = Kel::handleOf(boiler.celsius()); break;
    case kTarget: result = Kel::handleOf(std::uint32_t{boiler.target()}); break;
    case kBurning: result = Kel::handleOf(boiler.isBurning()); break;
    default: return Kel::AttributeOpResult::NotHandled;
    }
    return Kel::AttributeOpResult::Done;
  }
  if (op == Kel::GenericIf::AttributeOp::Set && attribute == kTarget) { // the only one registered as settable
    if (!boiler.targetIs(*args[0]->attrValPtr<std::uint32_t>())) Kel::throwError("at most 90 degrees");
    return Kel::AttributeOpResult::Done;
  }
  return Kel::AttributeOpResult::NotSupported;
}

void BoilerAdapter::declare() {
  Kel::TypeHooks hooks;
  hooks.genericIfAttributeOp = &BoilerAdapter::attributeOp;
  Kel::HookedType("example", "Boiler", Kel::descOf<BoilerAdapter>(), Kel::TypeKind::Entity, hooks)
      .value("serial-number", Kel::typeOf<Kel::String>(), false)
      .value("temperature", Kel::typeOf<double>(), false)
      .value("target", Kel::typeOf<std::uint32_t>(), true)
      .value("burning", Kel::typeOf<bool>(), false)
      .done();
}
