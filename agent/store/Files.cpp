// The system's calls, below a descriptor of the folder that is locked as long as it is open.
#include "agent/store/Files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace Agent {
namespace {

constexpr mode_t kFolderMode = 0700; // configuration may hold what is not for everybody
constexpr mode_t kFileMode = 0600;

// The system's answer, asked again when a signal came in between.
template <class Call>
auto answerOf(Call const& call) {
  auto answer = call();
  while (answer < 0 && errno == EINTR)
    answer = call();
  return answer;
}

class SystemFiles final : public Files {
public:
  explicit SystemFiles(int folder) : folder_(folder) {}
  ~SystemFiles() override { ::close(folder_); }

  OrErrno<File> open(std::string const& name) override {
    return opened(answerOf([&] { return ::openat(folder_, name.c_str(), O_RDWR | O_CLOEXEC); }));
  }
  OrErrno<File> create(std::string const& name) override {
    constexpr int kFlags = O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC;
    return opened(answerOf([&] { return ::openat(folder_, name.c_str(), kFlags, kFileMode); }));
  }
  void close(File file) override { ::close(file); }
  OrErrno<std::size_t> read(File file, char* to, std::size_t size, std::uint64_t at) override {
    return counted(answerOf([&] { return ::pread(file, to, size, static_cast<off_t>(at)); }));
  }
  OrErrno<std::size_t> write(File file, std::string_view bytes, std::uint64_t at) override {
    return counted(
        answerOf([&] { return ::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(at)); }));
  }
  OrErrno<void> truncate(File file, std::uint64_t size) override {
    return done(answerOf([&] { return ::ftruncate(file, static_cast<off_t>(size)); }));
  }
  OrErrno<void> sync(File file) override {
    return done(answerOf([&] { return ::fdatasync(file); }));
  }
  OrErrno<void> syncFolder() override {
    return done(answerOf([&] { return ::fsync(folder_); }));
  }
  OrErrno<void> rename(std::string const& from, std::string const& to) override {
    return done(::renameat(folder_, from.c_str(), folder_, to.c_str()));
  }

private:
  static OrErrno<File> opened(int answer) {
    if (answer < 0) return Kstd::Err(errno);
    return answer;
  }
  static OrErrno<std::size_t> counted(ssize_t answer) {
    if (answer < 0) return Kstd::Err(errno);
    return static_cast<std::size_t>(answer);
  }
  static OrErrno<void> done(int answer) {
    if (answer < 0) return Kstd::Err(errno);
    return {};
  }

  int const folder_;
};

} // namespace

Files::~Files() = default;

Kstd::Result<std::unique_ptr<Files>, std::string> Files::at(std::string const& path) {
  auto const failed = [&path] {
    return Kstd::Err(fmt::format("{}: {}", path, std::generic_category().message(errno)));
  };
  if (::mkdir(path.c_str(), kFolderMode) != 0 && errno != EEXIST) return failed();
  int const folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return failed();
  if (::flock(folder, LOCK_EX | LOCK_NB) != 0) {
    auto const error =
        errno == EWOULDBLOCK ? Kstd::Err(fmt::format("{}: another agent uses it", path)) : failed();
    ::close(folder);
    return error;
  }
  return std::unique_ptr<Files>(std::make_unique<SystemFiles>(folder));
}

} // namespace Agent
