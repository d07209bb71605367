// A Set on its way: planned on the worker, carried out on the scheduler; the answer repeats the request's
// paths. What the device's own processes send is planned from its bytes, where it can be.
#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include <google/protobuf/io/coded_stream.h>

#include "agent/context/Context.h"
#include "agent/data/SetAccess.h"
#include "agent/data/SetRun.h"
#include "agent/data/StatePlan.h"
#include "agent/service/Audit.h"
#include "agent/service/Gate.h"
#include "agent/service/UnaryCalls.h"
#include "agent/service/UnaryEnd.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.grpc.pb.h"

namespace Agent {
namespace {

// Where both lie in one arena, and so end together, the answer refers to the request's own path.
void addResult(gnmi::SetResponse& response, gnmi::UpdateResult::Operation op, gnmi::Path const& path) {
  gnmi::UpdateResult& result = *response.add_response();
  result.set_op(op);
  if (path.GetArena() != nullptr && path.GetArena() == response.GetArena())
    result.unsafe_arena_set_allocated_path(const_cast<gnmi::Path*>(&path));
  else
    *result.mutable_path() = path;
}

// The answer to a request that has been carried out, but for its timestamp.
grpc::ByteBuffer answerTo(gnmi::SetRequest const& request) {
  auto& response = *google::protobuf::Arena::CreateMessage<gnmi::SetResponse>(request.GetArena());
  if (request.has_prefix()) *response.mutable_prefix() = request.prefix();
  for (gnmi::Path const& path : request.delete_())
    addResult(response, gnmi::UpdateResult::DELETE, path);
  for (gnmi::Update const& update : request.replace())
    addResult(response, gnmi::UpdateResult::REPLACE, update.path());
  for (gnmi::Update const& update : request.update())
    addResult(response, gnmi::UpdateResult::UPDATE, update.path());
  for (gnmi::Update const& update : request.union_replace())
    addResult(response, gnmi::UpdateResult::UNION_REPLACE, update.path());
  grpc::ByteBuffer bytes;
  bool isOwn = false;
  static_cast<void>(grpc::SerializationTraits<gnmi::SetResponse>::Serialize(response, &bytes, &isOwn));
  return bytes;
}

// The last field of an answer comes after all others.
grpc::ByteBuffer withTimestamp(grpc::ByteBuffer const& answer, std::int64_t timestamp) {
  constexpr std::uint8_t kTimestamp = 4 << 3 | 0;
  std::uint8_t bytes[11] = {kTimestamp};
  std::uint8_t const* const end = google::protobuf::io::CodedOutputStream::WriteVarint64ToArray(
      static_cast<std::uint64_t>(timestamp), bytes + 1);
  std::vector<grpc::Slice> slices;
  static_cast<void>(answer.Dump(&slices));
  slices.emplace_back(bytes, static_cast<std::size_t>(end - bytes));
  return {slices.data(), slices.size()};
}

// What a request becomes, JSON texts taken apart above all, against its own size.
constexpr std::size_t kPlanFactor = 12;

grpc::Status noMessage() { return {grpc::StatusCode::INVALID_ARGUMENT, "the request cannot be parsed"}; }

class SetCall final : public grpc::ServerUnaryReactor {
public:
  SetCall(grpc::CallbackServerContext& context, Guest const& guest, SetRuns& sets, Writer writer)
      : sets_(sets)
      , writer_(writer)
      , access_(guest.rights.writes)
      , context_(std::make_shared<UnaryContext>(context))
      , end_(std::make_shared<UnaryEnd>(*this, context_, sets.context())) {}

