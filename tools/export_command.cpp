// zorreg export-file FILE ...: a look into an export of a registry. Nothing is written.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>

#include "commands.h"
#include "export_value.h"
#include "file_content.h"
#include "platform/registry_export/registry_export.h"
#include "platform/registry_export/unicode.h"
#include "progress.h"
#include "report.h"
#include "sysservices/file_system.h"
#include "verbs.h"

namespace tool {
namespace {

using platform::RegistryKey;
using platform::RegistryTree;

constexpr std::size_t largestExport = std::size_t{1} << 30;  // bytes

constexpr const char* shortNames[][2] = {{"HKLM", "HKEY_LOCAL_MACHINE"},
                                         {"HKCR", "HKEY_CLASSES_ROOT"},
                                         {"HKCU", "HKEY_CURRENT_USER"},
                                         {"HKU", "HKEY_USERS"},
                                         {"HKCC", "HKEY_CURRENT_CONFIG"}};

// The text in capitals, as names are matched.
std::string capitals(const std::string& text) {
  std::string folded;
  folded.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t from = i;
    const char32_t letter = platform::nextCodePoint(text, i);
    if (letter == platform::invalidCodePoint) {
      folded += text[from];
    } else {
      platform::appendUtf8(folded, platform::capitalOf(letter));
    }
  }
  return folded;
}

// Reads the export and hands it to `work`; gives the exit status.
template <int (*work)(const RegistryTree& tree, const Words& words)>
int onExport(const Words& words) {
  if (!ossPathExists(words.file.c_str())) return reportCode(GENREG_RC_NO_FILE, words.file);
  std::string bytes;
  if (!readContent(words.file, largestExport + 1, bytes)) {
    return reportCode(GENREG_RC_OPEN_FAILED, words.file);
  }
  if (bytes.size() > largestExport) return reportRefusal(words.file, "is larger than 1 GiB");
  const Progress progress("reading " + words.file);
  RegistryTree tree;
  platform::ExportFault fault;
  if (!platform::readRegistryExport(bytes, tree, fault)) {
    return reportRefusal(words.file + ", line " + std::to_string(fault.line) + ":", fault.reason);
  }
  return work(tree, words);
}

int reportMissing(const std::string& message) {
  std::fprintf(stderr, "zorreg: %s\n", printable(message).c_str());
  return exitNotFound;
}

// The root keys that an export may name are all in its tree; one that holds nothing is not in the
// export.
bool isThere(RegistryKey key, bool isRoot) {
  return !(isRoot && key->subkeys.empty() && key->values.empty());
}

// The deepest key of a path that is there, its own path, and whether it is the whole.
struct Place {
  RegistryKey key = nullptr;
  std::string path;
  bool whole = true;
};

Place placeOf(const RegistryTree& tree, const std::string& path, const char* separators) {
  Place place{tree.roots(), "", true};
  for (std::size_t start = 0; start < path.size();) {
    const std::size_t end = std::min(path.find_first_of(separators, start), path.size());
    std::string name = path.substr(start, end - start);
    start = end + 1;
    if (name.empty()) continue;
    const bool isRoot = place.path.empty();
    for (const auto& row : shortNames) {
      if (isRoot && capitals(name) == row[0]) name = row[1];
    }
    const auto next = place.key->subkeys.find(name);
    place.whole = next != place.key->subkeys.end() && isThere(next->second, isRoot);
    if (!place.whole) return place;
    place.path += (isRoot ? "" : "\\") + next->first;
    place.key = next->second;
  }
  return place;
}

// A slash separates only where none is part of a name.
Place placeOf(const RegistryTree& tree, const std::string& path) {
  Place place = placeOf(tree, path, "\\");
  return place.whole ? place : placeOf(tree, path, "\\/");
}

int reportMissingKey(const Words& words, const Place& place) {
  return reportMissing("there is no key " + words.name +
                       (place.path.empty()
                            ? "; the export has no such root key"
                            : "; " + place.path + " is the deepest part that exists"));
}

int get(const RegistryTree& tree, const Words& words) {
  const Place place = placeOf(tree, words.name);
  if (!place.whole) return reportMissingKey(words, place);
  if (words.value.empty()) {
    Listing values;
    for (const auto& [name, value] : place.key->values) {
      values.add({cellsOf(name, value), jsonOf(name, value)});
    }
    values.print(words.json);
    return exitDone;
  }
  const auto found = place.key->values.find(words.value == "@" ? "" : words.value);
  if (found == place.key->values.end()) {
    return reportMissing(place.path + " has no value " + words.value);
  }
  if (words.json) {
    printJson(jsonOf(found->first, found->second));
  } else {
    for (const std::string& text : textsOf(found->second))
      std::printf("%s\n", printable(text).c_str());
  }
  return exitDone;
}

int list(const RegistryTree& tree, const Words& words) {
  const Place place = placeOf(tree, words.name);
  if (!place.whole) return reportMissingKey(words, place);
  Listing keys;
  const bool areRoots = place.path.empty();
  for (const auto& [name, key] : place.key->subkeys) {
    if (!isThere(key, areRoots)) continue;
    const std::string path = areRoots ? name : place.path + "\\" + name;
    keys.add({{printable(name)}, {{"name", name}, {"key", path}}});
  }
  keys.print(words.json);
  return exitDone;
}

// Adds the key `name` at `path` and its values, as far as they hold the pattern (in capitals).
void addMatches(const std::string& name, RegistryKey key, const std::string& path,
                const std::string& pattern, Listing& found) {
  const auto matches = [&](const std::string& text) {
    return capitals(text).find(pattern) != std::string::npos;
  };
  if (matches(name)) found.add({{printable(path)}, {{"key", path}}});
  for (const auto& [valueName, value] : key->values) {
    bool wanted = matches(valueName);
    if (!wanted && holdsText(value)) {
      for (const std::string& text : textsOf(value)) wanted = wanted || matches(text);
    }
    if (!wanted) continue;
    Row row{cellsOf(valueName, value), {{"key", path}}};
    row.cells.insert(row.cells.begin(), printable(path));
    row.json.update(jsonOf(valueName, value));
    found.add(std::move(row));
  }
}

// Keys may lie deeper than calls can.
int find(const RegistryTree& tree, const Words& words) {
  struct Open {
    const std::string* name;
    RegistryKey key;
    std::size_t parentSize;  // of its path
  };
  const std::string pattern = capitals(words.value);
  Listing found;
  std::string path;
  std::vector<Open> open;
  const auto openBelow = [&](RegistryKey key) {
    for (auto child = key->subkeys.rbegin(); child != key->subkeys.rend(); ++child) {
      if (!isThere(child->second, path.empty())) continue;
      open.push_back({&child->first, child->second, path.size()});
    }
  };
  for (openBelow(tree.roots()); !open.empty();) {
    const Open next = open.back();
    open.pop_back();
    path.resize(next.parentSize);
    path += (path.empty() ? "" : "\\") + *next.name;
    addMatches(*next.name, next.key, path, pattern, found);
    openBelow(next.key);
  }
  if (found.empty()) return reportMissing("nothing holds " + words.value);
  found.print(words.json);
  return exitDone;
}

constexpr Argument key{"KEY", "the key, as HKLM\\SOFTWARE or HKLM/SOFTWARE", &Words::name,
                       Need::MustFilled};
constexpr Argument someKey{"KEY", "the key; else the root keys", &Words::name, Need::MayFilled};
constexpr Argument value{"VALUE", "the value's name; @ is the default value", &Words::value,
                         Need::MayFilled};
constexpr Argument pattern{"PATTERN", "the text to look for", &Words::value, Need::MustFilled};

constexpr Verb verbs[] = {
    {"get",
     "print the values of a key, or the data of one",
     Plain(onExport<get>),
     {&key, &value, &jsonArgument}},
    {"list",
     "print the names of the keys below a key",
     Plain(onExport<list>),
     {&someKey, &jsonArgument}},
    {"find",
     "print the keys and values whose name or text holds a pattern, in capitals or not",
     Plain(onExport<find>),
     {&pattern, &jsonArgument}},
};

}  // namespace

void addExportCommand(CLI::App& app, int& status) {
  addGroup(app,
           {"export-file",
            "an export of a registry",
            {&fileArgument},
            std::begin(verbs),
            std::end(verbs)},
           status,
           [](const Verb& verb, const Words& words) { return std::get<Plain>(verb.run)(words); });
}

}  // namespace tool
