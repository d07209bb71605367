// An Ir as bytes, without messages in between.
//
// Everything is written from its end to its beginning (WireWriter), hence the order of the statements: fields
// with higher numbers first, the length and tag of a message after its fields.
#include "Ondra/responses/IrToWire.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <algorithm>
#include <array>
#include <bit>
#include <boost/container/small_vector.hpp>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "Ondra/ArenaRespMsg.h"
#include "Ondra/ScalarEncode.h"
#include "Ondra/responses/IrToResp.h"
#include "Ondra/responses/WireWriter.h"
#include "Ondra/rules/ScalarValue.h"
#include "Tovak/Assert.h"
#include "Tovak/Trace.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra {
namespace {

using enum WireType;
constexpr std::uint8_t kResponseUpdate = wireTag(gnmi::SubscribeResponse::kUpdateFieldNumber, Length);
constexpr std::uint8_t kTimestamp = wireTag(gnmi::Notification::kTimestampFieldNumber, Varint);
constexpr std::uint8_t kPrefix = wireTag(gnmi::Notification::kPrefixFieldNumber, Length);
constexpr std::uint8_t kUpdate = wireTag(gnmi::Notification::kUpdateFieldNumber, Length);
constexpr std::uint8_t kDelete = wireTag(gnmi::Notification::kDeleteFieldNumber, Length);
constexpr std::uint8_t kUpdatePath = wireTag(gnmi::Update::kPathFieldNumber, Length);
constexpr std::uint8_t kUpdateVal = wireTag(gnmi::Update::kValFieldNumber, Length);
constexpr std::uint8_t kElem = wireTag(gnmi::Path::kElemFieldNumber, Length);
constexpr std::uint8_t kElemName = wireTag(gnmi::PathElem::kNameFieldNumber, Length);
constexpr std::uint8_t kElemKey = wireTag(gnmi::PathElem::kKeyFieldNumber, Length);
constexpr std::uint8_t kEntryKey = wireTag(1, Length); // of every map
constexpr std::uint8_t kEntryValue = wireTag(2, Length);
constexpr std::uint8_t kArrayElement = wireTag(gnmi::ScalarArray::kElementFieldNumber, Length);
constexpr std::uint8_t kLeafList = wireTag(gnmi::TypedValue::kLeaflistValFieldNumber, Length);

WireWriter& sharedWriter() {
  static auto* const writer = new WireWriter();
  return *writer;
}

Tovak::DebugHandler& debugHandler() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("OndraIr", false);
  return handler;
}

template <class Out> // a WireWriter, a WireRun
class WireSink {
public:
  explicit WireSink(Out& out) noexcept : out_(out) {}
  [[gnu::always_inline]] void uintVal(std::uint64_t value) {
    out_.varintField(wireTag(gnmi::TypedValue::kUintValFieldNumber, Varint), value);
  }
  [[gnu::always_inline]] void intVal(std::int64_t value) {
    out_.varintField(wireTag(gnmi::TypedValue::kIntValFieldNumber, Varint),
                     static_cast<std::uint64_t>(value));
  }
  [[gnu::always_inline]] void boolVal(bool value) {
    out_.varintField(wireTag(gnmi::TypedValue::kBoolValFieldNumber, Varint), value ? 1 : 0);
  }
  [[gnu::always_inline]] void doubleVal(double value) {
    out_.fixed64Field(wireTag(gnmi::TypedValue::kDoubleValFieldNumber, Fixed64),
                      std::bit_cast<std::uint64_t>(value));
  }
  [[gnu::always_inline]] void stringVal(std::string_view text) {
    out_.textField(wireTag(gnmi::TypedValue::kStringValFieldNumber, Length), text);
  }
  [[gnu::always_inline]] void bytesVal(std::string_view bytes) {
    out_.textField(wireTag(gnmi::TypedValue::kBytesValFieldNumber, Length), bytes);
  }
  [[gnu::always_inline]] void jsonVal(std::string_view text) {
    out_.textField(wireTag(gnmi::TypedValue::kJsonValFieldNumber, Length), text);
  }

private:
  Out& out_;
};

