#include "record_words.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <sstream>

#include "genreg.h"
#include "genreg/flavours/protocols.h"

namespace tool {
namespace {

using faces::NamedFields;

std::string shown(const std::string& word) { return "'" + printable(word) + "'"; }

std::string trimmed(const std::string& text) {
  const std::size_t start = text.find_first_not_of(" \t");
  if (start == std::string::npos) return {};
  return text.substr(start, text.find_last_not_of(" \t") - start + 1);
}

// --- what cannot stand in a line of a text and be read back ---

std::string complaintOfVariable(const std::string& name) {
  const bool broken = name.find_first_of(" \t\r\n=#\"") != std::string::npos;
  return broken ? shown(name) + ": a name is one word without = # \"" : "";
}

std::string complaintOfValue(const std::string& value) {
  if (value.find_first_of("\r\n") != std::string::npos)
    return shown(value) + ": a value is one line";
  if (value.find('#') != std::string::npos) {
    return shown(value) + ": a \"#\" would start the comment";
  }
  if (!value.empty() && value[0] == '"') {
    const bool closed = value.size() > 1 && value.find('"', 1) == value.size() - 1;
    return closed ? "" : shown(value) + ": a quoted value ends with its second double quote";
  }
  const bool folded =
      value.find("  ") != std::string::npos || value.find('\t') != std::string::npos;
  const bool trims = !value.empty() && (value.front() == ' ' || value.back() == ' ');
  return folded || trims ? shown(value) + ": put double quotes around blanks that are to stay" : "";
}

std::string complaintOfWord(const std::string& what, const std::string& word) {
  const bool isWord = !word.empty() && word.find_first_of(" \t\r\n#\"") == std::string::npos;
  return isWord ? "" : shown(word) + ": " + what + " is one word";
}

std::string complaint(Kind kind, const Words& words) {
  if (kind == Kind::Var) {
    std::string wrong = complaintOfVariable(words.name);
    return wrong.empty() ? complaintOfValue(words.value) : wrong;
  }
  if (kind != Kind::Services) return {};
  std::string wrong = complaintOfWord("a name", words.name);
  for (const std::string& alias : words.aliases) {
    if (wrong.empty()) wrong = complaintOfWord("an alias", alias);
  }
  return wrong;
}

void addDetails(const Words& words, NamedFields& fields) {
  if (!words.aliases.empty() || words.noAliases) {
    std::string aliases;
    for (const std::string& alias : words.aliases) aliases += (aliases.empty() ? "" : " ") + alias;
    fields.set("Aliases", aliases);
  }
  if (words.comment || words.noComment) fields.set("Comment", words.comment.value_or(""));
}

std::string conflict(const Words& words) {
  if (words.comment && words.noComment) return "--comment and --no-comment are given";
  if (!words.aliases.empty() && words.noAliases) return "aliases and --no-aliases are given";
  return {};
}

// --- lines ---

// "x" and two digits, not of the byte 0.
bool readHexByte(const std::string& text, std::size_t at, unsigned int& byte) {
  if (at + 3 > text.size() || text[at] != 'x') return false;
  const auto [stop, error] = std::from_chars(&text[at + 1], &text[at + 1] + 2, byte, 16);
  return error == std::errc() && stop == &text[at + 1] + 2 && byte != 0;
}

// The name; then the value; the rest is the comment.
Parsed binLine(const std::string& line) {
  WordReader words(line);
  std::string name;
  std::string value;
  if (!words.next(name) || !words.next(value)) return {{}, "no NAME VALUE"};
  Parsed parsed;
  parsed.fields.set("Variable", name);
  parsed.fields.set("Value", value);
  std::string comment = trimmed(words.rest());
  if (!comment.empty() && comment[0] == '"') {
    WordReader quotedComment(comment);
    std::string word;
    if (quotedComment.next(word) && trimmed(quotedComment.rest()).empty()) comment = word;
  }
  if (!comment.empty()) parsed.fields.set("Comment", comment);
  return parsed;
}

// Takes the comment of a text's line off.
std::string cutComment(const std::string& line, Words& words) {
  const std::size_t hash = line.find('#');
  if (hash != std::string::npos) words.comment = trimmed(line.substr(hash + 1));
  return line.substr(0, hash);
}

Parsed varLine(const std::string& line) {
  Words words;
  const std::string assignment = cutComment(line, words);
  const std::size_t equals = assignment.find('=');
  words.name = trimmed(assignment.substr(0, equals));
  if (equals == std::string::npos || words.name.empty()) return {{}, "no NAME=VALUE"};
  words.value = trimmed(assignment.substr(equals + 1));
  return recordOf(Kind::Var, words);
}

Parsed servicesLine(const std::string& line) {
  Words words;
  std::istringstream parts(cutComment(line, words));
  parts >> words.name >> words.port;
  for (std::string alias; parts >> alias;) words.aliases.push_back(alias);
  return recordOf(Kind::Services, words);
}

Parsed globalLine(const std::string& line) {
  std::vector<std::string> words;
  if (!splitWords(line, words) || words.empty()) return {{}, "a quote is not closed"};
  const std::string type = words.front();
  words.erase(words.begin());
  return globalFields(type, words, false);
}

}  // namespace

Parsed endpointOf(const std::string& word) {
  Parsed parsed;
  const std::size_t slash = word.find('/');
  const std::string port = word.substr(0, slash);
  const bool isPort = !port.empty() && port.size() <= 5 &&
                      port.find_first_not_of("0123456789") == std::string::npos &&
                      std::stoul(port) != 0 && std::stoul(port) <= 65535;
  if (!isPort || slash + 1 == word.size()) {
    parsed.wrong = shown(word) + ": a port from 1 to 65535, a slash and a protocol";
    return parsed;
  }
  parsed.fields.set("Port", std::to_string(std::stoul(port)));
  if (slash != std::string::npos) parsed.fields.set("Protocol", word.substr(slash + 1));
  return parsed;
}

Parsed recordOf(Kind kind, const Words& words) {
  if (kind == Kind::Global) return globalFields(words.type, words.fields, false);
  Parsed parsed;
  parsed.wrong = conflict(words);
  if (parsed.wrong.empty()) parsed.wrong = complaint(kind, words);
  if (!parsed.wrong.empty()) return parsed;
  if (kind == Kind::Services) {
    Parsed endpoint = endpointOf(words.port);
    if (endpoint.wrong.empty() && !endpoint.fields.has("Protocol")) {
      endpoint.wrong = shown(words.port) + ": a port from 1 to 65535, a slash and a protocol";
    }
    if (!endpoint.wrong.empty()) return endpoint;
    parsed.fields.set("Name", words.name);
    for (const auto& [name, value] : endpoint.fields.all()) parsed.fields.set(name, value);
  } else {
    parsed.fields.set("Variable", words.name);
    parsed.fields.set("Value", words.value);
  }
  addDetails(words, parsed.fields);
  return parsed;
}

Parsed keyOf(Kind kind, const Words& words) {
  if (kind == Kind::Global) return globalFields(words.type, words.fields, false);
  Parsed parsed;
  if (kind != Kind::Services) {
    parsed.fields.set("Variable", words.name);
    return parsed;
  }
  if (!words.port.empty()) parsed = endpointOf(words.port);
  parsed.fields.set("Name", words.name);
  return parsed;
}

Parsed globalFields(const std::string& type, const std::vector<std::string>& words,
                    bool mayTakeAway) {
  Parsed parsed;
  parsed.fields.set("Type", type);
  for (const std::string& word : words) {
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    if (equals == std::string::npos || name.empty()) {
      parsed.wrong = shown(word) + " is no FIELD=VALUE";
    } else if (equals + 1 == word.size() && !mayTakeAway) {
      parsed.wrong = name + " has no value";
    } else if (parsed.fields.has(name)) {
      parsed.wrong = name + " is given twice";
    }
    if (!parsed.wrong.empty()) return parsed;
    parsed.fields.set(name, word.substr(equals + 1));
  }
  if (words.empty()) parsed.wrong = "a record or key has at least one FIELD=VALUE";
  return parsed;
}

Parsed recordOfLine(Kind kind, const std::string& line) {
  switch (kind) {
    case Kind::Bin:
      return binLine(line);
    case Kind::Var:
      return varLine(line);
    case Kind::Services:
      return servicesLine(line);
    default:
      return globalLine(line);
  }
}

std::vector<std::string> cellsOf(Kind kind, const NamedFields& record) {
  std::string comment = printable(record.text("Comment"));
  const std::string& name = record.text(kind == Kind::Services ? "Name" : "Variable");
  switch (kind) {
    case Kind::Bin: {
      char line[128];
      (void)std::snprintf(line, sizeof line, "%-15s %11s  ", quoted(name).c_str(),
                          record.text("Value").c_str());
      const std::string& stored = record.text("Comment");
      const bool isShown = stored == trimmed(comment) && comment.find('"') != 0;
      if (!isShown) comment = quoted(stored);
      const std::string text = line + comment;
      return {text.substr(0, text.find_last_not_of(' ') + 1)};
    }
    case Kind::Var:
      return {printable(name), printable(record.text("Value")), comment};
    case Kind::Services: {
      const std::string& protocol = record.text("Protocol");
      const std::string& port = record.text("Port");
      const bool isOdd = !genreg::isProtocol(protocol);
      return {printable(name), port + "/" + printable(protocol) + (isOdd ? " ?" : ""),
              printable(record.text("Aliases")), comment};
    }
    default: {
      std::string line = record.text("Type");
      for (const auto& [field, value] : record.all()) {
        if (field == "Type" || (field == "CheckSum" && value == "0")) continue;
        line.append("  ").append(field).append("=").append(quoted(value));
      }
      return {line};
    }
  }
}

bool WordReader::next(std::string& word) {
  at_ = std::min(line_.find_first_not_of(" \t", at_), line_.size());
  if (at_ == line_.size()) return false;
  word.clear();
  char quote = '\0';
  for (; at_ < line_.size(); ++at_) {
    const char character = line_[at_];
    if (quote == '\0' && (character == ' ' || character == '\t')) break;
    const bool isEscape = quote == '"' && character == '\\' && at_ + 1 < line_.size();
    unsigned int byte = 0;
    if (isEscape && (line_[at_ + 1] == '"' || line_[at_ + 1] == '\\')) {
      word += line_[++at_];
    } else if (isEscape && readHexByte(line_, at_ + 1, byte)) {
      word += static_cast<char>(byte);
      at_ += 3;
    } else if (quote == character) {
      quote = '\0';
    } else if (quote == '\0' && (character == '"' || character == '\'')) {
      quote = character;
    } else {
      word += character;
    }
  }
  isOpen_ = quote != '\0';
  return !isOpen_;
}

bool splitWords(const std::string& line, std::vector<std::string>& words) {
  WordReader reader(line);
  for (std::string word; reader.next(word);) words.push_back(word);
  return !reader.isOpen();
}

std::string quoted(const std::string& word) {
  const auto isControl = [](char byte) {
    return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
  };
  const bool isPlain = !word.empty() && word[0] != '#' &&
                       word.find_first_of(" \"'") == std::string::npos &&
                       std::none_of(word.begin(), word.end(), isControl);
  if (isPlain) return word;
  std::string text = "\"";
  for (const char character : word) {
    if (isControl(character)) {
      char escape[8];
      (void)std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(character));
      text += escape;
      continue;
    }
    if (character == '"' || character == '\\') text += '\\';
    text += character;
  }
  return text + '"';
}

}  // namespace tool
