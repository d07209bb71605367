// A text and its count are one block. The table of interned texts holds no reference: they leave it with
// their last holder.
#include "Kel/String.h"

#include <absl/container/flat_hash_set.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>
#include <new>
#include <stdexcept>

#include "Kel/Allocator.h"
#include "Kel/Memory.h"
#include "Tovak/HashMix.h"

namespace Kel {
namespace Impl {
namespace {

std::uint64_t hashOf(std::string_view text) noexcept {
  std::uint64_t state = Tovak::Impl::HashMix::stateStart;
  Tovak::Impl::HashMix::mix(state, text.data(), text.size());
  return state;
}

std::string_view textOf(TextRep const* rep) noexcept { return {rep->chars(), rep->size}; }

struct RepHash {
  using is_transparent = void;
  std::size_t operator()(TextRep const* rep) const noexcept { return rep->hash(); }
  std::size_t operator()(std::string_view text) const noexcept { return hashOf(text); }
};
struct RepEqual {
  using is_transparent = void;
  bool operator()(TextRep const* a, TextRep const* b) const noexcept { return a == b; }
  bool operator()(TextRep const* a, std::string_view b) const noexcept { return textOf(a) == b; }
  bool operator()(std::string_view a, TextRep const* b) const noexcept { return a == textOf(b); }
};

// The interned texts. Holds no reference: a text leaves the table when its last String goes. Locked only
// where Strings may be dropped on several threads. Many small tables grow one by one: a large one would hold
// whoever makes it grow for milliseconds.
struct InternTable {
  using Reps = absl::flat_hash_set<TextRep*, RepHash, RepEqual, EndingAllocator<TextRep*>>;

  std::mutex mutex;
  std::array<Reps, 256> parts;

  // By bits that a part itself looks at last.
  Reps& partOf(std::uint64_t hash) { return parts[(hash >> 40) % parts.size()]; }
};

InternTable& table() {
  static auto* const instance = new InternTable; // outlives every static that holds a String
  return *instance;
}

std::unique_lock<std::mutex> lockIfShared(InternTable& interned) {
  return VFPtrInterface::threadSafePointers_ ? std::unique_lock(interned.mutex)
                                             : std::unique_lock<std::mutex>();
}

// Of the block that it lies in.
std::size_t beforeHeader(bool interned) noexcept { return interned ? sizeof(std::uint64_t) : 0; }

// With the NUL.
std::size_t charsOf(std::size_t size) noexcept { return std::max(size + 1, TextRep::kWord); }

TextRep* allocate(std::string_view text, bool interned) {
  if (text.size() > TextRep::kMaxSize) throw std::length_error("Kel::String");
  std::size_t const before = beforeHeader(interned);
  void* const block = kelMemAlloc(before + sizeof(TextRep) + charsOf(text.size()));
  auto* const rep =
      new (static_cast<char*>(block) + before) TextRep{{}, static_cast<std::uint32_t>(text.size()), interned};
  rep->refs.add();
  char* const chars = reinterpret_cast<char*>(rep + 1);
  std::memset(chars, 0, TextRep::kWord);
  std::memcpy(chars, text.data(), text.size());
  chars[text.size()] = '\0';
  return rep;
}

void release(TextRep* rep) noexcept {
  std::size_t const before = beforeHeader(rep->interned != 0);
  std::size_t const bytes = before + sizeof(TextRep) + charsOf(rep->size);
  std::destroy_at(rep);
  kelMemFree(reinterpret_cast<char*>(rep) - before, bytes);
}

} // namespace

TextRep* TextRep::make(std::string_view text) { return text.empty() ? nullptr : allocate(text, false); }

TextRep* TextRep::intern(std::string_view text) {
  if (text.empty()) return nullptr;
  InternTable& interned = table();
  auto const lock = lockIfShared(interned);
  std::uint64_t const hash = hashOf(text);
  InternTable::Reps& reps = interned.partOf(hash);
  auto const found = reps.find(text, hash);
  if (found != reps.end()) {
    TextRep* const there = *found;
    if (there->refs.addUnlessZero()) return there;
    reps.erase(found); // on its way out on another thread, which will not find it any more
  }
  TextRep* const rep = allocate(text, true);
  *(reinterpret_cast<std::uint64_t*>(rep) - 1) = hash;
  reps.insert(rep);
  return rep;
}

void TextRep::dispose(TextRep* rep) noexcept {
  if (rep->interned != 0) {
    InternTable& interned = table();
    auto const lock = lockIfShared(interned);
    InternTable::Reps& reps = interned.partOf(rep->hash());
    auto const found = reps.find(rep);
    if (found != reps.end()) reps.erase(found);
  }
  release(rep);
}

} // namespace Impl

String String::dedup() const { return isDedup() ? *this : dedup(view()); }

String String::merge(std::string_view tail) const {
  if (tail.empty()) return *this;
  std::string joined;
  joined.reserve(size() + tail.size());
  joined.append(view()).append(tail);
  return String(joined);
}

std::uint64_t String::hash() const noexcept {
  if (hold_.get() != nullptr && hold_.get()->interned != 0) return hold_.get()->hash();
  return Impl::hashOf(view());
}

} // namespace Kel
