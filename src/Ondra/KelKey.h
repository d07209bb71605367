// Ondra::KelKey: the key of one collection member while it is walked.
#pragma once

#include <absl/container/inlined_vector.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "Kel/Allocator.h"
#include "Kel/Attr.h"
#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kstd/Export.h"
#include "Ondra/Path.h"

namespace Ondra {

class IrNode;

// Gathers the key fields of a member as texts and as values, and turns them into gNMI form: keys on the
// member's path element, a combined name for members that are plain values, leaves. Also the build state of
// walkers: in value mode they make leaves, in a key mode key texts. A plain value; a walker that is parked
// keeps a copy.
class KTD_EXPORT KelKey {
public:
  enum class Mode : std::uint32_t {
    Value = 0,      // no key is being built
    Structured = 1, // the key is a value type whose attributes are the key fields
    Scalar = 2,     // the key is one scalar
  };
  using KeyMap = std::unordered_map<std::string, std::string, std::hash<std::string>, std::equal_to<>,
                                    Kel::MemAllocator<std::pair<std::string const, std::string>>>;
  using Scalar = std::pair<std::string, Kel::Ptr<Kel::GenericIf const>>;
  using Scalars = absl::InlinedVector<Scalar, 1, Kel::MemAllocator<Scalar>>;

  KelKey() : keyMap_(1) { keyMap_.max_load_factor(1.0F); }
  // The state of walkers that make leaves. It is never written to, so that all of them can share it.
  [[nodiscard]] static KelKey& ofLeaves();

  [[nodiscard]] Mode mode() const noexcept { return mode_; }
  [[nodiscard]] bool inKeyMode() const noexcept { return mode_ != Mode::Value; }
  // The collection attribute whose member this key names.
  [[nodiscard]] Kel::KelAttr keyAttr() const noexcept { return keyAttr_; }
  [[nodiscard]] KeyMap const& keyMap() const noexcept { return keyMap_; }
  [[nodiscard]] Scalars const& scalars() const noexcept { return scalars_; }
  // Key texts of strings are written with "__" escaped.
  [[nodiscard]] bool escapeMark() const noexcept { return escapeMark_; }
  void escapeMarkIs(bool mark) noexcept { escapeMark_ = mark; }
  // The path of the member, relative to the prefix under which its leaves lie.
  [[nodiscard]] Kel::Ptr<Path const> const& prefix() const noexcept { return prefix_; }
  void prefixIs(Kel::Ptr<Path const> prefix) noexcept { prefix_ = std::move(prefix); }

  // Sets mode and key attribute for a member of `attr`; returns the path under which its scalar key field is
  // named: the key attribute of the member, or the collection's name with "Key". Empty for a structured key,
  // whose fields bring their own names.
  Kel::Ptr<Path> updateTypeAndGenKey(Kel::KelAttr const& attr, Kel::KelType const& keyType);
  // The same; the path is shared, and not to be changed.
  Kel::Ptr<Path> typeIs(Kel::KelAttr const& attr, Kel::KelType const& keyType);
  // The same for a collection keyed by a reference, whose text is taken as the key.
  Kel::Ptr<Path> updateTypeAndGenKeyForPtr(Kel::KelAttr const& attr, Kel::KelType const& keyType,
                                           std::string const& ptrPath);
  // Whether a path can hold the key: all of it is UTF-8. What no message can name is not sent, nor what is
  // below it.
  [[nodiscard]] bool isEncodable() const noexcept { return isEncodable_; }
  // Adds a key field; a name that is there keeps its first text. A value, when there is one, is kept for
  // `copyScalars`.
  void mapInsert(std::string const& name, std::string const& text,
                 Kel::Ptr<Kel::GenericIf const> const& value);
  // The leaf name of a member that is encoded into a key itself: the path's tokens, then each field and its
  // text, joined by "__". REQUIRES a key field (asserted).
  [[nodiscard]] std::string gnmiKeyName(Kel::Ptr<Path const> const& path) const;
  // Puts the key onto the last element of `leafPath`, which is copied for that, and keeps the path as
  // `prefix`. A directory's entry is an element named by the key instead (REQUIRES exactly one field,
  // asserted).
  void updateAndStorePrefix(Kel::Ptr<Path>& leafPath, bool dirEntry, Kel::KelAttr const& attr);
  // The value of the key field of that name, if the key has it and its text is this one; else null.
  [[nodiscard]] Kel::Ptr<Kel::GenericIf const> scalar(std::string_view name, std::string_view text) const;
  // Adds a leaf for each key field, below `prefix`.
  void copyScalars(IrNode& node) const;

  // "[name=text]" for each field, sorted.
  explicit operator std::string() const;
  [[nodiscard]] static std::string toString(KelKey const& key) { return static_cast<std::string>(key); }
  [[nodiscard]] std::string dumpKey() const;

private:
  Mode mode_ = Mode::Value;
  Kel::KelAttr keyAttr_;
  KeyMap keyMap_;
  Scalars scalars_;
  bool escapeMark_ = false;
  bool isEncodable_ = true;
  Kel::Ptr<Path const> prefix_;
};

} // namespace Ondra
