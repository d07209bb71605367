// Replays the fuzzer's corpus, then inputs cut and spliced from it. KTD_FUZZ_RUNS asks for more of these.
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "../../fuzz/set_fuzz.cpp"

namespace {

void feed(std::string const& input) {
  LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(input.data()), input.size());
}

TEST(SetFuzz, CorpusAndVariations) {
  std::vector<std::string> corpus;
  for (auto const& entry : std::filesystem::directory_iterator(KTD_SOURCE_DIR "/fuzz/corpus/set")) {
    std::ifstream file(entry.path(), std::ios::binary);
    corpus.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    feed(corpus.back());
  }
  ASSERT_GE(corpus.size(), 5U);
  char const* const wanted = std::getenv("KTD_FUZZ_RUNS");
  int const runs = wanted == nullptr ? 25 : std::atoi(wanted);
  for (int seed = 1; seed <= runs; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(static_cast<std::uint32_t>(seed));
    std::string input = corpus[random() % corpus.size()];
    std::string const& other = corpus[random() % corpus.size()];
    for (auto left = 1 + random() % 6; left != 0 && !input.empty(); --left) {
      std::size_t const at = random() % input.size();
      if (random() % 3 == 0)
        input = input.substr(0, at) + other.substr(std::min<std::size_t>(other.size(), random() % 400));
      else
        input[at] = static_cast<char>(random());
    }
    feed(input);
  }
}

// A request of a great many operations costs in proportion to its length.
TEST(SetFuzz, ManyOperations) {
  Fixture::World const world;
  gnmi::SetRequest request;
  for (int i = 0; i < 200000; ++i) {
    gnmi::Update& update = *request.add_update();
    gnmi::PathElem& elem = *update.mutable_path()->add_elem();
    elem.set_name("vlanShare");
    (*elem.mutable_key())["k"] = std::to_string(i % 65536);
    update.mutable_val()->set_uint_val(static_cast<std::uint64_t>(i));
  }
  EXPECT_EQ("OK", textOf(execute(request).second));
  EXPECT_EQ(65536U, world.device()->vlanShares.size());
  for (int i = 0; i < 65; ++i) {
    gnmi::PathElem& elem = *request.add_delete_()->add_elem();
    elem.set_name("route");
    (*elem.mutable_key())["vrf"] = std::to_string(i);
    (*elem.mutable_key())["subnet"] = "*";
  }
  EXPECT_NE(std::string::npos, textOf(execute(request).second).find("More than 64 elements with wildcards"));
}

} // namespace
