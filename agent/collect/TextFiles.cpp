// Whole files into one buffer, long ones by lines, folders by names. No read waits for a pipe; a line that is
// too long is left out.
#include "agent/collect/TextFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "agent/collect/ProcText.h"
#include "agent/collect/Utf8.h"

namespace Agent {
namespace {

int openFile(std::string const& path) {
  // A pipe or device in the place of a file must not hold the thread.
  return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

ssize_t readSome(int fd, char* to, std::size_t size) {
  ssize_t got = 0;
  do {
    got = ::read(fd, to, size);
  } while (got < 0 && errno == EINTR);
  return got;
}

} // namespace

std::string TextRoot::path(std::string_view below) const {
  std::string whole = root_;
  whole += '/';
  whole += below;
  return whole;
}

bool TextRoot::exists(std::string_view below) const { return ::access(path(below).c_str(), F_OK) == 0; }

std::optional<std::string_view> TextRoot::text(std::string_view below) {
  int const fd = openFile(path(below));
  if (fd < 0) return std::nullopt;
  std::size_t filled = 0;
  ssize_t got = 0;
  do {
    if (buffer_.size() - filled < 4096) buffer_.resize(buffer_.size() + 16384);
    got = readSome(fd, buffer_.data() + filled, buffer_.size() - filled);
    if (got > 0) filled += static_cast<std::size_t>(got);
  } while (got > 0 && filled < kMaxBytes);
  ::close(fd);
  if (got < 0) return std::nullopt;
  utf8Is(std::span(buffer_).first(filled));
  return std::string_view(buffer_).substr(0, filled);
}

std::optional<std::string> TextRoot::value(std::string_view below) {
  auto const all = text(below);
  if (!all || trimmed(*all).empty()) return std::nullopt;
  return std::string(trimmed(*all));
}

std::optional<std::uint64_t> TextRoot::number(std::string_view below) {
  auto const all = text(below);
  return all ? numberOf(trimmed(*all)) : std::nullopt;
}

bool LineReader::open(std::string const& path) {
  close();
  fd_ = openFile(path);
  if (!buffer_) buffer_ = std::make_unique<char[]>(kBytes);
  begin_ = end_ = 0;
  skipping_ = false;
  return fd_ >= 0;
}

void LineReader::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

bool LineReader::fill() {
  if (fd_ < 0) return false;
  std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
  if (end_ == kBytes) {
    end_ = 0;
    skipping_ = true;
  }
  ssize_t const got = readSome(fd_, buffer_.get() + end_, kBytes - end_);
  if (got > 0) end_ += static_cast<std::size_t>(got);
  return got > 0;
}

bool LineReader::next(std::string_view& line) {
  for (;;) {
    std::string_view const rest(buffer_.get() + begin_, end_ - begin_);
    if (std::size_t const at = rest.find('\n'); at != std::string_view::npos) {
      utf8Is({buffer_.get() + begin_, at});
      begin_ += at + 1;
      if (!std::exchange(skipping_, false)) {
        line = rest.substr(0, at);
        return true;
      }
    } else if (!fill()) {
      close();
      utf8Is({buffer_.get() + begin_, end_ - begin_});
      line = std::string_view(buffer_.get() + begin_, end_ - begin_); // a last line without an end
      begin_ = end_;
      return !line.empty() && !skipping_;
    }
  }
}

bool FolderReader::open(std::string const& path) {
  dir_.reset(::opendir(path.c_str()));
  return dir_ != nullptr;
}

bool FolderReader::next(std::string_view& name) {
  while (dir_) {
    dirent const* const entry = ::readdir(dir_.get());
    if (entry == nullptr) {
      dir_.reset();
      return false;
    }
    name = entry->d_name;
    if (name != "." && name != "..") return true;
  }
  return false;
}

} // namespace Agent
