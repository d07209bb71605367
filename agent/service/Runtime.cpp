// The order of making and ending, and that all Subscribe calls begin anew when the clock goes back.
#include "agent/service/Runtime.h"

namespace Agent {

Runtime::Runtime(Context::Options const& options)
    : context_(options)
    , router_(context_)
    , calls_(router_)
    , sets_(router_) {
  context_.clockGoesBackIs([this] {
    calls_.restart({grpc::StatusCode::UNAVAILABLE, "the machine's clock was set back: subscribe again"});
  });
}

Runtime::~Runtime() { context_.stop(); }

} // namespace Agent
