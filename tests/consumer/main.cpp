// A program outside the project: it sees only what is installed.
#include "Kstd/Version.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.grpc.pb.h"

#include <fmt/core.h>

int main() {
  gnmi::Path path;
  path.add_elem()->set_name("interfaces");
  // The class compiled here and the one registered by the library must be the same one.
  auto const* registered =
      google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName("gnmi.Path");
  if (registered != gnmi::Path::descriptor()) return 1;
  fmt::print("{} {}\n", Kstd::libraryVersion(), path.ShortDebugString());
  return 0;
}
