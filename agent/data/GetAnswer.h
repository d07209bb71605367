// The answer to one path of a GetRequest: leaves come in as they are read, one notification goes out. The
// request, checked, too.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <absl/container/flat_hash_map.h>
#include <grpcpp/support/status.h>

#include "Kstd/Result.h"
#include "agent/access/RuleTree.h"
#include "agent/data/JsonTree.h"
#include "agent/data/PathStates.h"
#include "agent/encoding/JsonBuffer.h"
#include "agent/paths/RequestPath.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

// What a GetRequest asks for. Pure; made on any thread.
struct GetOrder {
  using OrError = Kstd::Result<GetOrder, grpc::Status>;

  // UNIMPLEMENTED for encodings and models that are not offered, INVALID_ARGUMENT for what makes no sense.
  [[nodiscard]] static OrError of(gnmi::GetRequest const& request);

  // Whether a leaf is asked for; `nodes`: the places from the root down to the leaf.
  [[nodiscard]] bool wants(std::span<TypeNode const> nodes) const;

  std::vector<RequestPath> paths;
  std::size_t prefixElems = 0; // of each path, that the answers' prefix repeats
  gnmi::GetRequest::DataType type = gnmi::GetRequest::ALL;
  gnmi::Encoding encoding = gnmi::JSON;
  std::vector<std::string> modules;                 // the leaves of these alone; empty: all
  std::uint32_t depth = 0;                          // of leaves below what a path means, at most; 0: any
  std::shared_ptr<RuleTree const> access = nullptr; // what may be read; null: everything
};

// JSON: one update for each node that the path matches, with everything below it. PROTO: one for each leaf.
// What comes is leaves as walks tell them, or the JSON of nodes (`JsonReader`), not both.
// Filled on the scheduler thread, written out on any one thread.
class GetAnswer {
public:
  // The order outlives it. `index`: of the path.
  GetAnswer(GetOrder const& order, std::size_t index);
  ~GetAnswer();
  GetAnswer(GetAnswer const&) = delete;
  GetAnswer& operator=(GetAnswer const&) = delete;

  // Takes leaves; prefix and paths as SnapshotSink gets them.
  void add(gnmi::Notification const& notification);
  // Takes the JSON of what stands at a path below the data root; nothing of it is left in `text`.
  void addText(gnmi::Path const& path, JsonBuffer& text);
  // Something that was not asked for has been read elsewhere.
  void hasLeftOutIs() { hasLeftOut_ = true; }
  // There is an empty container at the path.
  void emptyContainerIs();
  // Nothing was asked for of what has been read.
  [[nodiscard]] bool isEmpty() const { return matches_.empty() && updates_.size() == 0 && written_.empty(); }
  // Something has been read that was not asked for.
  [[nodiscard]] bool hasLeftOut() const { return hasLeftOut_; }
  // About the size of the answer, and of the memory it takes until it has been taken.
  [[nodiscard]] std::size_t bytes() const { return bytes_; }
  [[nodiscard]] std::size_t memoryBytes() const { return memoryBytes_ + bytes_; }

  // Appends the notification as a field of a GetResponse, piece by piece; nothing of the answer is left.
  void take(std::int64_t timestamp, std::vector<grpc::Slice>& to);

private:
  struct Match;
  class Place;

  void addProto(Place const& place, gnmi::TypedValue const& value);
  // `prefixDepth`: of the place, how many elements all leaves of the notification share.
  void addJson(Place& place, std::size_t prefixDepth, gnmi::TypedValue const& value);
  // What the path matches at or above the place, made if missing.
  [[nodiscard]] Match& matchIs(Place const& place);
  [[nodiscard]] bool isAt(Match const& match, Place const& place) const;
  void appendUpdate(Match const& match, std::vector<grpc::Slice>& to) const;
  [[nodiscard]] std::string textHead(gnmi::Path const& path, std::size_t size) const;
  // The first elements of a place as a path in the answer.
  [[nodiscard]] gnmi::Path relative(Place const& place, std::size_t depth) const;

  GetOrder const& order_;
  RequestPath const& path_;
  bool const hasAnyDepth_; // else what matches has as many elements as the path
  bool hasLeftOut_ = false;
  std::size_t bytes_ = 0;
  std::size_t memoryBytes_ = 0;                 // beside the bytes of the answer
  std::vector<grpc::Slice> written_;            // updates, encoded,
  SliceWriter updates_;                         // and those behind them
  std::vector<std::unique_ptr<Match>> matches_; // JSON that has been put together of leaves
  absl::flat_hash_map<std::string, Match*> matchOf_;
};

} // namespace Agent
