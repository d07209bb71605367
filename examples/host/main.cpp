// A host: a program that has a model and serves it. Here the client is standard output, what clients ask for
// comes through a pipe, and time is simulated, so that every run prints the same.
#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <array>
#include <deque>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "BoilerAdapter.h"
#include "Greenhouse.h"
#include "Kel/ActivityClock.h"
#include "Kel/Attr.h"
#include "Kel/Dir.h"
#include "Ondra/ArenaRespMsg.h"
#include "Ondra/BaseRouter.h"
#include "Ondra/GifNotifiee.h"
#include "Ondra/KelGnmiSetter.h"
#include "Ondra/Path.h"
#include "Ondra/WalkTask.h"
#include "Tovak/Clock.h"
#include "Tovak/TaskScheduler.h"

namespace {

constexpr std::int64_t kMinute = 60'000'000'000;

// The host's event loop: the scheduler, with a time for each of its passes.
class Loop {
public:
  Loop() {
    scheduler->loopHookIs([this] {
      // All changes of one pass are of one time.
      Kel::activityManagerStatus()->activityLoopExecNsTimeIs(clock.wallNs());
    });
  }

  Tovak::SimulatedClock clock{0}; // a program that serves takes Tovak::SystemClock::instance()
  std::shared_ptr<Tovak::TaskScheduler> const scheduler = std::make_shared<Tovak::TaskScheduler>(clock);
};

// The way to the client. Two responses have room in it; what waits is written when the loop comes round, and
// the walk goes on.
class Router final : public Ondra::BaseRouter {
public:
  explicit Router(Tovak::TaskScheduler& scheduler) : scheduler_(scheduler) {}

  bool push(Ondra::SyncId, Ondra::WalkId, std::shared_ptr<Ondra::ArenaRespMsg>& response) override {
    if (waiting_.empty()) scheduler_.post([this] { drain(); });
    waiting_.push_back(std::move(response));
    if (waiting_.size() < 2) return true;
    isFull_ = true;
    return false;
  }
  void drain() {
    for (; !waiting_.empty(); waiting_.pop_front())
      fmt::print("{}\n", waiting_.front()->toString());
    auto const walk = waitingWalk.lock();
    if (!std::exchange(isFull_, false) || !walk) return;
    fmt::print("-- the pipe was full: the walk goes on\n");
    walk->scheduleTask();
  }

  std::weak_ptr<Tovak::Task> waitingWalk;

private:
  Tovak::TaskScheduler& scheduler_;
  std::deque<std::shared_ptr<Ondra::ArenaRespMsg>> waiting_;
  bool isFull_ = false;
};

// The walk of a subscription: what is there, after which changes follow by themselves.
class Subscription final : public Ondra::WalkTask {
public:
  using WalkTask::WalkTask;

  static void begin(Loop& loop, Router& router, Kel::Dir const& dir) {
    auto info = Ondra::WalkInfo::WalkInfoIs(router, {Ondra::SyncId(1), Ondra::WalkId(1)},
                                            Ondra::Path::strToPathIs(dir.fullName().view()), &dir,
                                            Ondra::flagSnapshot | Ondra::flagStream);
    auto const task = std::make_shared<Subscription>(loop.scheduler, info, Tovak::TaskPriority::normal);
    task->router_ = &router;
    info->task = task;
    router.waitingWalk = task;
    task->scheduleTask();
  }

