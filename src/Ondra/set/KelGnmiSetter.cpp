// The three phases of a request, the data root, the response and its statuses; what paths do to the model is
// in the tree's files.
#include "Ondra/KelGnmiSetter.h"

#include "Kel/ActivityClock.h"
#include "Kel/Declare.h"
#include "Kel/Dir.h"
#include "Ondra/PathFormat.h"
#include "Ondra/set/AttrNode.h"
#include "Ondra/set/DataRoot.h"
#include "Ondra/set/SetTrace.h"

Kel::TypeDesc& Kel::Impl::DeclaredType<Ondra::GnmiSetSessionState>::desc() {
  static TypeDesc* const desc = makeShell<Ondra::GnmiSetSessionState>();
  return *desc;
}

namespace Ondra {

namespace {

[[maybe_unused]] Kel::KelType const sessionStateType =
    Kel::entityType<GnmiSetSessionState>("GnmiSetSessionState", "Ondra")
        .keyed("dirtyPath", &GnmiSetSessionState::dirtyPath)
        .done();

} // namespace

void GnmiSetSessionState::dirtyPathIs(Kel::String const& fullName) {
  memberIs(dirtyPath, fullName,
           static_cast<std::uint64_t>(Kel::activityManagerStatus()->activityLoopExecNsTime()));
}
void GnmiSetSessionState::dirtyPathDel(Kel::String const& fullName) { memberDel(dirtyPath, fullName); }
void GnmiSetSessionState::dirtyPathDelAll() { memberDelAll(dirtyPath); }

namespace KelGnmiSet {

Set::Set(Kel::Ptr<Path const> dataRoot, gnmi::SetRequest request)
    : dataRoot_(std::move(dataRoot))
    , ownRequest_(std::move(request))
    , request_(ownRequest_)
    , response_(ownResponse_) {
  requireDataRoot();
}

Set::Set(Kel::Ptr<Path const> dataRoot, gnmi::SetRequest& request, gnmi::SetResponse& response)
    : dataRoot_(std::move(dataRoot))
    , request_(request)
    , response_(response) {
  requireDataRoot();
}

void Set::requireDataRoot() const {
  TOVAK_ASSERT(dataRoot_ && dataRoot_->elemSize() > 0, setTrace,
               "data root path must be an absolute non-empty path");
}

Set::~Set() = default;

std::pair<gnmi::SetResponse, grpc::Status> Set::execute() {
  grpc::Status status = executeInPlace();
  return {std::move(response_), std::move(status)};
}

grpc::Status Set::executeInPlace() {
  TOVAK_TRACE(setTrace, 0, "", "Start executing a Set request");
  grpc::Status status;
  try {
    status = executeImpl();
  } catch (...) { // memory has run out
    root_.reset();
    handPathsOver();
    throw;
  }
  root_.reset();
  handPathsOver();
  TOVAK_TRACE(setTrace, 1, "", "Result: {}", status.ok() ? "OK" : status.error_message());
  TOVAK_TRACE(setTrace, 0, "", "Finish executing a Set request");
  return status;
}

grpc::Status Set::check() {
  grpc::Status status = prepareAll();
  root_.reset();
  return status;
}

grpc::Status Set::executeImpl() {
  populateResponse();
  if (grpc::Status status = prepareAll(); !status.ok()) return status;
  TOVAK_TRACE(setTrace, 2, "", "All ops are processed successfully, performing commit");
  auto const committed = root_->commitTree();
  if (auto const* const error = std::get_if<AttrTree::Error>(&committed)) return treeErrorToStatus(*error);
  return grpc::Status::OK;
}

grpc::Status Set::prepareAll() {
  TOVAK_TRACE(setTrace, 2, "", "Processing data root path '{}'", dataRoot_);
  if (auto root = setDataTreeRoot(); auto* const status = std::get_if<grpc::Status>(&root))
    return std::move(*status);
  TOVAK_ASSERT(root_ != nullptr, setTrace, "Expecting root to be set");
  TOVAK_TRACE(setTrace, 2, "", "Processing Delete ops");
  if (auto deletes = processDelete(); auto* const status = std::get_if<grpc::Status>(&deletes))
    return std::move(*status);
  root_->pruneSubTree();
  TOVAK_TRACE(setTrace, 2, "", "Processing Replace ops");
  if (auto replaces = processReplace(); auto* const status = std::get_if<grpc::Status>(&replaces))
    return std::move(*status);
  root_->pruneSubTree();
  TOVAK_TRACE(setTrace, 2, "", "Processing Update ops");
  if (auto updates = processUpdate(); auto* const status = std::get_if<grpc::Status>(&updates))
    return std::move(*status);
  return grpc::Status::OK;
}

void Set::populateResponse() noexcept {
  response_.Clear();
  auto* const results = response_.mutable_response();
  results->Reserve(request_.delete__size() + request_.replace_size() + request_.update_size());
  auto const add = [results](gnmi::UpdateResult::Operation op, int count) {
    for (; count > 0; --count)
      results->Add()->set_op(op);
  };
  add(gnmi::UpdateResult::DELETE, request_.delete__size());
  add(gnmi::UpdateResult::REPLACE, request_.replace_size());
  add(gnmi::UpdateResult::UPDATE, request_.update_size());
}

void Set::handPathsOver() noexcept {
  response_.mutable_prefix()->Swap(request_.mutable_prefix());
  auto result = response_.mutable_response()->begin();
  for (gnmi::Path& path : *request_.mutable_delete_())
    (result++)->mutable_path()->Swap(&path);
  bool const isOneArena = request_.GetArena() == response_.GetArena();
  for (auto* const updates : {request_.mutable_replace(), request_.mutable_update()}) {
    for (gnmi::Update& update : *updates)
      if (isOneArena && update.has_path())
        (result++)->unsafe_arena_set_allocated_path(update.unsafe_arena_release_path());
      else
        (result++)->mutable_path()->Swap(update.mutable_path());
  }
}

Set::StepStatus Set::setDataTreeRoot() {
  auto found = dataRootAt(*dataRoot_, rootPath_);
  if (!found) return found.error();
  TOVAK_TRACE(setTrace, 3, "", "Setting tree root corresponding to path '{}'", dataRoot_);
  root_ = std::make_unique<AttrTree::AttrNode>(*rootPath_.elem().rbegin(), std::move(found).value());
  return true;
}

Kstd::Result<AttrTree::KelObject, grpc::Status> dataRootAt(Path const& path, gnmi::Path& elems) {
  Kel::Ptr<Kel::Dir> const dir = Kel::globalDir();
  AttrTree::KelObject current(dir->fwkType().genericIf(static_cast<Kel::PtrInterface*>(dir.get())));
  auto const notFound = [&path](std::string const& message) {
    return Kstd::Err(pathNotFoundError(path.toString(), message));
  };
  elems.Clear();
  path.copyToGnmiPath(&elems);
  for (gnmi::PathElem const& elem : elems.elem()) {
    auto next = AttrTree::getNextKelObject(current, elem);
    if (!next) return notFound(next.error().message);
    if (!next->object) return notFound(fmt::format("Data root path element '{}' is not set", elem));
    current = std::move(next).value();
  }
  if (!current.object->type().isEntity()) return notFound("Data root path leads to no entity");
  return current;
}

template <class Entries, class PathOf, class ValueOf>
Set::StepStatus Set::process(SetOp op, char const* word, Entries const& entries, PathOf const& pathOf,
                             ValueOf const& valueOf) {
  TOVAK_ASSERT(root_ != nullptr, setTrace, "Expecting root to be set");
  root_->opIs(op);
  TOVAK_TRACE(setTrace, 3, "", "Processing prefix '{}' and {} {} paths", request_.prefix(), entries.size(),
              word);
  auto const& prefix = request_.prefix().elem();
  for (auto const& entry : entries) {
    gnmi::Path const& path = pathOf(entry);
    TOVAK_TRACE(setTrace, 4, "", "Inserting path '{}'", path);
    auto const inserted = root_->insertPathSuffix(prefix.begin(), prefix.end(), path.elem().begin(),
                                                  path.elem().end(), valueOf(entry), op);
    if (auto const* const error = std::get_if<AttrTree::Error>(&inserted)) return treeErrorToStatus(*error);
  }
  TOVAK_TRACE(setTrace, 3, "", "All {} paths are inserted successfully", word);
  auto const prepared = root_->prepareTree(op);
  if (auto const* const error = std::get_if<AttrTree::Error>(&prepared)) return treeErrorToStatus(*error);
  return true;
}

namespace {

gnmi::TypedValue const* valueOfUpdate(gnmi::Update const& update) {
  return update.has_val() ? &update.val() : nullptr;
}
gnmi::Path const& pathOfUpdate(gnmi::Update const& update) { return update.path(); }

} // namespace

Set::StepStatus Set::processDelete() {
  return process(
      SetOp::Delete, "delete", request_.delete_(),
      [](gnmi::Path const& path) -> gnmi::Path const& { return path; },
      [](gnmi::Path const&) -> gnmi::TypedValue const* { return nullptr; });
}

Set::StepStatus Set::processReplace() {
  return process(SetOp::Replace, "replace", request_.replace(), &pathOfUpdate, &valueOfUpdate);
}

Set::StepStatus Set::processUpdate() {
  return process(SetOp::Update, "update", request_.update(), &pathOfUpdate, &valueOfUpdate);
}

grpc::Status treeErrorToStatus(AttrTree::Error const& error) {
  std::string path;
  for (gnmi::PathElem const& elem : error.path)
    path.append(1, '/').append(pathElemToStr(elem));
  switch (error.code) {
  case grpc::StatusCode::NOT_FOUND: return pathNotFoundError(path, error.message);
  case grpc::StatusCode::INVALID_ARGUMENT: return invalidArgumentError(path, error.message);
  default: return grpc::Status(error.code, error.message);
  }
}

grpc::Status pathNotFoundError(std::string const& path, std::string const& message) {
  return grpc::Status(grpc::StatusCode::NOT_FOUND,
                      fmt::format("Error in finding path {}: {}", path, message));
}

grpc::Status invalidArgumentError(std::string const& path, std::string const& message) {
  return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT,
                      fmt::format("Error in argument to path {}: {}", path, message));
}

} // namespace KelGnmiSet
} // namespace Ondra
