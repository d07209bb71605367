// ByteRouter, WireResponse: responses as the bytes that go over the wire, for hosts that only send them on.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "Kstd/Export.h"
#include "Ondra/BaseRouter.h"
#include "Ondra/ResponsePath.h"
#include "Ondra/WalkTypes.h"

namespace Ondra {

// One response, encoded: the very bytes to which the message that `BaseRouter::push` is given would be
// serialized, with the entries of each map in the order of their keys. Valid during the push.
struct WireResponse {
  long timestamp;             // nanoseconds since the Unix epoch
  ResponsePath const& prefix; // of the notification
  std::uint32_t updates;      // how many
  std::uint32_t deletes;      // how many
  // The whole SubscribeResponse.
  std::span<std::uint8_t const> bytes;
  // The part of these that is the fields `elem` of the prefix, each with its tag.
  std::span<std::uint8_t const> prefixElems;
  // The end of these: the fields `update` and `delete` of the notification, each with its tag. For a host
  // that puts another prefix before them.
  std::span<std::uint8_t const> changes;
};

// A router that takes bytes: implemented and owned by the host like any router, and subject to the same
// rules. No message is made for it.
class KTD_EXPORT ByteRouter : public BaseRouter {
public:
  ByteRouter* byteRouter() final { return this; }
  // As `push`. The bytes are the library's: whoever wants to keep them copies them.
  virtual bool pushBytes(SyncId syncId, WalkId walkId, WireResponse const& response) = 0;

  // Encodes the message and hands it to `pushBytes`.
  bool push(SyncId syncId, WalkId walkId, std::shared_ptr<ArenaRespMsg>& response) final;
};

} // namespace Ondra
