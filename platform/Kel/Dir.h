// Kel::Dir: a directory of named entities, and the root of the model.
#pragma once

#include <string_view>
#include <vector>

#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "Kstd/Export.h"

namespace Kel {

// Holds entities by name. Its attribute "entityPtr" is the keyed collection of them: to an entity's observers
// a directory looks like any other owner. Directories nest.
class KTD_EXPORT Dir final : public EntityOf<Dir> {
public:
  // The directory's record of one entity. A type of the model, but never walked as data.
  class KTD_EXPORT Entry final : public EntityOf<Entry> {
  public:
    Ptr<Kel::Entity> entity; // what the directory holds
    bool removable = true;   // by generic writers
  };

  // Takes an entity that has no parent yet. `removable`: whether generic writers may remove it, also with the
  // directory. Raises `Kel::Error` for a name that is empty or holds "/" or "[", for one that is taken, for
  // an entity that has or had a parent, and when the directory itself has been removed.
  void entityIs(std::string_view name, Ptr<Entity> const& entity, bool removable = true);
  // Makes an entity of the type, as the type's own hook for directories does it
  // (`TypeDesc::newEntityForDir`), and takes it.
  Ptr<Entity> newEntity(std::string_view name, KelType type, ArgList const& args);
  // A directory of that name, made if missing. Raises `Kel::Error` when something else has the name.
  Ptr<Dir> dirIs(std::string_view name);
  // Removes an entity; a missing one is no matter.
  void entityDel(std::string_view name);

  // The entity of that name; null when there is none.
  [[nodiscard]] Ptr<Entity> entity(std::string_view name) const;
  // The record of it; null when there is none.
  [[nodiscard]] Ptr<Entry> entry(std::string_view name) const;
  // Whether generic writers may remove that entity: it, and of a directory all that it holds, is removable.
  [[nodiscard]] bool isRemovable(std::string_view name) const;
  // The number of entities.
  [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }

private:
  friend class DirAccess;
  KeyedMembers<String, Ptr<Entry>> entries_;
};

// The root directory of the model. Lives for the process.
[[nodiscard]] KTD_EXPORT Ptr<Dir> globalDir();

} // namespace Kel
