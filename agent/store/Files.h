// Agent::Files: the calls by which a store keeps its folder. Tests put a disk of their own behind it, which
// fails, tears and forgets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Kstd/Result.h"

namespace Agent {

// One folder and the files in it. Each call is one of the system's; its error is the `errno`. May block; one
// thread at a time.
class Files {
public:
  template <class T>
  using OrErrno = Kstd::Result<T, int>;
  using File = int;

  virtual ~Files();

  // To read and write. ENOENT when it is not there.
  [[nodiscard]] virtual OrErrno<File> open(std::string const& name) = 0;
  // Made, or made empty.
  [[nodiscard]] virtual OrErrno<File> create(std::string const& name) = 0;
  virtual void close(File file) = 0;
  // As many bytes as come, 0 at the end.
  [[nodiscard]] virtual OrErrno<std::size_t> read(File file, char* to, std::size_t size,
                                                  std::uint64_t at) = 0;
  // As many bytes as fit, one at least.
  [[nodiscard]] virtual OrErrno<std::size_t> write(File file, std::string_view bytes, std::uint64_t at) = 0;
  [[nodiscard]] virtual OrErrno<void> truncate(File file, std::uint64_t size) = 0;
  // What has been written outlives a loss of power; what was made, renamed or removed, by `syncFolder`.
  [[nodiscard]] virtual OrErrno<void> sync(File file) = 0;
  [[nodiscard]] virtual OrErrno<void> syncFolder() = 0;
  // Whatever has the name `to` goes, in the same step.
  [[nodiscard]] virtual OrErrno<void> rename(std::string const& from, std::string const& to) = 0;

  // The folder `path`, made if missing, for this process alone as long as the object lives. The error is a
  // text.
  [[nodiscard]] static Kstd::Result<std::unique_ptr<Files>, std::string> at(std::string const& path);
};

} // namespace Agent
