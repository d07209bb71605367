// A model whose own code is rude: printers, parsers and setters that do what a test wants when they are
// called, keys that collide with every kind of attribute, members that have nothing to say.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Dir.h"
#include "Kel/Entity.h"

namespace Hostile {

class Guest;

// The host's code that the library calls.
enum class Call : unsigned { Print = 1, Parse = 2, Set = 4, Push = 8, Tell = 16 };

// What that code does before it does its work. Not called again from within itself, nor while an `Inside`
// lives, when all texts can be printed.
class Trap {
public:
  class Inside {
  public:
    explicit Inside(bool refusesTexts = false);
    ~Inside();
    Inside(Inside const&) = delete;
    Inside& operator=(Inside const&) = delete;

  private:
    bool before_, refusedTexts_;
  };
  void spring(Call call);
  // Whether a printer is to throw at that text: at some, always the same ones.
  [[nodiscard]] bool refuses(std::string_view text) const { return refusesTexts && text.starts_with("a"); }

  std::function<void(Call)> act;
  bool refusesTexts = false;

private:
  bool inside_ = false;
};
Trap& trap();

// Has a string representation whose printer and parser spring the trap; also a key.
struct Odd {
  Kel::String text;
  bool operator==(Odd const&) const = default;
};
// Has a byte representation.
struct Blob {
  Kel::Bytes bytes;
  bool operator==(Blob const&) const = default;
};
enum class Mood : std::uint8_t { Calm, LowPower, Bracketed };
struct PlaceKey {
  Kel::String vrf;
  Odd tag;
  Mood mood = Mood::Calm;
  bool operator==(PlaceKey const&) const = default;
};
struct Inner {
  std::uint32_t number = 0;
  std::optional<Kel::String> word;
  bool operator==(Inner const&) const = default;
};
struct NestedKey {
  Inner inner;
  Kel::String vrf;
  bool operator==(NestedKey const&) const = default;
};
// Says nothing unless its note is set.
struct Silent {
  std::optional<Kel::String> note;
  bool operator==(Silent const&) const = default;
};

// A reference in the middle.
struct Leg {
  std::uint32_t cost = 0;
  Kel::Ptr<Guest> via;
  Kel::String note;
};

class Room final : public Kel::EntityOf<Room> {
public:
  std::optional<std::uint32_t> beds;
  std::optional<Kel::String> paint;
};
class Guest final : public Kel::EntityOf<Guest> {
public:
  void textIs(Kel::String const& wanted);

  Kel::String tag; // the key
  Kel::String text;
  Odd odd;
  Kel::Ptr<Guest> peer;
  Kel::KeyedEntities<std::uint32_t, Room> rooms; // keys outside
  Kel::Ptr<Room> only;
};
// What its printers make has a name that begins with "odd", here and everywhere.
class Host final : public Kel::EntityOf<Host> {
public:
  Kel::String name() const override { return Kel::String("no/place[of=its]"); }
  void labelIs(Kel::String const& wanted);
  void oddIs(Odd const& wanted);
  void peerIs(Kel::Ptr<Guest> const& wanted);
  Kel::Ptr<Guest> guestIs(Kel::String const& tag) { return memberIs(guests, tag); }
  Kel::Ptr<Room> roomIs(Odd const& key) { return memberIs(oddRooms, key); }
  void silentIs(Kel::String const& key, Silent const& value) { memberIs(silents, key, value); }
  void placeIs(PlaceKey const& key, Silent const& value) { memberIs(oddPlaces, key, value); }
  void aliasIs(Kel::String const& key, Kel::Ptr<Guest> const& guest) { memberIs(aliases, key, guest); }
  void stepAdd(Inner const& wanted) { steps.push_back(wanted); } // silent

  Kel::String label;
  Odd odd;
  Blob oddBlob;
  std::optional<Odd> oddNote;
  std::vector<Odd> oddList;
  Mood mood = Mood::Calm;
  Inner inner;
  std::vector<Inner> steps;
  Leg leg;
  Kel::KeyedValues<Kel::String, Leg> stops;
  Kel::Ptr<Guest> peer;
  Kel::KeyedValues<Odd, std::uint32_t> oddShares;
  Kel::KeyedValues<PlaceKey, Silent> oddPlaces;
  Kel::KeyedValues<Kel::String, Silent> silents;
  Kel::KeyedValues<Kel::RefTo<Guest>, std::uint32_t> costs;
  Kel::KeyedRefs<Kel::String, Guest> aliases;
  Kel::KeyedEntities<Kel::String, Guest> guests;
  Kel::KeyedEntities<Odd, Room> oddRooms;
};

// Entity types that hold members, as values and as entities, under every kind of key, of whose fields one has
// the name of an attribute of the member: of another kind in each type. By the kind's name.
struct Collision {
  std::string kind;
  Kel::KelType type;
};
std::vector<Collision> const& collisions();

// Entities with so many attributes each, of one kind and as they are made; and, for the kinds that values can
// have, entities with one structure that has these attributes.
std::vector<Kel::Ptr<Kel::Entity>> wideEntities(std::size_t attributes);

// Texts that come from nobody with good intentions. The last ones are no UTF-8.
inline constexpr std::size_t kBadTexts = 2;
std::vector<std::string> const& oddTexts();

// /hostile/host and, for each wanted kind, /hostile/<kind>. Its end removes /hostile.
class World {
public:
  explicit World(std::vector<std::string> const& kinds);
  ~World() { Kel::globalDir()->entityDel("hostile"); }
  World(World const&) = delete;
  World& operator=(World const&) = delete;
  void boxIs(std::string const& kind); // makes it, anew when it is there

  Kel::Ptr<Kel::Dir> dir;
  Kel::Ptr<Host> host;
};

} // namespace Hostile
