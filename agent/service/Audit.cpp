// Lines are made where something happens, and written by the one thread.
#include "agent/service/Audit.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <google/protobuf/util/json_util.h>
#include <grpc/grpc_security_constants.h>
#include <grpcpp/server_context.h>
#include <nlohmann/json.hpp>

#include "Ondra/PathFormat.h"
#include "Tovak/Clock.h"
#include "agent/context/Tally.h"
#include "agent/service/LocalUsers.h"

namespace Agent {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::int64_t kSecondNs = 1'000'000'000;
constexpr std::int64_t kMillisecondNs = 1'000'000;

// Texts of strangers may be no UTF-8.
std::string lineOf(Json const& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

Json start(std::string time, Audit::Caller const& caller, std::string_view call) {
  Json line{{"time", std::move(time)}, {"call", call}, {"peer", caller.peer}};
  if (!caller.user.empty()) line["user"] = caller.user;
  if (!caller.certificate.empty()) line["certificate"] = caller.certificate;
  return line;
}

void addResult(Json& line, grpc::Status const& status) {
  static constexpr auto& names = Tally::codeNames;
  auto const code = static_cast<std::size_t>(status.error_code());
  line["result"] = code < std::size(names) ? names[code] : "UNKNOWN";
  if (!status.ok()) line["why"] = status.error_message().substr(0, 1'024);
}

// At most so many, and how many more there are.
template <class Entries, class JsonOf>
void addPaths(Json& line, char const* name, Entries const& entries, JsonOf const& jsonOf) {
  if (entries.empty()) return;
  Json& list = line[name] = Json::array();
  for (int i = 0; i < std::min(entries.size(), Audit::mostPaths); ++i)
    list.push_back(jsonOf(entries[i]));
  if (entries.size() > Audit::mostPaths)
    line[fmt::format("more-{}", name)] = entries.size() - Audit::mostPaths;
}

Json jsonOf(gnmi::TypedValue const& value) {
  std::string text;
  static_cast<void>(google::protobuf::util::MessageToJsonString(value, &text));
  return Json::parse(text, nullptr, false);
}

} // namespace

Audit::Caller::Caller(grpc::CallbackServerContext const& context) : peer(context.peer()) {
  auto const& metadata = context.client_metadata();
  if (auto const name = metadata.find("username"); name != metadata.end())
    user.assign(name->second.data(), std::min<std::size_t>(name->second.size(), 256));
  auto const auth = context.auth_context();
  if (peer.starts_with(LocalUsers::kPrefix)) peer = LocalUsers::nameIn(auth.get());
  bool const hasCertificate = auth && !auth->FindPropertyValues(GRPC_X509_PEM_CERT_PROPERTY_NAME).empty();
  for (auto const& name : hasCertificate ? auth->GetPeerIdentity() : std::vector<grpc::string_ref>()) {
    certificate.assign(name.data(), name.size());
    break;
  }
}

Kstd::Result<std::unique_ptr<Audit>, std::string> Audit::of(Options options, Tovak::Clock& clock) {
  std::unique_ptr<Audit> audit(new Audit(std::move(options), clock));
  if (audit->options_.file != "journal" && !audit->openIfGone())
    return Kstd::Err(fmt::format("{}: {}", audit->options_.file, std::strerror(errno)));
  audit->thread_ = std::thread([raw = audit.get()] { raw->run(); });
  return audit;
}

Audit::Audit(Options options, Tovak::Clock& clock) : options_(std::move(options)), clock_(clock) {}

Audit::~Audit() {
  {
    std::lock_guard const guard(mutex_);
    ends_ = true;
  }
  arrived_.notify_all();
  if (thread_.joinable()) thread_.join();
  if (fd_ >= 0) ::close(fd_);
}

void Audit::refused(Caller const& caller, std::string_view call, grpc::Status const& status) {
  std::uint64_t uncounted = 0;
  {
    std::lock_guard const guard(mutex_);
    std::int64_t const now = clock_.monotonicNs();
    if (now - secondNs_ >= kSecondNs) {
      uncounted = refusals_ > refusalsASecond ? refusals_ - refusalsASecond : 0;
      secondNs_ = now;
      refusals_ = 0;
    }
    if (++refusals_ > refusalsASecond) return;
  }
  if (uncounted > 0) note(lineOf({{"time", timeNow()}, {"refused-besides", uncounted}}));
  Json line = start(timeNow(), caller, call);
  addResult(line, status);
  note(lineOf(line));
}

void Audit::set(Caller const& caller, gnmi::SetRequest const& request, grpc::Status const& status,
                std::int64_t tookNs) {
  Json line = start(timeNow(), caller, "Set");
  if (request.prefix().elem_size() > 0) line["prefix"] = fmt::to_string(request.prefix());
  auto const path = [](gnmi::Path const& deleted) { return Json(fmt::to_string(deleted)); };
  auto const update = [this](gnmi::Update const& written) {
    std::string const text = fmt::to_string(written.path());
    return options_.hasValues ? Json{{"path", text}, {"value", jsonOf(written.val())}} : Json(text);
  };
  addPaths(line, "delete", request.delete_(), path);
  addPaths(line, "replace", request.replace(), update);
  addPaths(line, "update", request.update(), update);
  addPaths(line, "union-replace", request.union_replace(), update);
  addResult(line, status);
  line["ms"] = static_cast<double>(tookNs) / static_cast<double>(kMillisecondNs);
  note(lineOf(line));
}

void Audit::note(std::string line) {
  {
    std::lock_guard const guard(mutex_);
    if (waiting_.size() >= mostWaiting) {
      ++lost_;
      return;
    }
    waiting_.push_back(std::move(line));
  }
  arrived_.notify_one();
}

std::string Audit::timeNow() const {
  std::int64_t const now = clock_.wallNs();
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(static_cast<std::time_t>(now / kSecondNs)),
                     now % kSecondNs / kMillisecondNs);
}

// --- the thread -------------------------------------------------------------------------------------------

void Audit::run() {
  std::unique_lock guard(mutex_);
  for (bool isLast = false; !isLast;) {
    arrived_.wait(guard, [this] { return ends_ || !waiting_.empty(); });
    isLast = ends_;
    std::deque<std::string> const lines = std::exchange(waiting_, {});
    std::uint64_t const lost = std::exchange(lost_, 0);
    guard.unlock();
    std::uint64_t failed = lost > 0 && !write(lostLine(lost)) ? lost : 0;
    for (std::string const& line : lines)
      failed += write(line) ? 0 : 1;
    if (isLast && failed > 0) static_cast<void>(write(lostLine(failed)));
    guard.lock();
    lost_ += failed;
  }
}

std::string Audit::lostLine(std::uint64_t count) const {
  return lineOf({{"time", timeNow()}, {"lost", count}});
}

bool Audit::write(std::string const& line) {
  if (options_.file == "journal")
    return ::sd_journal_send("MESSAGE=%s", line.c_str(), "PRIORITY=5", "SYSLOG_IDENTIFIER=ondra-agent-audit",
                             nullptr) == 0;
  if (!openIfGone()) return false;
  std::string const whole = line + '\n';
  return ::write(fd_, whole.data(), whole.size()) == static_cast<ssize_t>(whole.size());
}

bool Audit::openIfGone() {
  struct stat named {};
  struct stat open {};
  bool const isThere = fd_ >= 0 && ::fstat(fd_, &open) == 0 && ::stat(options_.file.c_str(), &named) == 0 &&
                       named.st_ino == open.st_ino && named.st_dev == open.st_dev;
  if (isThere) return true;
  if (fd_ >= 0) ::close(fd_);
  fd_ = ::open(options_.file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  return fd_ >= 0;
}

} // namespace Agent