// Where values have been written, the last one first: `at` is what there was in the writer then.
using Values = boost::container::small_vector<WirePrefix::Value, 8>;

void putEntry(WireWriter& out, std::string_view key, std::string_view value, Values* values) {
  std::size_t const before = out.size();
  out.raw(value);
  if (values != nullptr) values->push_back({out.size(), value.size()});
  out.varint(value.size());
  out.tag(kEntryValue);
  out.textField(kEntryKey, key);
  out.enclose(kElemKey, before);
}

void putKeys(WireWriter& out, PathElem const& elem, Values* values) {
  auto const& keys = elem.key();
  if (keys.size() == 1) [[likely]]
    return putEntry(out, keys.begin()->key.view(), keys.begin()->value.view(), values);
  boost::container::small_vector<std::pair<std::string_view, std::string_view>, 8> sorted;
  for (auto const& [key, value] : keys)
    sorted.emplace_back(key.view(), value.view());
  std::sort(sorted.begin(), sorted.end(), std::greater<>());
  for (auto const& [key, value] : sorted)
    putEntry(out, key, value, values);
}

void putElems(WireWriter& out, std::span<Path::ElemPtr const> elems, Values* values = nullptr) {
  for (std::size_t i = elems.size(); i-- > 0;) {
    std::size_t const beforeElem = out.size();
    if (!elems[i]->key().empty()) putKeys(out, *elems[i], values);
    if (std::string_view const name = elems[i]->name().view(); !name.empty()) [[likely]]
      out.textField(kElemName, name);
    out.enclose(kElem, beforeElem);
  }
}

void putPath(WireWriter& out, std::uint8_t key, Path const& path) {
  std::size_t const before = out.size();
  putElems(out, path.elems());
  out.enclose(key, before);
}

