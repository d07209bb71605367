// A Set request from bytes to bytes: with the library, and what its messages alone cost.
#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <utility>

#include "Ondra/KelGnmiSetter.h"

namespace Bench {

inline grpc::Status executedBytes(Kel::Ptr<Ondra::Path const> const& dataRoot, std::string const& bytes,
                                  std::string& answer) {
  gnmi::SetRequest request;
  request.ParseFromString(bytes);
  auto const [response, status] = Ondra::KelGnmiSet::Set(dataRoot, std::move(request)).execute();
  response.SerializeToString(&answer);
  return status;
}

// The same bytes parsed, and the answer's messages made and serialized by hand; no model is touched.
inline void messagesAlone(std::string const& bytes, std::string& answer) {
  gnmi::SetRequest request;
  request.ParseFromString(bytes);
  gnmi::SetResponse response;
  for (gnmi::Update const& update : request.update()) {
    gnmi::UpdateResult& result = *response.add_response();
    result.set_op(gnmi::UpdateResult::UPDATE);
    *result.mutable_path() = update.path();
  }
  response.SerializeToString(&answer);
  benchmark::DoNotOptimize(answer.data());
}

} // namespace Bench
