// PROTO leaves become bytes at once, and so does the JSON of whole objects; JSON leaves gather in a tree for
// each match of the path, written when the answer is taken.
#include "agent/data/GetAnswer.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <absl/container/inlined_vector.h>
#include <fmt/format.h>
#include <google/protobuf/io/coded_stream.h>

#include "Ondra/GnmiPath.h"
#include "agent/encoding/LeafEncoding.h"
#include "agent/model/Tree.h"
#include "agent/paths/EntryKey.h"
#include "agent/paths/OutPath.h"
#include "agent/paths/Pattern.h"
#include "agent/paths/RequestParts.h"

namespace Agent {

using grpc::StatusCode;

// --- the request -------------------------------------------------------------------------------------------

namespace {

bool isWildcard(RequestElem const& elem) {
  return elem.name == "*" || elem.name == "..." ||
         std::any_of(elem.keys.begin(), elem.keys.end(), [](auto const& key) { return key.second == "*"; });
}

// The elements of the prefix when they can stand in the answers as they are.
std::size_t sharedPrefixElems(GetOrder const& order, gnmi::GetRequest const& request) {
  auto const count = static_cast<std::size_t>(request.prefix().elem_size());
  TypeNode node = TypeNode::root();
  for (std::size_t i = 0; i < count && !order.paths.empty(); ++i) {
    RequestElem const& elem = order.paths.front().elems[i];
    auto const child = node.child(elem.name);
    if (!child || isWildcard(elem) || (child->isList() && elem.keys.size() != child->keyCount())) return 0;
    node = *child;
  }
  return count;
}

} // namespace

GetOrder::OrError GetOrder::of(gnmi::GetRequest const& request) {
  GetOrder order;
  if (grpc::Status status = checkExtensions(request.extension(), CallKind::Get); !status.ok())
    return Kstd::Err(status);
  if (!gnmi::Encoding_IsValid(request.encoding()) || !isEncodingSupported(request.encoding()))
    return Kstd::Err(grpc::Status(StatusCode::UNIMPLEMENTED,
                                  fmt::format("encoding {} is not supported: use JSON, JSON_IETF or PROTO",
                                              gnmi::Encoding_IsValid(request.encoding())
                                                  ? gnmi::Encoding_Name(request.encoding())
                                                  : std::to_string(request.encoding()))));
  if (!gnmi::GetRequest::DataType_IsValid(request.type()))
    return Kstd::Err(grpc::Status(StatusCode::INVALID_ARGUMENT, "unknown type of data"));
  order.encoding = request.encoding();
  order.type = request.type();
  order.depth = depthOf(request.extension());
  auto modules = modulesOf(request.use_models());
  if (!modules) return Kstd::Err(modules.error());
  order.modules = std::move(*modules);
  for (gnmi::Path const& path : request.path()) {
    auto checked = RequestPath::of(request.prefix(), path);
    if (!checked) return Kstd::Err(checked.error());
    order.paths.push_back(std::move(*checked));
  }
  order.prefixElems = sharedPrefixElems(order, request);
  return order;
}

bool GetOrder::wants(std::span<TypeNode const> nodes) const {
  TypeNode const& leaf = nodes.back();
  if (!modules.empty() && std::find(modules.begin(), modules.end(), leaf.module) == modules.end())
    return false;
  bool const isConfig = leaf.leaf()->isConfig;
  if (type == gnmi::GetRequest::ALL) return true;
  if (type == gnmi::GetRequest::CONFIG) return isConfig;
  if (type == gnmi::GetRequest::STATE) return !isConfig;
  // State that does not just say what has become of the configuration: none of the same name beside it.
  if (isConfig || nodes.size() < 3) return !isConfig;
  auto const config = nodes[nodes.size() - 3].child("config");
  return !config || !config->child(leaf.name);
}

// --- bytes ---

namespace {

// Field numbers and wire types of gnmi.proto.
constexpr char kNotification = 1 << 3 | 2;
constexpr char kUpdate = 4 << 3 | 2;
constexpr char kUpdateVal = 3 << 3 | 2;
constexpr char kJsonVal = 10 << 3 | 2;
constexpr char kJsonIetfVal = 11 << 3 | 2;

std::string fieldHead(char field, std::size_t size) {
  std::uint8_t bytes[10];
  std::uint8_t const* const end = google::protobuf::io::CodedOutputStream::WriteVarint64ToArray(size, bytes);
  return field + std::string(static_cast<std::uint8_t const*>(bytes), end);
}

} // namespace

// --- the answer --------------------------------------------------------------------------------------------

struct GetAnswer::Match {
  gnmi::Path path; // as it stands in the answer
  std::unique_ptr<JsonTree> tree;
  gnmi::TypedValue leaf; // where there is no tree
  std::size_t bytesCounted = 0;
  std::size_t memoryCounted = 0;
};

// Where a leaf stands: the elements of its path from the data root down, each with its place in the types.
// Elements are those of the notification that is being taken.
class GetAnswer::Place {
public:
  explicit Place(GetAnswer const& answer) : answer_(answer) {
    nodes_.push_back(TypeNode::root());
    if (answer.hasAnyDepth_) states_.emplace_back(answer.path_);
    noteMatch();
  }