std::string_view asText(std::span<std::uint8_t const> bytes) {
  return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

// Puts the elements, and returns them.
WirePrefix putPrefix(WireWriter& out, std::span<Path::ElemPtr const> elems) {
  std::size_t const before = out.size();
  Values values;
  putElems(out, elems, &values);
  std::ranges::reverse(values);
  for (WirePrefix::Value& value : values)
    value.at = out.size() - value.at;
  return {asText(out.bytes().first(out.size() - before)), {values.data(), values.size()}};
}

// The elements of a prefix that is asked for again and again.
void putElems(WireWriter& out, PlainNode const& node) {
  std::size_t below = 0;
  WireRun run(out);
  for (WirePlace const* place = &node.place; place->above != nullptr; place = place->above, ++below)
    run.raw(place->elem->view());
  WirePrefix& kept = node.place.kept;
  if (kept.isMade()) [[likely]] { // the path itself is not read, which may be cold
    kept.putInto(run);
    return run.finish();
  }
  run.finish();
  kept = putPrefix(out, node.prefix->elems().first(node.prefix->elemSize() - below));
}

// The path of a leaf that all objects of a type share.
[[gnu::noinline]] void makeLeafPath(WireWriter& out, WalkRules::AttrPlan const& plan) {
  std::size_t const before = out.size();
  putPath(out, kUpdatePath, *plan.leafPath);
  WalkRules::WireLeafPath& made = plan.wireLeafPath;
  if (std::size_t const size = out.size() - before; size <= made.bytes.size()) {
    std::copy_n(out.bytes().begin(), size, made.bytes.end() - static_cast<std::ptrdiff_t>(size));
    made.size = static_cast<std::uint8_t>(size);
  }
}

[[gnu::always_inline]] inline void putLeafPath(WireRun& run, WireWriter& out,
                                               WalkRules::AttrPlan const& plan) {
  if (auto const& made = plan.wireLeafPath; made.size > 0) [[likely]]
    return run.tailOf(made.bytes, made.size);
  run.finish();
  makeLeafPath(out, plan);
  run.resume();
}

void putLeafPath(WireWriter& out, Path const& path) {
  // One that nobody else holds is of no plan.
  auto const* const plan = path.refCount() > 1 ? WalkRules::planWithLeafPath(path) : nullptr;
  if (plan == nullptr)
    putPath(out, kUpdatePath, path);
  else if (auto const& made = plan->wireLeafPath; made.size > 0)
    out.tailOf(made.bytes, made.size);
  else
    makeLeafPath(out, *plan);
}

// Values: false when no message can hold one.
bool putLeafList(WireWriter& out, IrLeaf::LeafList const& values) {
  std::size_t const before = out.size();
  WireSink sink(out);
  for (auto value = values.rbegin(); value != values.rend(); ++value) {
    TOVAK_ASSERT(isScalarType((*value)->type()), debugHandler(), "only scalar array types are supported");
    std::size_t const beforeElement = out.size();
    if (!tellScalar(*value, sink)) return false;
    out.enclose(kArrayElement, beforeElement);
  }
  out.enclose(kLeafList, before);
  return true;
}

[[gnu::always_inline]] inline bool putPlainValue(WireRun& run, WireWriter& out, PlainLeaf const& leaf) {
  if (leaf.plan->valueKind != Kel::BuiltinKind::None) [[likely]] {
    WireSink sink(run);
    return Impl::tellBuiltin(leaf.plan->valueKind, leaf.value, sink);
  }
  run.finish();
  WireSink sink(out);
  bool const isTold = tellScalar(*leaf.type, leaf.value, sink);
  run.resume();
  return isTold;
}

bool putValue(WireWriter& out, IrLeaf const& leaf) {
  auto const* const value = std::get_if<IrLeaf::Handle>(&leaf.value);
  if (value == nullptr) [[unlikely]]
    return putLeafList(out, std::get<IrLeaf::LeafList>(leaf.value));
  TOVAK_ASSERT(isScalarType((*value)->type()), debugHandler(), "unsupported type");
  WireSink sink(out);
  return tellScalar(*value, sink);
}

// An update, or nothing when no message can hold its value.
bool putUpdate(WireWriter& out, IrLeaf const& leaf) {
  std::size_t const before = out.size();
  if (!putValue(out, leaf)) [[unlikely]] {
    out.cutTo(before);
    return false;
  }
  out.enclose(kUpdateVal, before);
  putLeafPath(out, *leaf.leafPath);
  out.enclose(kUpdate, before);
  return true;
}

// The entries of maps in the order of their keys.
std::string serialized(google::protobuf::MessageLite const& message) {
  std::string bytes;
  google::protobuf::io::StringOutputStream stream(&bytes);
  google::protobuf::io::CodedOutputStream coded(&stream);
  coded.SetSerializationDeterministic(true);
  message.SerializeToCodedStream(&coded);
  coded.Trim();
  return bytes;
}

bool isDelete(IrLeaf const& leaf) {
  auto const* const value = std::get_if<IrLeaf::Handle>(&leaf.value);
  return value != nullptr && !*value;
}

} // namespace

Kel::Bytes wireElems(Path const& path) {
  WireWriter& out = sharedWriter();
  out.clear();
  putElems(out, path.elems());
  return Kel::Bytes(asText(out.bytes()));
}

void WireEncoder::encodeNode(long timestamp, Kel::Ptr<Path const> const& prefix, IrNode const& node) {
  constexpr auto kLeaves = static_cast<std::ptrdiff_t>(RespEncoder::kLeavesPerResponse);
  auto first = node.leaves.begin();
  for (; node.leaves.end() - first >= kLeaves; first += kLeaves)
    encodeResponse(timestamp, prefix, first, first + kLeaves);
  encodeResponse(timestamp, prefix, first, node.leaves.end());
}

