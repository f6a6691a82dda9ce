#include "faces/registry.h"

#include <algorithm>
#include <iterator>

#include "faces/changing_registry.h"

namespace faces {
namespace {

using Options = RegistryOptions;

constexpr unsigned int bitOf(Kind kind) { return 1U << static_cast<unsigned int>(kind); }
constexpr unsigned int ofTexts = bitOf(Kind::Var) | bitOf(Kind::Services);
constexpr unsigned int ofAll = ofTexts | bitOf(Kind::Bin) | bitOf(Kind::Global);
constexpr struct {
  std::string_view name;
  bool Options::*place;
  unsigned int kinds;
} optionRows[] = {{"big-endian", &Options::bigEndian, bitOf(Kind::Bin)},
                  {"joined", &Options::joined, ofTexts},
                  {"alike", &Options::alike, ofTexts},
                  {"compact", &Options::compact, bitOf(Kind::Var)},
                  {"bytes", &Options::bytes, ofAll},
                  {"get-in-scan", &Options::getInScan, ofAll}};
template <typename Flavour, typename Record>
std::unique_ptr<Registry> open(const char* path, const Options& options, unsigned int* code) {
  auto registry = std::make_unique<ChangingRegistry<Flavour, Record>>(path, options, code);
  if (*code != 0) return nullptr;
  return registry;
}

constexpr struct {
  Kind kind;
  std::unique_ptr<Registry> (*open)(const char* path, const Options& options, unsigned int* code);
} kinds[] = {{KindOf<BinVarValRecord>::kind, open<GenRegBinVarVal, BinVarValRecord>},
             {KindOf<VarValRecord>::kind, open<GenRegVarVal, VarValRecord>},
             {KindOf<ServiceEntryRecord>::kind, open<GenRegServices, ServiceEntryRecord>},
             {KindOf<GlobalRegRecord>::kind, open<GlobalReg, GlobalRegRecord>}};

std::string_view takeWord(std::string_view& words) {
  const std::string_view word = words.substr(0, words.find(','));
  words.remove_prefix(std::min(word.size() + 1, words.size()));
  return word;
}

// The options behind a kind; false when one of them is none.
bool readOptions(std::string_view words, Kind kind, Options& options) {
  while (!words.empty()) {
    const std::string_view word = takeWord(words);
    const auto* const row =
        std::find_if(std::begin(optionRows), std::end(optionRows), [&](const auto& option) {
          return option.name == word && (option.kinds & bitOf(kind)) != 0;
        });
    if (row == std::end(optionRows)) return false;
    options.*row->place = true;
  }
  return true;
}

}  // namespace

unsigned int openRegistry(const char* kind, const char* path, std::unique_ptr<Registry>& registry,
                          std::string& cause) {
  std::string_view words = kind;
  const std::string_view name = takeWord(words);
  Options options;
  for (const auto& row : kinds) {
    if (name != nameOf(row.kind) || !readOptions(words, row.kind, options)) continue;
    unsigned int code = 0;
    std::string spelled;
    if (path != nullptr && !platform::pathFromUtf8(path, spelled)) {
      code = GENREG_RC_PATH_ENCODING;
    } else {
      registry = row.open(path == nullptr ? nullptr : spelled.c_str(), options, &code);
    }
    const GenRegReturnCode* const meaning = genRegFindReturnCode(code);
    if (meaning == nullptr) return code;
    cause =
        (path == nullptr ? "the global registry's path" : inQuotes(path)) + ": " + meaning->meaning;
    return code;
  }
  cause = inQuotes(kind) + ": a kind is bin, var, services or global, and its options";
  return GENREG_RC_UNKNOWN_KIND;
}

}  // namespace faces
