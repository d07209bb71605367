// Fields of messages as they lie in the bytes; the whole way's own rules say what may be written.
#include "agent/data/StatePlan.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <absl/container/inlined_vector.h>
#include <google/protobuf/io/coded_stream.h>

#include "Kstd/Utf8.h"
#include "agent/data/PathStates.h"
#include "agent/data/PlanRules.h"
#include "agent/encoding/LeafValue.h"
#include "agent/encoding/ResponseBlock.h"
#include "agent/encoding/WireFields.h"

namespace Agent {
namespace {

using google::protobuf::io::CodedOutputStream;

// Fields of gnmi.proto.
constexpr std::uint8_t field(unsigned number, WireFields::Type type = WireFields::kLength) {
  return WireFields::tagOf(number, type);
}
constexpr auto kRequestPrefix = field(1), kRequestUpdate = field(4);
constexpr auto kUpdatePath = field(1), kUpdateVal = field(3);
constexpr auto kPathOrigin = field(2), kPathElem = field(3);
constexpr auto kElemName = field(1), kElemKey = field(2);
constexpr auto kKeyName = field(1), kKeyValue = field(2);
constexpr auto kString = field(1), kInt = field(2, WireFields::kVarint),
               kUint = field(3, WireFields::kVarint), kBool = field(4, WireFields::kVarint);
constexpr auto kAnswerPrefix = field(1), kAnswerResult = field(2);
constexpr auto kResultPath = field(2), kResultOp = field(4, WireFields::kVarint);

// Two fields with a length, each there once, in their order, and none besides.
bool takePair(std::string_view bytes, std::uint8_t firstTag, std::string_view& first, std::uint8_t secondTag,
              std::string_view& second) {
  WireFields fields(bytes);
  if (!fields.next() || fields.tag() != firstTag) return false;
  first = fields.bytes();
  if (!fields.next() || fields.tag() != secondTag) return false;
  second = fields.bytes();
  return !fields.next() && fields.isWhole();
}

// An element of a path: its name, then its keys.
struct ElemView {
  std::string_view name;
  absl::InlinedVector<std::pair<std::string_view, std::string_view>, 2> keys;

  bool read(std::string_view bytes) {
    WireFields fields(bytes);
    if (!fields.next() || fields.tag() != kElemName) return false;
    name = fields.bytes();
    while (fields.next()) {
      auto& [key, value] = keys.emplace_back();
      if (fields.tag() != kElemKey || !takePair(fields.bytes(), kKeyName, key, kKeyValue, value) ||
          !Kstd::isUtf8(value))
        return false;
    }
    return fields.isWhole();
  }
};

// The children of places that names mean. Paths name the same ones again and again in one order: the next is
// mostly the one behind the last.
class Children {
public:
  // Null when there is none. Valid until the next one is asked for.
  TypeNode const* of(TypeNode const& above, std::string_view name) {
    for (std::size_t i = 0; i < known_.size(); ++i) {
      if (next_ == known_.size()) next_ = 0;
      Known const& one = known_[next_++];
      if (one.above == &above.type.desc() && one.name == name) return &one.child;
    }
    auto const child = above.child(name);
    if (!child) return nullptr;
    if (known_.size() == kMost) known_.clear();
    known_.push_back({&above.type.desc(), name, *child});
    next_ = known_.size();
    return &known_.back().child;
  }

private:
  static constexpr std::size_t kMost = 32;
  struct Known {
    Kel::TypeDesc const* above;
    std::string_view name;
    TypeNode child;
  };
  std::vector<Known> known_;
  std::size_t next_ = 0;
};

// The entry of a list that an element means, made if the plan does not have it. Null for what is none.
PlanNode* entryBelow(PlanNode& node, TypeNode const& list, ElemView const& elem) {
  if (elem.keys.size() > 1 || list.keyCount() > 1) {
    auto const key = keyOf({std::string(elem.name), {elem.keys.begin(), elem.keys.end()}}, list);
    return key && *key ? &node.childIs(list, **key) : nullptr;
  }
  auto const& [name, text] = elem.keys.front();
  if (name != list.keyName() || text == "*") return nullptr;
  if (PlanNode* const known = node.child(list.name, text)) return known;
  auto const key = keyTextOf(text, list, 0);
  if (!key || !textCheck(*leafInfo(list.key()), *key)) return nullptr;
  return *key == text ? &node.childNew(list, *key) : &node.childIs(list, *key);
}

// Whether a value is said by its type, rather than in JSON or in ways that are not offered.
bool isTyped(gnmi::TypedValue const& value) {
  auto const kind = value.value_case();
  return kind == gnmi::TypedValue::kDoubleVal ||
         (kind >= gnmi::TypedValue::kStringVal && kind <= gnmi::TypedValue::kLeaflistVal);
}

class Reader {
public:
  // What is answered of an update is shorter than the update.
  Reader(std::size_t size, Writer writer)
      : plan_(std::make_unique<SetPlan>())
      , answer_(size)
      , end_(answer_.data()) {
    plan_->root.writer = writer;
  }

  // False: the whole way knows.
  bool read(std::string_view request) {
    WireFields fields(request);
    int updates = 0;
    while (fields.next()) {
      bool const isPrefix = fields.tag() == kRequestPrefix && !hasPrefix_ && updates == 0;
      bool const isRead = isPrefix ? takePrefix(fields.bytes())
                                   : fields.tag() == kRequestUpdate && ++updates <= kMaxSetOperations &&
                                         update(fields.bytes());
      if (!isRead) return false;
    }
    return fields.isWhole() && updates > 0 && settle(*plan_).ok();
  }

