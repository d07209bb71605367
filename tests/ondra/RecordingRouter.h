// A router for tests: keeps what it is given as texts and applies it to a plain map, as a subscriber does.
#pragma once

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "Ondra/ArenaRespMsg.h"
#include "Ondra/ByteRouter.h"
#include "Ondra/CompactText.h"
#include "Ondra/WalkTask.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"
#include "ondra/heap_faults.h"

// Takes bytes, checks them, and hands on the message that they are.
class ParsingRouter final : public Ondra::ByteRouter {
public:
  explicit ParsingRouter(Ondra::BaseRouter& to) : to_(to) {}

  bool pushBytes(Ondra::SyncId syncId, Ondra::WalkId walkId, Ondra::WireResponse const& response) override {
    HeapFaults::Off const reliable;
    auto message = std::make_shared<Ondra::ArenaRespMsg>();
    EXPECT_TRUE(
        message->response->ParseFromArray(response.bytes.data(), static_cast<int>(response.bytes.size())));
    EXPECT_EQ(serialized(*message->response), std::string(response.bytes.begin(), response.bytes.end()));
    gnmi::Notification const& update = message->response->update();
    EXPECT_EQ(response.timestamp, update.timestamp());
    EXPECT_TRUE(response.prefix->isEqual(Ondra::Path::gnmiPathIs(update.prefix())));
    EXPECT_EQ(response.updates, static_cast<std::uint32_t>(update.update_size()));
    EXPECT_EQ(response.deletes, static_cast<std::uint32_t>(update.delete__size()));
    gnmi::Notification changes;
    EXPECT_TRUE(changes.ParseFromArray(response.changes.data(), static_cast<int>(response.changes.size())));
    EXPECT_FALSE(changes.has_prefix());
    EXPECT_EQ(serialized(update.prefix()),
              std::string(response.prefixElems.begin(), response.prefixElems.end()));
    EXPECT_EQ(changes.update_size() + changes.delete__size(), update.update_size() + update.delete__size());
    return to_.push(syncId, walkId, message);
  }

  // The bytes with the entries of maps in the order of their keys.
  static std::string serialized(google::protobuf::MessageLite const& message) {
    std::string bytes;
    google::protobuf::io::StringOutputStream stream(&bytes);
    {
      google::protobuf::io::CodedOutputStream coded(&stream);
      coded.SetSerializationDeterministic(true);
      message.SerializeToCodedStream(&coded);
    }
    return bytes;
  }

private:
  Ondra::BaseRouter& to_;
};

// Takes messages; bytes when the environment says ONDRA_TEST_ROAD=bytes.
class RecordingRouter : public Ondra::BaseRouter {
public:
  // Path text to value text, e.g. "/a/b[k=1]/c" to "uint_val:5".
  using Leaves = std::map<std::string, std::string>;

  // Every n-th push finds the pipe full; 0: none does.
  explicit RecordingRouter(std::size_t refuseEvery = 0) : refuseEvery_(refuseEvery) {}

  bool push(Ondra::SyncId syncId, Ondra::WalkId walkId, std::shared_ptr<Ondra::ArenaRespMsg>& resp) override {
    HeapFaults::Off const reliable;
    if (keepTexts) texts.push_back(fmt::format("{}:{} {}", syncId, walkId, resp->toString()));
    ++pushes_;
    if (checksParsing && !gnmi::SubscribeResponse().ParseFromString(resp->response->SerializeAsString()))
      complaints.push_back("what is sent cannot be parsed");
    apply(resp->response->update());
    if (afterPush) afterPush();
    return refuseEvery_ == 0 || pushes_ % refuseEvery_ != 0;
  }

  Ondra::ByteRouter* byteRouter() override {
    static char const* const road = std::getenv("ONDRA_TEST_ROAD");
    return road != nullptr && std::string_view(road) == "bytes" ? &bytes_ : nullptr;
  }