  // Planning is for neither gRPC's threads nor the scheduler's: it takes as long as the request is large.
  void start(grpc::ByteBuffer& bytes, grpc::ByteBuffer& response, Audit* audit,
             grpc::CallbackServerContext const& context) {
    std::shared_ptr<UnaryEnd> const end = std::move(end_);
    std::size_t const size = bytes.Length();
    bool const isShort = writer_ == Writer::Provider && audit == nullptr;
    if (!isShort && !parse(bytes)) return end->finish(noMessage());
    if (audit != nullptr) {
      end->toldIs([this, audit, caller = Audit::Caller(context), &clock = sets_.context().clock(),
                   begun = sets_.context().clock().monotonicNs()](grpc::Status const& status) {
        audit->set(caller, *request_, status, clock.monotonicNs() - begun);
      });
    }
    auto share = std::make_shared<ByteBudget::Share>(sets_.context().memory().plans);
    if (!share->growTo(kPlanFactor * size))
      return end->finish({grpc::StatusCode::RESOURCE_EXHAUSTED, "too many Sets wait: try again later"});
    sets_.context().worker().post([this, end, &bytes, &response, share = std::move(share)]() mutable {
      auto planned = planOf(bytes);
      if (!planned) return end->finish(planned.error());
      sets_.context().scheduler()->post([this, end, &response, planned = *std::move(planned),
                                         kept = std::move(share)]() mutable {
        auto done = [end, &response, answer = planned.answer,
                     kept = std::move(kept)](grpc::Status const& status, std::int64_t timestamp) {
          response = withTimestamp(answer, timestamp);
          end->finish(status);
        };
        sets_.setIs({std::move(planned.plan), &isCancelled_, std::move(done), std::move(planned.extensions)});
      });
    });
  }

  void OnCancel() override { isCancelled_.store(true, std::memory_order_relaxed); }
  void OnDone() override {
    context_->doneIs();
    delete this;
  }

private:
  struct Planned {
    std::unique_ptr<SetPlan> plan;
    grpc::ByteBuffer answer; // but for its timestamp
    SetExtensions extensions = {};
  };

  // The bytes are let go.
  Kstd::Result<Planned, grpc::Status> planOf(grpc::ByteBuffer& bytes) {
    if (request_ == nullptr) {
      grpc::Slice whole;
      auto made = bytes.DumpToSingleSlice(&whole).ok() ? statePlanOf(textOf(whole), writer_) : std::nullopt;
      if (made && permission(0, *made->plan).ok()) {
        bytes.Clear();
        return Planned{std::move(made->plan), {&made->answer, 1}};
      }
      if (!parse(bytes)) return Kstd::Err(noMessage());
    }
    auto extensions = SetExtensions::of(*request_);
    if (!extensions) return Kstd::Err(extensions.error());
    auto plan = setPlanOf(*request_, &isCancelled_, writer_);
    if (!plan) return Kstd::Err(plan.error());
    if (grpc::Status status = permission(request_->extension_size(), **plan); !status.ok())
      return Kstd::Err(std::move(status));
    return Planned{*std::move(plan), answerTo(*request_), *std::move(extensions)};
  }
  [[nodiscard]] bool parse(grpc::ByteBuffer& bytes) {
    request_ = google::protobuf::Arena::CreateMessage<gnmi::SetRequest>(&arena_);
    return grpc::SerializationTraits<gnmi::SetRequest>::Deserialize(&bytes, request_).ok();
  }
  static std::string_view textOf(grpc::Slice const& slice) {
    return {reinterpret_cast<char const*>(slice.begin()), slice.size()};
  }
  [[nodiscard]] grpc::Status permission(int extensions, SetPlan const& plan) const {
    if (!access_) return grpc::Status::OK;
    // To confirm or cancel what others have set, or to become the master, is for those who may set something.
    if (extensions > 0 && access_->root().cover() == Pattern::Cover::None)
      return {grpc::StatusCode::PERMISSION_DENIED, "you may not write anything"};
    return mayWrite(*access_, plan);
  }
  static google::protobuf::ArenaOptions arenaOptions() {
    google::protobuf::ArenaOptions options;
    options.start_block_size = 1024;
    options.max_block_size = 64 * 1024;
    return options;
  }

  SetRuns& sets_;
  Writer const writer_;
  std::shared_ptr<RuleTree const> const access_; // null: everything may be written
  std::shared_ptr<UnaryContext> const context_;
  std::shared_ptr<UnaryEnd> end_; // until the call has begun
  std::atomic<bool> isCancelled_ = false;
  google::protobuf::Arena arena_{arenaOptions()};
  gnmi::SetRequest* request_ = nullptr; // of the arena, where it has been parsed
};

} // namespace

grpc::ServerUnaryReactor* setCall(grpc::CallbackServerContext& context, Guest const& guest,
                                  grpc::ByteBuffer& request, grpc::ByteBuffer& response, SetRuns& sets,
                                  Writer writer, Audit* audit) {
  auto* const call = new SetCall(context, guest, sets, writer);
  call->start(request, response, audit, context);
  return call;
}

} // namespace Agent
