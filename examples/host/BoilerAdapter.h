// Makes a `Boiler` an entity of the model: its attributes are answered by a dispatcher instead of lying in
// the object.
#pragma once

#include "Boiler.h"
#include "Kel/Entity.h"
#include "Kel/Hooks.h"

// Refers to the boiler, which outlives it. Scheduler thread.
class BoilerAdapter final : public Kel::EntityOf<BoilerAdapter> {
public:
  explicit BoilerAdapter(Boiler& boiler);
  ~BoilerAdapter() override;

  // Registers the type; before the first adapter.
  static void declare();

private:
  static Kel::AttributeOpResult attributeOp(Kel::PtrInterface* object, Kel::AttributeId attribute,
                                            Kel::GenericIf::AttributeOp op, Kel::ArgList const& args,
                                            Kel::Ptr<Kel::GenericIf const>& result);

  Boiler& boiler_;
};