void WireEncoder::encodeResponse(long timestamp, Kel::Ptr<Path const> const& prefix,
                                 Leaves::const_iterator first, Leaves::const_iterator last) {
  WireWriter& out = sharedWriter();
  out.clear();
  std::uint32_t leftOut = 0;
  std::uint32_t deletes = 0;
  for (auto leaf = last; leaf != first;) {
    if (isDelete(*--leaf)) [[unlikely]] {
      putPath(out, kDelete, *leaf->leafPath);
      ++deletes;
    }
  }
  for (auto leaf = last; leaf != first;) {
    if (--leaf; deletes > 0 && isDelete(*leaf)) continue;
    if (!putUpdate(out, *leaf)) [[unlikely]] {
      leaveOut(timestamp, prefix, leaf->leafPath);
      ++leftOut;
    }
  }
  std::size_t const changes = out.size();
  putElems(out, prefix->elems());
  auto const leaves = static_cast<std::uint32_t>(last - first);
  finish(timestamp, ResponsePath(prefix), out.size() - changes, changes, leaves - deletes - leftOut, deletes);
}

void WireEncoder::encodeNode(PlainNode const& node) {
  WireWriter& out = sharedWriter();
  out.clear();
  auto updates = static_cast<std::uint32_t>(node.leaves.size());
  WireRun run(out);
  for (auto leaf = node.leaves.rbegin(); leaf != node.leaves.rend(); ++leaf) {
    std::size_t const before = run.size();
    if (!putPlainValue(run, out, *leaf)) [[unlikely]] {
      leaveOut(node.timestamp, node.prefix.get(), leaf->plan->leafPath);
      --updates;
      continue;
    }
    run.enclose(kUpdateVal, before);
    putLeafPath(run, out, *leaf->plan);
    run.enclose(kUpdate, before);
  }
  run.finish();
  std::size_t const changes = out.size();
  putElems(out, node);
  finish(node.timestamp, node.prefix, out.size() - changes, changes, updates, 0);
}

// What comes before the changes and the elements of the prefix.
void WireEncoder::finish(long timestamp, ResponsePath const& prefix, std::size_t prefixSize,
                         std::size_t changes, std::uint32_t updates, std::uint32_t deletes) {
  WireWriter& out = sharedWriter();
  out.enclose(kPrefix, changes);
  if (timestamp != 0) out.varintField(kTimestamp, static_cast<std::uint64_t>(timestamp));
  out.enclose(kResponseUpdate, 0);
  auto const bytes = out.bytes();
  response({timestamp, prefix, updates, deletes, bytes, bytes.last(changes + prefixSize).first(prefixSize),
            bytes.last(changes)});
}

// With a writer of its own: a router that is given bytes may be changing the model, which sends a delete.
bool ByteRouter::push(SyncId syncId, WalkId walkId, std::shared_ptr<ArenaRespMsg>& response) {
  WireWriter out;
  gnmi::Notification const& update = response->response->update();
  for (int i = update.delete__size(); i-- > 0;)
    out.textField(kDelete, serialized(update.delete_(i)));
  for (int i = update.update_size(); i-- > 0;)
    out.textField(kUpdate, serialized(update.update(i)));
  std::size_t const changes = out.size();
  Kel::Ptr<Path const> const prefix = Path::gnmiPathIs(update.prefix());
  putElems(out, prefix->elems());
  std::size_t const prefixSize = out.size() - changes;
  out.enclose(kPrefix, changes);
  if (update.timestamp() != 0) out.varintField(kTimestamp, static_cast<std::uint64_t>(update.timestamp()));
  out.enclose(kResponseUpdate, 0);
  return pushBytes(syncId, walkId,
                   {update.timestamp(), ResponsePath(prefix),
                    static_cast<std::uint32_t>(update.update_size()),
                    static_cast<std::uint32_t>(update.delete__size()), out.bytes(),
                    out.bytes().last(changes + prefixSize).first(prefixSize), out.bytes().last(changes)});
}

} // namespace Ondra
