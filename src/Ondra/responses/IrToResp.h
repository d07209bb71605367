// RespEncoder: the content of an Ir as pooled SubscribeResponses.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "Kstd/Export.h"
#include "Ondra/IR.h"
#include "Ondra/responses/PlainNode.h"

namespace Ondra {

// One response per node, and a further one after every 1000 leaves, so that a node of exactly 1000 leaves is
// followed by a response without any. Deleted leaves count like others, and so do those that are left out. A
// leaf whose type is not scalar is a fatal assertion.
class KTD_EXPORT RespEncoder final : public IrEncoder {
public:
  using Responses = std::vector<std::shared_ptr<ArenaRespMsg>>;

  static constexpr int kLeavesPerResponse = 1000;

  // The one that pushes share, emptied: its list stays warm. Not for a push inside another, of a router that
  // walks in turn. Scheduler thread.
  [[nodiscard]] static RespEncoder& shared();

  void encodeNode(long timestamp, Kel::Ptr<Path const> const& prefix, IrNode const& node) override;
  // One response.
  void encodeNode(PlainNode const& node);

  // What has been made so far; the encoder begins anew.
  [[nodiscard]] Responses take() { return std::exchange(responses_, {}); }
  // The same, left with the encoder; `clear` drops them and keeps the storage of the list.
  [[nodiscard]] Responses& responses() noexcept { return responses_; }
  void clear() noexcept {
    responses_.clear();
    forgetLeftOut();
  }

private:
  Responses responses_;
};

} // namespace Ondra
