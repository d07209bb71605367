// Plays the worst host there is over the hostile model, and holds the library to its laws.
#pragma once

#include "WalkHarness.h"
#include "fixture/Observer.h"
#include "fixture/Populate.h"
#include "fixture/RandomEdits.h"
#include "ondra/hostile_model.h"
#include "ondra/set_support.h"

namespace Hostile {

// The one router of a host: whichever walk comes first to an object, its changes are told to the subscriber.
// What a walk for somebody else sends goes to him.
class HostRouter final : public RecordingRouter {
public:
  using RecordingRouter::RecordingRouter;
  bool push(Ondra::SyncId syncId, Ondra::WalkId walkId,
            std::shared_ptr<Ondra::ArenaRespMsg>& response) override {
    auto const other = others.find(walkId);
    return other == others.end() ? RecordingRouter::push(syncId, walkId, response)
                                 : other->second->push(syncId, walkId, response);
  }
  std::map<Ondra::WalkId, RecordingRouter*> others;
};

// What a host does besides changing the model, walking it and handing in Set requests.
struct Powers {
  unsigned meddles = 0;   // in which of its calls it changes the model, walks it, and begins to observe
  unsigned throws = 0;    // out of which of its calls it throws
  bool refuses = false;   // there are texts that it cannot print
  bool collides = false;  // its keys collide with attributes
  bool badTexts = false;  // its texts are no UTF-8
  bool onFixture = false; // its model is the polite one that all other tests use
};

// The number that a variable of the environment holds.
inline std::size_t numberIn(char const* variable, std::size_t otherwise) {
  char const* const text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

// Every choice comes from the seed.
class Play {
public:
  Play(std::uint32_t seed, Powers powers);
  ~Play();
  Play(Play const&) = delete;
  Play& operator=(Play const&) = delete;

  // One thing that the host does; then the laws. What is broken is a failure of the test.
  void step();
  // What was done in the last step.
  [[nodiscard]] std::vector<std::string> const& log() const { return log_; }

  // The parts of a step, for scenarios of their own.
  void act();
  void react();                          // changes the model, from within a call
  void misbehaved() { reacted_ = true; } // a call did: a request that is refused may show
  void checkLaws();
  void subscribeAnew(); // from nothing: what was lost before is made good

private:
  std::size_t below(std::size_t bound) { return random_() % bound; }
  bool oneIn(std::size_t n) { return below(n) == 0; }
  void note(std::string text);
  void arm();
  void meddle(Call call);
  void edit();
  void replaceABox();
  Kel::Ptr<Kel::Entity> anEntity(); // for requests
  WalkHarness::Walk start(RecordingRouter& router, Ondra::WalkerFlags flags,
                          std::function<bool()> yields = {});
  void walkInSlices();
  void walkBetween();
  void request();
  [[nodiscard]] SetTest::Model model() const;
  void makeRequest(Kel::Ptr<Kel::Entity> const& root, gnmi::SetRequest& made, gnmi::SetRequest& again);
  void expectSilent(Kel::Entity const& root, gnmi::SetRequest& again);
  void observeAll();
  void parkAside();
  void run(WalkHarness::Walk& walk, std::function<void()> const& between = {});
  void expectEntitiesAreWhole();

  std::mt19937 random_;
  Powers const powers_;
  std::vector<std::string> texts_;
  std::vector<std::string> kinds_;
  HostRouter live_; // all four outlive the notifiees that the harness ends
  RecordingRouter fresh_, cut_, aside_;
  std::optional<Fixture::World> fixture_;
  std::optional<World> hostile_;
  Kel::Ptr<Kel::Dir> const dir_; // all of it
  WalkHarness harness_;
  std::optional<WalkHarness::Walk> parked_; // goes on for many steps, whatever happens meanwhile
  Fixture::RandomEdits edits_;
  std::vector<Kel::Ptr<Kel::PtrInterface>> observers_;
  std::vector<Kel::Ptr<Kel::Entity>> known_; // entities that there were
  std::vector<std::string> log_;
  bool threwInPrinter_ = false; // in this step: what it was to print is not there
  std::size_t told_ = 0;        // how often observers were told anything
  bool reacted_ = false;        // something was done from inside a call
};

} // namespace Hostile
