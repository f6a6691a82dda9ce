#include "edited_records.h"

#include <algorithm>
#include <map>

#include "file_content.h"
#include "record_words.h"
#include "store.h"

namespace tool {
namespace {

using faces::NamedFields;

constexpr const char* header =
    "# One record a line. What is added comes last, whatever the order of the lines;\n"
    "# lines that begin with # are passed over.\n";

std::string lineOf(Kind kind, const NamedFields& record) {
  std::string line;
  for (const std::string& cell : cellsOf(kind, record)) line += cell;
  return line.erase(line.find_last_not_of(' ') + 1);
}

// Lines that hold a record, with how many there are of each; of the new ones the first's number.
struct Line {
  std::string bytes;
  std::uint64_t number;
};

std::vector<Line> recordLines(const std::string& text) {
  std::vector<Line> lines;
  forEachLine(text, [&](const TextLine& line) {
    const std::size_t start = line.bytes.find_first_not_of(" \t");
    if (start != std::string::npos && line.bytes[start] != '#') {
      lines.push_back({line.bytes, line.number});
    }
  });
  return lines;
}

// Those of `lines` that `others` lacks, each as often as it is missing.
std::vector<Line> without(const std::vector<Line>& lines, const std::vector<Line>& others) {
  std::map<std::string, std::size_t> counts;
  for (const Line& line : others) ++counts[line.bytes];
  std::vector<Line> left;
  for (const Line& line : lines) {
    std::size_t& count = counts[line.bytes];
    if (count == 0) {
      left.push_back(line);
    } else {
      --count;
    }
  }
  return left;
}

// The changes of one edit.
class Changes {
 public:
  Changes(Kind kind, const std::string& before, const std::string& after)
      : kind_(kind), old_(recordLines(before)), now_(recordLines(after)) {
    gone_ = without(old_, now_);
    come_ = without(now_, old_);
  }

  int make(Store& store) const {
    std::map<std::string, NamedFields> replaced;
    std::vector<NamedFields> removed;
    const Entries entries = entriesOf(store);
    if (entries.code != 0 && entries.code != GENREG_RC_NO_FILE) return store.outcome(entries.code);
    if (!isAsBefore(entries)) {
      return reportRefusal(store.file(), "was changed by another program meanwhile");
    }
    // As the lines are those of the entries, a line's place is that of its record.
    std::map<std::string, std::vector<std::size_t>> places;
    for (std::size_t i = 0; i < old_.size(); ++i) places[old_[i].bytes].push_back(i);
    for (const Line& line : gone_) {
      const std::vector<std::size_t>& found = places[line.bytes];
      if (found.size() > 1) {
        return reportRefusal(store.file(), "holds this record more than once: " + line.bytes);
      }
      for (const std::size_t place : found) removed.push_back(entries.all[place].record);
    }
    for (const NamedFields& record : removed) replaced.emplace(identityOf(kind_, record), record);
    std::map<std::string, NamedFields> left = replaced;
    for (const Line& line : come_)
      left.erase(identityOf(kind_, recordOfLine(kind_, line.bytes).fields));
    for (const NamedFields& record : removed) {
      if (left.count(identityOf(kind_, record)) == 0) continue;
      const int status = store.outcome(store.registry().remove(record));
      if (status != exitDone) return status;
    }
    for (const Line& line : come_) {
      if (const int status = put(store, line, replaced); status != exitDone) return status;
    }
    return exitDone;
  }

 private:
  static Entries entriesOf(Store& store) {
    Entries entries;
    NamedFields record;
    unsigned int code = store.registry().scan();
    while (code == 0 && (code = store.registry().next(record)) == 0) {
      entries.all.push_back({"", record});
    }
    (void)store.registry().endScan();
    if (code != GENREG_RC_END) entries.code = code;
    return entries;
  }

  bool isAsBefore(const Entries& entries) const {
    if (entries.all.size() != old_.size()) return false;
    for (std::size_t i = 0; i < old_.size(); ++i) {
      if (lineOf(kind_, entries.all[i].record) != old_[i].bytes) return false;
    }
    return true;
  }

  // Changes the record of that identity, or adds one.
  int put(Store& store, const Line& line, std::map<std::string, NamedFields>& replaced) const {
    NamedFields record = recordOfLine(kind_, line.bytes).fields;
    const auto found = replaced.find(identityOf(kind_, record));
    unsigned int code = 0;
    if (found == replaced.end()) {
      code = store.registry().add(record);
    } else {
      // A field that the line lacks goes.
      for (const auto& [name, value] : found->second.all()) {
        const bool isShown = name != "CheckSum" && name != "UnknownFields";
        if (isShown && !record.has(name)) record.set(name, "");
      }
      code = store.registry().change(found->second, record);
      replaced.erase(found);
    }
    const int status = store.outcome(code);
    if (status != exitDone) {
      (void)reportRefusal("line " + std::to_string(line.number), "is not stored, nor is any other");
    }
    return status;
  }

  Kind kind_;
  std::vector<Line> old_;
  std::vector<Line> now_;
  std::vector<Line> gone_;
  std::vector<Line> come_;
};

}  // namespace

std::string linesOf(Kind kind, const Entries& entries) {
  std::string text = header;
  for (const Entry& entry : entries.all) text += lineOf(kind, entry.record) + "\n";
  return text;
}

std::vector<LineFinding> findingsIn(Kind kind, const std::string& before,
                                    const std::string& after) {
  std::vector<LineFinding> findings;
  for (const Line& line : without(recordLines(after), recordLines(before))) {
    const Parsed parsed = recordOfLine(kind, line.bytes);
    if (!parsed.wrong.empty()) findings.push_back({line.number, line.bytes, parsed.wrong});
  }
  return findings;
}

int storeLines(Kind kind, const Words& words, const std::string& before, const std::string& after) {
  Store store(kind, words);
  if (store.status() != exitDone) return store.status();
  const Changes changes(kind, before, after);
  return store.update([&] { return changes.make(store); });
}

}  // namespace tool
