// A configuration in a file, over a disk that fails, or loses power, at every single call: what was answered
// with success is there, what was refused is not, and what was on its way is whole or not there.
#include <gmock/gmock.h>

#include <fmt/format.h>

#include "StoreDisk.h"
#include "agent/store/ConfigJournal.h"

namespace {

using namespace Agent;
using AgentTesting::StoreDisk;
using Fault = StoreDisk::Fault;
using Kind = ConfigRecord::Kind;

constexpr std::size_t kFreeBytes = 300; // so that the file is written anew several times

// A run of Sets: what is written together, in order.
std::vector<std::vector<ConfigRecord>> runOf(std::uint64_t seed) {
  std::mt19937_64 random(seed);
  auto const below = [&random](std::size_t bound) { return random() % bound; };
  std::vector<std::vector<ConfigRecord>> run(14);
  for (auto& group : run) {
    for (std::size_t count = 1 + below(3); count > 0; --count) {
      ConfigRecord record{.kind = below(5) == 0 ? Kind::Provisional : Kind::Change};
      if (below(3) == 0) record.change.gone.push_back(fmt::format("list/{}/", below(4)));
      for (std::size_t values = below(4); values > 0; --values)
        record.change.values.emplace_back(fmt::format("list/{}/{}/", below(4), below(3)),
                                          std::string(below(60), static_cast<char>('a' + below(26))));
      bool const isConfirmed = record.kind == Kind::Provisional && below(2) == 0;
      group.push_back(std::move(record));
      if (isConfirmed) group.push_back({.kind = Kind::Confirm});
    }
  }
  return run;
}

// What a run comes to, by its definition.
struct Configuration {
  ConfigMap map;
  std::vector<ConfigChange> provisional; // one, or none

  void carryOut(std::vector<ConfigRecord> const& group) {
    for (ConfigRecord const& record : group) {
      ConfigChange change = record.change;
      if (record.kind == Kind::Change) std::move(change).applyTo(map);
      if (record.kind == Kind::Confirm && !provisional.empty()) std::move(provisional.front()).applyTo(map);
      provisional.clear();
      if (record.kind == Kind::Provisional) provisional.push_back(record.change);
    }
  }
};

struct Figures {
  int runs = 0, refused = 0, cut = 0, foundOld = 0, foundNew = 0, torn = 0, cutAgain = 0;
};

// One run with one fault, a loss of power, and the next start.
void oneFault(std::uint64_t seed, StoreDisk::Plan plan, Figures& figures, std::size_t* calls = nullptr) {
  SCOPED_TRACE(fmt::format("seed {}, fault {} with {} at call {}", seed, static_cast<int>(plan.fault),
                           plan.error, plan.at));
  StoreDisk disk(seed * 1000 + plan.at);
  disk.planIs(plan);
  ++figures.runs;
  Configuration old, fresh; // what has been answered; that and what may be there besides
  bool isNew = false;
  try {
    auto const files = disk.files();
    ConfigJournal journal(*files, kFreeBytes);
    if (!journal.open()) return;
    for (std::vector<ConfigRecord> const& group : runOf(seed)) {
      fresh = old;
      fresh.carryOut(group);
      isNew = true;
      std::vector<ConfigRecord> records = group;
      if (journal.write(records)) {
        old = fresh;
        ASSERT_EQ(journal.map(), old.map);
      } else {
        ++figures.refused;
        ASSERT_EQ(journal.map(), old.map);
        // Whatever comes later is not asked for: what was refused for good must not be there.
        if (plan.fault == Fault::FromThereOn) break;
      }
      isNew = false;
    }
  } catch (StoreDisk::Cut const&) {
    ++figures.cut;
  }
  if (calls != nullptr) *calls = disk.calls();
  disk.losePower();
  for (std::size_t at = 0;; ++at) { // the power goes at every call of the next start, too
    disk.planIs({at < 40 ? Fault::Cut : Fault::None, at});
    try {
      auto const files = disk.files();
      ConfigJournal journal(*files, kFreeBytes);
      auto const found = journal.open();
      ASSERT_TRUE(found.ok()) << found.error();
      if (isNew && journal.map() == fresh.map && fresh.map != old.map) {
        ++figures.foundNew;
      } else {
        ++figures.foundOld;
        ASSERT_EQ(journal.map(), old.map);
      }
      figures.torn += found->tornBytes > 0 ? 1 : 0;
      std::vector<ConfigRecord> more = {{.change = {{}, {{"more/", "x"}}}}};
      disk.planIs({});
      ASSERT_TRUE(journal.write(more).ok());
      break;
    } catch (StoreDisk::Cut const&) {
      ++figures.cutAgain;
      disk.losePower();
    }
  }
}

TEST(ConfigJournal, isWholeWhateverFailsWhenever) {
  Figures figures;
  for (std::uint64_t seed = 1; seed <= 6; ++seed) {
    std::size_t calls = 0;
    oneFault(seed, {}, figures, &calls);
    ASSERT_GT(calls, 40U);
    for (std::size_t at = 0; at < calls; ++at)
      for (auto const& [fault, error] : {std::pair(Fault::Once, ENOSPC), std::pair(Fault::Once, EIO),
                                         std::pair(Fault::FromThereOn, ENOSPC), std::pair(Fault::Cut, 0)})
        oneFault(seed, {fault, at, error}, figures);
    if (HasFatalFailure()) return;
  }
  RecordProperty("figures", fmt::format("{} runs, {} refused, {} cut, {} cut again, {} old, {} new, {} torn",
                                        figures.runs, figures.refused, figures.cut, figures.cutAgain,
                                        figures.foundOld, figures.foundNew, figures.torn));
  EXPECT_GT(figures.refused, 300);
  EXPECT_GT(figures.torn, 50);
  EXPECT_GT(figures.foundNew, 20);
}

// Frames are told from each other, and what is damaged from what was cut off.
TEST(ConfigJournal, whatIsDamagedIsNotRead) {
  StoreDisk disk;
  auto const start = [&disk]() -> std::string {
    auto const files = disk.files();
    ConfigJournal journal(*files);
    auto const found = journal.open();
    return !found
               ? found.error()
               : fmt::format("{} of {}, {} torn", journal.map().size(), journal.number(), found->tornBytes);
  };
  EXPECT_EQ(start(), "0 of 0, 0 torn");
  {
    auto const files = disk.files();
    ConfigJournal journal(*files);
    ASSERT_TRUE(journal.open().ok());
    for (char const* const place : {"a/", "b/", "c/"}) {
      std::vector<ConfigRecord> record = {{.change = {{}, {{place, "value"}}}}};
      ASSERT_TRUE(journal.write(record).ok());
    }
  }
  std::string const good = disk.content("configuration");
  EXPECT_EQ(start(), "3 of 3, 0 torn");
  std::string& content = disk.content("configuration");
  content[good.find("b/")] = 'x';
  EXPECT_THAT(start(), testing::HasSubstr("is damaged at byte "));
  content = good;
  content[good.find("c/")] = 'x'; // the last one: nobody can tell it from one that was being written
  EXPECT_EQ(start(), "2 of 2, 22 torn");
  EXPECT_EQ(start(), "2 of 2, 0 torn");
  disk.content("configuration") = "something else\n";
  EXPECT_THAT(start(), testing::HasSubstr("is no configuration"));
}

} // namespace
