// What makes a path invalid by its form alone; whether its names exist is asked later. Texts of clients made
// fit for a status.
#include "agent/paths/RequestPath.h"

#include <fmt/format.h>

#include <algorithm>

#include "agent/model/Tree.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

grpc::Status invalid(std::string const& what) { return {grpc::StatusCode::INVALID_ARGUMENT, what}; }

grpc::Status appendElem(std::vector<RequestElem>& elems, gnmi::PathElem const& from) {
  if (from.name().empty()) return invalid("a path element has no name");
  if (from.name() == "..." && from.key_size() > 0) return invalid("the path element ... takes no keys");
  RequestElem elem{from.name(), {from.key().begin(), from.key().end()}};
  std::ranges::sort(elem.keys);
  if (!elem.keys.empty() && elem.keys.front().first.empty())
    return invalid(fmt::format("a key of the path element {} has no name", statusText(from.name())));
  elems.push_back(std::move(elem));
  return grpc::Status::OK;
}

// The list of plain texts that paths once were, which some clients fill beside `elem`; the generated
// accessors are deprecated like the field.
bool hasOldElements(gnmi::Path const& path) {
  static auto const* const field =
      gnmi::Path::descriptor()->FindFieldByNumber(gnmi::Path::kElementFieldNumber);
  return gnmi::Path::GetReflection()->FieldSize(path, field) > 0;
}

grpc::Status appendElems(std::vector<RequestElem>& elems, gnmi::Path const& from) {
  if (elems.size() + static_cast<std::size_t>(from.elem_size()) > kMaxPathElems)
    return invalid(fmt::format("a path has more than {} elements", kMaxPathElems));
  for (gnmi::PathElem const& elem : from.elem()) {
    if (grpc::Status status = appendElem(elems, elem); !status.ok()) return status;
    bool const isRepeated =
        elems.size() > 1 && elems.back().name == "..." && elems[elems.size() - 2].name == "...";
    if (isRepeated) elems.pop_back(); // any number of elements twice is any number of them
  }
  return grpc::Status::OK;
}

} // namespace

bool isOriginServed(std::string_view origin) {
  if (origin.empty() || origin == kOrigin) return true;
  return std::ranges::any_of(publishedModels(),
                             [origin](PublishedModel const& model) { return model.name == origin; });
}

grpc::Status frameCheck(gnmi::Path const& prefix, gnmi::Path const& path) {
  if (!prefix.origin().empty() && !path.origin().empty() && prefix.origin() != path.origin())
    return invalid("the prefix and a path name different origins");
  if (!path.target().empty()) return invalid("a target belongs into the prefix");
  std::string const& origin = prefix.origin().empty() ? path.origin() : prefix.origin();
  if (!isOriginServed(origin)) return invalid(fmt::format("the origin {} is not served", statusText(origin)));
  for (gnmi::Path const* const part : {&prefix, &path})
    if (part->elem_size() == 0 && hasOldElements(*part))
      return invalid("a path has the field element alone, which is not supported: use elem");
  return grpc::Status::OK;
}

RequestPath::OrError RequestPath::of(gnmi::Path const& prefix, gnmi::Path const& path) {
  if (grpc::Status status = frameCheck(prefix, path); !status.ok()) return status;
  RequestPath made;
  made.origin = prefix.origin().empty() ? path.origin() : prefix.origin();
  made.target = prefix.target();
  made.elems.reserve(static_cast<std::size_t>(prefix.elem_size() + path.elem_size()));
  for (gnmi::Path const* const part : {&prefix, &path})
    if (grpc::Status status = appendElems(made.elems, *part); !status.ok()) return status;
  return made;
}

std::string RequestPath::text() const {
  std::string out;
  for (RequestElem const& elem : elems) {
    out += '/';
    out += elem.name;
    for (auto const& [name, value] : elem.keys)
      out += fmt::format("[{}={}]", name, value);
  }
  return statusText(out.empty() ? "/" : out);
}

std::string statusText(std::string_view text, std::size_t length) {
  std::string out;
  for (char const byte : text.substr(0, length))
    out += byte >= ' ' && byte != 0x7f ? byte : '?';
  if (text.size() > length) out += "...";
  return out;
}

} // namespace Agent
