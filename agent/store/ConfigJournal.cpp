// Reading, with what a crash may have left; appending, with the way back; writing anew.
#include "agent/store/ConfigJournal.h"

#include <array>
#include <cerrno>
#include <fmt/format.h>
#include <system_error>
#include <utility>

namespace Agent {
namespace {

constexpr char const* kName = "configuration";
constexpr char const* kNewName = "configuration.new";
constexpr std::string_view kTitle = "ondra-agent configuration 1\n";
constexpr std::size_t kReadBytes = 1U << 16;

std::string textOf(int error) { return std::generic_category().message(error); }

Files::OrErrno<std::string> contentOf(Files& files, Files::File file) {
  std::string content;
  std::array<char, kReadBytes> some{};
  for (;;) {
    auto const got = files.read(file, some.data(), some.size(), content.size());
    if (!got) return Kstd::Err(got.error());
    if (*got == 0) return content;
    content.append(some.data(), *got);
  }
}

} // namespace

ConfigJournal::~ConfigJournal() {
  if (file_) files_.close(*file_);
}

// --- the start ---------------------------------------------------------------------------------------------

Kstd::Result<ConfigJournal::Found, std::string> ConfigJournal::open() {
  auto found = read();
  if (!found) return found;
  if (provisional_) {
    found->wasProvisional = true;
    found->unconfirmed = provisional_->change; // which the next record drops
  }
  bool const isClean = !found->isNew && found->tornBytes == 0;
  isReliable_ = isClean;
  if (isClean) return found;
  // A file that is there can be read at the next start, too; without one there is nowhere to write.
  if (auto const written = rewrite(); !written && found->isNew)
    return Kstd::Err(fmt::format("{}: {}", kNewName, textOf(written.error())));
  return found;
}

Kstd::Result<ConfigJournal::Found, std::string> ConfigJournal::read() {
  auto const failed = [](int error) { return Kstd::Err(fmt::format("{}: {}", kName, textOf(error))); };
  auto const file = files_.open(kName);
  if (!file && file.error() == ENOENT) return Found{.isNew = true};
  if (!file) return failed(file.error());
  file_ = *file;
  auto const content = contentOf(files_, *file_);
  if (!content) return failed(content.error());
  std::string_view rest = *content;
  if (!rest.starts_with(kTitle)) return Kstd::Err(fmt::format("{} is no configuration of this agent", kName));
  rest.remove_prefix(kTitle.size());
  auto const damaged = [&] {
    return Kstd::Err(
        fmt::format("{} is damaged at byte {}: put a copy in its place, or move it away to begin anew", kName,
                    content->size() - rest.size()));
  };
  bool isFirst = true;
  for (auto frame = frameAt(rest); frame; frame = frameAt(rest), isFirst = false) {
    for (std::string_view records = frame->records; !records.empty();) {
      auto record = ConfigRecord::takeFrom(records);
      if (!record || isFirst != (record->kind == ConfigRecord::Kind::Whole)) return damaged();
      replay(std::move(*record));
      isFirst = false;
    }
    rest.remove_prefix(frame->size);
    if (wholeSize_ == 0) wholeSize_ = content->size() - rest.size();
  }
  if (wholeSize_ == 0) return damaged();
  if (std::size_t const end = frameEnd(rest); end < rest.size() && frameAt(rest.substr(end)))
    return damaged();
  size_ = content->size() - rest.size();
  return Found{.tornBytes = rest.size()};
}

void ConfigJournal::replay(ConfigRecord record) {
  using Kind = ConfigRecord::Kind;
  number_ = record.number;
  if (record.kind == Kind::Provisional) {
    provisional_ = std::move(record);
    return;
  }
  if (record.kind == Kind::Confirm && provisional_) std::move(provisional_->change).applyTo(map_);
  std::move(record.change).applyTo(map_);
  provisional_.reset();
}

// --- writing -----------------------------------------------------------------------------------------------

Files::OrErrno<void> ConfigJournal::write(std::span<ConfigRecord> records) {
  if (!isReliable_) {
    if (auto const written = rewrite(); !written) return written;
  } else if (size_ > wholeSize_ * 2 + freeBytes_) {
    // It may fail for want of room; what there is does for now.
    if (auto const written = rewrite(); !written && !isReliable_) return written;
  }
  std::string bytes;
  std::uint64_t number = number_;
  for (ConfigRecord& record : records) {
    record.number = ++number;
    record.appendTo(bytes);
  }
  if (auto const appended = append(frameOf(bytes)); !appended) return appended;
  number_ = number;
  for (ConfigRecord& record : records) {
    switch (record.kind) {
    case ConfigRecord::Kind::Provisional:
      provisional_ = record;
      record.change = {};
      continue;
    case ConfigRecord::Kind::Confirm: {
      ConfigChange back;
      if (provisional_) back = std::move(provisional_->change).applyTo(map_);
      ConfigChange own = std::move(record.change).applyTo(map_);
      back.values.insert(back.values.begin(), own.values.begin(), own.values.end());
      back.gone.insert(back.gone.end(), own.gone.begin(), own.gone.end());
      record.change = std::move(back);
      break;
    }
    case ConfigRecord::Kind::Change:
    case ConfigRecord::Kind::Whole: record.change = std::move(record.change).applyTo(map_); break;
    }
    provisional_.reset();
  }
  return {};
}

Files::OrErrno<void> ConfigJournal::append(std::string_view frame) {
  auto const written = writeAll(*file_, frame, size_);
  if (!written) {
    isReliable_ = files_.truncate(*file_, size_).ok();
    return written;
  }
  auto const synced = files_.sync(*file_);
  if (synced) {
    size_ += frame.size();
    return synced;
  }
  // It may be there at the next start or not: best it is cut off, and for good.
  isReliable_ = false;
  static_cast<void>(files_.truncate(*file_, size_));
  static_cast<void>(rewrite());
  return synced;
}

Files::OrErrno<void> ConfigJournal::rewrite() {
  ConfigRecord whole{.kind = ConfigRecord::Kind::Whole, .number = number_};
  whole.change.values.assign(map_.begin(), map_.end());
  std::string records;
  whole.appendTo(records);
  if (provisional_) provisional_->appendTo(records);
  std::string bytes(kTitle);
  bytes += frameOf(records);
  auto const file = files_.create(kNewName);
  if (!file) return Kstd::Err(file.error());
  auto done = writeAll(*file, bytes, 0);
  if (done) done = files_.sync(*file);
  if (done) done = files_.rename(kNewName, kName);
  if (!done) {
    files_.close(*file);
    return done;
  }
  fileIs(*file, bytes.size());
  // Until the folder is synced, a loss of power may bring the old file back.
  done = files_.syncFolder();
  isReliable_ = done.ok();
  return done;
}

Files::OrErrno<void> ConfigJournal::writeAll(Files::File file, std::string_view bytes, std::uint64_t at) {
  while (!bytes.empty()) {
    auto const written = files_.write(file, bytes, at);
    if (!written) return Kstd::Err(written.error());
    if (*written == 0) return Kstd::Err(ENOSPC);
    bytes.remove_prefix(*written);
    at += *written;
  }
  return {};
}

void ConfigJournal::fileIs(Files::File file, std::uint64_t size) {
  if (file_) files_.close(*file_);
  file_ = file;
  size_ = wholeSize_ = size;
}

} // namespace Agent
