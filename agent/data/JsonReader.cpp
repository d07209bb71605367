// Every member is written with a comma behind it, which the bracket that closes takes the place of. What has
// no list below it is written in one go; everything else level by level.
#include "agent/data/JsonReader.h"

#include <cstdint>
#include <utility>

#include "Kstd/Utf8.h"
#include "Ondra/ScalarEncode.h"
#include "agent/data/GetAnswer.h"
#include "agent/data/ModelPlace.h"
#include "agent/encoding/LeafEncoding.h"
#include "agent/paths/EntryKey.h"

namespace Agent {

using Form = JsonMember::Form;

namespace {

constexpr std::size_t kNamesKept = 32;

template <class T>
T const& heldBy(void const* value) {
  return *static_cast<T const*>(value);
}

// Calls `take` with the integer.
template <class Take>
void withNumber(Kel::BuiltinKind kind, void const* value, Take const& take) {
  switch (kind) {
  case Kel::BuiltinKind::U8: return take(heldBy<std::uint8_t>(value));
  case Kel::BuiltinKind::S8: return take(heldBy<std::int8_t>(value));
  case Kel::BuiltinKind::U16: return take(heldBy<std::uint16_t>(value));
  case Kel::BuiltinKind::S16: return take(heldBy<std::int16_t>(value));
  case Kel::BuiltinKind::U32: return take(heldBy<std::uint32_t>(value));
  case Kel::BuiltinKind::S32: return take(heldBy<std::int32_t>(value));
  case Kel::BuiltinKind::U64: return take(heldBy<std::uint64_t>(value));
  case Kel::BuiltinKind::S64: return take(heldBy<std::int64_t>(value));
  case Kel::BuiltinKind::Bool:
  case Kel::BuiltinKind::Char:
  case Kel::BuiltinKind::Float:
  case Kel::BuiltinKind::Double:
  case Kel::BuiltinKind::String:
  case Kel::BuiltinKind::Bytes:
  case Kel::BuiltinKind::Seconds:
  case Kel::BuiltinKind::Time:
  case Kel::BuiltinKind::JsonString:
  case Kel::BuiltinKind::None: break;
  }
}

} // namespace

// --- level by level ----------------------------------------------------------------------------------------

void JsonReader::begin(Kel::Ptr<Kel::Entity const> object, std::vector<std::string> const& keys) {
  Open open = opened(nullptr, '{');
  if (!plan_.keys.empty() && !writeKeys(plan_, *object, keys, open)) return;
  descend(plan_, *object, open);
}

bool JsonReader::read(absl::FunctionRef<bool()> yields) {
  closeRemoved();
  while (!levels_.empty()) {
    step(levels_.back());
    if (!levels_.empty() && yields()) return false;
  }
  if (text_.size() > 0) text_.truncate(text_.size() - 1); // the last comma
  return true;
}

void JsonReader::closeRemoved() {
  for (std::size_t i = 0; i < levels_.size(); ++i) {
    if (!levels_[i].object->isOrphan()) continue;
    while (levels_.size() > i)
      ascend();
  }
}

void JsonReader::step(Level& level) {
  if (level.isInList) return nextEntry(level);
  if (level.at == level.plan->members.size()) return ascend();
  JsonMember const& member = level.plan->members[level.at];
  switch (member.form) {
  case Form::Text:
  case Form::Number:
  case Form::Bool:
  case Form::Name:
  case Form::Other: break;
  case Form::List:
    level.list = opened(&member, '[');
    level.entries = member.node.attr.genericIfIteratorConst(
        Kel::GenericIf::toObject(static_cast<Kel::PtrInterface const*>(level.object.get())));
    level.isInList = true;
    return;
  case Form::Container:
    if (member.below->isBounded) break;
    ++level.at;
    if (void const* const held = member.node.attr.valueAt(*level.object))
      descend(*member.below, *static_cast<Kel::PtrInterface const*>(held), opened(&member, '{'));
    return;
  }
  if (member.below)
    writeHeld(member, *level.object);
  else
    writeLeaf(member, *level.object);
  ++level.at;
}

void JsonReader::nextEntry(Level& level) {
  constexpr std::size_t kAhead = 2;
  JsonMember const& member = level.plan->members[level.at];
  if (!level.entries) {
    level.isInList = false;
    ++level.at;
    return close(level.list, ']');
  }
  if (auto const* const ahead = level.entries.objectAhead(kAhead)) __builtin_prefetch(ahead);
  JsonPlan const& plan = *member.below;
  Handle const entry = level.entries.ptr();
  std::vector<std::string> keys;
  if (!plan.hasPlainKey) keys = keyTexts(member.node.attr, *level.entries.key());
  ++level.entries;
  Kel::PtrInterface const* const object = entry ? entry->object() : nullptr;
  if (object == nullptr) return;
  Open open = opened(nullptr, '{');
  if (!writeKeys(plan, *object, keys, open)) return;
  if (!plan.isBounded) return descend(plan, *object, open);
  write(plan, *object, open);
  text_.settle();
}

void JsonReader::descend(JsonPlan const& plan, Kel::PtrInterface const& object, Open open) {
  levels_.push_back({.plan = &plan,
                     .object = Kel::Ptr<Kel::Entity const>(static_cast<Kel::Entity const*>(&object)),
                     .open = open,
                     .entries = {}});
}

void JsonReader::ascend() {
  Level const level = std::move(levels_.back());
  levels_.pop_back();
  if (level.isInList) close(level.list, ']');
  close(level.open, '}');
  text_.settle();
}

// --- objects in one go -------------------------------------------------------------------------------------

void JsonReader::write(JsonPlan const& plan, Kel::PtrInterface const& object, Open open) {
  for (JsonMember const& member : plan.members)
    if (member.below)
      writeHeld(member, object);
    else
      writeLeaf(member, object);
  close(open, '}');
}

void JsonReader::writeHeld(JsonMember const& member, Kel::PtrInterface const& object) {
  if (void const* const held = member.node.attr.valueAt(object))
    write(*member.below, *static_cast<Kel::PtrInterface const*>(held), opened(&member, '{'));
}

JsonReader::Open JsonReader::opened(JsonMember const* member, char bracket) {
  std::size_t const begin = text_.size();
  if (member != nullptr) put(member->head);
  text_.put(bracket);
  return {begin, text_.size(), member != nullptr && member->isToldEmpty};
}

void JsonReader::close(Open open, char bracket) {
  if (text_.size() != open.empty)
    text_.last() = bracket;
  else if (open.isToldEmpty)
    text_.put(bracket);
  else
    return text_.truncate(open.begin);
  text_.put(',');
}

// --- leaves ------------------------------------------------------------------------------------------------

bool JsonReader::writeKeys(JsonPlan const& plan, Kel::PtrInterface const& object,
                           std::vector<std::string> const& keys, Open& open) {
  for (std::size_t i = 0; i < plan.keys.size(); ++i) {
    JsonMember const& key = plan.keys[i];
    put(key.head);
    bool isText = true;
    if (plan.hasPlainKey) {
      isText = writeValue(key, key.node.attr.valueAt(object), object);
    } else {
      std::string text;
      appendKeyJson(text, keys[i], *key.node.leaf(), isIetf_);
      isText = Kstd::isUtf8(keys[i]);
      text_.put(text);
    }
    if (!isText) {
      text_.truncate(open.begin);
      return false;
    }
    text_.put(',');
    hasLeftOut_ = hasLeftOut_ || !key.isWanted;
  }
  if (!plan.isKeyWanted) open.empty = text_.size();
  return true;
}

void JsonReader::writeLeaf(JsonMember const& member, Kel::PtrInterface const& object) {
  bool const isRead = member.form != Form::Other;
  void const* const value = isRead ? member.node.attr.valueAt(object) : nullptr;
  if (isRead && value == nullptr) return;
  if (!member.isWanted && hasLeftOut_) return;
  std::size_t const begin = text_.size();
  put(member.head);
  if (!writeValue(member, value, object)) return text_.truncate(begin);
  if (!member.isWanted) {
    hasLeftOut_ = true;
    return text_.truncate(begin);
  }
  text_.put(',');
}

bool JsonReader::writeValue(JsonMember const& member, void const* value, Kel::PtrInterface const& object) {
  switch (member.form) {
  case Form::Text: {
    std::string_view const text = heldBy<Kel::String>(value).view();
    return !(member.isEntityName && text.empty()) && text_.putString(text);
  }
  case Form::Number:
    if (member.isQuoted) text_.put('"');
    withNumber(member.kind, value, [this](auto number) { text_.putNumber(number); });
    if (member.isQuoted) text_.put('"');
    return true;
  case Form::Bool: text_.put(heldBy<bool>(value) ? "true" : "false"); return true;
  case Form::Name: return writeName(member, value);
  case Form::Other: return writeOther(member, object);
  case Form::Container:
  case Form::List: break;
  }
  return false;
}

bool JsonReader::writeName(JsonMember const& member, void const* value) {
  std::int64_t number = 0;
  withNumber(member.kind, value, [&number](auto held) { number = static_cast<std::int64_t>(held); });
  for (auto const& [known, text] : member.names) {
    if (known != number) continue;
    text_.put(text);
    return true;
  }
  gnmi::TypedValue told;
  Handle const handle = Kel::GenericIf::copyOf(member.node.type.desc(), value);
  if (!Ondra::extractScalar(nullptr, handle, &told)) return false;
  std::string text;
  appendLeafJson(text, told, *member.node.leaf(), isIetf_);
  text_.put(text);
  if (member.names.size() < kNamesKept) member.names.emplace_back(number, std::move(text));
  return true;
}

bool JsonReader::writeOther(JsonMember const& member, Kel::PtrInterface const& object) {
  auto const told = valueOf(member.node, Kel::GenericIf::toObject(&object));
  if (!told) return false;
  std::string text;
  appendLeafJson(text, *told, *member.node.leaf(), isIetf_);
  text_.put(text);
  return true;
}

void JsonReader::put(JsonMember::Head const& head) {
  if (head.size <= JsonMember::Head::kShort) [[likely]]
    text_.putPadded(head.text, head.size);
  else
    text_.put(head.rest);
}

} // namespace Agent
