#include "faces/line_layout.h"

#include <algorithm>
#include <map>

namespace faces {
namespace {

constexpr std::string_view blanks = " \t";
constexpr std::size_t tabWidth = 8;

template <typename Visit>
void forEachLine(std::string_view content, Visit visit) {
  while (!content.empty()) {
    const std::size_t newline = content.find('\n');
    std::string_view line = content.substr(0, newline);
    content.remove_prefix(newline == std::string_view::npos ? content.size() : newline + 1);
    const bool returned = !line.empty() && line.back() == '\r';
    if (returned) line.remove_suffix(1);
    visit(line, returned);
  }
}

// Counts what it is shown.
template <typename Thing>
class Poll {
 public:
  void add(const Thing& thing) {
    ++counts_[thing];
    ++total_;
  }
  std::size_t total() const { return total_; }
  // What was shown more often than anything else; null when there is no such thing.
  const Thing* winner() const {
    const Thing* best = nullptr;
    std::size_t most = 0;
    for (const auto& [thing, count] : counts_) {
      best = count > most ? &thing : count == most ? nullptr : best;
      most = std::max(most, count);
    }
    return best;
  }
  // The winner, when it has more than half of all.
  const Thing* majority() const {
    const Thing* best = winner();
    return best != nullptr && 2 * counts_.at(*best) > total_ ? best : nullptr;
  }

