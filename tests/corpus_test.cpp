// Every input that fuzzing kept is run through its target again.
#include <filesystem>

#include "../fuzz/targets.h"
#include "support/registry_fixture.h"

namespace {

TEST(Corpus, EveryInputKeepsThePromises) {
  const std::pair<const char*, FuzzTarget*> targets[] = {
      {"keyed_search", fuzzKeyedSearch},       {"operations", fuzzOperations},
      {"registry_export", fuzzRegistryExport}, {"stored_record", fuzzStoredRecord},
      {"text_lines", fuzzTextLines},           {"words", fuzzWords}};
  for (const auto& [name, run] : targets) {
    std::size_t count = 0;
    for (const auto& input :
         std::filesystem::directory_iterator(FUZZ_CORPUS + ("/" + std::string(name)))) {
      const std::string bytes = readFile(input.path().string());
      EXPECT_EQ(run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), 0);
      ++count;
    }
    EXPECT_GT(count, 0u) << name;
  }
}

// What an update makes of a last line depends on how that ends, which chance tries too seldom.
TEST(Operations, EveryEndOfATextFileKeepsThePromises) {
  const std::string letters("\\\r\n\0x", 5);
  std::vector<std::string> ends = {""};
  for (std::size_t i = 0; ends[i].size() < 3; ++i) {
    for (const char letter : letters) ends.push_back(ends[i] + letter);
  }
  // As the target reads them: what is done to other lines, and then behind the last or to it.
  const std::string first[] = {{0, 0, 5}, {1, 2, 9}, {2, 2, 0}};
  const std::string second[] = {{0, 3, 5}, {1, 1, 9}, {2, 1, 0}};
  const std::string oneUpdate = {6, 2, 0};
  for (int i = 0; i < 3 * 3 * 2 * 6; ++i) {
    const std::string both = first[i % 3] + second[i / 3 % 3];
    const std::string steps = i / 9 % 2 == 0 ? both : oneUpdate + both;
    const int features = 2 | (i / 18 % 2) << 2 | (i / 36) << 3;  // joined or not, three modes
    const std::string head{static_cast<char>(features), static_cast<char>(steps.size() / 3)};
    for (const std::string& end : ends) {
      const std::string input = head + steps + "c=1\nb=2#" + end;
      fuzzOperations(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    }
  }
}

}  // namespace
