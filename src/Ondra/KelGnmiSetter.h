// Applying gNMI Set requests to the object model: the entry of the write side.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <variant>

#include <grpcpp/support/status.h>

#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "Kstd/Export.h"
#include "Ondra/AttrTree.h"
#include "Ondra/Path.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra {
class GnmiSetSessionState;
}

namespace Kel::Impl {
template <>
struct KTD_EXPORT DeclaredType<Ondra::GnmiSetSessionState> {
  static TypeDesc& desc();
};
} // namespace Kel::Impl

namespace Ondra {

// What Set requests have touched: the full names of the entities in directories that their paths named, those
// of refused requests included. A process-wide singleton of the model
// (`Kel::Entity::singleton<GnmiSetSessionState>()`); it grows with every name that is new to it until whoever
// reads it clears it. Scheduler thread.
class KTD_EXPORT GnmiSetSessionState final : public Kel::EntityOf<GnmiSetSessionState> {
public:
  // Records a name, with the loop time.
  void dirtyPathIs(Kel::String const& fullName);
  void dirtyPathDel(Kel::String const& fullName); // forgets one
  void dirtyPathDelAll();                         // forgets all

  // Full name to the loop time at which a request last named it.
  Kel::KeyedValues<Kel::String, std::uint64_t> dirtyPath;
};

namespace KelGnmiSet {

// One Set request. Made for it, executed once, on the scheduler thread.
//
//   Ondra::KelGnmiSet::Set set(dataRoot, std::move(request));
//   auto [response, status] = set.execute();
//
// The request is checked whole before anything is written: all deletes, then all replaces, then all updates,
// each in their order. A request that fails there leaves the model as it was and tells no observer. There is
// no undo: should the model refuse a write although everything was asked beforehand, what was written before
// it stays, and the status names the path. The same where an observer, who is told of each write at once and
// may do what he likes (another Set included), takes away what is still to be written to.
//
// Whatever host code raises becomes part of the answer. Only std::bad_alloc leaves `execute`; the answer's
// paths are complete even then.
class KTD_EXPORT Set {
public:
  // `dataRoot`: the path from the model's root directory to the entity beneath which the request's paths lie.
  // REQUIRES at least one element: asserted.
  Set(Kel::Ptr<Path const> dataRoot, gnmi::SetRequest request);
  // The caller's own messages, for `executeInPlace`. Both outlive the Set. Where both lie in one protobuf
  // arena nothing is copied and nothing freed piece by piece (docs/performance.md).
  Set(Kel::Ptr<Path const> dataRoot, gnmi::SetRequest& request, gnmi::SetResponse& response);
  ~Set();
  Set(Set const&) = delete;
  Set& operator=(Set const&) = delete;

  // The response lists every operation of the request, whatever the outcome; its timestamp is left to the
  // caller. Status codes: NOT_FOUND for what concerns paths and keys, INVALID_ARGUMENT for values.
  [[nodiscard]] std::pair<gnmi::SetResponse, grpc::Status> execute();
  // What `execute` would answer to a request that it refuses before anything is written; OK else. Writes
  // nothing: for a caller who must know of several requests before he executes the first.
  [[nodiscard]] grpc::Status check();
  // `execute` with the caller's messages: fills the response anew, which takes the paths out of the request.
  [[nodiscard]] grpc::Status executeInPlace();

private:
  using StepStatus = std::variant<bool, grpc::Status>;

  void requireDataRoot() const;
  [[nodiscard]] grpc::Status executeImpl();
  // Lays the whole request out in the tree, and asks the model.
  [[nodiscard]] grpc::Status prepareAll();
  // Lists the operations; their paths stay in the request until the tree, which refers to them, is gone.
  // Both end the process where there is no memory: messages do not survive that.
  void populateResponse() noexcept;
  void handPathsOver() noexcept;
  [[nodiscard]] StepStatus setDataTreeRoot();
  [[nodiscard]] StepStatus processDelete();
  [[nodiscard]] StepStatus processReplace();
  [[nodiscard]] StepStatus processUpdate();
  template <class Entries, class PathOf, class ValueOf>
  [[nodiscard]] StepStatus process(SetOp op, char const* word, Entries const& entries, PathOf const& pathOf,
                                   ValueOf const& valueOf);

  Kel::Ptr<Path const> dataRoot_;
  gnmi::SetRequest ownRequest_; // unless they are the caller's
  gnmi::SetResponse ownResponse_;
  gnmi::SetRequest& request_;
  gnmi::SetResponse& response_;
  std::unique_ptr<AttrTree::AttrNode> root_;
  gnmi::Path rootPath_; // the data root's elements, to the last of which the tree's root refers
};

// An error of the tree as the client is told of it.
[[nodiscard]] KTD_EXPORT grpc::Status treeErrorToStatus(AttrTree::Error const& error);
// NOT_FOUND and INVALID_ARGUMENT, with the path and what is wrong with it:
[[nodiscard]] KTD_EXPORT grpc::Status pathNotFoundError(std::string const& path, std::string const& message);
[[nodiscard]] KTD_EXPORT grpc::Status invalidArgumentError(std::string const& path,
                                                           std::string const& message);

} // namespace KelGnmiSet
} // namespace Ondra