  // False for what the types do not know.
  bool enter(gnmi::PathElem const& elem) {
    auto const child = nodes_.back().child(elem.name());
    if (!child) return false;
    elems_.push_back(&elem);
    nodes_.push_back(*child);
    if (elem.key_size() > 1) joined_.emplace_back(elems_.size() - 1, joinedKeyOf(*child, elem));
    if (answer_.hasAnyDepth_) states_.push_back(states_.back().below(*child, key(elems_.size() - 1)));
    noteMatch();
    return true;
  }
  void truncate(std::size_t size) {
    elems_.resize(size);
    nodes_.resize(size + 1);
    while (!joined_.empty() && joined_.back().first >= size)
      joined_.pop_back();
    if (answer_.hasAnyDepth_)
      states_.erase(states_.begin() + static_cast<std::ptrdiff_t>(size) + 1, states_.end());
    if (matchDepth_ > size) matchDepth_ = kNone;
  }

  static constexpr std::size_t kNone = SIZE_MAX;
  [[nodiscard]] std::size_t size() const { return elems_.size(); }
  [[nodiscard]] std::size_t matchDepth() const {
    return matchDepth_;
  } // of the node that the path matches, or kNone
  [[nodiscard]] gnmi::PathElem const& elem(std::size_t index) const { return *elems_[index]; }
  [[nodiscard]] TypeNode const& node(std::size_t depth) const { return nodes_[depth]; } // 0: the root
  // From the root down to where it stands.
  [[nodiscard]] std::span<TypeNode const> nodes() const { return nodes_; }
  [[nodiscard]] std::string_view key(std::size_t index) const {
    auto const& keys = elems_[index]->key();
    if (keys.size() > 1) return std::ranges::find(joined_, index, &Joined::first)->second;
    return keys.empty() ? std::string_view() : std::string_view(keys.begin()->second);
  }

  // What `addJson` has found for the notification's prefix, while it holds.
  Match* match = nullptr;
  JsonTree::Node* container = nullptr; // at the end of the prefix

private:
  using Joined = std::pair<std::size_t, std::string>; // the key of an element that has several

  static std::string joinedKeyOf(TypeNode const& list, gnmi::PathElem const& elem) {
    std::vector<std::string> values(list.keyCount());
    for (std::size_t i = 0; i < values.size(); ++i) {
      auto const found = elem.key().find(list.key(i).name().str());
      if (found != elem.key().end()) values[i] = found->second;
    }
    return joinedKey(values);
  }
  void noteMatch() {
    if (matchDepth_ != kNone) return;
    bool const isMatch =
        answer_.hasAnyDepth_ ? states_.back().isEnd() : elems_.size() == answer_.path_.elems.size();
    if (isMatch) matchDepth_ = elems_.size();
  }

