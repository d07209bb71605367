// Ondra::PathToType: publishes which type of object sits under which watched path.
#pragma once

#include "Kel/Allocator.h"
#include "Kel/Entity.h"
#include "Kel/HashMap2018.h"
#include "Kel/Ptr.h"
#include "Kel/String.h"
#include "Kstd/Export.h"

namespace Ondra {
class PathToType;
}

namespace Kel::Impl {
template <>
struct KTD_EXPORT DeclaredType<Ondra::PathToType> {
  static TypeDesc& desc();
};
} // namespace Kel::Impl

namespace Ondra {

// An entity of the model, made by the host: in a directory, for others to observe, or held by itself. The
// library writes it and never reads it. Each change of `pathTypes` is told with the path as the key. Lives on
// the scheduler thread.
class KTD_EXPORT PathToType final : public Kel::Entity, private Kel::TrackedObject<PathToType> {
public:
  using PathTypesMapType = Kel::HashMap2018<Kel::String, Kel::String>; // path to type

  using Kel::TrackedObject<PathToType>::operator new;
  using Kel::TrackedObject<PathToType>::operator delete;

  explicit PathToType(Kel::String const& name) : name_(name) {} // silent
  // A new one, notification-active.
  [[nodiscard]] static Kel::Ptr<PathToType> PathToTypeIs(Kel::String const& name);

  [[nodiscard]] Kel::String name() const override { return name_; }
  // From path text (`Path::toString`) to the name of a type. Valid until the next change.
  [[nodiscard]] PathTypesMapType const& pathTypes() const noexcept { return pathTypes_; }

  // Silent when the path has that type already.
  void pathTypesIs(Kel::String const& path, Kel::String const& type);
  // Returns the type that the path had; the empty text, silently, when it had none.
  Kel::String pathTypesDel(Kel::String const& path);
  // Tells of each member.
  void pathTypesDelAll();

  [[nodiscard]] Kel::KelType fwkType() const override;
  void handleParent() override {}

private:
  ~PathToType() override = default;

  Kel::String const name_;
  PathTypesMapType pathTypes_;
};

[[nodiscard]] KTD_EXPORT Kel::Ptr<PathToType> pathToTypeFactory(Kel::String const& name); // as PathToTypeIs

// The registry that the library writes to; null, and then nothing is written, unless the host sets it.
KTD_EXPORT extern Kel::Ptr<PathToType> pathTypesMap;

} // namespace Ondra
