// The names of the wire schema in the descriptor pool; its fields are compared with the published ones by the tests in e2e.
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.grpc.pb.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Proto, FilesAndServiceAreFoundUnderThePublishedNames) {
  auto const& pool = *google::protobuf::DescriptorPool::generated_pool();
  auto const* file = pool.FindFileByName("github.com/openconfig/gnmi/proto/gnmi/gnmi.proto");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->options().GetExtension(gnmi::gnmi_service), "0.10.0");
  EXPECT_EQ(gnmi::gnmi_service.number(), 1001);
  EXPECT_NE(pool.FindFileByName("github.com/openconfig/gnmi/proto/gnmi_ext/gnmi_ext.proto"), nullptr);

  auto const* service = pool.FindServiceByName("gnmi.gNMI");
  ASSERT_NE(service, nullptr);
  std::string calls;
  for (int i = 0; i < service->method_count(); ++i) {
    auto const& call = *service->method(i);
    calls += call.name() + "(" + (call.client_streaming() ? "stream " : "") + call.input_type()->name() +
             ")->" + (call.server_streaming() ? "stream " : "") + call.output_type()->name() + " ";
  }
  EXPECT_EQ(calls,
            "Capabilities(CapabilityRequest)->CapabilityResponse Get(GetRequest)->GetResponse "
            "Set(SetRequest)->SetResponse Subscribe(stream SubscribeRequest)->stream SubscribeResponse ");
  EXPECT_STREQ(gnmi::gNMI::service_full_name(), "gnmi.gNMI");
}

} // namespace
