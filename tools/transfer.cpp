#include "transfer.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>

#include "command_tree.h"
#include "content_update.h"
#include "faces/line_parser.h"
#include "file_content.h"
#include "progress.h"
#include "record_json.h"
#include "record_verbs.h"
#include "record_words.h"
#include "trial.h"

namespace tool {
namespace {

using faces::NamedFields;

constexpr const char* lineMember = "Line";    // of a text: the line as it stands in the file
constexpr const char* endedMember = "Ended";  // of a Line: false for one without a newline

// The whole of what the words name as input. Gives the exit status.
int readInput(const Words& words, std::string& name, std::string& text) {
  const bool isStandard = words.input.empty() || words.input == "-";
  name = isStandard ? "standard input" : words.input;
  std::ifstream file;
  if (!isStandard) file.open(std::filesystem::u8path(words.input), std::ios::binary);
  std::istream& stream = isStandard ? std::cin : file;
  if (!isStandard && !file) return reportFailure(printable(name) + " cannot be opened");
  text.assign(std::istreambuf_iterator<char>(stream), {});
  if (stream.bad() || (isStandard && std::ferror(stdin) != 0)) {
    return reportFailure(printable(name) + " cannot be read");
  }
  return exitDone;
}

// Hands the lines that are not blank, and do not begin with "#", to `setLine`(line), which gives an
// exit status, and what is wrong with the line in `wrong`.
template <typename SetLine>
int forEachOf(const std::string& name, const std::string& text, Progress& progress,
              SetLine setLine) {
  int status = exitDone;
  forEachLine(text, [&](const TextLine& line) {
    const std::size_t start = line.bytes.find_first_not_of(" \t");
    if (status != exitDone || start == std::string::npos || line.bytes[start] == '#') return;
    const std::string where = printable(name) + ", line " + std::to_string(line.number);
    std::string wrong;
    if (line.holdsNul()) {
      wrong = "it holds a NUL byte";
    } else {
      status = setLine(line.bytes.substr(start), wrong);
    }
    progress.step();
    if (!wrong.empty()) {
      status = reportUsage(where + ": " + wrong);
    } else if (status != exitDone) {
      (void)reportRefusal(where, "is not done, nor is any other");
    }
  });
  return status;
}

// --- JSON ---

// An element of an export.
struct Element {
  NamedFields record;
  std::string line;  // of a text
  bool hasLine = false;
  bool hasRecord = false;
  bool isUnended = false;  // the line has no newline
};

// Reads an array of objects; what is wrong with it in `wrong`.
std::vector<Element> elementsOf(Kind kind, const std::string& text, std::string& wrong) {
  std::vector<Element> elements;
  // Deeper than an export ever is; what is built of such a text could not even be copied.
  constexpr int mostDepth = 8;
  Json json;
  bool isTooDeep = false;
  try {
    json = Json::parse(text, [&](int depth, Json::parse_event_t, Json&) {
      isTooDeep = isTooDeep || depth > mostDepth;
      return !isTooDeep;
    });
  } catch (const Json::parse_error& error) {
    wrong = "no JSON: byte " + std::to_string(error.byte);
  } catch (const Json::exception&) {
    wrong = "a number that is too large";
  }
  if (isTooDeep) wrong = "no array of objects with fields";
  if (!wrong.empty()) return elements;
  if (json.is_object()) json = Json::array({json});
  for (std::size_t i = 0; i < json.size() && wrong.empty(); ++i) {
    const std::string where = "element " + std::to_string(i + 1) + ": ";
    Json object = json[i];
    Element element;
    if (!object.is_object()) {
      wrong = where + "no object";
    } else if (isText(kind) && object.contains(lineMember)) {
      element.hasLine = true;
      const bool isLine = textOfJson(object[lineMember], element.line) &&
                          element.line.find('\n') == std::string::npos;
      if (!isLine) wrong = where + "Line is no line";
      element.isUnended = object.value(endedMember, true) == false && i + 1 == json.size();
      object.erase(lineMember);
      object.erase(endedMember);
    }
    if (!wrong.empty()) break;
    element.hasRecord = !object.empty();
    const Parsed parsed = recordOfJson(object);
    if (!parsed.wrong.empty()) wrong = where + parsed.wrong;
    element.record = parsed.fields;
    elements.push_back(std::move(element));
  }
  return elements;
}

// What two records of the kind must not have in common, where that is plain.
std::string identityText(Kind kind, const NamedFields& record) {
  if (kind == Kind::Global) return jsonOf(kind, record).dump(-1, ' ', true);
  std::string text;
  for (const char* field : {"Variable", "Name", "Protocol"}) {
    if (const std::string* value = record.find(field)) text.append(*value).append("\n");
  }
  return text;
}

// The lines of a text as they stand in the file.
std::set<std::string> linesOf(Store& store) {
  std::set<std::string> lines;
  std::string text;
  if (!isText(store.kind())) return lines;
  (void)readContent(RegistryFiles(store.file()).content(), std::string::npos, text);
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    lines.insert(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

// Whether an element is what its line says, and that line is in the file: nobody has edited it.
bool isAsItWas(Kind kind, const Element& element, const std::set<std::string>& there) {
  if (!element.hasLine || there.count(element.line) == 0) return false;
  const std::string bare = element.line.substr(0, element.line.find_last_not_of('\r') + 1);
  return faces::LineParser(nameOf(kind)).parse(bare).fields.all() == element.record.all();
}

int mergeElements(Store& store, const Words& words, const std::string& name,
                  const std::vector<Element>& elements, Progress& progress) {
  const std::set<std::string> there = linesOf(store);
  std::set<std::string> seen;
  for (std::size_t i = 0; i < elements.size(); ++i) {
    if (!elements[i].hasRecord || isAsItWas(store.kind(), elements[i], there)) continue;
    const std::string which = name + ", element " + std::to_string(i + 1);
    if (!seen.insert(identityText(store.kind(), elements[i].record)).second) {
      return reportUsage(which +
                         ": another element has its name; --replace takes them as they are");
    }
    const int status = setRecord(store, words, elements[i].record);
    progress.step();
    if (status == exitDone) continue;
    (void)reportRefusal(which, "is not imported, nor is any other");
    return status;
  }
  return exitDone;
}

// Whether the line is read as the record; an empty field is none.
bool givesBack(const faces::LineParser& parser, const std::string& line,
               const NamedFields& record) {
  NamedFields wanted;
  for (const auto& [name, value] : record.all()) {
    if (name == "Value" || !value.empty()) wanted.set(name, value);
  }
  return parser.parse(line).fields.all() == wanted.all();
}

// The text that the elements stand for. A record whose line still says what it says keeps it.
std::string textOf(Kind kind, const std::vector<Element>& elements, std::string& wrong) {
  const faces::LineParser parser(nameOf(kind));
  std::string text;
  for (std::size_t i = 0; i < elements.size(); ++i) {
    const Element& element = elements[i];
    std::string line = element.line;
    bool isKept = element.hasLine && !element.hasRecord;
    if (element.hasLine && element.hasRecord) {
      const std::size_t end = line.find_last_not_of('\r');
      isKept = parser.parse(line.substr(0, end + 1)).fields.all() == element.record.all();
    }
    if (!isKept) {
      line.erase(line.find_last_not_of('\r') + 1);
      const unsigned int code = parser.format(element.record, line);
      const GenRegReturnCode* row = genRegFindReturnCode(code);
      if (code != 0) {
        wrong = "element " + std::to_string(i + 1) + ": " +
                (row == nullptr ? "it makes no line" : row->meaning);
        return {};
      }
      if (!givesBack(parser, line, element.record)) {
        wrong = "element " + std::to_string(i + 1) + ": its line would not be read as it is";
        return {};
      }
      if (!element.line.empty() && element.line.back() == '\r') line += '\r';
    }
    text.append(line).append(element.isUnended ? "" : "\n");
  }
  return text;
}

// Makes the registry hold the elements and nothing else, in their order; without --replace only
// when it holds nothing yet, else it is overtaken and nothing is done.
int replaceBy(Kind kind, const Words& words, const std::string& name,
              const std::vector<Element>& elements, bool* isOvertaken) {
  const std::string reason =
      reasonAgainst(RegistryFiles(words.file).content(), kind, words.bigEndian);
  if (!reason.empty()) return reportRefusal(words.file, reason);
  std::string wrong;
  std::string content;
  if (isText(kind)) {
    content = textOf(kind, elements, wrong);
    if (!wrong.empty()) return reportUsage(printable(name) + ", " + wrong);
  } else {
    const int status = contentOfRecords(kind, words.bigEndian, content, [&](Store& store) {
      for (std::size_t i = 0; i < elements.size(); ++i) {
        const unsigned int code = store.registry().add(elements[i].record);
        if (code == 0) continue;
        return reportUsage(printable(name) + ", element " + std::to_string(i + 1) + ": " +
                           store.registry().cause());
      }
      return int{exitDone};
    });
    if (status != exitDone) return status;
  }
  bool isChanged = false;
  const int status = updateContent(words, [&](const Content& now, std::string& whole) {
    // Somebody else's first record came in between.
    *isOvertaken = !words.replace && !now.bytes.empty();
    if (*isOvertaken) return int{exitDone};
    isChanged = now.bytes != content;
    whole = content;
    return int{exitDone};
  });
  if (*isOvertaken) return status;
  return status == exitDone ? reportChange(words, isChanged) : status;
}

}  // namespace

int apply(Store& store, const Words& words) {
  Progress progress("changing " + store.file());
  std::string name;
  std::string text;
  if (const int status = readInput(words, name, text); status != exitDone) return status;
  CLI::App line("", "");
  line.require_subcommand(1);
  line.allow_windows_style_options(false);
  Words given;
  int status = exitDone;
  addChanges(line, store.kind(), given,
             [&](const Verb& verb) { status = std::get<Change>(verb.run).work(store, given); });
  return store.update([&] {
    return forEachOf(name, text, progress, [&](const std::string& bytes, std::string& wrong) {
      std::vector<std::string> parts;
      if (!splitWords(bytes, parts)) {
        wrong = "a quote is not closed";
        return int{exitUsage};
      }
      if (verbNamed(line, parts.front()) == nullptr) {
        wrong = "'" + printable(parts.front()) + "' is no verb that changes a record";
        return int{exitUsage};
      }
      std::reverse(parts.begin(), parts.end());
      given = Words();
      given.file = words.file;
      try {
        line.parse(parts);
      } catch (const CLI::ParseError& error) {
        wrong = error.get_exit_code() == 0 ? "there is no help here" : error.what();
        return int{exitUsage};
      }
      return status;
    });
  });
}

int import(Kind kind, const Words& words) {
  Progress progress("importing into " + words.file);
  std::string name;
  std::string text;
  if (const int status = readInput(words, name, text); status != exitDone) return status;
  const std::size_t start = text.find_first_not_of(" \t\r\n");
  const bool isJson = start != std::string::npos && (text[start] == '[' || text[start] == '{');
  std::vector<Element> elements;
  if (isJson) {
    std::string wrong;
    elements = elementsOf(kind, text, wrong);
    if (!wrong.empty()) return reportUsage(printable(name) + ", " + wrong);
  }
  Content content;
  if (const int status = readContentOf(words.file, content); status != exitDone) return status;
  if (words.replace && !isJson) {
    return reportUsage("--replace takes JSON, as export prints it");
  }
  if (isJson && (words.replace || content.bytes.empty())) {
    bool isOvertaken = false;
    const int status = replaceBy(kind, words, name, elements, &isOvertaken);
    if (!isOvertaken) return status;
  }
  Store store(kind, words);
  if (store.status() != exitDone) return store.status();
  const int status = store.update([&] {
    if (isJson) return mergeElements(store, words, name, elements, progress);
    return forEachOf(name, text, progress, [&](const std::string& line, std::string& wrong) {
      const Parsed record = recordOfLine(kind, line);
      wrong = record.wrong;
      return wrong.empty() ? setRecord(store, words, record.fields) : int{exitUsage};
    });
  });
  return status == exitDone ? reportChange(words, store.registry().isCommitted()) : status;
}

int exportJson(Store& store, const Words&) {
  const Progress progress("exporting " + store.file());
  Json all = Json::array();
  int status = exitDone;
  if (isText(store.kind())) {
    const faces::LineParser parser(nameOf(store.kind()));
    std::string text;
    const std::string file = RegistryFiles(store.file()).content();
    if (!readContent(file, std::string::npos, text)) {
      // The library knows why.
      return store.forEach([](const NamedFields&) {});
    }
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); at += bytes.size() + 1) {
      bytes = text.substr(at, text.find('\n', at) - at);
      const faces::LineParser::Line line =
          parser.parse(bytes.substr(0, bytes.find_last_not_of('\r') + 1));
      Json object = line.isEntry ? jsonOf(store.kind(), line.fields) : Json::object();
      std::string written;
      const bool isPlain = line.isEntry && parser.format(line.fields, written) == 0;
      const bool isEnded = at + bytes.size() < text.size();
      if (!isPlain || written != bytes || !isEnded) object[lineMember] = jsonOfText(bytes);
      if (!isEnded) object[endedMember] = false;
      all.push_back(std::move(object));
    }
  } else {
    status = store.forEach(
        [&](const NamedFields& record) { all.push_back(jsonOf(store.kind(), record)); });
  }
  if (status == exitDone) printJson(all);
  return status;
}

}  // namespace tool
