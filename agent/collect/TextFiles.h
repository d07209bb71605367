// Reading the small files of /proc, /sys and /etc below a root folder, which in tests is a recorded tree.
// What cannot be read, for whatever reason, is not there: files and folders of processes and devices vanish
// at any moment. Texts are valid UTF-8 (see Utf8.h).
#pragma once

#include <dirent.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Agent {

// Files by their path relative to the root. One thread.
class TextRoot {
public:
  static constexpr std::size_t kMaxBytes = std::size_t{1} << 20; // of a file; the rest is cut off

  explicit TextRoot(std::string root) : root_(std::move(root)) {}

  // The whole text; valid until the next call.
  [[nodiscard]] std::optional<std::string_view> text(std::string_view path);
  // The text without blanks around it; nothing when that leaves nothing.
  [[nodiscard]] std::optional<std::string> value(std::string_view path);
  [[nodiscard]] std::optional<std::uint64_t> number(std::string_view path);
  [[nodiscard]] bool exists(std::string_view path) const;
  [[nodiscard]] std::string path(std::string_view below) const;

private:
  std::string root_;
  std::string buffer_;
};

// A file line by line in bounded steps: a step reads at most one buffer. Lines longer than the buffer are
// left out.
class LineReader {
public:
  LineReader() = default;
  ~LineReader() { close(); }
  LineReader(LineReader const&) = delete;
  LineReader& operator=(LineReader const&) = delete;

  // Starts over with that file; false when it cannot be opened.
  bool open(std::string const& path);
  // The next line, without its end, valid until the next call; false at the end, which closes the file.
  bool next(std::string_view& line);
  void close();

private:
  static constexpr std::size_t kBytes = 16384;
  bool fill();

  int fd_ = -1;
  std::unique_ptr<char[]> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  bool skipping_ = false; // within a line that is too long
};

// The names in a folder, one a step, in the system's order; "." and ".." left out.
class FolderReader {
public:
  bool open(std::string const& path);
  [[nodiscard]] bool next(std::string_view& name); // valid until the next call

private:
  struct Closer {
    void operator()(DIR* dir) const { ::closedir(dir); }
  };
  std::unique_ptr<DIR, Closer> dir_;
};

} // namespace Agent
