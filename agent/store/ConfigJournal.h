// Agent::ConfigJournal: a configuration in a file that is whole at every moment.
//
// Invariants
// 1. The file `configuration` is a line that says what it is, then frames; the first one holds a record of
//    the whole configuration. Each frame was written and synced in one go. What has been answered with
//    success is in frames that were synced.
// 2. A frame that is not whole is the last one: it was being written when the power, or the process, went.
//    Nobody has been told of it. When a whole frame follows it, the file is damaged, and nothing is read.
// 3. What was refused is in no frame: the file is cut where the frame began, or written anew.
// 4. The file is replaced in one step (`rename`) by one that has been synced.
// 5. After a sync that failed nothing of the file is relied on, since the system may have dropped what it
//    could not write: the next write begins with a new file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "Kstd/Result.h"
#include "agent/store/ConfigRecord.h"
#include "agent/store/Files.h"

namespace Agent {

// One thread at a time; its calls block. The files outlive it.
class ConfigJournal {
public:
  static constexpr std::size_t kFreeBytes = 1U << 20;

  // What was found at the start.
  struct Found {
    bool isNew = false;            // there was no file
    std::size_t tornBytes = 0;     // of a frame that was cut off; the configuration is the one before it
    bool wasProvisional = false;   // a change that nobody has confirmed has been left out,
    ConfigChange unconfirmed = {}; // this one
  };

  // `freeBytes`: of changes, that may stand behind the whole before it is written anew.
  explicit ConfigJournal(Files& files, std::size_t freeBytes = kFreeBytes)
      : files_(files)
      , freeBytes_(freeBytes) {}
  ~ConfigJournal();
  ConfigJournal(ConfigJournal const&) = delete;
  ConfigJournal& operator=(ConfigJournal const&) = delete;

  // Reads the file, and cleans up behind a crash. Once, first. The error is a text.
  [[nodiscard]] Kstd::Result<Found, std::string> open();

  // Writes the records down and syncs them: all of them, or none and the `errno`. Numbers them. Changes
  // become what takes them back.
  [[nodiscard]] Files::OrErrno<void> write(std::span<ConfigRecord> records);

  [[nodiscard]] ConfigMap const& map() const noexcept { return map_; }
  [[nodiscard]] std::uint64_t number() const noexcept { return number_; }

private:
  [[nodiscard]] Kstd::Result<Found, std::string> read();
  void replay(ConfigRecord record);
  [[nodiscard]] Files::OrErrno<void> append(std::string_view frame);
  // A new file, with all that holds now.
  [[nodiscard]] Files::OrErrno<void> rewrite();
  [[nodiscard]] Files::OrErrno<void> writeAll(Files::File file, std::string_view bytes, std::uint64_t at);
  void fileIs(Files::File file, std::uint64_t size);

  Files& files_;
  std::size_t const freeBytes_;
  ConfigMap map_;
  std::optional<ConfigRecord> provisional_; // the last record is this
  std::uint64_t number_ = 0;                // of the last record
  std::optional<Files::File> file_;
  std::uint64_t size_ = 0;      // of the file, up to the last frame
  std::uint64_t wholeSize_ = 0; // when it was new
  bool isReliable_ = false;     // see 5
};

} // namespace Agent