  [[nodiscard]] Leaves leaves() const {
    Leaves out;
    for (auto const& [key, leaf] : tree_)
      out[text(key)] = leaf.value;
    return out;
  }
  // "path: mine -> theirs" for each leaf that differs, "nothing" for one that is not there.
  [[nodiscard]] std::vector<std::string> differences(RecordingRouter const& other) const {
    std::vector<std::string> out;
    Leaves const mine = leaves(), theirs = other.leaves();
    auto const in = [](Leaves const& leaves, std::string const& path) {
      auto const found = leaves.find(path);
      return found == leaves.end() ? "nothing" : found->second;
    };
    Leaves both = mine;
    both.insert(theirs.begin(), theirs.end());
    for (auto const& [path, value] : both)
      if (in(mine, path) != in(theirs, path))
        out.push_back(fmt::format("{}: {} -> {}", path, in(mine, path), in(theirs, path)));
    return out;
  }
  [[nodiscard]] bool hasSameLeaves(RecordingRouter const& other) const { return tree_ == other.tree_; }
  // The paths at which there is a leaf as well as something below it.
  [[nodiscard]] std::vector<std::string> leavesThatHoldLeaves() const {
    std::vector<std::string> out;
    for (auto at = tree_.begin(); at != tree_.end(); ++at) {
      auto const next = std::next(at);
      if (next != tree_.end() && isPrefix(at->first, next->first)) out.push_back(text(at->first));
    }
    return out;
  }
  // Forgets everything.
  void clear() {
    tree_.clear(), stamps_.clear(), deletes_.clear(), texts.clear(), complaints.clear();
    pushes_ = updates_ = 0;
  }
  [[nodiscard]] std::size_t pushes() const { return pushes_; }
  [[nodiscard]] std::size_t updates() const { return updates_; } // leaves sent, in all pushes

  bool keepTexts = true;
  std::vector<std::string> texts;      // "<sync id>:<walk id> <compact text>" of each push
  std::vector<std::string> complaints; // about timestamps that went back, and whatever else is checked
  bool checksParsing = false;          // that the parser takes what is sent
  bool takesLeavesOnce = false;        // that no leaf is sent twice
  std::function<void()> afterPush;

private:
  ParsingRouter bytes_{*this};
  struct Elem {
    std::string name;
    std::map<std::string, std::string> keys;
    auto operator<=>(Elem const&) const = default;
  };
  using Key = std::vector<Elem>;
  struct Leaf {
    std::string value;
    std::int64_t time = 0;
    friend bool operator==(Leaf const& a, Leaf const& b) { return a.value == b.value; }
  };

  static Key keyOf(gnmi::Path const& prefix, gnmi::Path const& path) {
    Key key;
    for (gnmi::Path const* const part : {&prefix, &path})
      for (gnmi::PathElem const& elem : part->elem())
        key.push_back(Elem{elem.name(), {elem.key().begin(), elem.key().end()}});
    return key;
  }
  static std::string text(Key const& key) {
    std::string out;
    for (Elem const& elem : key) {
      out += "/" + elem.name;
      for (auto const& [name, value] : elem.keys)
        out += fmt::format("[{}={}]", name, value);
    }
    return out;
  }
  static bool isPrefix(Key const& top, Key const& key) {
    return top.size() < key.size() && std::equal(top.begin(), top.end(), key.begin());
  }
  // An element of `top` without keys stands for any keys.
  static bool isBelow(Key const& top, Key const& key) {
    if (top.size() > key.size()) return false;
    for (std::size_t i = 0; i < top.size(); ++i)
      if (top[i].name != key[i].name || (!top[i].keys.empty() && top[i].keys != key[i].keys)) return false;
    return true;
  }

  // The deletes of a notification come before its updates.
  void apply(gnmi::Notification const& notification) {
    for (gnmi::Path const& path : notification.delete_())
      remove(keyOf(notification.prefix(), path), notification.timestamp());
    for (gnmi::Update const& update : notification.update()) {
      write(keyOf(notification.prefix(), update.path()), Ondra::typedValueToCompactString(update.val()),
            notification.timestamp());
    }
  }
  void remove(Key const& top, std::int64_t time) {
    for (auto at = tree_.begin(); at != tree_.end();) {
      if (!isBelow(top, at->first)) {
        ++at;
        continue;
      }
      if (at->second.time >= time) {
        complaints.push_back(fmt::format("delete of {} at {} is not later than {} at {}", text(top), time,
                                         text(at->first), at->second.time));
      }
      at = tree_.erase(at);
    }
    deletes_[top] = time;
  }
  void write(Key const& key, std::string value, std::int64_t time) {
    ++updates_;
    std::int64_t& last = stamps_[key];
    if (time < last)
      complaints.push_back(fmt::format("update of {} goes back from {} to {}", text(key), last, time));
    last = time;
    Key top;
    for (Elem const& elem : key) {
      top.push_back(elem);
      auto const found = deletes_.find(top);
      if (found != deletes_.end() && found->second > time) {
        complaints.push_back(fmt::format("update of {} at {} is earlier than the delete of {} at {}",
                                         text(key), time, text(top), found->second));
      }
    }
    if (takesLeavesOnce && tree_.contains(key)) complaints.push_back("sent twice: " + text(key));
    tree_[key] = Leaf{std::move(value), time};
  }

  std::size_t refuseEvery_;
  std::size_t pushes_ = 0;
  std::size_t updates_ = 0;
  std::map<Key, Leaf> tree_;
  std::map<Key, std::int64_t> stamps_;
  std::map<Key, std::int64_t> deletes_;
};