  StatePlan take() {
    std::span const bytes(answer_.data(), end_);
    return {std::move(plan_), std::move(answer_).slice(bytes)};
  }

private:
  struct Step {
    std::string_view bytes;
    PlanNode* place;
  };

  bool takePrefix(std::string_view bytes) {
    gnmi::Path prefix;
    if (!prefix.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) return false;
    if (!frameCheck(prefix, gnmi::Path::default_instance()).ok()) return false;
    hasPrefix_ = true;
    prefixOrigin_ = prefix.origin();
    WireFields fields(bytes);
    while (fields.next())
      if (fields.tag() == kPathElem && !step(fields.bytes())) return false;
    prefixSteps_ = way_.size();
    put(kAnswerPrefix, bytes);
    return fields.isWhole();
  }

  bool update(std::string_view bytes) {
    std::string_view path;
    std::string_view val;
    if (!takePair(bytes, kUpdatePath, path, kUpdateVal, val)) return false;
    PlanNode* const leaf = placeOf(path);
    if (leaf == nullptr || leaf->type.leaf() == nullptr || !takeValue(val)) return false;
    answerIs(path);
    return writeLeaf(*leaf, value_).ok();
  }

  // What a path means. Its first elements are mostly those of the path before.
  PlanNode* placeOf(std::string_view path) {
    std::size_t depth = prefixSteps_;
    WireFields fields(path);
    while (fields.next()) {
      if (fields.tag() == kPathOrigin && isOriginTaken(fields.bytes())) continue;
      if (fields.tag() != kPathElem) return nullptr;
      if (depth == way_.size() || way_[depth].bytes != fields.bytes()) {
        leaveTo(depth);
        if (!step(fields.bytes())) return nullptr;
      }
      ++depth;
    }
    leaveTo(depth);
    return fields.isWhole() ? &last() : nullptr;
  }
  void leaveTo(std::size_t depth) {
    way_.erase(way_.begin() + static_cast<std::ptrdiff_t>(depth), way_.end());
  }
  bool step(std::string_view elem) {
    PlanNode* const place = way_.size() == kMaxPathElems ? nullptr : below(last(), elem);
    if (place != nullptr) way_.push_back({elem, place});
    return place != nullptr;
  }
  PlanNode* below(PlanNode& node, std::string_view bytes) {
    ElemView elem;
    if (node.type.leaf() != nullptr || !elem.read(bytes)) return nullptr;
    TypeNode const* const child = children_.of(node.type, elem.name);
    if (child == nullptr || child->isList() == elem.keys.empty()) return nullptr;
    return child->isList() ? entryBelow(node, *child, elem) : &node.childIs(*child);
  }
  PlanNode& last() { return way_.empty() ? plan_->root : *way_.back().place; }
  [[nodiscard]] bool isOriginTaken(std::string_view origin) const {
    return prefixOrigin_.empty() ? isOriginServed(origin) : origin == prefixOrigin_;
  }

  // Scalars are read here, other values as messages.
  bool takeValue(std::string_view bytes) {
    WireFields fields(bytes);
    bool const isOne = fields.next();
    if (isOne && fields.tag() == kUint)
      value_.set_uint_val(fields.number());
    else if (isOne && fields.tag() == kInt)
      value_.set_int_val(static_cast<std::int64_t>(fields.number()));
    else if (isOne && fields.tag() == kBool)
      value_.set_bool_val(fields.number() != 0);
    else if (isOne && fields.tag() == kString && Kstd::isUtf8(fields.bytes()))
      value_.set_string_val(fields.bytes().data(), fields.bytes().size());
    else
      return value_.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())) && isTyped(value_);
    return !fields.next() && fields.isWhole();
  }

  // The update of that path is done.
  void answerIs(std::string_view path) {
    std::uint8_t const op[] = {kResultOp, gnmi::UpdateResult::UPDATE};
    std::size_t const size = 1 + CodedOutputStream::VarintSize64(path.size()) + path.size() + sizeof op;
    putHead(kAnswerResult, size);
    put(kResultPath, path);
    end_ = std::copy(std::begin(op), std::end(op), end_);
  }
  void putHead(std::uint8_t tag, std::size_t size) {
    *end_++ = tag;
    end_ = CodedOutputStream::WriteVarint64ToArray(size, end_);
  }
  void put(std::uint8_t tag, std::string_view bytes) {
    putHead(tag, bytes.size());
    if (bytes.empty()) return; // which may have no address
    std::memcpy(end_, bytes.data(), bytes.size());
    end_ += bytes.size();
  }

  std::unique_ptr<SetPlan> plan_;
  ResponseBlock answer_;
  std::uint8_t* end_; // of what is in it
  bool hasPrefix_ = false;
  std::string prefixOrigin_;
  std::vector<Step> way_; // to the last place
  std::size_t prefixSteps_ = 0;
  Children children_;
  gnmi::TypedValue value_;
};

} // namespace

std::optional<StatePlan> statePlanOf(std::string_view request, Writer writer) {
  Reader reader(request.size(), writer);
  return reader.read(request) ? std::optional(reader.take()) : std::nullopt;
}

} // namespace Agent
