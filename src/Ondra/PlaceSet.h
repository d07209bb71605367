// Changes of places of the object model that their caller has resolved himself: the way of `KelGnmiSet::Set`
// without gNMI's paths.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include <grpcpp/support/status.h>

#include "Kel/Attr.h"
#include "Kstd/Export.h"
#include "Ondra/AttrTree.h"
#include "Ondra/Path.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra::KelGnmiSet {

// What is to become of places below one entity: deletes first, then replaces, then updates, each in their
// order. Whoever has looked up attributes and keys says by them what a path would say by names; all else is
// as a `Set` of these paths has it: checked whole before anything is written, committed in one pass, refused
// in the same words.
//
//   Ondra::KelGnmiSet::PlaceSet set(dataRoot);
//   auto const& entry = set.placeIs(set.placeIs(set.root(), interfaces), interface, key);
//   set.updateIs(set.placeIs(entry, mtu), value);
//   grpc::Status const status = set.execute();
//
// Scheduler thread, but for its making and filling, which look at types alone: any one thread.
class KTD_EXPORT PlaceSet {
public:
  using Handle = AttrTree::ConstHandle;

  // An attribute of the object above, or the member of that key in it. The set's own; it stays where it is.
  class KTD_EXPORT Place {
  public:
    Place(Place const* above, Kel::KelAttr attr, Handle key)
        : above_(above)
        , attr_(attr)
        , key_(std::move(key)) {}

    [[nodiscard]] Place const* above() const { return above_; } // null: of the data root
    [[nodiscard]] Kel::KelAttr attr() const { return attr_; }
    [[nodiscard]] Handle const& key() const { return key_; } // null: no member
    // As a path would name it. Made when it is asked for: for errors and traces.
    [[nodiscard]] gnmi::PathElem const& elem() const;

  private:
    Place const* above_;
    Kel::KelAttr attr_;
    Handle key_;
    mutable std::unique_ptr<gnmi::PathElem> elem_;
  };

  // `dataRoot`: the path from the model's root directory to the entity beneath which the places lie. REQUIRES
  // at least one element: asserted.
  explicit PlaceSet(Kel::Ptr<Path const> dataRoot);
  PlaceSet(PlaceSet&&) noexcept = default;
  PlaceSet& operator=(PlaceSet&&) noexcept = default;
  ~PlaceSet();

  [[nodiscard]] Place const& root() const { return *root_; }
  // A place that is asked for again becomes another one, for the same: whoever keeps the first saves work.
  // `key`: exactly for members of keyed collections (asserted), of the collection's key type; it is shared,
  // not copied. That the object above has the attribute is looked at when the set is checked, since types
  // differ.
  Place const& placeIs(Place const& above, Kel::KelAttr attr, Handle key = nullptr);
  // An entity of a directory.
  Place const& entityIs(Place const& dir, std::string_view name);

  void deleteIs(Place const& place);
  void replaceIs(Place const& place, gnmi::TypedValue value);
  void updateIs(Place const& place, gnmi::TypedValue value);
  // What the value comes to is known: the leaf's own value, or an array's members. They are shared, and of
  // the leaf's type: asserted where they are used.
  using Decoded = std::vector<AttrTree::Handle>;
  void updateIs(Place const& place, gnmi::TypedValue value, Decoded decoded);
  [[nodiscard]] std::size_t size() const; // of all operations

  // --- what it holds ---------------------------------------------------------------------------------------
  struct Write {
    Place const* place;
    gnmi::TypedValue value;
    std::optional<Decoded> decoded; // in its stead
  };
  [[nodiscard]] std::vector<Place const*> const& deletes() const { return deletes_; }
  [[nodiscard]] std::vector<Write> const& replaces() const { return replaces_; }
  [[nodiscard]] std::vector<Write> const& updates() const { return updates_; }

  // As those of `Set`. Both may be called again, and each looks at the model anew.
  [[nodiscard]] grpc::Status check() const;
  [[nodiscard]] grpc::Status execute() const;

private:
  struct Tree;

  [[nodiscard]] grpc::Status prepare(Tree& tree) const;
  [[nodiscard]] grpc::Status insert(Tree& tree, SetOp op) const;

  Kel::Ptr<Path const> dataRoot_;
  std::unique_ptr<Place> root_;
  std::unique_ptr<std::deque<Place>> places_;
  std::vector<Place const*> deletes_;
  std::vector<Write> replaces_;
  std::vector<Write> updates_;
};

} // namespace Ondra::KelGnmiSet
