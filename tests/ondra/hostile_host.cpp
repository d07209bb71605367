// A step of a play: one call is armed to misbehave, the host acts, then the laws are checked.
#include "ondra/hostile_host.h"

#include <new>
#include <stdexcept>

#include <gmock/gmock.h>
#include <google/protobuf/arena.h>
#include <google/protobuf/stubs/logging.h>

#include "Kel/Error.h"
#include "Ondra/KelGnmiSetter.h"
#include "ondra/set_random.h"

namespace Hostile {

using testing::IsEmpty;

namespace {

constexpr Ondra::WalkerFlags kStreamSnapshot = Ondra::flagStream | Ondra::flagSnapshot;

void nextLoopPass() { Kel::activityManagerStatus()->activityLoopExecNsTimeInc(1000); }

char const* nameOf(Call call) {
  switch (call) {
  case Call::Print: return "a printer";
  case Call::Parse: return "a parser";
  case Call::Set: return "a setter";
  case Call::Push: return "a router";
  case Call::Tell: return "an observer";
  }
  return "";
}

// Such texts are long and tell nothing.
std::string shortened(std::string text) {
  std::string const longOne(256, 'x');
  for (std::size_t at = text.find(longOne); at != std::string::npos; at = text.find(longOne))
    text.replace(at, text.find_first_not_of('x', at) - at, "x...x");
  return text;
}

bool isPrinted(std::string const& path) { return path.find("/odd") != std::string::npos; }

} // namespace

Play::Play(std::uint32_t seed, Powers powers)
    : random_(seed)
    , powers_(powers)
    , texts_(oddTexts())
    , live_(seed % 3 == 0 ? 3 : 0)
    , cut_(seed % 4)
    , dir_([this] {
      for (int i = 0; i < 2 && powers_.collides; ++i)
        kinds_.push_back(collisions()[below(collisions().size())].kind);
      return powers_.onFixture ? fixture_.emplace().dir() : hostile_.emplace(kinds_).dir;
    }())
    , edits_(dir_, seed, texts_) {
  trap().refusesTexts = powers_.refuses;
  if (!powers_.badTexts) texts_.resize(texts_.size() - kBadTexts);
  std::shuffle(texts_.begin(), texts_.end(), random_);
  for (RecordingRouter* const router : {static_cast<RecordingRouter*>(&live_), &fresh_, &cut_, &aside_}) {
    router->keepTexts = false;
    router->checksParsing = true;
    router->afterPush = [] { trap().spring(Call::Push); };
  }
  fresh_.takesLeavesOnce = cut_.takesLeavesOnce = true;
  for (int i = 0; i < 40 && !powers_.onFixture; ++i)
    edit();
  observeAll();
  subscribeAnew();
}

Play::~Play() {
  trap().act = nullptr;
  trap().refusesTexts = false;
  if (parked_) WalkHarness::cancel(*parked_);
  WalkHarness::clearAll();
}

void Play::subscribeAnew() {
  WalkHarness::clearAll();
  live_.clear();
  WalkHarness::Walk walk = start(live_, kStreamSnapshot);
  run(walk);
}

void Play::note(std::string text) { log_.push_back(shortened(std::move(text))); }

void Play::step() {
  log_.clear();
  threwInPrinter_ = reacted_ = false;
  arm();
  act();
  trap().act = nullptr;
  nextLoopPass();
  checkLaws();
  if (oneIn(4)) observeAll();
}

// One of the host's calls in this step is to misbehave.
void Play::arm() {
  unsigned const calls = powers_.meddles | powers_.throws;
  if (calls == 0 || oneIn(3)) return;
  std::size_t const at = 1 + below(std::size_t{1} << below(8));
  unsigned const kinds = oneIn(2) ? calls : calls & (1U << below(5)); // of any kind, or of one
  trap().act = [this, at, kinds, count = std::size_t{0}](Call call) mutable {
    if ((static_cast<unsigned>(call) & kinds) != 0 && ++count == at) meddle(call);
  };
}

void Play::meddle(Call call) {
  auto const bit = static_cast<unsigned>(call);
  reacted_ = true;
  if ((powers_.throws & bit) != 0 && ((powers_.meddles & bit) == 0 || oneIn(2))) {
    note(std::string(nameOf(call)) + " throws");
    threwInPrinter_ |= call == Call::Print;
    switch (below(3)) {
    case 0: throw Kel::Error("the host refuses");
    case 1: throw std::runtime_error("the host fails");
    default: throw 42;
    }
  }
  note(std::string(nameOf(call)) + " meddles");
  switch (below(call == Call::Tell ? 4 : 1)) {
  case 0:
  case 1: edit(); break;
  case 2: observeAll(); break;
  default: walkInSlices(); break;
  }
}

void Play::act() {
  switch (below(12)) {
  case 0: walkInSlices(); break;
  case 1: walkBetween(); break;
  case 2: replaceABox(); break;
  case 3: parkAside(); break;
  case 4:
  case 5: request(); break;
  default: edit(); break;
  }
}

// What the host's own code throws arrives where it changes the model.
void Play::edit() {
  for (std::size_t left = 1 + below(3); left > 0; --left) {
    try {
      note(edits_.edit());
    } catch (...) {
      note("an edit was refused");
    }
  }
}

void Play::react() {
  misbehaved();
  for (int i = 0; i < 10; ++i)
    edit();
}

void Play::replaceABox() {
  if (kinds_.empty()) return edit();
  std::string const& kind = kinds_[below(kinds_.size())];
  note("replace " + kind);
  try {
    hostile_->boxIs(kind);
  } catch (...) {
    note("it was refused");
  }
}

// One more snapshot for the subscriber, in slices between which the model changes.
void Play::walkBetween() {
  note("walk");
  WalkHarness::Walk walk = start(live_, kStreamSnapshot, [this] { return oneIn(5); });
  run(walk, [this] {
    if (oneIn(2)) oneIn(4) ? replaceABox() : edit();
    if (oneIn(2)) nextLoopPass();
  });
}

WalkHarness::Walk Play::start(RecordingRouter& router, Ondra::WalkerFlags flags,
                              std::function<bool()> yields) {
  WalkHarness::Walk walk = harness_.start(live_, *dir_, flags, std::move(yields));
  if (&router != &live_) live_.others[walk.info->syncWalkId.second] = &router;
  return walk;
}

// One for somebody else.
void Play::walkInSlices() {
  note("walk aside");
  WalkHarness::Walk walk = start(aside_, Ondra::flagSnapshot, [this] { return oneIn(50); });
  if (oneIn(3)) {
    WalkHarness::slice(walk);
    WalkHarness::cancel(walk);
  } else {
    run(walk);
  }
}

// A slice of one that stays parked from step to step.
void Play::parkAside() {
  if (!parked_) parked_ = start(aside_, Ondra::flagSnapshot, [this] { return oneIn(20); });
  note("a slice aside");
  try {
    WalkHarness::slice(*parked_);
  } catch (std::bad_alloc const&) {
    note("no memory to walk");
  }
  parked_->task->descheduleTask();
  if (parked_->task->done) parked_->info->task.reset();
  if (!parked_->task->done && oneIn(20)) WalkHarness::cancel(*parked_);
  if (parked_->info->task == nullptr) parked_.reset();
}

void Play::run(WalkHarness::Walk& walk, std::function<void()> const& between) {
  try {
    WalkHarness::finish(walk, between);
  } catch (std::bad_alloc const&) {
    note("no memory to walk");
    EXPECT_TRUE(walk.task->walkInfo() == nullptr && !walk.task->done);
    EXPECT_FALSE(Ondra::FullKelTypeWalker::cancelPendingWalk(walk.info)) << "some of it is still parked";
    WalkHarness::cancel(walk);
  } catch (...) {
    ADD_FAILURE() << "an exception leaves a walk";
  }
}

// Of the test, which does not take part in the play.
SetTest::Model Play::model() const {
  HeapFaults::Off const reliable;
  Trap::Inside const quiet;
  return SetTest::modelOf(dir_);
}

void Play::makeRequest(Kel::Ptr<Kel::Entity> const& root, gnmi::SetRequest& made, gnmi::SetRequest& again) {
  HeapFaults::Off const reliable; // protobuf's maps are not
  Trap::Inside const quiet;
  google::protobuf::LogSilencer const silent;
  SetTest::RequestMaker maker(root, [this](std::size_t bound) { return below(bound); });
  if (!made.ParseFromString(maker.make().SerializeAsString())) made.Clear(); // no client can send that
  again = made;
  note("request below " + root->fullName().str() + ": " + made.ShortDebugString());
}

// Updates that have been taken say nothing when they are handed in once more.
void Play::expectSilent(Kel::Entity const& root, gnmi::SetRequest& again) {
  HeapFaults::Off const reliable;
  Trap::Inside const quiet;
  SetTest::Model const before = model();
  gnmi::SetResponse response;
  told_ = 0;
  EXPECT_EQ("OK", SetTest::textOf(Ondra::KelGnmiSet::Set(pathOf(root), again, response).executeInPlace()));
  EXPECT_EQ(told_, 0U);
  EXPECT_THAT(SetTest::changes(before, model()), IsEmpty());
}

Kel::Ptr<Kel::Entity> Play::anEntity() {
  if (powers_.onFixture) return fixture_->device();
  return kinds_.empty() || oneIn(2) ? hostile_->host : dir_->entity(kinds_[below(kinds_.size())]);
}

void Play::request() {
  Kel::Ptr<Kel::Entity> const root = anEntity();
  if (!root) return;
  google::protobuf::Arena arena;
  auto& made = *google::protobuf::Arena::CreateMessage<gnmi::SetRequest>(&arena);
  auto& response = *google::protobuf::Arena::CreateMessage<gnmi::SetResponse>(&arena);
  auto& again = *google::protobuf::Arena::CreateMessage<gnmi::SetRequest>(&arena);
  makeRequest(root, made, again);
  bool const isOfUpdates = made.delete__size() + made.replace_size() == 0;
  SetTest::Model const before = model();
  try {
    grpc::Status const status = Ondra::KelGnmiSet::Set(pathOf(*root), made, response).executeInPlace();
    note(SetTest::textOf(status));
    if (reacted_) return;
    if (!status.ok())
      EXPECT_THAT(SetTest::changes(before, model()), IsEmpty());
    else if (isOfUpdates)
      expectSilent(*root, again);
  } catch (std::bad_alloc const&) {
    note("no memory to set");
  } catch (...) {
    ADD_FAILURE() << "an exception leaves a Set";
  }
}

void Play::observeAll() {
  observers_.clear();
  for (auto const& entity : Fixture::entitiesBeneath(dir_))
    observers_.emplace_back(new Fixture::Observer(entity.get(), [this](std::string const&) {
      ++told_;
      trap().spring(Call::Tell);
    }));
}

void Play::checkLaws() {
  fresh_.clear();
  WalkHarness::Walk walk = start(fresh_, Ondra::flagSnapshot);
  run(walk);
  std::vector<std::string> differences =
      live_.hasSameLeaves(fresh_) ? std::vector<std::string>() : live_.differences(fresh_);
  if (threwInPrinter_) std::erase_if(differences, isPrinted);
  EXPECT_THAT(differences, IsEmpty()) << "the subscriber's tree -> a fresh walk";
  EXPECT_THAT(fresh_.leavesThatHoldLeaves(), IsEmpty());
  // Members whose references lead nowhere share one path.
  auto const isShared = [](std::string const& text) { return text.find("=nullptr]") != std::string::npos; };
  for (RecordingRouter* const router : {static_cast<RecordingRouter*>(&live_), &fresh_}) {
    std::erase_if(router->complaints, isShared);
    EXPECT_THAT(router->complaints, IsEmpty());
    router->complaints.clear();
  }
  if (threwInPrinter_) subscribeAnew();
  if (oneIn(4)) {
    cut_.clear();
    std::size_t const rarely = 1 + below(30);
    WalkHarness::Walk slow = start(cut_, Ondra::flagSnapshot, [this, rarely] { return oneIn(rarely); });
    run(slow);
    EXPECT_THAT(cut_.differences(fresh_), IsEmpty()) << "a cut walk -> a whole walk";
    std::erase_if(cut_.complaints, isShared);
    EXPECT_THAT(cut_.complaints, IsEmpty());
  }
  std::size_t const parked = parked_ ? 1 : 0;
  EXPECT_LE(Ondra::FullKelTypeWalker::walkMapSize(), parked);
  EXPECT_LE(Ondra::FullKelTypeWalker::pathWalkIdMapSize(), parked * 8);
  expectEntitiesAreWhole();
}

// An entity has its parent, or is an orphan without one, and so is all that was beneath it.
void Play::expectEntitiesAreWhole() {
  std::set<Kel::Entity const*> there;
  std::vector<Kel::Ptr<Kel::Entity>> const entities = Fixture::entitiesBeneath(dir_);
  for (auto const& entity : entities) {
    there.insert(entity.get());
    EXPECT_TRUE(entity->parent() != nullptr && !entity->isOrphan()) << entity->fullName().view();
  }
  for (auto const& entity : known_) {
    bool const isGone = entity->parent() == nullptr && entity->isOrphan();
    EXPECT_TRUE(isGone || there.contains(entity.get())) << entity->name().view();
  }
  known_ = entities;
}

} // namespace Hostile
