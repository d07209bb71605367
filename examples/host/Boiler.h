// A boiler as its maker's library has it. It knows nothing of the object model.
#pragma once

#include <functional>
#include <string>
#include <utility>

class Boiler {
public:
  // What of it has changed, for whoever listens.
  enum class Part { Temperature, Target, Burning };

  explicit Boiler(std::string serialNumber) : serialNumber_(std::move(serialNumber)) {}

  std::string const& serialNumber() const { return serialNumber_; }
  double celsius() const { return celsius_; }
  unsigned target() const { return target_; }
  bool isBurning() const { return burning_; }

  // False when it cannot be.
  bool targetIs(unsigned celsius) {
    if (celsius > 90) return false;
    target_ = celsius;
    tell(Part::Target);
    return true;
  }
  void minutePasses() {
    bool const before = std::exchange(burning_, celsius_ < target_);
    celsius_ += burning_ ? 2.5 : -0.5;
    tell(Part::Temperature);
    if (before != burning_) tell(Part::Burning);
  }
  void listenerIs(std::function<void(Part)> listener) { listener_ = std::move(listener); }

private:
  void tell(Part part) const {
    if (listener_) listener_(part);
  }

  std::string serialNumber_;
  double celsius_ = 58;
  unsigned target_ = 60;
  bool burning_ = false;
  std::function<void(Part)> listener_;
};