  void walkDone(Ondra::SyncWalkId const&, bool) override {
    router_->drain();
    fmt::print("-- in sync\n");
  }

private:
  Router* router_ = nullptr;
};

// "PATH=VALUE" of a client becomes a Set request.
void set(std::string const& line) {
  std::size_t const equals = line.rfind('=');
  std::string const value = line.substr(equals + 1);
  gnmi::SetRequest request;
  gnmi::Update& update = *request.add_update();
  Ondra::Path::strToPathIs(line.substr(0, equals))->copyToGnmiPath(update.mutable_path());
  if (value.find_first_not_of("0123456789") == std::string::npos)
    update.mutable_val()->set_uint_val(std::stoull(value));
  else
    update.mutable_val()->set_string_val(value);
  Ondra::KelGnmiSet::Set set(Ondra::Path::strToPathIs("/site"), std::move(request));
  auto const [response, status] = set.execute();
  fmt::print("-- set {}: {}\n", line, status.ok() ? "OK" : status.error_message());
}

// Clients' requests, a line each, read by the loop.
class Requests {
public:
  explicit Requests(Tovak::TaskScheduler& scheduler) : scheduler_(scheduler) {
    if (pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK) != 0) return;
    watch_ = scheduler_.fdWatchIs(ends_[0], Tovak::FdEvents::readable, [this](std::uint32_t) { take(); });
  }
  ~Requests() {
    if (watch_) scheduler_.fdWatchDel(*watch_);
    close(ends_[0]);
    close(ends_[1]);
  }

  void put(std::string const& lines) const {
    if (write(ends_[1], lines.data(), lines.size()) < 0) fmt::print("-- the pipe is full\n");
  }

private:
  void take() const {
    std::array<char, 1024> bytes;
    ssize_t const count = read(ends_[0], bytes.data(), bytes.size());
    std::istringstream lines(std::string(bytes.data(), count < 0 ? 0 : static_cast<std::size_t>(count)));
    for (std::string line; std::getline(lines, line);)
      set(line);
  }

  Tovak::TaskScheduler& scheduler_;
  std::array<int, 2> ends_{-1, -1};
  Kstd::Result<Tovak::FdWatchId, Tovak::String> watch_ = Kstd::Err(Tovak::String("no pipe"));
};

// Generic access, by name: what a host needs to read its own configuration, or to offer a command line.
void configure(Kel::Ptr<Bed> const& bed, char const* attribute, Kel::String const& text) {
  auto const handle = Kel::handleTo(bed);
  Kel::KelAttr const attr = handle->type().attr(attribute);
  auto const value = attr.type().genericIf(text);
  if (!value) return fmt::print("-- {}: {}\n", attribute, value.error());
  attr.genericIfSet(handle, nullptr, *value);
  fmt::print("-- {}/{} is {}\n", Kel::entityAt<Bed>(handle)->fullName().view(), attribute,
             attr.genericIfGet(handle)->strRep());
}

} // namespace

int main() {
  declareGreenhouse();
  BoilerAdapter::declare();

  Loop loop;
  Boiler boiler("B-1701");
  Kel::Ptr<Greenhouse> const greenhouse(new Greenhouse());
  Kel::Ptr<Kel::Dir> const site = Kel::globalDir()->dirIs("site");
  site->entityIs("greenhouse", greenhouse);
  site->entityIs("boiler", Kel::Ptr<BoilerAdapter>(new BoilerAdapter(boiler)));
  Kel::Ptr<Bed> const bed = greenhouse->bedIs("A1");
  greenhouse->bedIs("B2");
  configure(bed, "crop", "'tomato'"); // text forms: enumerators stand between apostrophes
  configure(bed, "crop", "'banana'");
  Kel::KelAttr const note = Kel::typeOf<Bed>().attr("note");
  note.genericIfSet(Kel::handleTo(bed), nullptr, *note.type().genericIf("\"by the door\""));

  Router router(*loop.scheduler);
  Requests requests(*loop.scheduler);
  Subscription::begin(loop, router, *site);

  loop.scheduler->timerEvery(kMinute, [&] {
    boiler.minutePasses();
    bed->moistureIs(bed->moisture - 1);
  });
  loop.scheduler->timerAfter(kMinute * 3 / 2, [&] {
    requests.put("greenhouse/bed[name=B2]/crop=pepper\n"
                 "boiler/target=70\n"
                 "boiler/target=700\n"
                 "boiler/serial-number=B-1\n");
  });
  loop.scheduler->timerAfter(kMinute * 5 / 2, [&] { greenhouse->bedDel("B2"); });
  loop.scheduler->runUntil(kMinute * 3);

  Ondra::GifGnmiNotifiee::clearAllGnmiNotifiees();
  Kel::globalDir()->entityDel("site");
  return 0;
}