 private:
  std::map<Thing, std::size_t> counts_;
  std::size_t total_ = 0;
};

// --- profiles ---

struct Assignment {
  std::string_view name;
  std::string_view before;  // blanks in front of the "="
  std::string_view after;
  std::string_view value;  // and what follows it
};

bool splitAssignment(std::string_view line, Assignment& parts) {
  const std::size_t start = line.find_first_not_of(blanks);
  if (start == std::string_view::npos || line[start] == '#') return false;
  line.remove_prefix(start);
  parts.name = line.substr(0, line.find_first_of(" \t="));
  line.remove_prefix(parts.name.size());
  const std::size_t equals = line.find_first_not_of(blanks);
  if (equals == std::string_view::npos || line[equals] != '=') return false;
  parts.before = line.substr(0, equals);
  line.remove_prefix(equals + 1);
  const std::size_t value = std::min(line.find_first_not_of(blanks), line.size());
  parts.after = line.substr(0, value);
  parts.value = line.substr(value);
  return true;
}

// --- services ---

// The parts of a line and what stands between them; those behind the port may be empty.
struct Service {
  std::string_view parts[4];  // name, port and protocol, aliases, comment with its "#"
  std::string_view separators[3];
};

bool splitService(std::string_view line, Service& service) {
  if (line.empty() || line[0] == '#' || blanks.find(line[0]) != std::string_view::npos) {
    return false;
  }
  const std::size_t hash = line.find('#');
  std::string_view rest = line.substr(0, hash);
  for (int i = 0; i < 2; ++i) {
    service.parts[i] = rest.substr(0, rest.find_first_of(blanks));
    rest.remove_prefix(service.parts[i].size());
    const std::size_t next = std::min(rest.find_first_not_of(blanks), rest.size());
    service.separators[i] = rest.substr(0, next);
    rest.remove_prefix(next);
  }
  const std::size_t end = rest.find_last_not_of(blanks);
  service.parts[2] = rest.substr(0, end == std::string_view::npos ? 0 : end + 1);
  const std::string_view gap = rest.substr(service.parts[2].size());
  if (hash != std::string_view::npos) service.parts[3] = line.substr(hash);
  // Without aliases the comment follows the port.
  service.separators[2] = service.parts[2].empty() ? service.separators[1] : gap;
  return service.parts[1].find('/') != std::string_view::npos;
}

std::size_t columnBehind(std::size_t column, std::string_view text) {
  for (const char character : text) {
    column = character == '\t' ? (column / tabWidth + 1) * tabWidth : column + 1;
  }
  return column;
}

struct PartPoll {
  Poll<std::size_t> columns;
  Poll<std::string> separators;
  Poll<bool> tabs;
  void add(std::size_t column, std::string_view separator) {
    columns.add(column);
    tabs.add(separator.find('\t') != std::string_view::npos);
    separators.add(std::string(separator));
  }
  LineLayout::Part part() const {
    LineLayout::Part part;
    if (const std::string* separator = separators.winner()) part.separator = *separator;
    if (const std::size_t* column = columns.majority()) part.column = *column;
    part.usesTabs = tabs.winner() != nullptr && *tabs.winner();
    return part;
  }
};

// Puts a part behind a line, at its column where that is still free.
void append(std::string& line, const LineLayout::Part& part, std::string_view text) {
  if (part.column == 0) {
    line += part.separator;
  } else {
    std::size_t column = columnBehind(0, line);
    if (column >= part.column) line += part.usesTabs ? '\t' : ' ';
    while (column < part.column) {
      const std::size_t stop = (column / tabWidth + 1) * tabWidth;
      const bool isTab = part.usesTabs && stop <= part.column;
      line += isTab ? '\t' : ' ';
      column = isTab ? stop : column + 1;
    }
  }
  line += text;
}

}  // namespace

LineLayout layoutOfProfile(std::string_view content) {
  Poll<bool> returns;
  Poll<bool> quotes;
  Poll<std::pair<std::string, std::string>> around;
  forEachLine(content, [&](std::string_view line, bool returned) {
    returns.add(returned);
    Assignment parts;
    if (!splitAssignment(line, parts)) return;
    around.add({std::string(parts.before), std::string(parts.after)});
    quotes.add(!parts.value.empty() && parts.value[0] == '"');
  });
  LineLayout layout;
  layout.endsInReturn = returns.winner() != nullptr && *returns.winner();
  const auto* most = around.winner();
  layout.isKnown = most != nullptr;
  if (most == nullptr) return layout;
  layout.beforeEquals = most->first;
  layout.afterEquals = most->second;
  layout.isShell = most->first.empty() && most->second.empty();
  const bool* quoted = quotes.majority();
  layout.quotesAll = quoted != nullptr && *quoted;
  return layout;
}

LineLayout layoutOfServices(std::string_view content) {
  Poll<bool> returns;
  PartPoll port;
  PartPoll aliases;
  PartPoll comment;
  forEachLine(content, [&](std::string_view line, bool returned) {
    returns.add(returned);
    Service service;
    if (!splitService(line, service)) return;
    PartPoll* const polls[] = {&port, &aliases, &comment};
    for (int i = 0; i < 3; ++i) {
      const std::string_view part = service.parts[i + 1];
      if (part.empty()) continue;
      const auto offset = static_cast<std::size_t>(part.data() - line.data());
      polls[i]->add(columnBehind(0, line.substr(0, offset)), service.separators[i]);
    }
  });
  LineLayout layout;
  layout.endsInReturn = returns.winner() != nullptr && *returns.winner();
  layout.isKnown = port.columns.total() != 0;
  layout.port = port.part();
  layout.aliases = aliases.part();
  layout.comment = comment.part();
  return layout;
}

std::string reshapedProfile(const LineLayout& layout, std::string_view replaced,
                            std::string_view written) {
  std::string line(written);
  Assignment parts;
  if (layout.isKnown && replaced.empty() && splitAssignment(written, parts)) {
    line = std::string(parts.name) + layout.beforeEquals + "=" + layout.afterEquals;
    line += parts.value;
  }
  return line;
}

std::string reshapedServices(const LineLayout& layout, std::string_view replaced,
                             std::string_view written) {
  std::string line(written);
  Service fresh;
  Service old;
  if (splitService(written, fresh) && (layout.isKnown || !replaced.empty())) {
    const bool isChange = splitService(replaced, old);
    const LineLayout::Part* const parts[] = {&layout.port, &layout.aliases, &layout.comment};
    line = fresh.parts[0];
    for (int i = 0; i < 3; ++i) {
      if (fresh.parts[i + 1].empty()) continue;
      LineLayout::Part part = *parts[i];
      const bool wasThere = isChange && !old.parts[i + 1].empty();
      const bool isAlike = i < 2 || old.parts[2].empty() == fresh.parts[2].empty();
      if (wasThere && isAlike) part = {0, false, std::string(old.separators[i])};
      const bool isKnown = part.column != 0 || !part.separator.empty();
      if (!isKnown) part.separator = layout.port.usesTabs ? fresh.separators[i] : "  ";
      append(line, part, fresh.parts[i + 1]);
    }
  }
  return line;
}

}  // namespace faces
