// WireEncoder: the content of an Ir as the bytes of SubscribeResponses.
#pragma once

#include "Kstd/Export.h"
#include "Ondra/ByteRouter.h"
#include "Ondra/IR.h"
#include "Ondra/responses/PlainNode.h"

namespace Ondra {

// The elements of a path as the bytes of fields `elem`. REQUIRES that no encoder is running.
[[nodiscard]] Kel::Bytes wireElems(Path const& path);

// The same responses as RespEncoder makes, one after the other, each byte for byte what the message would be
// serialized to deterministically. All encoders share one buffer: what `response` is given is valid during
// the call, and no encoder runs inside another. Scheduler thread.
class KTD_EXPORT WireEncoder : public IrEncoder {
public:
  void encodeNode(long timestamp, Kel::Ptr<Path const> const& prefix, IrNode const& node) final;
  // One response.
  void encodeNode(PlainNode const& node);

protected:
  virtual void response(WireResponse const& response) = 0;

private:
  using Leaves = IrNode::LeafQueue;
  void encodeResponse(long timestamp, Kel::Ptr<Path const> const& prefix, Leaves::const_iterator first,
                      Leaves::const_iterator last);
  void finish(long timestamp, ResponsePath const& prefix, std::size_t prefixSize, std::size_t changes,
              std::uint32_t updates, std::uint32_t deletes);
};

} // namespace Ondra
