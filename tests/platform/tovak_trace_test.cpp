// Trace specifications, what a message costs that is off, and the report of a failed assertion.

#include <gmock/gmock.h>

#include "Tovak/Trace.h"
#include "Tovak/TraceSink.h"

namespace {

using testing::ElementsAre, Tovak::DebugHandler, Tovak::Platform::getDebugHandler, Tovak::Platform::traceIs;

constexpr std::uint32_t error = 1u << Tovak::traceLevelError;

// Every test leaves the process's trace spec as it found it: empty.
class TovakTrace : public ::testing::Test {
protected:
  void TearDown() override { ASSERT_TRUE(traceIs("").ok()); }
};

TEST_F(TovakTrace, SpecsSelectHandlersAndLevels) {
  DebugHandler& handler = getDebugHandler("TtWalker", false);
  EXPECT_EQ(&handler, &getDebugHandler("TtWalker", true));
  for (auto const& [spec, levels] : std::initializer_list<std::pair<char const*, std::uint32_t>>{
           {"", 0},
           {"TtWalker/0", 0x001},
           {"TtWalker/0-5", 0x03f},
           {"TtWalker/*", 0x3ff},
           {"TtWalker/1,TtWalker/8", 0x102},
           {" Other/* , TtWalker/2 ", 0x004},
           {"*/4", 0x010},
           {"*alk*/4", 0x010},
           {"T*W*r/4", 0x010},
           {"*r*er/4", 0}, // the stars must leave characters over for the rest
           {"Tt?alker/4", 0x010},
           {"TtWalker*/4", 0x010},
           {"TtWalker?/4", 0},
           {"ttwalker/4", 0},
       }) {
    auto const result = traceIs(spec);
    ASSERT_TRUE(result.ok()) << spec << ": " << result.error();
    EXPECT_EQ(handler.mask(), levels | error) << spec;
  }
}

TEST_F(TovakTrace, MalformedSpecsNameTheEntryAndChangeNothing) {
  ASSERT_TRUE(traceIs("TtWalker/7").ok());
  constexpr char const* expected = "expected a level from 0 to 9, a range like 0-5, or *";
  for (auto const& [spec, fault] : std::initializer_list<std::pair<char const*, Tovak::String>>{
           {"TtWalker", "trace spec entry \"TtWalker\": expected pattern/levels, as in OndraPath/0-5"},
           {"A/1,,B/2", "trace spec entry \"\": expected pattern/levels, as in OndraPath/0-5"},
           {"A/1, /2", "trace spec entry \"/2\": the pattern before '/' is empty"},
           {"A/", Tovak::String("trace spec entry \"A/\": levels \"\": ") + expected},
           {"A/10", Tovak::String("trace spec entry \"A/10\": levels \"10\": ") + expected},
           {"A/-1", Tovak::String("trace spec entry \"A/-1\": levels \"-1\": ") + expected},
           {"A/5-2", "trace spec entry \"A/5-2\": levels \"5-2\": the range is backwards"},
       }) {
    auto const result = traceIs(spec);
    ASSERT_FALSE(result.ok()) << spec;
    EXPECT_EQ(result.error(), fault);
    EXPECT_EQ(getDebugHandler("TtWalker", false).mask(), 0x080 | error) << spec;
  }
}

TEST_F(TovakTrace, SpecsApplyToHandlersOfLater) {
  ASSERT_TRUE(traceIs("TtLater*/2").ok());
  EXPECT_EQ(getDebugHandler("TtLaterQuiet", false).mask(), 0x004 | error);
  EXPECT_EQ(getDebugHandler("TtLaterLoud", true).mask(), 0x004 | error);
  ASSERT_TRUE(traceIs("").ok());
  EXPECT_EQ(getDebugHandler("TtLaterQuiet", false).mask(), error);
  EXPECT_EQ(getDebugHandler("TtLaterLoud", true).mask(), 0x001 | error);
}

TEST_F(TovakTrace, OffMessagesEvaluateNothing) {
  DebugHandler& handler = getDebugHandler("TtMessages", false);
  Tovak::ScopedTraceSink sink;
  int evaluated = 0;
  TOVAK_TRACE(handler, 3, "walk", "value {}", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  ASSERT_TRUE(traceIs("TtMessages/3").ok());
  TOVAK_TRACE(handler, 3, "walk", "value {}", ++evaluated);
  TOVAK_TRACE(handler, 4, "walk", "value {}", ++evaluated);
  TOVAK_TRACE(handler, Tovak::traceLevelError, "", "no arguments");
  Tovak::fmtrace(handler, 3, "dir/File.cpp", "f", 7, "", "{}-{}", 1, "two");
  EXPECT_EQ(evaluated, 1);
  EXPECT_THAT(sink.lines(),
              ElementsAre("TtMessages/3 value 1", "TtMessages/E no arguments", "TtMessages/3 1-two"));
}

TEST(TovakAssertDeathTest, ReportsAndAborts) {
  DebugHandler& handler = getDebugHandler("TtAssert", false);
  EXPECT_DEATH(Tovak::fmassert(handler, "dir/GnmiPath.cpp", "parse", 3, "ok", "bad {}", "path"),
               "E TtAssert.*GnmiPath.cpp:3 parse: assertion \"ok\" failed: bad path");
  auto const returning = [](Tovak::AssertionFailure const&) {};
  EXPECT_DEATH(
      {
        Tovak::ScopedAssertHandler const scope(returning);
        Tovak::ScopedTraceSink sink; // swallows nothing of a fatal report
        TOVAK_ASSERT(false, handler, "still fatal");
      },
      "still fatal");
}

} // namespace
