// Agent::OutQueue: what waits for one subscriber, bounded.
//
// Invariants
// 1. First in, first out, but for coalescing. For one path later is never older: a leaf is replaced in place only by a newer value, and
//    only when nothing that was queued after it can hold an older value or the leaf's end.
// 2. Below the bound, entries are shared messages. A change that would go beyond it is taken apart: its leaves are copied out, so that
//    nothing of it is pinned, and queued by path. Only these, since the last shared entry, are replaced (the open stretch).
// 3. The end of a path takes away what the open stretch holds at and below it, and is queued behind: what comes later goes after it.
// 4. A sync is a shared entry: nothing moves past it.
// 5. Beyond twice the bound (ends of ever new paths) everything is dropped, and the queue says so: its owner starts over.
// 6. Full is sticky: from the bound on, until half of it is left. Walks stop there, so only changes ever go beyond.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "agent/subscribe/Message.h"

namespace gnmi {
class Path;
class TypedValue;
} // namespace gnmi

namespace Agent {

// A plain value without a lock: whoever shares it between threads guards it.
class OutQueue {
public:
  // Of a walk (and whatever else is not to be coalesced), or of a change.
  enum class Kind : std::uint8_t { Walk, Change };
  enum class Pushed : std::uint8_t { Taken, Overflow };

  // `bound` in bytes.
  explicit OutQueue(std::size_t bound) : bound_(bound) {}
  OutQueue(OutQueue const&) = delete;
  OutQueue& operator=(OutQueue const&) = delete;

  // After Overflow nothing is queued, this message neither.
  [[nodiscard]] Pushed push(Message::Ptr const& message, Kind kind);
  // The next message; coalesced leaves of one time come together. Null when there is none.
  [[nodiscard]] Message::Ptr pop();
  // Drops everything. It counts as full until the next `pop`.
  void clear();

  [[nodiscard]] bool isFull() const noexcept { return full_; }
  // Whether it has stopped being full since the last question.
  [[nodiscard]] bool takeDrained() noexcept;
  // A sync was among what was dropped last.
  [[nodiscard]] bool hasDroppedSync() const noexcept { return droppedSync_; }
  [[nodiscard]] bool empty() const noexcept { return items_.empty(); }
  [[nodiscard]] std::size_t bytes() const noexcept { return bytes_; }

private:
  struct Item {
    Message::Ptr message; // or, when null, one leaf or the end of one path:
    std::shared_ptr<Frame const> frame = nullptr;
    std::string bytes = {}; // canonical, by which the open stretch knows it
    std::string path = {};  // internal, encoded
    std::string value = {}; // encoded
    std::int64_t timestamp = 0;
    std::uint32_t duplicates = 0;
    bool isDelete = false;
    bool isOpen = false;

    [[nodiscard]] std::size_t cost() const noexcept;
  };
  using Items = std::list<Item>;
  using Index = std::map<std::string_view, Items::iterator>; // by the bytes in the item

  void append(Item item);
  void takeApart(Message const& message);
  void putUpdate(Message const& message, gnmi::Path const& path, gnmi::TypedValue const& value,
                 std::uint32_t duplicates);
  void putDelete(Message const& message, gnmi::Path const& path);
  void dropAtOrBelow(Index& index, std::string_view bytes);
  void closeStretch();
  [[nodiscard]] Message::Ptr popRun();
  void popFront();

  std::size_t const bound_;
  Items items_;
  Index leaves_; // of the open stretch
  Index deletes_;
  std::size_t bytes_ = 0;
  bool full_ = false;
  bool drained_ = false;
  bool droppedSync_ = false;
};

} // namespace Agent