  absl::InlinedVector<gnmi::PathElem const*, 16> elems_;
  absl::InlinedVector<TypeNode, 16> nodes_; // one more: the root
  std::vector<Joined> joined_;
  std::vector<PathStates> states_;
  std::size_t matchDepth_ = kNone;
  GetAnswer const& answer_;
};

GetAnswer::GetAnswer(GetOrder const& order, std::size_t index)
    : order_(order)
    , path_(order.paths[index])
    , hasAnyDepth_(std::any_of(path_.elems.begin(), path_.elems.end(),
                               [](RequestElem const& elem) { return elem.name == "..."; })) {}
GetAnswer::~GetAnswer() = default;

void GetAnswer::add(gnmi::Notification const& notification) {
  Place place(*this);
  auto const& prefix = notification.prefix().elem();
  for (int i = 1; i < prefix.size(); ++i) // the first is the data root's
    if (!place.enter(prefix[i])) return;
  std::size_t const depth = place.size();
  for (gnmi::Update const& update : notification.update()) {
    place.truncate(depth);
    auto const& elems = update.path().elem();
    if (elems.empty() ||
        !std::all_of(elems.begin(), elems.end(), [&](auto const& each) { return place.enter(each); }))
      continue;
    if (place.nodes().back().leaf() == nullptr || place.matchDepth() == Place::kNone) continue;
    bool const isTooDeep = order_.depth != 0 && place.size() - place.matchDepth() > order_.depth;
    if (isTooDeep || !order_.wants(place.nodes()))
      hasLeftOut_ = true;
    else if (order_.encoding == gnmi::PROTO)
      addProto(place, update.val());
    else
      addJson(place, depth, update.val());
  }
}

void GetAnswer::addProto(Place const& place, gnmi::TypedValue const& value) {
  gnmi::Update update;
  *update.mutable_path() = relative(place, place.size());
  *update.mutable_val() = value;
  leafEncodingIs(*update.mutable_val(), *place.nodes().back().leaf(), gnmi::PROTO);
  updates_ += fieldHead(kUpdate, update.ByteSizeLong());
  updates_ += update.SerializeAsString();
  bytes_ = updates_.size();
}

void GetAnswer::addJson(Place& place, std::size_t prefixDepth, gnmi::TypedValue const& value) {
  bool const isMatchAbove = place.matchDepth() <= prefixDepth; // for all leaves of the notification
  Match& match = isMatchAbove && place.match != nullptr ? *place.match : matchIs(place);
  TypeNode const& leaf = place.nodes().back();
  if (!match.tree) {
    match.leaf = value;
    leafEncodingIs(match.leaf, *leaf.leaf(), order_.encoding);
    bytes_ += match.leaf.ByteSizeLong();
    return;
  }
  JsonTree::Node* node = isMatchAbove && place.container != nullptr ? place.container : &match.tree->top();
  std::size_t depth = node == place.container ? prefixDepth : place.matchDepth();
  for (; depth + 1 < place.size(); ++depth) {
    if (depth == prefixDepth && isMatchAbove) place.container = node;
    node = &match.tree->childIs(*node, place.node(depth + 1), place.key(depth));
  }
  if (isMatchAbove) {
    place.match = &match;
    if (depth == prefixDepth) place.container = node;
  }
  match.tree->leafIs(*node, leaf, value);
  bytes_ += match.tree->bytes() - std::exchange(match.bytesCounted, match.tree->bytes());
  memoryBytes_ += match.tree->memoryBytes() - std::exchange(match.memoryCounted, match.tree->memoryBytes());
}

bool GetAnswer::isAt(Match const& match, Place const& place) const {
  auto const& elems = match.path.elem();
  if (place.matchDepth() != order_.prefixElems + static_cast<std::size_t>(elems.size())) return false;
  for (int i = 0; i < elems.size(); ++i)
    if (!(elems[i] == place.elem(order_.prefixElems + static_cast<std::size_t>(i)))) return false;
  return true;
}

GetAnswer::Match& GetAnswer::matchIs(Place const& place) {
  if (!matches_.empty() && isAt(*matches_.back(), place)) return *matches_.back();
  gnmi::Path path = relative(place, place.matchDepth());
  Match*& match = matchOf_[pathBytes(PathView(path, 0))];
  if (match == nullptr) {
    matches_.push_back(std::make_unique<Match>());
    match = matches_.back().get();
    TypeNode const& top = place.node(place.matchDepth());
    std::string_view const key =
        place.matchDepth() == 0 ? std::string_view() : place.key(place.matchDepth() - 1);
    if (top.leaf() == nullptr)
      match->tree = std::make_unique<JsonTree>(top, key, order_.encoding == gnmi::JSON_IETF);
    bytes_ += path.ByteSizeLong();
    memoryBytes_ += sizeof(Match) + 2 * path.SpaceUsedLong();
    match->path = std::move(path);
  }
  return *match;
}

void GetAnswer::emptyContainerIs() {
  if (order_.encoding == gnmi::PROTO) return;
  // The path is concrete: as it was asked for.
  matches_.push_back(std::make_unique<Match>());
  Match& match = *matches_.back();
  for (std::size_t i = order_.prefixElems; i < path_.elems.size(); ++i) {
    gnmi::PathElem& elem = *match.path.add_elem();
    elem.set_name(path_.elems[i].name);
    for (auto const& [name, text] : path_.elems[i].keys)
      (*elem.mutable_key())[name] = text;
  }
  *(order_.encoding == gnmi::JSON ? match.leaf.mutable_json_val() : match.leaf.mutable_json_ietf_val()) =
      "{}";
}

gnmi::Path GetAnswer::relative(Place const& place, std::size_t depth) const {
  gnmi::Path path;
  for (std::size_t i = order_.prefixElems; i < depth; ++i)
    *path.add_elem() = place.elem(i);
  return path;
}

void GetAnswer::take(std::int64_t timestamp, std::vector<grpc::Slice>& to) {
  gnmi::Notification head;
  head.set_timestamp(timestamp);
  gnmi::Path& prefix = *head.mutable_prefix();
  for (std::size_t i = 0; i < order_.prefixElems; ++i) {
    gnmi::PathElem& elem = *prefix.add_elem();
    elem.set_name(path_.elems[i].name);
    for (auto const& [name, text] : path_.elems[i].keys)
      (*elem.mutable_key())[name] = text;
  }
  prefix.set_origin(path_.origin);
  prefix.set_target(path_.target);

  std::vector<grpc::Slice> body = std::exchange(written_, {});
  std::ranges::move(updates_.take(), std::back_inserter(body));
  std::size_t size = head.ByteSizeLong();
  for (std::unique_ptr<Match>& match : matches_) {
    appendUpdate(*match, body);
    match.reset(); // what has been written need not be kept beside its text
  }
  for (grpc::Slice const& slice : body)
    size += slice.size();
  to.emplace_back(fieldHead(kNotification, size) + head.SerializeAsString());
  std::ranges::move(body, std::back_inserter(to));
}

void GetAnswer::addText(gnmi::Path const& path, JsonBuffer& text) {
  gnmi::Path relative;
  for (int i = static_cast<int>(order_.prefixElems); i < path.elem_size(); ++i)
    *relative.add_elem() = path.elem(i);
  bytes_ += text.size();
  std::string const head = textHead(relative, text.size());
  bytes_ += head.size();
  updates_ += head;
  if (text.isShort()) {
    updates_ += text.rest();
    text.clear();
  } else {
    std::ranges::move(updates_.take(), std::back_inserter(written_));
    std::ranges::move(text.take(), std::back_inserter(written_));
  }
}

void GetAnswer::appendUpdate(Match const& match, std::vector<grpc::Slice>& to) const {
  if (!match.tree) {
    gnmi::Update update;
    *update.mutable_path() = match.path;
    *update.mutable_val() = match.leaf;
    to.emplace_back(fieldHead(kUpdate, update.ByteSizeLong()) + update.SerializeAsString());
    return;
  }
  SliceWriter text;
  match.tree->write(text);
  to.emplace_back(textHead(match.path, text.size()));
  std::ranges::move(text.take(), std::back_inserter(to));
}

// What stands before the text of an update.
std::string GetAnswer::textHead(gnmi::Path const& path, std::size_t size) const {
  char const kind = order_.encoding == gnmi::JSON_IETF ? kJsonIetfVal : kJsonVal;
  std::string const value = fieldHead(kind, size);
  gnmi::Update update;
  *update.mutable_path() = path;
  std::string const head = update.SerializeAsString() + fieldHead(kUpdateVal, value.size() + size) + value;
  return fieldHead(kUpdate, head.size() + size) + head;
}

} // namespace Agent
