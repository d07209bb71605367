// The host's own types: a greenhouse and its beds.
#pragma once

#include <cstdint>
#include <optional>

#include "Kel/Entity.h"

enum class Crop : std::uint8_t { Fallow, Tomato, Pepper };

class Bed final : public Kel::EntityOf<Bed> {
public:
  void moistureIs(std::uint32_t percent) { valueIs(moisture, percent); } // stores, and tells whoever watches

  Kel::String name; // the key
  Crop crop = Crop::Fallow;
  std::optional<Kel::String> note;
  std::uint32_t moisture = 40; // percent; measured, not set
};

class Greenhouse final : public Kel::EntityOf<Greenhouse> {
public:
  Kel::Ptr<Bed> bedIs(Kel::String const& name) { return memberIs(beds, name); }
  void bedDel(Kel::String const& name) { memberDel(beds, name); }

  Kel::KeyedEntities<Kel::String, Bed> beds;
};

// Before the first object is made.
void declareGreenhouse();
