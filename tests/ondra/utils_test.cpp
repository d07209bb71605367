#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "Ondra/GnmiPath.h"
#include "Ondra/KelGnmiUtils.h"
#include "Ondra/WalkTypes.h"
#include "Tovak/Assert.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace {

namespace Utils = Ondra::KelGnmiUtils;

TEST(KelGnmiUtils, DoublesTravelAsBigEndianBytes) {
  EXPECT_EQ(Utils::encodeDoubleVal(1.0), std::string("\x3f\xf0\0\0\0\0\0\0", 8));
  EXPECT_EQ(Utils::decodeDoubleVal(std::string("\x3f\xf0\0\0\0\0\0\0", 8)), 1.0);
  EXPECT_EQ(Utils::decodeDoubleVal(std::string("\xc0\x5e\xdd\x2f\x1a\x9f\xbe\x77", 8)), -123.456);
  for (std::size_t const length : {0u, 7u, 9u}) {
    EXPECT_FALSE(Utils::decodeDoubleVal(std::string(length, 'x')).has_value()) << length;
  }
  std::mt19937_64 random(7);
  for (int i = 0; i < 1000; ++i) { // NaN patterns included
    std::uint64_t const bits = random();
    auto const back = Utils::decodeDoubleVal(Utils::encodeDoubleVal(std::bit_cast<double>(bits)));
    ASSERT_EQ(std::bit_cast<std::uint64_t>(back.value()), bits);
  }
}

TEST(KelGnmiUtils, FillsNotifications) {
  gnmi::Notification notification;
  Utils::populateTimestamp(notification, std::numeric_limits<long>::max());
  Utils::pushDelete(notification, Ondra::Path::strToPathIs("/a[k=1]/b"));
  Utils::pushDelete(notification, Ondra::Path::strToPathIs("/c"));
  EXPECT_EQ(notification.timestamp(), std::numeric_limits<long>::max());
  ASSERT_EQ(notification.delete__size(), 2);
  EXPECT_EQ(Ondra::pathToStr(notification.delete_(0), 0, true), "/a[k=1]/b");
  EXPECT_EQ(Ondra::pathToStr(notification.delete_(1), 0, true), "/c");

  EXPECT_EQ(Utils::stringVecJoin({}, "/"), "");
  EXPECT_EQ(Utils::stringVecJoin({"x"}, "/"), "x");
  EXPECT_EQ(Utils::stringVecJoin({"x", "", "z"}, "/"), "x//z");
}

template <class Do>
std::string assertionOf(Do const& run) {
  Tovak::ScopedAssertHandler const throws;
  try {
    run();
  } catch (Tovak::AssertionError const& error) {
    return error.handlerName() + ": " + error.what();
  }
  return "no assertion";
}

TEST(WalkTypes, FlagsAndResultsHaveTexts) {
  using Ondra::RequestType;
  using Ondra::WalkResult;
  EXPECT_EQ(Utils::requestTypeToFlags(RequestType::STREAM).bits(), 2);
  EXPECT_EQ(Utils::requestTypeToFlags(RequestType::ONCE).bits(), 4);
  EXPECT_EQ(Utils::requestTypeToFlags(RequestType::POLL).bits(), 6);
  EXPECT_EQ(assertionOf([] { static_cast<void>(Utils::requestTypeToFlags(RequestType{3})); }),
            "OndraKelGnmiUtils: Unrecognized request type:3");

  auto const flags = Ondra::flagInstantiatingOnly | Ondra::flagNoPause | Ondra::flagNoPush;
  EXPECT_EQ(fmt::format("{}", flags), "0000000010100001");
  EXPECT_EQ(flags.toString(), "0000000010100001");
  EXPECT_EQ((~Ondra::flagNoPush).toString(), "1111111111111110");
  EXPECT_TRUE(flags & Ondra::flagNoPush);
  EXPECT_FALSE(flags & Ondra::flagStream);
  EXPECT_FALSE(flags.has(Ondra::flagNoPush | Ondra::flagStream));

  std::string names;
  for (auto const value : {0, 1, 2, 3})
    names += fmt::format("{} ", WalkResult(value));
  EXPECT_EQ(names, "Success SuccessWithPipeFull PipeFull QuantaExceeded ");
  EXPECT_EQ(assertionOf([] { static_cast<void>(Ondra::walkResultToStringView(WalkResult{4})); }),
            "OndraWalker: 4 not a valid value");
}

} // namespace
