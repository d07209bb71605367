// One fault at each place where there can be one: a child process is forked at every n-th such place of a
// scenario, in which that place fails and the scenario goes on to its end; then the laws hold.
//   ONDRA_HOSTILE_STEPS=100000   so many places instead of ten
//   ONDRA_HOSTILE_PLACE=17       only that place, in the process itself, as a failure names it

#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <new>

#include <gmock/gmock.h>

#include "Kel/Error.h"
#include "ondra/hostile_host.h"

namespace {

void* allocate(std::size_t size) {
  if (!HeapFaults::off && HeapFaults::fails) {
    HeapFaults::Off const asking;
    if (HeapFaults::fails()) throw std::bad_alloc();
  }
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

} // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
  return std::malloc(size == 0 ? 1 : size); // who asks so can do without
}
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
  return std::malloc(size == 0 ? 1 : size);
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::nothrow_t const&) noexcept { std::free(block); }
void operator delete[](void* block, std::nothrow_t const&) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }

namespace {

using namespace Hostile;

// The places of one run.
class Sweep {
public:
  explicit Sweep(std::size_t every) : every_(every) {} // SIZE_MAX: counts only

  // To be asked at each place. In the run itself always false; true in the child that is made for the place.
  bool failsHere() {
    ++places_;
    if (isChild_ || (only_ == 0 ? places_ % every_ : places_ - only_) != 0) return false;
    if (only_ != 0) return isChild_ = every_ != SIZE_MAX;
    std::fflush(stdout);
    pid_t const child = fork();
    if (child == 0) return isChild_ = true;
    int status = 0;
    waitpid(child, &status, 0);
    bool const survived = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    survived_ += survived;
    if (!survived && !(WIFEXITED(status) && WEXITSTATUS(status) == kBadAlloc))
      failures_.push_back("ONDRA_HOSTILE_PLACE=" + std::to_string(places_) + ": status " +
                          std::to_string(status));
    return false;
  }
  [[nodiscard]] bool isChild() const noexcept { return isChild_; }
  [[nodiscard]] std::size_t places() const noexcept { return places_; }
  [[nodiscard]] std::size_t survived() const noexcept { return survived_; }
  [[nodiscard]] std::vector<std::string> const& failures() const noexcept { return failures_; }

  // A process may end for want of memory, but by saying so.
  static constexpr int kBadAlloc = 77;
  [[noreturn]] static void ended() {
    if (!std::current_exception()) // out of a function that is noexcept
      HeapFaults::fails ? _exit(kBadAlloc) : std::abort();
    try {
      std::rethrow_exception(std::current_exception());
    } catch (std::bad_alloc const&) {
      _exit(kBadAlloc);
    } catch (...) {
      std::abort();
    }
  }

private:
  std::size_t const every_;
  std::size_t const only_ = numberIn("ONDRA_HOSTILE_PLACE", 0);
  std::size_t places_ = 0;
  std::size_t survived_ = 0;
  bool isChild_ = false;
  std::vector<std::string> failures_;
};

// Walks, changes and requests, in which the place that a child was made for fails. `armed` switches the
// faults on and off.
void scenario(std::size_t steps, Sweep& sweep, std::function<void(Play*)> const& armed, bool losesLeaves) {
  Play host(1, {.collides = true});
  for (std::size_t i = 0; i < steps; ++i) {
    armed(&host);
    try {
      host.act();
    } catch (...) { // what is thrown at a host's own call
    }
    armed(nullptr);
  }
  if (!sweep.isChild()) return;
  if (losesLeaves) host.subscribeAnew();
  for (int i = 0; i < 5 && !testing::Test::HasFailure(); ++i)
    host.step();
}

// Every n-th place, so that there are about as many as wanted.
template <class Run>
void sweepOver(Run const& run) {
  Sweep counting(SIZE_MAX);
  run(counting);
  std::size_t const places = counting.places();
  ASSERT_GT(places, 2U);
  Sweep sweep(std::max<std::size_t>(1, places / numberIn("ONDRA_HOSTILE_STEPS", 10)));
  auto const before = std::set_terminate(&Sweep::ended);
  run(sweep);
  std::set_terminate(before);
  if (sweep.isChild()) {
    std::fflush(stdout);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  EXPECT_THAT(sweep.failures(), testing::IsEmpty());
  EXPECT_GT(sweep.survived(), 0U);
}

TEST(HostileSweep, AnAllocationThatFails) {
  sweepOver([](Sweep& sweep) {
    auto const armed = [&sweep](Play const* on) {
      HeapFaults::fails =
          on != nullptr ? std::function<bool()>([&sweep] { return sweep.failsHere(); }) : nullptr;
    };
    scenario(12, sweep, armed, false);
  });
}

class HostileSweepOf : public testing::TestWithParam<Call> {};

// What is done at the calls of one kind.
void sweepOverCalls(Call call, std::function<void(Play&)> const& act, bool losesLeaves) {
  sweepOver([&](Sweep& sweep) {
    auto const armed = [&](Play* host) {
      trap().act = [&sweep, &act, call, host](Call now) {
        if (host != nullptr && now == call && sweep.failsHere()) act(*host);
      };
    };
    bool const isRare = call == Call::Parse || call == Call::Set;
    scenario(isRare ? 300 : 50, sweep, armed, losesLeaves);
  });
}

TEST_P(HostileSweepOf, ACallThatThrows) {
  // A leaf that could not be printed is missing till all is sent anew.
  auto const act = [](Play& host) {
    host.misbehaved();
    throw Kel::Error("the host refuses");
  };
  sweepOverCalls(GetParam(), act, GetParam() == Call::Print);
}

TEST_P(HostileSweepOf, ACallThatChangesTheModel) {
  sweepOverCalls(
      GetParam(), [](Play& host) { host.react(); }, false);
}

INSTANTIATE_TEST_SUITE_P(, HostileSweepOf,
                         testing::Values(Call::Print, Call::Parse, Call::Set, Call::Push, Call::Tell));

} // namespace
