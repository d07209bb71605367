// Which Sets may be on their way to the disk at a time: those of which none can change what another one comes
// to. Scheduler thread.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

class SetDiff;
struct SetPlan;

// What a Set touches, as canonical bytes of paths.
struct SetPlaces {
  [[nodiscard]] static SetPlaces of(SetPlan const& plan, SetDiff const& diff);

  std::vector<std::string> places;
  bool isPlain = true; // it gives values to what is there, and makes, clears and removes nothing
  bool isWide = false; // it touches much, and is better alone
};

// Those of all Sets on their way.
class PlacesOnTheWay {
public:
  // Plain ones do not disturb each other.
  [[nodiscard]] bool disturb(SetPlaces const& set) const;
  void enter(SetPlaces const& set);
  void leave(SetPlaces const& set);

private:
  using Places = std::multiset<std::string, std::less<>>;
  [[nodiscard]] static bool overlaps(Places const& places, std::string_view place);

  Places plain_;
  Places shaping_;
};

} // namespace Agent
