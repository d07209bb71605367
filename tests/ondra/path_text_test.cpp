// The text form of paths: printing both representations, parsing, malformed texts and their messages.
#include <gtest/gtest.h>

#include <fmt/format.h>

#include "Ondra/GnmiPath.h"
#include "Ondra/PathFormat.h"
#include "ondra/assertion.h"
#include "path_samples.h"

namespace {

using Ondra::Path, OndraTest::PathSamples, OndraTest::plainOf, OndraTest::PlainPath;

TEST(PathText, PrintsAlikeForBothRepresentations) {
  for (auto const& [plain, printed] : std::vector<std::pair<PlainPath, char const*>>{
           {{}, ""},
           {{{"", {}}}, "/"},
           {{{"interfaces", {}}, {"interface", {{"name", "eth1"}}}, {"state", {}}},
            "/interfaces/interface[name=eth1]/state"},
           {{{"e", {{"k", "2"}, {"a", "1"}}}}, "/e[a=1][k=2]"},
           {{{"e", {{"a", "~"}, {"a-b", "1"}, {"a=", "0"}, {"ab", ""}}}}, "/e[a-b=1][a==0][a=~][ab=]"},
           {{{"e", {{"a", "1"}, {"a\xff", "1"}}}}, "/e[a=1][a\xff=1]"},
           {{{"e/[", {{"k", "]\\"}}}}, "/e/[[k=]\\]"},
           {{{"e", {{"k", "[]="}}}, {"f", {}}}, "/e[k=[]=]/f"},
       }) {
    PathSamples samples(1);
    Kel::Ptr<Path const> const path = samples.path(plain);
    gnmi::Path message = samples.gnmiPath(plain);
    message.set_origin("not printed");
    message.set_target("nor this");
    EXPECT_EQ(path->toString(), printed);
    EXPECT_EQ(fmt::format("{}", path), printed);
    EXPECT_EQ(fmt::format("{}", message), printed);
    for (std::size_t start = 0; start <= plain.size() + 1; ++start) {
      for (bool const leading : {false, true}) {
        std::string const text = path->toSubString(start, leading);
        EXPECT_EQ(text, Ondra::pathToStr(message, static_cast<int>(start), leading));
        EXPECT_EQ(text, Ondra::pathToStrImpl(path, start, leading, "/"));
      }
    }
    EXPECT_TRUE(message.elem_size() != 1 || fmt::format("/{}", message.elem(0)) == printed) << printed;
  }
  Kel::Ptr<Path> const path = Path::strToPathIs("/a/b[k=1]/c/d");
  EXPECT_EQ(path->toKeyString(), "a__b[k=1]__c__d");
  EXPECT_EQ(path->toSubString(2, false), "c/d");
  EXPECT_EQ(path->toSubString(3, true), "/d");
  EXPECT_EQ(path->toSubString(4, true), "");
  EXPECT_EQ(Path::PathIs()->toKeyString(), "");
  EXPECT_EQ(fmt::format("{}", Kel::Ptr<Path const>()), "null");
}

TEST(PathText, Parses) {
  for (auto const& [text, path] : std::vector<std::pair<char const*, PlainPath>>{
           {"", {}},
           {"/", {}},
           {"a", {{"a", {}}}},
           {"a/", {{"a", {}}}},
           {"a//", {{"a", {}}, {"", {}}}},
           {"/a//b", {{"a", {}}, {"", {}}, {"b", {}}}},
           {"e[k=2][a=1]", {{"e", {{"a", "1"}, {"k", "2"}}}}},
           {"e[k=1][k=2]", {{"e", {{"k", "2"}}}}},
           {"[k=v]/x", {{"", {{"k", "v"}}}, {"x", {}}}},
           {"a[k=1]b", {{"b", {{"k", "1"}}}}},
           {"a\\/b]", {{"a\\", {}}, {"b]", {}}}},
           {R"(n[k=a\]b])", {{"n", {{"k", "a]b"}}}}},
           {R"(n[k=a\\])", {{"n", {{"k", "a\\"}}}}},
           {"n[k=[x]]", {{"n", {{"k", "[x]"}}}}},
           {"n[k=[a]/b]/c", {{"n", {{"k", "[a]/b"}}}, {"c", {}}}},
           {"n[k=a=b]", {{"n", {{"k", "a=b"}}}}},
           {"n[k e/y]=v]", {{"n", {{"k e/y]", "v"}}}}},
       })
    EXPECT_EQ(plainOf(*Path::strToPathIs(text)), path) << text;
}

TEST(PathText, ParsesBackWhatItPrintsUnlessEscapesWereNeeded) {
  std::string const letters = "abz-_.:=/ 09\xe2\x82\xac";
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    PathSamples samples(seed);
    auto const text = [&](std::string const& but) {
      std::string made;
      for (std::size_t i = samples.below(9); i > 0; --i) {
        char const c = letters[samples.below(letters.size())];
        if (but.find(c) == std::string::npos) made += c;
      }
      return made;
    };
    PlainPath plain(1 + samples.below(5));
    for (OndraTest::PlainElem& elem : plain) {
      elem.name = "n" + text("/");
      for (std::size_t keys = samples.below(4); keys > 0; --keys) {
        std::string const value = text("");
        elem.keys["k" + text("=")] = samples.below(3) == 0 ? fmt::format("[{0}]{0}", value) : value;
      }
    }
    Kel::Ptr<Path const> const path = samples.path(plain);
    EXPECT_EQ(plainOf(*Path::strToPathIs(path->toString())), plain) << path->toString();
  }
}

TEST(PathText, AssertsThatTextsAreWellFormed) {
  std::string const noAlpha = "' should start with an alpha character, got ",
                    noEquals = "' without finding '='", noEnd = "' without finding ']'";
  for (auto const& [text, message] : std::vector<std::pair<std::string, std::string>>{
           {"name[1k=v]", "string 'name[1k=v]" + noAlpha + "1"},
           {"name[=v]", "string 'name[=v]" + noAlpha + "="},
           {"name[", "string 'name[" + noAlpha},
           {"name[k]", "reached end of path 'name[k]" + noEquals},
           {"name[k=v", "reached end of path 'name[k=v" + noEnd},
           {"name[k=[v]", "reached end of path 'name[k=[v]" + noEnd},
           {R"(name[k=v\])", R"(reached end of path 'name[k=v\])" + noEnd},
           {R"(name[k=v\)", R"(path 'name[k=v\' contains a trailing backslash)"}})
    EXPECT_EQ(assertionIn([&text = text] { static_cast<void>(Path::strToPathIs(text)); }),
              "OndraPath: " + message);
  gnmi::Path used = PathSamples(1).gnmiPath({{"a", {{"k", "1"}}}});
  EXPECT_EQ(assertionIn([&] { Path::PathIs()->copyToGnmiPath(&used); }),
            "OndraPath: expected gnmiPath:/a[k=1] to be empty");
}

} // namespace
